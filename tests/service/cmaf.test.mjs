// Films as CMAF presentations on the page, in a real browser.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, afterEach, before, beforeEach, test } from 'node:test';

import { filmPath, launch, Viewer } from './page.mjs';
import { eventually, media, Service } from './support.mjs';

let service;
let browser;
let viewer;
let opened; // the formats of the opened streams, in order

before(async () => {
  service = await Service.start([media]);
  browser = await launch();
});
after(async () => {
  await browser.close();
  await service.isQuiet();
  await service.stop();
});
beforeEach(async () => {
  viewer = await Viewer.open(browser, service);
  opened = [];
  viewer.page.on('request', (request) => {
    const parameters = new URLSearchParams(request.postData() ?? '');
    if (parameters.get('method') === 'open') opened.push(parameters.get('format'));
  });
});
afterEach(async () => {
  await viewer.close();
  await service.isQuiet();
});

const kind = 'cmaf';
const isAt = (second) => viewer.page.waitForFunction((from) => document.getElementById('video').currentTime > from, second);
const ends = () => viewer.page.waitForFunction(() => document.getElementById('video').ended);

for (const [name, middle, why] of [
  ['h264_ac3.mkv', 30, /picture plays as it is, sound is converted/],
  ['h264_aac.mp4', 30, /plays as it is$/],
  ['mpeg4_mp3.avi', 15, /converted to \d+p/],
]) {
  test(`${name}: plays, and a seek lands in the middle`, async () => {
    await viewer.watch(name, { kind });
    await viewer.playing();
    await viewer.seekTo(middle, 60_000);
    const landed = await viewer.state();
    assert.ok(Math.abs(landed.time - middle) < 1, `landed at ${landed.time}`);
    await isAt(landed.time + 1);
    await viewer.isInStep();
    const later = await viewer.state();
    assert.ok(later.sound > landed.sound);
    assert.equal(later.message, '');
    assert.match(await viewer.page.locator('#why').textContent(), why);
    assert.deepEqual([opened, viewer.complaints], [['cmaf'], []]);
  });
}

test('a film without a file that the browser plays is a presentation without a choice', async () => {
  await viewer.watch('h264_ac3.mkv');
  await viewer.playing();
  assert.deepEqual(opened, ['cmaf']);
});

test('a film plays to its end, and again from its start', async () => {
  await viewer.watch('mpeg4_mp3.avi', { kind, t: 26 });
  await ends();
  const { time, message } = await viewer.state();
  assert.ok(time > 29.5, `ended at ${time}`);
  assert.equal(message, '');
  await viewer.wake();
  await viewer.page.getByRole('button', { name: 'Play again' }).click();
  await viewer.runsFrom(0);
  await isAt(1);
  assert.deepEqual(opened, ['cmaf']);
});

test('ten seeks reach their places', async () => {
  await viewer.watch('long.mkv', { kind });
  await viewer.playing();
  for (let step = 1, second = 0; step <= 10; ++step) {
    second = (second + step * 97) % 290;
    await viewer.seekTo(second, 60_000);
    const { time } = await viewer.state();
    assert.ok(time < second + 5, `${time} instead of ${second}`);
  }
  assert.deepEqual(viewer.complaints, []);
});

test('a film begins at the place where the viewer stopped', async () => {
  await viewer.watch('long.mkv', { kind, t: 50 });
  await viewer.runsFrom(50);
  await isAt(51);
  await viewer.isInStep();
});

test('quality and sound change within the stream, and back', async () => {
  await viewer.watch('two_audio.mkv', { kind });
  await viewer.playing();
  await viewer.set('Quality', '240p');
  await viewer.page.waitForFunction(() => document.getElementById('video').videoHeight === 240);
  await viewer.set('Audio track', 'French, AAC');
  await viewer.set('Quality', 'Original quality');
  await viewer.page.waitForFunction(() => document.getElementById('video').videoHeight === 360);
  const { time, sound } = await viewer.state();
  await isAt(time + 1);
  assert.ok((await viewer.state()).sound > sound);
  assert.deepEqual([opened, viewer.complaints], [['cmaf'], []]);
});

// The names of the renditions whose segments the page has requested, from now on.
function requestedRenditions() {
  const names = new Set();
  viewer.page.on('request', (request) => {
    const { searchParams } = new URL(request.url());
    if (searchParams.get('segment') !== null) names.add(searchParams.get('rendition'));
  });
  return names;
}

test('night sound is heard within the stream, for the next film, and no more when the viewer has enough', async () => {
  const renditions = requestedRenditions();
  const isHeard = (name) => eventually(async () => (renditions.has(name) ? true : undefined));
  await viewer.watch('two_audio.mkv', { kind });
  await viewer.playing();
  await viewer.set('Sound', 'Night: loud places lowered');
  await isHeard('night-0');
  const { time, sound } = await viewer.state();
  await isAt(time + 1);
  assert.ok((await viewer.state()).sound > sound);
  await viewer.set('Audio track', 'French, AAC');
  await isHeard('night-1');
  assert.deepEqual(opened, ['cmaf']);

  renditions.clear();
  await viewer.watch('h264_aac.mp4');
  await viewer.playing();
  await isHeard('night-0');
  assert.deepEqual([renditions.has('copy-audio-0'), opened], [false, ['cmaf', 'cmaf']]);
  await viewer.set('Sound', 'As in the film');
  await viewer.page.waitForFunction(() => document.getElementById('why').textContent.endsWith('plays as it is'));
  await viewer.playing();
  assert.deepEqual(viewer.complaints, []);
});

// Shows the page of a film, and waits until the server has opened it for a viewer who may come.
async function showFilm(name) {
  const warmed = viewer.page.waitForResponse((response) => response.request().postData()?.includes('warm=true'));
  await viewer.go(`#/film${filmPath(name)}`);
  return (await (await warmed).json()).data;
}
const folderOf = ({ stream_id: id }) => path.join(service.root, 'tmp/Mirevo/CMAF', id);
const has = (file) => eventually(() => (fs.existsSync(file) ? true : undefined));

test('a film is prepared while its page is shown, and plays in that stream', async () => {
  const stream = await showFilm('h264_ac3.mkv');
  await has(path.join(folderOf(stream), 'copy-video/00000.m4s'));
  assert.ok(fs.existsSync(path.join(folderOf(stream), 'warmed')));
  await viewer.page.getByRole('link', { name: 'Play', exact: true }).click();
  await viewer.playing();
  assert.deepEqual(opened, ['cmaf']);
  assert.ok(!fs.existsSync(path.join(folderOf(stream), 'warmed')));
});

test('a film that nobody plays is given up with its page', async () => {
  await showFilm('h264_ac3.mkv');
  await viewer.go('#/conversions');
  await service.isQuiet();
});

test('a viewer gets the place of a film that is only prepared', async () => {
  const open = (parameters) =>
    service.call('Streaming', 'open', { format: 'cmaf', path: path.join(media, 'long.mkv'), max_height: 240, ...parameters });
  const close = ({ stream_id: id }) => service.call('Streaming', 'close', { format: 'cmaf', stream_id: id });
  const { data: prepared } = await open({ start: 0, warm: 'true' });
  await eventually(() => (service.registry().length === 1 ? true : undefined)); // the only place
  const { data: wanted } = await open();
  const [picture] = wanted.presentation.renditions;
  assert.equal((await fetch(`${service.address}${picture.segments}0`)).status, 200);
  await Promise.all([prepared, wanted].map(close));
});

test('a segment that was removed is made again', async () => {
  const { data } = await service.call('Streaming', 'open', { format: 'cmaf', path: path.join(media, 'h264_aac.mp4') });
  const [picture] = data.presentation.renditions;
  const bytes = async () => Buffer.from(await (await fetch(`${service.address}${picture.segments}2`)).arrayBuffer());
  const first = await bytes();
  fs.unlinkSync(path.join(folderOf(data), picture.name, '00002.m4s'));
  assert.ok(first.equals(await bytes()));
  await service.call('Streaming', 'close', { format: 'cmaf', stream_id: data.stream_id });
});

test('a film without sound plays', async () => {
  await viewer.watch('no_audio.mkv', { kind });
  await viewer.playing();
  assert.deepEqual(opened, ['cmaf']);
});

test('a pause lasts as long as the viewer wants', async () => {
  await viewer.watch('long.mkv', { kind });
  await viewer.playing();
  await viewer.page.keyboard.press('k');
  const { time } = await viewer.state();
  await viewer.page.keyboard.press('k');
  await isAt(time + 1);
});

test('a browser whose MediaSource lacks the sound plays the film by another method', async () => {
  await viewer.page.addInitScript(() => {
    const { isTypeSupported } = MediaSource;
    MediaSource.isTypeSupported = (type) => !type.startsWith('audio/mp4') && isTypeSupported.call(MediaSource, type);
  });
  await viewer.watch('h264_ac3.mkv');
  await viewer.playing();
  assert.deepEqual(opened, ['cmaf', 'hls']);
});

// Answers the first requests for segments in place of the server.
async function disturb(count, answer) {
  await viewer.page.route(/segment\.m4s/, (route) => (count-- > 0 ? answer(route) : route.fallback()));
}
const refuse = (status, reason) => (route) =>
  route.fulfill({ status, json: { success: false, error: { code: status, reason, message: 'A sentence.', retry_after: 1 } } });

for (const [name, answer] of Object.entries({
  'is not ready': refuse(504, 'NotReady'),
  'waits for a transcoder': refuse(503, 'TransEnable'),
  'is lost on the way': (route) => route.abort(),
})) {
  test(`a segment that ${name} is requested again`, async () => {
    await disturb(3, answer);
    await viewer.watch('h264_ac3.mkv', { kind });
    await viewer.playing();
    assert.deepEqual(opened, ['cmaf']);
  });
}

test('a server that keeps failing is left for another method', async () => {
  await disturb(Infinity, refuse(504, 'NotReady'));
  await viewer.watch('h264_ac3.mkv', { kind });
  await viewer.playing();
  assert.deepEqual(opened, ['cmaf', 'hls']);
});
