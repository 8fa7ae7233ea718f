// debian/copyright names each module that the page contains, with its version and licence.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import { test } from 'node:test';

const read = (name) => fs.readFileSync(new URL(`../../${name}`, import.meta.url), 'utf8');

test('the modules of the lock file and those of debian/copyright agree', () => {
  const unused = [...read('player/vite.config.js').matchAll(/'([^']+)': unused/g)].map(([, name]) => name);
  const modules = Object.entries(JSON.parse(read('player/package-lock.json')).packages)
    .filter(([place, { dev }]) => place !== '' && !dev)
    .map(([place, { version, license }]) => ({ name: place.replace(/.*node_modules\//, ''), version, license }))
    .filter(({ name }) => !unused.includes(name));
  const named = [...read('debian/copyright').match(/these npm modules.*?(?=^The tests)/ms)[0].matchAll(/^(\S+) (\d\S*)\n (.*)$/gm)];
  const inOrder = (list) => list.map((entry) => Object.values(entry).join(' ')).sort();
  assert.ok(modules.length > 5);
  assert.deepEqual(inOrder(named.map(([, name, version, license]) => ({ name, version, license }))), inOrder(modules));
});
