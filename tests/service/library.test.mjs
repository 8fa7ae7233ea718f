// The library as viewers see it: names, broken files, marks, orders, and folders with many films.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, afterEach, before, beforeEach, test } from 'node:test';

import { answerFor, encode, launch, Viewer } from './page.mjs';
import { media, Service } from './support.mjs';

let service;
let browser;
let folder;
let viewers;

const place = (view, name, query = '') => `#/${view}${encode(path.join(folder, name))}${query}`;

function add(name, source) {
  const file = path.join(folder, name);
  fs.mkdirSync(path.dirname(file), { recursive: true });
  if (source) fs.linkSync(path.join(media, source), file);
  else fs.writeFileSync(file, '');
  return file;
}

before(async () => {
  folder = fs.mkdtempSync(path.join(media, 'library-'));
  add('Films/The.Long.Journey.2019.1080p.x264-GRP.mkv', 'cinema.mkv');
  add('Films/Quiet River (2021).mkv', 'tv.mkv');
  add('Films/song.mka', 'no_video.mka');
  add('Films/empty.mkv');
  add('Films/text.mkv', 'text.mkv');
  for (const code of ['S01E01', 'S01E02', 'S02E01']) add(`Series/Harbour.Lights.${code}.Calm.mkv`, 'cinema.mkv');
  add('Nothing/notes.txt');
  for (let number = 1; number <= 1000; ++number) add(`Many/clip ${number}.mkv`);
  service = await Service.start([folder]);
  browser = await launch();
});
after(async () => {
  await browser.close();
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});
beforeEach(() => {
  viewers = [];
});
afterEach(async () => {
  await Promise.all(viewers.map((viewer) => viewer.close()));
  await post('remove');
});

function post(method, name, parameters = {}) {
  const film = name ? { path: path.join(folder, name) } : {};
  const body = new URLSearchParams({ api: 'ORVO.Mirevo2.History', version: 1, method, ...film, ...parameters });
  return fetch(`${service.address}/webapi/entry.cgi`, { method: 'POST', body });
}
const watch = (name, position) => post('save', name, { position, duration: 20 });

async function enter(view, answers = {}, options = {}) {
  const viewer = await Viewer.open(browser, service, options);
  viewers.push(viewer);
  await answerFor(viewer.page, answers);
  await viewer.go(view);
  return viewer.page;
}

const namesIn = (page) => page.locator('.tile .name').allInnerTexts();
const tile = (page, name) => page.locator('.tile', { hasText: name });

test('names of files become titles, and episodes stand below their season', async () => {
  const page = await enter(place('folder', 'Films'));
  await page.getByRole('link', { name: 'The Long Journey (2019)' }).waitFor();
  await page.getByRole('link', { name: 'Quiet River (2021)' }).click();
  await page.getByRole('heading', { name: 'Quiet River (2021)' }).waitFor();
  await page.goto(`${service.address}/${place('folder', 'Series')}`);
  await page.getByRole('heading', { name: 'Harbour Lights – Season 2' }).waitFor();
  assert.deepEqual(await page.locator('.tiles > li').evaluateAll((items) => items.map((item) => item.innerText.split('\n')[0])), [
    'Harbour Lights – Season 1',
    ...['1. Calm', '2. Calm'],
    ...['Harbour Lights – Season 2', '1. Calm'],
  ]);
});

test('a broken file looks broken and says why', async () => {
  const page = await enter(place('folder', 'Films'));
  await tile(page, 'empty').getByText('Cannot be played. The file is empty.').waitFor();
  await tile(page, 'text').getByText('Cannot be played. The file is damaged or incomplete, or it is not a film.').waitFor();
  await tile(page, 'Quiet River').getByText('0:20').waitFor();
  assert.equal(await page.locator('.tile.broken').count(), 2);
});

test('a folder without films says what to do', async () => {
  const page = await enter(place('folder', 'Nothing'));
  await page.getByText('There are no films here. Copy films into this folder').waitFor();
});

test('watched films have a mark, begun ones a bar, and a folder counts them', async () => {
  await watch('Films/Quiet River (2021).mkv', 20);
  await watch('Films/The.Long.Journey.2019.1080p.x264-GRP.mkv', 5);
  const page = await enter(place('folder', 'Films'));
  await tile(page, 'Quiet River').getByText('Watched').waitFor();
  await tile(page, 'Long Journey').getByRole('progressbar', { name: 'Watched part' }).waitFor();
  await page.getByRole('link', { name: 'Library' }).first().click();
  await tile(page, 'Films').getByText('5 films · 1 watched').waitFor();
  await tile(page, 'Films').getByRole('progressbar', { name: 'Watched films' }).waitFor();
});

test('a film is removed from the list of begun films', async () => {
  await watch('Films/Quiet River (2021).mkv', 5);
  await watch('Series/Harbour.Lights.S01E01.Calm.mkv', 5);
  const page = await enter();
  const row = page.getByRole('list', { name: 'Continue watching' });
  await row.getByRole('link', { name: 'Harbour Lights S01E01 – Calm' }).waitFor();
  await row.getByRole('button', { name: 'Remove Quiet River (2021).mkv from this list' }).click();
  await row.getByRole('link', { name: 'Quiet River' }).waitFor({ state: 'detached' });
  await row.getByRole('button', { name: /^Remove Harbour/ }).click();
  await row.waitFor({ state: 'detached' });
  await page.reload();
  await page.getByRole('heading', { name: 'Library' }).waitFor();
  assert.equal(await row.count(), 0);
});

test('films are shown in the chosen order, and the address keeps the choice', async () => {
  await watch('Films/Quiet River (2021).mkv', 20);
  const old = new Date(2001, 1);
  fs.utimesSync(path.join(folder, 'Films/song.mka'), old, old);
  const page = await enter(place('folder', 'Films'));
  await page.getByRole('combobox', { name: 'Show' }).selectOption('Music');
  await tile(page, 'Quiet River').waitFor({ state: 'detached' });
  assert.deepEqual(await namesIn(page), ['song.mka']);
  await page.getByRole('combobox', { name: 'Show' }).selectOption('Not watched');
  await tile(page, 'Long Journey').waitFor();
  assert.equal(await tile(page, 'Quiet River').count(), 0);
  await page.getByRole('combobox', { name: 'Sort by' }).selectOption('Recently added');
  await page.waitForFunction(() => window.location.hash.includes('sort=added'));
  await page.waitForFunction(() => [...document.querySelectorAll('.tile .name')].at(-1)?.textContent === 'song.mka');
  await page.reload();
  await tile(page, 'Long Journey').waitFor();
  assert.equal((await namesIn(page)).at(-1), 'song.mka');
});

test('a folder of a thousand films shows its first tiles, and the others when the viewer scrolls', async () => {
  const card = () => ({ duration: 20, width: 640, height: 360, music: false, video: 'h264', audio: 'aac' });
  const page = await enter(place('folder', 'Many'), { 'Library.card': card, 'Library.poster': card });
  await page.getByRole('link', { name: 'clip 1.mkv', exact: false }).first().waitFor();
  assert.ok((await namesIn(page)).length < 300, 'only a part is loaded at first');
  for (let count = 0; count < 1000; ) {
    await page.evaluate(() => window.scrollTo(0, document.documentElement.scrollHeight));
    await page.waitForFunction((least) => document.querySelectorAll('.tile').length > least, count);
    count = await page.locator('.tile').count();
  }
  const names = await namesIn(page);
  assert.deepEqual(names, Array.from({ length: 1000 }, (_, index) => `clip ${index + 1}.mkv`));
  assert.equal(await page.getByText('Loading more').count(), 0);
});

test('the first folder is requested before the server has told who the viewer is', async () => {
  const viewer = await Viewer.open(browser, service);
  viewers.push(viewer);
  const { page } = viewer;
  const asked = [];
  const isCall = (url) => url.searchParams.get('method') ?? '';
  const told = new Promise((resolve) => {
    page.on('request', (request) => isCall(new URL(request.url())) === 'list' && asked.push(request.url()) === 3 && resolve());
  });
  await page.route((url) => isCall(url) === 'who', async (route) => {
    await told;
    await route.fallback();
  });
  await viewer.go(place('folder', 'Films'));
  await page.getByRole('link', { name: /Quiet River/ }).first().waitFor();
  assert.equal(new Set(asked).size, asked.length, `nothing is requested twice: ${asked}`);
});

test('streams without a viewer take one line until the owner looks at them', async () => {
  const stream = (number, playing) => ({
    ...{ stream_id: `${number}`, kind: 'HLS', path: `/films/left ${number}.mkv`, account: '', profile: '720p', method: 'remux' },
    ...{ start: 0, times: {}, client: null, position: 0, idle_seconds: playing ? 1 : 200, playing },
  });
  const open = new Set([1, 2, 3, 4]);
  const status = () => ({
    ...{ streams: [...open].map((number) => stream(number, number === 1)), transcoders: [], recent: [], volumes: [] },
    ...{ limits: { software: 1, hardware: 0 }, platform: {} },
  });
  const close = (parameters) => (open.delete(Number(parameters.get('stream_id'))), {});
  const page = await enter('#/status', { 'Status.get': status, 'Streaming.close': close });
  await page.getByRole('button', { name: 'Stop left 1.mkv' }).waitFor();
  assert.equal(await page.getByRole('button', { name: 'Stop left 2.mkv' }).isVisible(), false);
  await page.getByText('3 streams without a viewer').click();
  await page.getByRole('button', { name: 'Stop left 2.mkv' }).waitFor();
  await page.getByRole('button', { name: 'Stop all of them' }).click();
  await page.getByText('3 streams without a viewer').waitFor({ state: 'detached' });
  assert.deepEqual([...open], [1]);
});

test('a German browser gets a German page', async () => {
  const page = await enter(place('folder', 'Films'), {}, { locale: 'de-DE' });
  await page.getByRole('combobox', { name: 'Sortieren nach' }).waitFor();
  await page.getByRole('link', { name: 'Mediathek' }).first().waitFor();
  assert.equal(await page.evaluate(() => document.documentElement.lang), 'de');
});

test('less than 100 kB of script is loaded before the page of a film loads the player', async () => {
  const page = await enter(place('folder', 'Films'));
  await page.getByRole('link', { name: /Quiet River/ }).first().waitFor();
  const size = await page.evaluate(() =>
    performance
      .getEntriesByType('resource')
      .filter(({ name }) => name.endsWith('.js'))
      .reduce((sum, { decodedBodySize }) => sum + decodedBodySize, 0),
  );
  assert.ok(size > 10_000 && size < 100_000, `${size} bytes`);
});

test('the page can be installed, and starts without the server', async () => {
  const page = await enter('', {}, { serviceWorkers: 'allow' });
  await page.getByRole('heading', { name: 'Library' }).waitFor();
  const manifest = await page.evaluate(async () => (await fetch(document.querySelector('link[rel=manifest]').href)).json());
  assert.equal(manifest.display, 'standalone');
  for (const { src } of manifest.icons) {
    assert.equal((await fetch(`${service.address}/${src}`)).status, 200, src);
  }
  await page.evaluate(() => navigator.serviceWorker.ready.then(() => navigator.serviceWorker.controller ?? new Promise((done) => {
    navigator.serviceWorker.addEventListener('controllerchange', done);
  })));
  await page.reload(); // now everything is stored
  await page.getByRole('heading', { name: 'Library' }).waitFor();
  await page.context().setOffline(true);
  await page.reload();
  await page.getByText('The server does not answer.').waitFor();
});
