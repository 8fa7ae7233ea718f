// Smooth Streaming in real players, against a running service.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, afterEach, before, test } from 'node:test';
import { promisify } from 'node:util';

import { playback, plays, shownSecond, withBarePage } from './bare_page.mjs';
import { eventually, media, Service } from './support.mjs';

const run = promisify(execFile);
const film = (name) => path.join(media, name);
const format = 'ss';
const profile = 'smoothstreaming_240p_x264_vb200_vf15_aac_ab40';
let service;

before(async () => {
  service = await Service.start([media]);
});
after(() => service.stop());

const opened = [];
async function open(name, parameters = {}) {
  const stream = await service.open(film(name), { format, profile, ...parameters });
  opened.push(stream);
  return stream;
}
async function closeAll() {
  for (const { stream_id } of opened.splice(0)) {
    await service.call('Streaming', 'close', { format, stream_id });
  }
  await service.isQuiet();
}
afterEach(closeAll);

const place = (type, second) =>
  `QualityLevels(${type === 'video' ? 200000 : 40000})/Fragments(${type}=${second * 10000000})`;
const ask = (stream, id, options) => fetch(`${stream.url}&fragment_id=${encodeURIComponent(id)}`, options);
const fragment = (stream, type, second) => ask(stream, place(type, second));

// The names and sizes of the outermost boxes.
function boxesOf(bytes) {
  const boxes = [];
  for (let offset = 0; offset < bytes.length; ) {
    const size = bytes.readUInt32BE(offset);
    boxes.push(bytes.toString('latin1', offset + 4, offset + 8));
    assert.ok(size >= 8, `a box of ${size} bytes`);
    offset += size;
  }
  return boxes;
}

async function assertFragment(stream, type, second) {
  const response = await fragment(stream, type, second);
  const bytes = Buffer.from(await response.arrayBuffer());
  assert.equal(response.status, 200, `${type} at ${second}: ${bytes.toString('utf8', 0, 300)}`);
  assert.equal(response.headers.get('content-type'), `${type}/mp4`);
  assert.deepEqual(boxesOf(bytes), ['moof', 'mdat']);
}

// The start of the running transcoder, in seconds.
const startOf = ({ stream_id: id }) =>
  fs.readFileSync(path.join(service.root, 'tmp/Mirevo/SS', id, 'seek_time'), 'utf8');

const filmWithEveryKindOfSound = ['h264_ac3.mkv', 'mpeg4_mp3.avi', 'vp9_opus.webm', 'no_audio.mkv'];
for (const name of filmWithEveryKindOfSound) {
  test(`${name}: every fragment that the manifest promises is there`, async () => {
    const stream = await open(name);
    const manifest = await fetch(stream.url);
    assert.equal(manifest.headers.get('content-type'), 'application/vnd.ms-sstr+xml');
    const chunks = (await manifest.text()).match(/<c n="\d+" d="50000000" \/>/g);
    assert.equal(chunks.length, (2 * stream.duration) / 5);
    for (let second = 0; second < stream.duration; second += 5) {
      await assertFragment(stream, 'video', second);
      await assertFragment(stream, 'audio', second);
    }
    assert.equal((await fragment(stream, 'video', stream.duration)).status, 404);
  });
}

test('a viewer who resumes in the middle gets fragments from there', async () => {
  const stream = await open('long.mkv');
  await assertFragment(stream, 'video', 30);
  assert.equal(startOf(stream), '30');
});

test('an early request for sound does not move the transcoder away from the picture', async () => {
  const stream = await open('long.mkv');
  await Promise.all([assertFragment(stream, 'audio', 100), assertFragment(stream, 'video', 100)]);
  assert.equal(startOf(stream), '100');
});

test('sound alone plays', async () => {
  const stream = await open('long.mkv');
  await assertFragment(stream, 'audio', 40);
});

test('a near fragment is waited for, a distant one restarts the transcoder', async () => {
  const stream = await open('long.mkv');
  await assertFragment(stream, 'video', 100);
  await assertFragment(stream, 'video', 125);
  assert.equal(startOf(stream), '100', 'ahead, within reach');
  await assertFragment(stream, 'video', 110);
  assert.equal(startOf(stream), '100', 'back, but not before the start');
  await assertFragment(stream, 'video', 95);
  assert.equal(startOf(stream), '95', 'before the start');
  await assertFragment(stream, 'video', 285);
  assert.equal(startOf(stream), '285', 'beyond reach');
  await assertFragment(stream, 'video', 295);
  await assertFragment(stream, 'audio', 295);
});

test('a player that says where it begins finds the transcoder at work there', async () => {
  const stream = await open('long.mkv', { start: 123 });
  const ahead = await eventually(() => (service.transcoders().length > 0 ? service.transcoders() : undefined));
  assert.equal(startOf(stream), '120');
  await Promise.all([assertFragment(stream, 'audio', 120), assertFragment(stream, 'video', 120)]);
  assert.deepEqual(service.transcoders(), ahead, 'nothing started anew');
});

test('a stream that nobody asks for gives its place back and plays later all the same', async () => {
  const stream = await open('long.mkv', { start: 0 });
  await eventually(() => (service.transcoders().length > 0 ? true : undefined));
  await eventually(() => (service.transcoders().length === 0 ? true : undefined), 30000);
  await assertFragment(stream, 'audio', 10);
  await assertFragment(stream, 'video', 10);
});

test('a killed transcoder starts again at the requested fragment', async () => {
  const stream = await open('long.mkv');
  await assertFragment(stream, 'video', 50);
  const monitor = path.join(service.root, 'tmp/Mirevo/SS', stream.stream_id, 'monitor.pid');
  process.kill(Number(fs.readFileSync(monitor, 'utf8')), 'SIGKILL');
  await eventually(() => (service.transcoders().length === 0 ? true : undefined));
  await assertFragment(stream, 'audio', 90);
  await assertFragment(stream, 'video', 90);
});

test('fragments outside the manifest are refused and start nothing', async () => {
  const stream = await open('h264_ac3.mkv');
  for (const id of [
    '',
    'x',
    'QualityLevels(200000)',
    'QualityLevels(40000)/Fragments(video=0)',
    'QualityLevels(200000)/Fragments(video=0',
    'QualityLevels(200000)/Fragments(video=-50000000)',
    'QualityLevels(200000)/Fragments(video=99999999999999999999)',
    'QualityLevels(200000)/Fragments(text=0)',
    'QualityLevels(200000)/../Fragments(video=0)',
    '../QualityLevels(200000)/Fragments(video=0)',
    'QualityLevels(200000)/Fragments(video=0)/..',
  ]) {
    assert.equal((await ask(stream, id)).status, 400, id);
  }
  assert.equal((await ask(stream, 'QualityLevels(200000)/Fragments(video=12345)')).status, 404);
  assert.equal((await ask(stream, place('video', 0), { method: 'HEAD' })).status, 200);
  assert.deepEqual(service.transcoders(), []);
});

const players = {
  'dash.js': {
    scripts: ['dashjs/dist/modern/umd/dash.mediaplayer.min.js', 'dashjs/dist/modern/umd/dash.mss.min.js'],
    load: async (address) => {
      const player = window.dashjs.MediaPlayer().create();
      player.updateSettings({ streaming: { buffer: { bufferTimeDefault: 12, bufferTimeAtTopQuality: 12 } } });
      player.on('error', ({ error }) => window.errors.push(`${error.code} ${error.message}`));
      player.initialize(document.getElementById('video'), address, true);
    },
  },
  'Shaka Player': {
    scripts: ['codem-isoboxer/dist/iso_boxer.min.js', 'shaka-player/dist/shaka-player.compiled.js'],
    load: async (address) => {
      window.shaka.polyfill.installAll();
      const video = document.getElementById('video');
      const player = new window.shaka.Player();
      await player.attach(video);
      player.addEventListener('error', ({ detail }) => window.errors.push(`${detail.code} ${detail.data}`));
      await player.load(address, null, 'application/vnd.ms-sstr+xml');
      await video.play();
    },
  },
};
for (const [name, { scripts, load }] of Object.entries(players)) {
  test(`${name} plays from the start, over twenty seeks, to the end`, async () => {
    const stream = await open('h264_ac3.mkv');
    await withBarePage(service, scripts, async (page) => {
      await page.evaluate(() => {
        window.errors = [];
      });
      await page.evaluate(load, stream.url);
      await plays(page, 0);
      for (let step = 1, second = 0; step <= 20; ++step) {
        second = (second + step * 17) % 54;
        await page.evaluate((value) => {
          document.getElementById('video').currentTime = value;
        }, second);
        await plays(page, second);
        const { picture, clock } = await shownSecond(page);
        assert.ok(Math.abs(picture - clock) < 1, `the picture of ${picture} at ${clock}`);
      }
      await page.evaluate(() => {
        document.getElementById('video').currentTime = 56;
      });
      // dash.js pauses half a second before the end now and then, with all of the film in its buffer.
      await page.waitForFunction(() => document.getElementById('video').ended || document.getElementById('video').currentTime >= 59.4);
      const { duration, sound, time } = await playback(page);
      assert.ok(Math.abs(duration - 60) < 0.1 && time >= 59.4, `ended at ${time} of ${duration}`);
      assert.ok(await page.evaluate(() => document.getElementById('video').buffered.end(0) > 59.8));
      assert.ok(sound > 0);
      assert.deepEqual(await page.evaluate(() => window.errors), []);
    });
  });
}

// The picture that the player shows after `second`, as a PNG, and its time.
const shownPicture = (page, second) =>
  page.evaluate(
    (value) =>
      new Promise((resolve) => {
        const video = document.getElementById('video');
        const look = (_, { mediaTime }) => {
          if (Math.abs(mediaTime - value) > 1) {
            video.requestVideoFrameCallback(look);
            return;
          }
          const canvas = document.createElement('canvas');
          canvas.width = video.videoWidth;
          canvas.height = video.videoHeight;
          canvas.getContext('2d').drawImage(video, 0, 0);
          resolve({ time: mediaTime, png: canvas.toDataURL('image/png').split(',')[1] });
        };
        video.requestVideoFrameCallback(look);
        video.currentTime = value;
      }),
    second,
  );

// The similarity of a shown picture to the film's picture at that time, scaled to the same size; 1 means equal.
async function likeness(name, { time, png }) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-picture-'));
  try {
    const shown = path.join(folder, 'shown.png');
    fs.writeFileSync(shown, Buffer.from(png, 'base64'));
    const { stderr } = await run('ffmpeg', [
      ...['-nostdin', '-v', 'info', '-i', shown, '-ss', (time - 0.02).toFixed(3), '-i', film(name)],
      ...['-lavfi', '[1:v]format=yuv420p[film];[film][0:v]scale2ref=flags=bicubic[a][b];[b]format=yuv420p[c];[a][c]ssim'],
      ...['-frames:v', '1', '-f', 'null', '-'],
    ]);
    return Number(stderr.match(/SSIM Y:([\d.]+)/)[1]);
  } finally {
    fs.rmSync(folder, { recursive: true });
  }
}

// Each row of the manifest's table, and each aspect ratio.
const rows = [
  ['smoothstreaming_240p_x264_vb200_vf15_aac_ab40', 'tv.mkv', 320, 240],
  ['smoothstreaming_240p_x264_vb320_vf15_aac_ab40', 'h264_ac3.mkv', 430, 240],
  ['smoothstreaming_320p_x264_vb500_vf15_aac_ab64', 'cinema.mkv', 750, 320],
  ['smoothstreaming_320p_x264_vb720_vf15_aac_ab64', 'tv.mkv', 430, 320],
  ['smoothstreaming_hd480_x264_vb1000_vf15_aac_ab96', 'h264_ac3.mkv', 850, 480],
  ['smoothstreaming_hd720_x264_vb1500_vf15_aac_ab128', 'cinema.mkv', 1280, 540],
];
test('every rendition shows the pictures of the film at the right times', async () => {
  const { scripts, load } = players['dash.js'];
  for (const [key, name, width, height] of rows) {
    const stream = await open(name, { profile: key });
    await withBarePage(service, scripts, async (page) => {
      await page.evaluate(() => {
        window.errors = [];
      });
      await page.evaluate(load, stream.url);
      await plays(page, 0);
      for (const second of [11, 4]) {
        const value = await likeness(name, await shownPicture(page, second));
        assert.ok(value > 0.9, `${key} of ${name}: ${value}`);
      }
      const size = await page.evaluate(() => {
        const video = document.getElementById('video');
        return [video.videoWidth, video.videoHeight];
      });
      assert.deepEqual(size, [width, height]);
      assert.deepEqual(await page.evaluate(() => window.errors), []);
    });
    await closeAll();
  }
});
