// What people have written about their films: tags and chapters in them, NFO files and pictures beside them.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, afterEach, before, beforeEach, test } from 'node:test';

import { encode, launch, Viewer } from './page.mjs';
import { media, Service } from './support.mjs';

let service;
let browser;
let folder;
let viewer;
let page;

const place = (view, name, query = '') => `#/${view}${encode(path.join(folder, name))}${query}`;
const ffmpeg = (...options) => execFileSync('ffmpeg', ['-nostdin', '-v', 'error', '-y', ...options]);
const link = (name, source = 'cinema.mkv') => fs.linkSync(path.join(media, source), path.join(folder, name));
const picture = (name, colour) => ffmpeg('-f', 'lavfi', '-i', `color=${colour}:s=64x64`, '-frames:v', '1', path.join(folder, name));

const TAGS = `;FFMETADATA1
title=A <b>tagged</b> film
[CHAPTER]
TIMEBASE=1/1000
START=0
END=8000
title=Departure
[CHAPTER]
TIMEBASE=1/1000
START=8000
END=20000
title=Arrival
`;

const NFO = `<?xml version="1.0"?>
<movie><title>The Sea &amp; the <i>Harbour</i></title><year>1999</year><plot>Someone goes
  to sea. &lt;script&gt;document.title = "taken"&lt;/script&gt;</plot></movie>`;

before(async () => {
  folder = fs.mkdtempSync(path.join(media, 'described-'));
  fs.mkdirSync(path.join(folder, 'Album'));
  const tags = path.join(folder, 'tags.txt');
  fs.writeFileSync(tags, TAGS);
  ffmpeg('-i', path.join(media, 'cinema.mkv'), '-i', tags, '-map', '0', '-map_metadata', '1', '-metadata:s:a:0', 'title=Commentary', '-c', 'copy', path.join(folder, 'tagged.mkv'));
  link('sea.mkv');
  fs.writeFileSync(path.join(folder, 'sea.nfo'), NFO);
  picture('sea-poster.png', 'red');
  picture('sea-fanart.jpg', 'blue');
  link('plain.mkv');
  fs.symlinkSync('/etc/passwd', path.join(folder, 'plain.nfo'));
  fs.symlinkSync('/etc/hostname', path.join(folder, 'plain.jpg'));
  link('Album/song.mka', 'no_video.mka');
  picture('Album/cover.jpg', 'lime');
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
afterEach(() => viewer.close());

// The colour in the middle of a picture.
async function colourOf(image) {
  await image.waitFor();
  return image.evaluate(async (node) => {
    await node.decode();
    const canvas = document.createElement('canvas');
    [canvas.width, canvas.height] = [1, 1];
    canvas.getContext('2d').drawImage(node, 0, 0, 1, 1);
    return [...canvas.getContext('2d').getImageData(0, 0, 1, 1).data].slice(0, 3).map((value) => (value > 127 ? 1 : 0)).join('');
  });
}

test('the title in a film is shown where its name tells nothing', async () => {
  await viewer.go(place('folder', ''));
  await page.getByRole('link', { name: 'A <b>tagged</b> film' }).click();
  await page.getByRole('heading', { name: 'A <b>tagged</b> film' }).waitFor();
  await page.locator('summary').click();
  await page.getByText('Commentary').waitFor();
});

test('an NFO file and the pictures beside a film describe it', async () => {
  await viewer.go(place('folder', ''));
  const film = page.getByRole('link', { name: 'The Sea & the Harbour (1999)' });
  assert.equal(await colourOf(film.locator('img')), '100');
  await film.click();
  await page.getByText('Someone goes to sea. <script>document.title = "taken"</script>').waitFor();
  assert.equal(await colourOf(page.locator('img.backdrop')), '001');
  assert.equal(await colourOf(page.locator('img.large')), '100');
});

test('links beside a film lead nowhere', async () => {
  await viewer.go(place('folder', ''));
  const { data } = await service.call('Library', 'card', { path: path.join(folder, 'plain.mkv') });
  assert.deepEqual(data.notes, {});
  const response = await fetch(service.query('Library', 'poster', { path: path.join(folder, 'plain.mkv') }));
  assert.equal(response.headers.get('content-type'), 'image/jpeg');
});

test('a folder shows its picture, and so does the music in it', async () => {
  await viewer.go(place('folder', ''));
  assert.equal(await colourOf(page.locator('.tile.folder img')), '010');
  await page.getByRole('link', { name: 'Album' }).click();
  assert.equal(await colourOf(page.getByRole('link', { name: 'song' }).locator('img')), '010');
});

test('chapters lead into the film, and the player goes from one to the next', async () => {
  await viewer.go(place('film', 'tagged.mkv'));

  await page.getByRole('link', { name: '0:08 Arrival' }).click();
  await viewer.playing();
  assert.ok((await viewer.state()).time >= 7.9);
  assert.equal(await page.locator('.chapter-marks span').count(), 1);
  await page.keyboard.press('PageUp');
  await page.waitForFunction(() => document.getElementById('video').currentTime < 7);
  await viewer.set('Chapter', { label: '0:08 Arrival' });
  await page.waitForFunction(() => document.getElementById('video').currentTime > 7.9);
});
