// For bench/library. The floor is a page that holds its tile already, in the same browser, in turns. Prints medians, and the fastest time, which other work on the machine disturbs least.
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';

import { encode, launch, Viewer } from '../tests/service/page.mjs';
import { media, Service } from '../tests/service/support.mjs';

const FILMS = 1000;
const SOURCE = path.join(media, 'cinema.mkv');

const rounds = Number(process.argv[2]);
const middle = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-library-'));
for (let number = 1; number <= FILMS; ++number) fs.symlinkSync(SOURCE, path.join(folder, `film ${number}.mkv`));
const bare = http.createServer((_, answer) => answer.setHeader('Content-Type', 'text/html').end('<!doctype html><p class="tile">film'));
await new Promise((listens) => bare.listen(0, '127.0.0.1', listens));
const service = await Service.start([folder, media]);
const browser = await launch();

// Notes when the first tile is there, and when every tile on the screen has its picture, after the begin of the navigation.
function watchTiles() {
  window.noted = {};
  const look = () => {
    const tiles = [...document.querySelectorAll('.tile')].filter((tile) => tile.getBoundingClientRect().top < window.innerHeight);
    if (tiles.length > 0) window.noted.tiles ??= performance.now();
    if (tiles.length > 0 && tiles.every((tile) => tile.querySelector('img')?.complete)) window.noted.pictures ??= performance.now();
    requestAnimationFrame(look);
  };
  requestAnimationFrame(look);
}

async function measure() {
  const viewer = await Viewer.open(browser, service);
  const { page } = viewer;
  await page.addInitScript(watchTiles);
  await viewer.go(`#/folder${encode(folder)}`);
  await page.waitForFunction(() => window.noted.pictures);
  const found = await page.evaluate(() => ({
    ...window.noted,
    script: performance
      .getEntriesByType('resource')
      .filter(({ name }) => name.endsWith('.js'))
      .reduce((sum, { decodedBodySize }) => sum + decodedBodySize, 0),
  }));
  await viewer.close();
  return found;
}

async function measureFloor() {
  const viewer = await Viewer.open(browser, service);
  await viewer.page.addInitScript(watchTiles);
  await viewer.page.goto(`http://127.0.0.1:${bare.address().port}/`);
  const tiles = await (await viewer.page.waitForFunction(() => window.noted.tiles)).jsonValue();
  await viewer.close();
  return tiles;
}

try {
  const first = await measure(); // nothing is in the cache
  const samples = [];
  const floors = [];
  for (let round = 0; round < rounds; ++round) {
    floors.push(await measureFloor());
    samples.push(await measure());
  }
  const line = (name, value) => process.stdout.write(`${name.padEnd(52)}${Math.round(value)}\n`);
  line('first tiles, first visit (ms)', first.tiles);
  line('first tiles (ms)', middle(samples.map(({ tiles }) => tiles)));
  line('a page with one tile and no script (ms)', middle(floors));
  line('first tiles, fastest (ms)', Math.min(...samples.map(({ tiles }) => tiles)));
  line('every tile on the screen with its picture (ms)', middle(samples.map(({ pictures }) => pictures)));
  line('script before a film is opened (bytes)', middle(samples.map(({ script }) => script)));
} finally {
  await browser.close();
  bare.close();
  await service.stop();
  fs.rmSync(folder, { recursive: true });
}
