// The page in a real browser.
import assert from 'node:assert/strict';
import path from 'node:path';
import { after, afterEach, before, beforeEach, test } from 'node:test';

import { chromium } from 'playwright-core';

import { browserArguments, media, Service } from './support.mjs';

let service;
let browser;
let page;
let complaints;

before(async () => {
  service = await Service.start([media]);
  browser = await chromium.launch({
    executablePath: '/usr/bin/chromium',
    args: browserArguments,
  });
});
after(async () => {
  await browser.close();
  await service.isQuiet();
  await service.stop();
});
beforeEach(async () => {
  complaints = [];
  page = await browser.newPage();
  page.on('console', (message) => message.type() === 'error' && complaints.push(message.text()));
  page.on('pageerror', (error) => complaints.push(error.message));
  await page.goto(service.address);
});
afterEach(async () => {
  await page.close();
  await service.isQuiet();
});

const choose = (name) => page.getByRole('button', { name }).click();

const playing = () =>
  page.waitForFunction(() => {
    const video = document.getElementById('video');
    return !video.paused && video.readyState >= 3 && video.getVideoPlaybackQuality().totalVideoFrames > 5;
  });

// The second of the film that the picture itself shows: the luma of its upper edge is 16 + 3 a second.
const shownSecond = () =>
  page.evaluate(() => {
    const video = document.getElementById('video');
    const canvas = document.createElement('canvas');
    canvas.width = video.videoWidth;
    canvas.height = video.videoHeight;
    const context = canvas.getContext('2d');
    context.drawImage(video, 0, 0);
    const [red] = context.getImageData(canvas.width / 2, Math.round(canvas.height / 36), 1, 1).data;
    return ((red * 219) / 255) / 3;
  });

const state = () =>
  page.evaluate(() => {
    const video = document.getElementById('video');
    return {
      time: video.currentTime,
      sound: video.webkitAudioDecodedByteCount,
      frames: video.getVideoPlaybackQuality().totalVideoFrames,
      clock: document.getElementById('clock').textContent,
      message: document.getElementById('message').textContent,
    };
  });

async function seekTo(second) {
  await page.evaluate((value) => {
    const position = document.getElementById('position');
    position.value = String(value);
    position.dispatchEvent(new Event('change'));
  }, second);
  await page.waitForFunction(
    (value) => {
      const video = document.getElementById('video');
      return video.readyState >= 3 && video.playbackRate === 1 && video.currentTime >= value - 0.2;
    },
    second,
  );
}

const films = {
  'h264_ac3.mkv': 30,
  'h264_aac.mp4': 30,
  'portrait.mp4': 30,
  'mpeg4_mp3.avi': 15,
  'mpeg2_mp2.ts': 15,
  'vp9_opus.webm': 15,
  'hevc10_aac.mov': 15,
};
for (const [name, middle] of Object.entries(films)) {
  test(`${name}: the picture moves, sound is decoded, and a seek lands in the middle`, async () => {
    await choose(name);
    await playing();
    await seekTo(middle);
    const landed = await state();
    assert.ok(Math.abs(landed.time - middle) < 1, `landed at ${landed.time}`);
    assert.match(landed.clock, new RegExp(`^0:${middle}|^0:${middle + 1}`));
    if (name !== 'portrait.mp4') {
      // A turned picture has its clock at the side.
      const second = await shownSecond();
      assert.ok(Math.abs(second - landed.time) < 2, `the picture shows ${second} at ${landed.time}`);
    }
    await page.waitForFunction((from) => document.getElementById('video').currentTime > from + 1, landed.time);
    const later = await state();
    assert.ok(later.frames > landed.frames);
    assert.ok(later.sound > landed.sound);
    assert.equal(later.message, '');
    assert.deepEqual(complaints, []);
  });
}

test('a film without sound plays', async () => {
  await choose('no_audio.mkv');
  await playing();
  assert.deepEqual(complaints, []);
});

test('another quality goes on where the film was', async () => {
  await choose('h264_ac3.mkv');
  await playing();
  await seekTo(20);
  await page.getByLabel('Quality').selectOption({ label: '240p' });
  await page.waitForFunction(() => {
    const video = document.getElementById('video');
    return video.videoHeight === 240 && video.readyState >= 3;
  });
  const { time } = await state();
  // The page asks for a whole second, and sound may begin a frame before it.
  assert.ok(time > 18.5 && time < 24, `goes on at ${time}`);
  assert.match(await page.locator('#why').textContent(), /re-encoded/);
});

test('what cannot be played is said in a sentence', async () => {
  await choose('text.mkv');
  await page.waitForFunction(() => document.getElementById('message').textContent !== '');
  assert.match((await state()).message, /^This file is not a film that can be played\.$/);
});

test('a film plays to its end', async () => {
  await choose('mpeg4_mp3.avi');
  await playing();
  await seekTo(27);
  await page.waitForFunction(() => document.getElementById('video').ended, null, { timeout: 20000 });
  const { time, message } = await state();
  assert.ok(time > 29.5, `ended at ${time}`);
  assert.equal(message, '');
});

test('leaving the page ends the transcoder', async () => {
  await choose('h264_ac3.mkv');
  await playing();
  await page.goto('about:blank');
  await service.isQuiet();
});
