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

// Four patches, one in each quarter, as ten bits of luma, blue and red difference: the white of paper (203 nits), a dark
// grey (20 nits), a deep red and black.
const highRange = {
  'pq.mkv': ['smpte2084', [[572, 512, 512], [378, 512, 512], [350, 420, 720], [64, 512, 512]]],
  'hlg.mp4': ['arib-std-b67', [[721, 512, 512], [397, 512, 512], [330, 380, 750], [64, 512, 512]]],
};
function makeHighRange(name) {
  const [transfer, patches] = highRange[name];
  const plane = (row) => {
    const [a, b, c, d] = patches.map((patch) => patch[row]);
    return `'if(lt(Y,H/2),if(lt(X,W/2),${a},${b}),if(lt(X,W/2),${c},${d}))'`;
  };
  const picture = `nullsrc=s=320x180:r=5:d=2,format=yuv420p10le,geq=lum=${plane(0)}:cb=${plane(1)}:cr=${plane(2)}`;
  const colors = ['-color_primaries', 'bt2020', '-color_trc', transfer, '-colorspace', 'bt2020nc', '-color_range', 'tv'];
  const source = ['-nostdin', '-v', 'error', '-f', 'lavfi', '-i', `${picture},setparams=range=tv:color_primaries=bt2020:color_trc=${transfer}:colorspace=bt2020nc`];
  execFileSync('ffmpeg', [...source, '-c:v', 'libx264', '-preset', 'ultrafast', ...colors, at(name)]);
}

before(async () => {
  service = Service.prepare();
  films = path.join(service.root, 'films');
  fs.mkdirSync(films);
  for (const name of ['h264_ac3.mkv', 'portrait.mp4', 'no_video.mka']) fs.copyFileSync(path.join(media, name), at(name));
  for (const name of Object.keys(highRange)) makeHighRange(name);
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

// Red, green and blue in the middle of each quarter.
function patchesOf(jpeg) {
  const file = path.join(service.root, 'patches.jpg');
  fs.writeFileSync(file, jpeg);
  const rgb = execFileSync('ffmpeg', ['-v', 'error', '-i', file, '-vf', 'scale=64:36:flags=area', '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-']);
  return [9, 27].flatMap((y) => [16, 48].map((x) => [...rgb.subarray((y * 64 + x) * 3, (y * 64 + x) * 3 + 3)]));
}

const isGrey = ([red, green, blue], low, high) => Math.min(red, green, blue) >= low && Math.max(red, green, blue) <= high && Math.max(red, green, blue) - Math.min(red, green, blue) < 16;

for (const name of Object.keys(highRange)) {
  test(`posters and previews of ${name} have the tones of a standard range`, async () => {
    await previewsOf(name);
    const poster = await fetch(service.query('Library', 'poster', { path: at(name) }));
    assert.equal(poster.status, 200);
    for (const answer of [poster, await get(name)]) {
      const [white, grey, red, black] = patchesOf(Buffer.from(await answer.arrayBuffer()));
      const found = JSON.stringify({ white, grey, red, black });
      assert.ok(isGrey(white, 205, 245), found);
      assert.ok(isGrey(grey, 85, 140), found);
      assert.ok(isGrey(black, 0, 12), found);
      assert.ok(red[0] > red[1] + 80 && red[0] > red[2] + 80, found);
    }
  });
}

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
