// What viewers do around a film: the next one, the queue, marks, downloads, pointers and keys of the player.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, afterEach, before, beforeEach, test } from 'node:test';

import { encode, launch, Viewer } from './page.mjs';
import { eventually, media, Service } from './support.mjs';

// A name that would add a film to a playlist, and an element to its other form.
const LINES = 'Lists/b\nfile:etc<location>.mkv';

let service;
let browser;
let folder;
let viewer;
let page;

const place = (view, name, query = '') => `#/${view}${encode(path.join(folder, name))}${query}`;
const watch = (name, second) => viewer.go(place('play', name, `?t=${second}`));

before(async () => {
  folder = fs.mkdtempSync(path.join(media, 'next-'));
  for (const name of ['Show/Season 1/Show.S01E01.mkv', 'Show/Season 1/Show.S01E02.mkv', 'Show/Season 2/Show.S02E01.mkv', 'Films/one.mkv', 'Films/two.mkv', 'Lists/a.mkv', LINES]) {
    const file = path.join(folder, name);
    fs.mkdirSync(path.dirname(file), { recursive: true });
    fs.linkSync(path.join(media, 'cinema.mkv'), file);
  }
  service = await Service.start([folder]);
  browser = await launch();
});
after(async () => {
  await browser.close();
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});
beforeEach(async () => {
  viewer = await Viewer.open(browser, service);
  ({ page } = viewer);
});
afterEach(async () => {
  await viewer.close();
  const body = new URLSearchParams({ api: 'ORVO.Mirevo2.History', version: 1, method: 'remove' });
  await fetch(`${service.address}/webapi/entry.cgi`, { method: 'POST', body });
});

const shows = (title) => page.locator('#title', { hasText: title }).waitFor();
const upNext = () => page.getByRole('group', { name: 'Next film' });

test('after an episode the next one begins by itself, in the next season too', async () => {
  await watch('Show/Season 1/Show.S01E02.mkv', 17);
  await upNext().getByText('Next: Show S02E01').waitFor();
  await upNext().getByText(/It begins in \d+ s\./).waitFor();
  await shows('Show S02E01');
  await viewer.playing();
  assert.ok((await viewer.state()).time < 10);
  await page.goBack();
  assert.ok(!page.url().includes('#/play'), 'the episodes share one entry of the browser’s history');
});

test('the countdown can be stopped, and the next episode begins at a press', async () => {
  await watch('Show/Season 1/Show.S01E01.mkv', 17);
  await upNext().getByText(/It begins in/).waitFor();
  await upNext().getByRole('button', { name: 'Stop' }).click();
  await upNext().waitFor({ state: 'hidden' });
  await page.evaluate(() => new Promise((done) => { setTimeout(done, 1500); }));
  await shows('Show S01E01');
  await page.keyboard.press('n');
  await shows('Show S01E02');
});

test('the player stays in full screen from one film to the next', async () => {
  await watch('Show/Season 1/Show.S01E01.mkv', 0);
  await viewer.playing();
  await page.keyboard.press('f');
  await page.waitForFunction(() => document.fullscreenElement !== null);
  await viewer.wake();
  await page.getByRole('button', { name: 'Next film' }).click();
  await shows('Show S01E02');
  await viewer.playing();
  assert.equal(await page.evaluate(() => document.fullscreenElement !== null), true);
});

test('an ordinary film offers the next one and waits', async () => {
  await watch('Films/one.mkv', 17);
  await upNext().getByText('Next: two.mkv').waitFor();
  assert.equal(await upNext().getByText(/It begins in/).count(), 0);
  await upNext().getByRole('button', { name: 'Play now' }).click();
  await shows('two.mkv');
});

test('a folder is played as a queue, from the first film that is not watched', async () => {
  await viewer.go(place('film', 'Films/one.mkv'));
  await page.getByRole('button', { name: 'Mark as watched' }).click();
  await page.getByRole('button', { name: 'Mark as not watched' }).waitFor();
  await viewer.go(place('folder', 'Films'));
  await page.locator('.tile.watched', { hasText: 'one' }).waitFor();
  await page.getByRole('button', { name: 'Play all' }).click();
  await shows('two.mkv');
  await viewer.playing();
  await page.keyboard.press('p');
  await shows('one.mkv');
  await viewer.go();
  const queue = page.getByRole('list', { name: 'Queue' });
  await queue.getByRole('link', { name: 'two.mkv' }).waitFor();
  assert.deepEqual(await queue.locator('.name').allInnerTexts(), ['one.mkv', 'two.mkv']);
  await page.getByRole('button', { name: 'Clear the queue' }).click();
  await queue.waitFor({ state: 'detached' });
});

test('a film in the queue plays after the one that is not in it', async () => {
  await viewer.go(place('film', 'Films/one.mkv'));
  await page.getByRole('button', { name: 'Add to the queue' }).click();
  await page.getByRole('button', { name: 'In the queue' }).waitFor();
  await watch('Show/Season 1/Show.S01E01.mkv', 0);
  await viewer.playing();
  await page.keyboard.press('n');
  await shows('one.mkv');
});

test('the original file and a picture of the film are saved', async () => {
  await viewer.go(place('film', 'Films/one.mkv'));
  await page.getByRole('button', { name: 'Download' }).click();
  const download = page.waitForEvent('download');
  await page.getByRole('button', { name: /^Original file/ }).click();
  const file = await download;
  assert.equal(file.suggestedFilename(), 'one.mkv');
  assert.equal(fs.statSync(await file.path()).size, fs.statSync(path.join(folder, 'Films/one.mkv')).size);
  await watch('Films/one.mkv', 0);
  await viewer.playing();
  const picture = page.waitForEvent('download');
  await page.keyboard.press('x');
  assert.match((await picture).suggestedFilename(), /^one\.mkv 0-\d\d\.png$/);
});

test('a double click changes to full screen, the wheel changes the volume, and single pictures can be seen', async () => {
  await watch('Films/one.mkv', 0);
  await viewer.playing();
  await page.locator('#video').dblclick();
  await page.waitForFunction(() => document.fullscreenElement !== null);
  await page.keyboard.press('f');
  await page.mouse.wheel(0, 100);
  await page.waitForFunction(() => document.getElementById('video').volume < 1);
  await page.keyboard.press('.');
  await page.waitForFunction(() => document.getElementById('video').paused && !document.getElementById('video').seeking);
  const { time } = await viewer.state();
  await page.waitForFunction((next) => {
    const { buffered } = document.getElementById('video');
    return buffered.length > 0 && buffered.end(buffered.length - 1) > next;
  }, time + 0.2);
  await page.keyboard.press('.');
  await eventually(async () => ((await viewer.state()).time > time ? true : undefined));
  assert.ok((await viewer.state()).time < time + 0.2, 'one picture further');
});

test('two taps at the edge of the picture skip ten seconds', async () => {
  await viewer.close();
  viewer = await Viewer.open(browser, service, { viewport: { width: 360, height: 700 }, isMobile: true, hasTouch: true });
  ({ page } = viewer);
  await watch('Films/one.mkv', 0);
  await viewer.playing();
  const { x, y, width, height } = await page.locator('#video').boundingBox();
  const tap = () => page.touchscreen.tap(x + width * 0.9, y + height * 0.5);
  await tap();
  await tap();
  await page.waitForFunction(() => document.getElementById('video').currentTime > 9.5);
});

// Saves the folder that is shown as a playlist of this form. Returns the file's name and text.
async function savedAs(form) {
  await page.getByRole('button', { name: 'Save as playlist' }).click();
  const dialog = page.getByRole('dialog', { name: 'Save as playlist' });
  const saved = page.waitForEvent('download');
  await dialog.getByRole('button', { name: form }).click();
  const file = await saved;
  const text = fs.readFileSync(await file.path(), 'utf8');
  await dialog.getByText('The browser saves a playlist of 2 films.').waitFor();
  await page.keyboard.press('Escape');
  await dialog.waitFor({ state: 'detached' });
  return [file.suggestedFilename(), text];
}

// Does each address give a film?
async function playAll(addresses) {
  for (const address of addresses) {
    const answer = await fetch(address, { headers: { Range: 'bytes=0-3' } });
    assert.equal(answer.status, 206);
    assert.equal(Buffer.from(await answer.arrayBuffer()).toString('hex'), '1a45dfa3', 'the film itself');
  }
}

test('a folder is saved as a playlist for other players, whatever its films are called', async () => {
  await viewer.go(place('folder', 'Lists'));
  const [name, list] = await savedAs('M3U');
  assert.equal(name, 'Lists.m3u');
  const [head, first, one, second, two, ...rest] = list.split('\n');
  assert.deepEqual([head, first, second, rest], ['#EXTM3U', '#EXTINF:20,a.mkv', '#EXTINF:20,b file:etc<location>.mkv', ['']]);
  await playAll([one, two]);
  const [, text] = await savedAs('XSPF');
  const tracks = await page.evaluate((xml) => {
    const read = new DOMParser().parseFromString(xml, 'application/xml');
    return [...read.querySelectorAll('track')].map((track) => ['location', 'title'].map((part) => [...track.querySelectorAll(part)].map((node) => node.textContent)));
  }, text);
  assert.deepEqual(tracks.map(([, title]) => title), [['a.mkv'], ['b file:etc<location>.mkv']]);
  await playAll(tracks.flatMap(([location]) => location));
});

test('the queue is saved as a playlist', async () => {
  await page.addInitScript((films) => sessionStorage.setItem('mirevo-queue', JSON.stringify([`${films}/one.mkv`, `${films}/two.mkv`])), encode(path.join(folder, 'Films')));
  await viewer.go();
  const [name, list] = await savedAs('M3U');
  assert.equal(name, 'Queue.m3u');
  assert.deepEqual(list.match(/(?<=,).*\.mkv/g), ['one.mkv', 'two.mkv']);
});
