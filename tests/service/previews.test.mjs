// Pictures from all over a film, made in the background, for the seek bar.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { encode, launch, Viewer } from './page.mjs';
import { eventually, media, Service } from './support.mjs';

const patience = 240_000; // the analysis runs only when nothing else wants the processors

let service;
let browser;
let films;
const at = (name) => path.join(films, name);

before(async () => {
  service = Service.prepare();
  films = path.join(service.root, 'films');
  fs.mkdirSync(films);
  for (const name of ['h264_ac3.mkv', 'portrait.mp4', 'no_video.mka']) fs.copyFileSync(path.join(media, name), at(name));
  fs.symlinkSync(films, path.join(service.root, 'link'));
  await service.serve([path.join(service.root, 'link')], [], { analysis: true });
  browser = await launch();
});
after(async () => {
  await browser?.close();
  await service.finish();
});

const info = async (name) => (await service.call('Library', 'info', { path: at(name) })).data;
const previewsOf = (name) => eventually(async () => (await info(name)).previews ?? undefined, patience, () => `no previews of ${name}`);
const get = (name, options) => fetch(service.query('Library', 'previews', { path: at(name) }), options);

// The brightness of each picture's upper edge as the second of the film: the luma there is 16 + 3 per second.
async function secondsIn(name, { width, height, columns, count }) {
  const jpeg = path.join(service.root, 'previews.jpg');
  fs.writeFileSync(jpeg, Buffer.from(await (await get(name)).arrayBuffer()));
  const grey = execFileSync('ffmpeg', ['-v', 'error', '-i', jpeg, '-f', 'rawvideo', '-pix_fmt', 'gray', '-'], { maxBuffer: 64 << 20 });
  const line = width * columns;
  assert.equal(grey.length, line * height * Math.ceil(count / columns));
  const place = (n) => (Math.floor(n / columns) * height + 4) * line + (n % columns) * width + width / 2;
  return Array.from({ length: count }, (_, n) => (grey[place(n)] * 219) / 255 / 3);
}

test('a film gets a picture for each of its parts', async () => {
  const layout = await previewsOf('h264_ac3.mkv');
  const { count, seconds, ...rest } = layout;
  assert.deepEqual(rest, { width: 160, height: 90, columns: 20 });
  assert.ok(Math.abs(count * seconds - 60) <= 2, `${count} pictures of ${seconds} s`);
  for (const [n, second] of (await secondsIn('h264_ac3.mkv', layout)).entries()) {
    assert.ok(Math.abs(second - (n + 0.5) * seconds) < 3, `picture ${n} shows ${second}`);
  }
});

test('pictures of a film that has to be turned are upright', async () => {
  const { width, height } = await previewsOf('portrait.mp4');
  assert.deepEqual([width, height], [90, 160]);
});

test('previews are sent once', async () => {
  await previewsOf('h264_ac3.mkv');
  const first = await get('h264_ac3.mkv');
  assert.equal(first.headers.get('content-type'), 'image/jpeg');
  await first.body.cancel();
  const again = await get('h264_ac3.mkv', { headers: { 'If-None-Match': first.headers.get('etag') } });
  assert.equal(again.status, 304);
});

test('a film without previews says so', async () => {
  assert.equal((await info('no_video.mka')).previews, null);
  assert.equal((await get('no_video.mka')).status, 404);
  assert.equal((await fetch(service.query('Library', 'previews', { path: '/etc/passwd' }))).status, 403);
});

// The second that the shown picture has at its upper edge.
const shownSecond = (page) =>
  page.evaluate(async () => {
    const { width, height, backgroundImage, backgroundPosition } = document.querySelector('.preview .piece').style;
    const sheet = new Image();
    sheet.src = backgroundImage.slice(5, -2);
    await sheet.decode();
    const canvas = document.createElement('canvas');
    Object.assign(canvas, { width: parseInt(width, 10), height: parseInt(height, 10) });
    canvas.getContext('2d').drawImage(sheet, ...backgroundPosition.split(' ').map((length) => parseInt(length, 10)));
    return (canvas.getContext('2d').getImageData(80, 4, 1, 1).data[0] * 219) / 255 / 3;
  });

test('the seek bar shows the part at the pointer without asking the server', async (t) => {
  await previewsOf('h264_ac3.mkv');
  const viewer = await Viewer.open(browser, service);
  t.after(() => viewer.close());
  const { page } = viewer;
  const sheet = page.waitForResponse(/method=previews/);
  await viewer.go(`#/play${encode(at('h264_ac3.mkv'))}?t=0`);
  await viewer.playing();
  assert.equal((await sheet).status(), 200);
  await viewer.wake();
  const { width } = await page.locator('#position').boundingBox();
  await eventually(async () => {
    await page.locator('#position').hover({ position: { x: width / 4, y: 2 } });
    return (await page.locator('.preview .piece').isVisible()) || undefined;
  });
  let asked = 0;
  page.on('request', (request) => (asked += /method=(thumbnail|previews)/.test(request.url()) ? 1 : 0));
  for (const share of [0.8, 0.5, 0.1]) {
    await page.locator('#position').hover({ position: { x: width * share, y: 2 } });
    const second = await shownSecond(page);
    assert.ok(Math.abs(second - share * 60) < 4, `${second} at ${share}`);
  }
  assert.equal(asked, 0);
  assert.equal(await page.locator('.preview img').isVisible(), false);
  assert.deepEqual(viewer.complaints, []);
});
