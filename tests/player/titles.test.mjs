import assert from 'node:assert/strict';
import { test } from 'node:test';

import { lineOf, titleOf, titleOfEntry } from '../../player/src/titles.js';

const lines = {
  'The Long Journey (2019).mkv': 'The Long Journey (2019)',
  'The.Long.Journey.2019.1080p.BluRay.x264-GRP.mkv': 'The Long Journey (2019)',
  'The_Long_Journey_[2019].mp4': 'The Long Journey (2019)',
  '2001 A Space Story (1968).mkv': '2001 A Space Story (1968)',
  '1984.mkv': '1984.mkv',
  'Year 2000 party 720p.mp4': 'Year (2000)',
  'Quiet.River.720p.WEB-DL.mkv': 'Quiet River',
  'Harbour.Lights.S01E02.The.Storm.720p.mkv': 'Harbour Lights S01E02 – The Storm',
  'Harbour Lights - 1x02 - The Storm.mkv': 'Harbour Lights S01E02 – The Storm',
  'Harbour Lights (2018) s1e12.mkv': 'Harbour Lights S01E12',
  'S02E03.mkv': 'S02E03',
  'Harbour.Lights.S01E02E03.1080p.mkv': 'Harbour Lights S01E02',
  'h264_ac3.mkv': 'h264_ac3.mkv',
  'clip 10.mkv': 'clip 10.mkv',
  'portrait 1920x1080.mp4': 'portrait 1920x1080.mp4',
  '<img src=x>&amp;.mkv': '<img src=x>&amp;.mkv',
  '.mkv': '.mkv',
  '(2019).mkv': '(2019).mkv',
  '1080p.mkv': '1080p.mkv',
};

for (const [name, line] of Object.entries(lines)) {
  test(`${name} is shown as ${line}`, () => assert.equal(lineOf(titleOf(name), name), line));
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
