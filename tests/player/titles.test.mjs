import assert from 'node:assert/strict';
import fs from 'node:fs';
import { test } from 'node:test';

import { lineOf, titleOf, titleOfEntry, withCard } from '../../player/src/titles.js';

// The names that the televisions' server is tested with, too.
const table = JSON.parse(fs.readFileSync(new URL('titles.json', import.meta.url), 'utf8'));

for (const { name, folders = [], notes = {}, tag = '', line } of table) {
  const details = folders.concat(tag, notes.title ?? []).filter(Boolean).join(', ');
  test(`${name} ${details && `(${details}) `}is shown as ${line}`, () => assert.equal(lineOf(withCard(titleOf(name, folders), { title: tag, notes }), name), line));
}

test('a number is an episode in the folder of a season only', () => {
  assert.deepEqual(titleOf('03 - The Storm.mkv', ['Harbour Lights', 'Season 2']), {
    ...{ show: 'Harbour Lights', season: 2, episode: 3, title: 'The Storm', plain: false },
  });
  assert.equal(titleOf('03 - The Storm.mkv', ['Music']).title, '03 - The Storm');
});

test('the folders come from the path', () => {
  const about = titleOfEntry({ name: '3.mkv', encoded_path: '/films/Harbour%20Lights/Staffel%201/3.mkv' });
  assert.deepEqual([about.show, about.season, about.episode], ['Harbour Lights', 1, 3]);
});

test('a name without a known form keeps its words', () => {
  assert.deepEqual(titleOf('Into the set.mkv'), { title: 'Into the set', plain: true });
});
