// Live WebM in a browser and in a running service.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, beforeEach, before, test } from 'node:test';

import { playback, plays, shownSecond, withBarePage } from './bare_page.mjs';
import { eventually, media, readSome, Service } from './support.mjs';

const film = (name) => path.join(media, name);
const format = 'webm';
const profile = 'webm_240p_vb300_ab96';
let service;

before(async () => {
  service = await Service.start([media]);
});
beforeEach(() => service.isQuiet());
after(() => service.stop());

const open = (name, parameters = {}) => service.open(film(name), { format, profile, ...parameters });
const close = ({ stream_id }) => service.call('Streaming', 'close', { format, stream_id });

const play = (page, address) =>
  page.evaluate((source) => {
    const video = document.getElementById('video');
    video.src = source;
    video.play();
  }, address);

// Sound that is copied (AAC, MP3) and sound that is converted to MP3 (AC-3, Opus).
for (const [name, middle] of [
  ['h264_aac.mp4', 30],
  ['mpeg4_mp3.avi', 15],
  ['h264_ac3.mkv', 30],
  ['vp9_opus.webm', 15],
]) {
  test(`${name} plays in a browser from its start and from its middle, on the film's clock`, async () => {
    const stream = await open(name);
    await withBarePage(service, [], async (page) => {
      for (const second of [0, middle]) {
        await play(page, `${stream.url}&start=${second}`);
        await plays(page, second);
        const { picture, clock } = await shownSecond(page);
        assert.ok(Math.abs(picture - clock) < 1, `the picture of ${picture} at ${clock}`);
        const { sound, time } = await playback(page);
        assert.ok(sound > 0, 'sound is decoded');
        assert.ok(time < second + 10, `the clock says ${time}`);
      }
    });
    await close(stream);
  });
}

test('closing the page ends the transcoder and empties the register', async () => {
  const stream = await open('long.mkv');
  await withBarePage(service, [], async (page) => {
    await play(page, stream.url);
    await plays(page, 0);
    assert.equal(service.registry().length, 1);
  });
  await service.isQuiet(20_000);
});

// The stream's directory names the monitor.
const monitorOf = ({ stream_id: id }) =>
  Number(fs.readFileSync(path.join(service.root, 'tmp/Mirevo/WEBM', id, 'monitor.pid'), 'utf8'));

test('a monitor that gets SIGTERM ends the transcoder, and the stream ends', async () => {
  const stream = await open('long.mkv');
  const response = await fetch(stream.url);
  await readSome(response, 1000);
  assert.equal(service.registry().length, 1);
  process.kill(monitorOf(stream), 'SIGTERM');
  await response.arrayBuffer().catch(() => {});
  await service.isQuiet(20_000);
});

test('the answer breaks off where the transcoder is killed', async () => {
  const stream = await open('long.mkv');
  const response = await fetch(stream.url);
  await readSome(response, 1000);
  process.kill(service.transcoders()[0].pid, 'SIGKILL');
  await assert.rejects(response.arrayBuffer());
  await service.isQuiet(20_000);
});

test('a seek takes the stream over from the earlier request', async () => {
  const stream = await open('long.mkv');
  const first = await fetch(stream.url);
  await readSome(first, 1000);
  const second = await fetch(`${stream.url}&start=200`);
  assert.equal(second.status, 200);
  await readSome(second, 1000);
  await eventually(() => (service.transcoders().length === 1 ? true : undefined));
  assert.match(service.transcoders()[0].command, / -ss 200\.000 /);
  await Promise.all([first, second].map(({ body }) => body.cancel()));
});

test('the answer has the content type that browsers need, and a start outside the film is refused', async () => {
  const stream = await open('h264_ac3.mkv');
  assert.equal(stream.content_type, 'video/webm');
  const head = await fetch(stream.url, { method: 'HEAD' });
  assert.equal(head.headers.get('content-type'), 'video/webm');
  for (const start of ['61', '-1', 'x', '']) {
    assert.equal((await fetch(`${stream.url}&start=${start}`)).status, 400, start);
  }
  assert.deepEqual(service.transcoders(), []);
  await close(stream);
  assert.equal((await fetch(stream.url)).status, 404);
});
