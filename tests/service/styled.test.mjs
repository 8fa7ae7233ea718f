// Subtitles with styles, drawn in the page with the fonts that are attached to the film.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';

import { encode, launch, Viewer } from './page.mjs';
import { FONT, redWord } from './script.mjs';
import { eventually, media, Service } from './support.mjs';

const run = promisify(execFile);
const HOSTILE = '../../<img src=x>\n"; rm -rf.ttf';

// A red word and, in a sign that only the attached font has, a blue disc. The film has 640 x 360 pixels.
const script = `${redWord}Dialogue: 0,0:00:01.00,0:00:50.00,Red,,0,0,0,,{\\an5\\pos(500,250)\\c&HFF0000&\\fs120}\u2b24
`;

let service;
let browser;
let folder;
const beside = (name) => path.join(fs.realpathSync(folder), name);

before(async () => {
  folder = fs.mkdtempSync(path.join(media, '../styled-'));
  fs.writeFileSync(beside('track.txt'), script);
  fs.writeFileSync(beside('no_font.ttf'), 'this is no font');
  const attach = (file, name) => ['-attach', file, '-metadata:s:t', 'mimetype=application/x-truetype-font', '-metadata:s:t', `filename=${name}`];
  const tracks = ['-i', path.join(media, 'two_audio.mkv'), '-f', 'ass', '-i', beside('track.txt'), '-map', '0:v', '-map', '0:a:0', '-map', '1'];
  const attached = [...attach(beside('no_font.ttf'), 'no_font.ttf'), ...attach(FONT, HOSTILE)];
  await run('ffmpeg', ['-nostdin', '-v', 'error', '-y', ...tracks, '-c', 'copy', ...attached, beside('styled.mkv')]);
  service = await Service.start([folder]);
  browser = await launch();
});
after(async () => {
  await browser?.close();
  fs.rmSync(folder, { recursive: true });
  await service.finish();
});

const info = async () => (await service.call('Library', 'info', { path: beside('styled.mkv') })).data;
const font = (id, options) => fetch(service.query('Library', 'font', { path: beside('styled.mkv'), id }), options);

test('the fonts of a film are listed and sent as they are', async () => {
  const { fonts } = await info();
  assert.deepEqual(fonts.map(({ id, type, size }) => ({ id, type, size })), [{ id: 4, type: 'font/ttf', size: fs.statSync(FONT).size }]);
  const answer = await font(fonts[0].id);
  assert.equal(answer.status, 200);
  assert.equal(answer.headers.get('content-type'), 'font/ttf');
  assert.equal(answer.headers.get('x-content-type-options'), 'nosniff');
  assert.ok(Buffer.from(await answer.arrayBuffer()).equals(fs.readFileSync(FONT)));
});

test('a part of a font comes as a part, and a known one not again', async () => {
  const part = await font(4, { headers: { Range: 'bytes=1000-1999' } });
  assert.equal(part.status, 206);
  assert.ok(Buffer.from(await part.arrayBuffer()).equals(fs.readFileSync(FONT).subarray(1000, 2000)));
  const again = await font(4, { headers: { 'If-None-Match': part.headers.get('etag') } });
  assert.equal(again.status, 304);
});

test('nothing but a font of the film is sent', async () => {
  for (const [id, status] of [[3, 404], [0, 404], [99, 404], ['x', 400], ['-1', 400], ['', 400], [HOSTILE, 400]]) {
    assert.equal((await font(id)).status, status, `${id}`);
  }
  const elsewhere = await fetch(service.query('Library', 'font', { path: '/etc/passwd', id: 4 }));
  assert.equal(elsewhere.status, 403);
});

test('a film with more fonts than FFmpeg has memory for shows its subtitles and its poster', async (t) => {
  fs.writeFileSync(beside('large.ttf'), Buffer.concat([fs.readFileSync(FONT), Buffer.alloc(30 << 20)]));
  const attach = Array.from({ length: 3 }, (_, n) => ['-attach', beside('large.ttf'), `-metadata:s:t:${n}`, 'mimetype=application/x-truetype-font', `-metadata:s:t:${n}`, `filename=${n}.ttf`]).flat();
  await run('ffmpeg', ['-nostdin', '-v', 'error', '-y', '-i', beside('styled.mkv'), '-map', '0:v', '-map', '0:a', '-map', '0:s', '-c', 'copy', ...attach, beside('large.mkv')]);
  fs.rmSync(beside('large.ttf'));
  const { data } = await service.call('Library', 'info', { path: beside('large.mkv') });
  assert.deepEqual(data.fonts.map(({ families }) => families.includes('DejaVu Sans')), Array(3).fill(true));
  const { stream_id: id } = await service.open(beside('large.mkv'));
  t.after(() => service.close({ stream_id: id }));
  const answer = await fetch(service.query('Subtitle', 'get', { id, subtitle_id: data.subtitles[0].id, output: 'ass' }));
  assert.equal(answer.status, 200);
  assert.match(await answer.text(), /Dialogue: .*pos\(100,100\)/);
  assert.equal((await fetch(service.query('Library', 'poster', { path: beside('large.mkv') }))).status, 200);
  const last = await fetch(service.query('Library', 'font', { path: beside('large.mkv'), id: data.fonts.at(-1).id }), { headers: { Range: 'bytes=0-999' } });
  assert.ok(Buffer.from(await last.arrayBuffer()).equals(fs.readFileSync(FONT).subarray(0, 1000)));
});

// Opens the film with its subtitles.
async function watch(viewer) {
  await viewer.go(`#/play${encode(beside('styled.mkv'))}?t=10`);
  await viewer.playing();
  await viewer.page.keyboard.press('c');
}

test('the page draws the subtitles with their colours, places and fonts', async (t) => {
  const viewer = await Viewer.open(browser, service);
  t.after(() => viewer.close());
  const { page } = viewer;
  await watch(viewer);
  await page.locator('canvas.pictures').waitFor();
  const becomes = (x, y, color) =>
    eventually(async () => (JSON.stringify(await viewer.drawnAt(x, y)) === JSON.stringify(color) ? true : undefined), 60_000, () => `${x}, ${y} becomes ${color}`);
  await becomes(140, 140, [255, 0, 0, 255]);
  await becomes(500, 250, [0, 0, 255, 255]);
  assert.equal((await viewer.drawnAt(60, 140))[3], 0, 'left of the word');
  assert.equal((await viewer.drawnAt(140, 300))[3], 0, 'below the word');
  await page.keyboard.press('c');
  await page.locator('canvas.pictures').waitFor({ state: 'detached' });
  assert.deepEqual(viewer.complaints, []);
});

test('a browser that cannot draw shows the text', async (t) => {
  const viewer = await Viewer.open(browser, service);
  t.after(() => viewer.close());
  await viewer.page.addInitScript(() => {
    delete HTMLCanvasElement.prototype.transferControlToOffscreen;
  });
  await watch(viewer);
  await viewer.page.waitForFunction(() => document.getElementById('video').textTracks[0]?.activeCues?.[0]?.text.includes('\u2588'));
  assert.equal(await viewer.page.locator('canvas.pictures').count(), 0);
});

test('the page says that subtitles cannot be read', async (t) => {
  const viewer = await Viewer.open(browser, service);
  t.after(() => viewer.close());
  await viewer.page.route(/subtitle_id=/, (route) => route.fulfill({ status: 500, json: { success: false, error: { code: 500 } } }));
  await viewer.go(`#/play${encode(beside('styled.mkv'))}?t=10`);
  await viewer.playing();
  // The sentence stays for a moment only.
  await viewer.page.evaluate(() => {
    const told = document.querySelector('.told');
    new MutationObserver(() => (window.said ||= told.textContent)).observe(told, { childList: true });
  });
  await viewer.page.keyboard.press('c');
  await viewer.page.waitForFunction(() => window.said === 'The subtitles cannot be read.');
});

for (const [what, address] of Object.entries({ script: /output=ass/, module: /\.wasm/ })) {
  test(`subtitles whose ${what} cannot be loaded are shown as text`, async (t) => {
    const viewer = await Viewer.open(browser, service);
    t.after(() => viewer.close());
    await viewer.page.route(address, (route) => route.abort());
    await watch(viewer);
    await viewer.page.waitForFunction(() => document.getElementById('video').textTracks[0]?.activeCues?.length > 0);
    assert.equal(await viewer.page.locator('canvas.pictures').count(), 0);
  });
}
