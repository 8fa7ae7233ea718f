// Films in a real browser, with each playback method of the page.
import assert from 'node:assert/strict';
import path from 'node:path';
import { after, afterEach, before, beforeEach, test } from 'node:test';

import { launch, Viewer } from './page.mjs';
import { media, Service } from './support.mjs';

let service;
let browser;
let viewer;

before(async () => {
  service = await Service.start([media]);
  browser = await launch();
});
after(async () => {
  await browser.close();
  await service.finish();
});
beforeEach(async () => {
  viewer = await Viewer.open(browser, service);
});
afterEach(async () => {
  await viewer.close();
  await service.isQuiet();
});

const films = {
  'h264_ac3.mkv': 30,
  'h264_aac.mp4': 30,
  'portrait.mp4': 30,
  'mpeg4_mp3.avi': 15,
  'mpeg2_mp2.ts': 15,
  'vp9_opus.webm': 15,
  'hevc10_aac.mov': 15,
};
const byKind = {
  direct: ['h264_aac.mp4', 'vp9_opus.webm'],
  http: Object.keys(films),
  hls: ['h264_ac3.mkv', 'mpeg4_mp3.avi', 'hevc10_aac.mov'],
  webm: ['h264_ac3.mkv', 'vp9_opus.webm'],
  ss: ['h264_ac3.mkv', 'hevc10_aac.mov'],
};
for (const [kind, names] of Object.entries(byKind)) {
  for (const name of names) {
    const middle = films[name];
    test(`${name} by ${kind}: the picture moves, sound is decoded, and a seek lands in the middle`, async () => {
      await viewer.watch(name, { kind });
      await viewer.playing();
      await viewer.seekTo(middle);
      const landed = await viewer.state();
      assert.ok(Math.abs(landed.time - middle) < 1, `landed at ${landed.time}`);
      assert.match(landed.clock, new RegExp(`^0:${middle}|^0:${middle + 1}`));
      if (name !== 'portrait.mp4') {
        // A rotated picture has its clock at the side.
        await viewer.isInStep();
      }
      await viewer.page.waitForFunction((from) => document.getElementById('video').currentTime > from + 1, landed.time);
      const later = await viewer.state();
      assert.ok(later.frames > landed.frames);
      assert.ok(later.sound > landed.sound);
      assert.equal(later.message, '');
      assert.deepEqual(viewer.complaints, []);
    });
  }
}

test('a film without sound plays', async () => {
  await viewer.go();
  await viewer.page.getByRole('link', { name: 'no_audio.mkv' }).click();
  await viewer.page.getByRole('link', { name: 'Play', exact: true }).click();
  await viewer.playing();
});

test('a change of quality keeps the position', async () => {
  await viewer.watch('h264_ac3.mkv', { kind: 'http' });
  await viewer.playing();
  await viewer.seekTo(20);
  await viewer.set('Quality', '240p');
  await viewer.page.waitForFunction(() => {
    const video = document.getElementById('video');
    return video.videoHeight === 240 && video.readyState >= 3;
  });
  const { time } = await viewer.state();
  // The page requests a whole second, and sound may begin one frame earlier.
  assert.ok(time > 18.5 && time < 24, `goes on at ${time}`);
  assert.match(await viewer.page.locator('#why').textContent(), /^360p, H\.264, converted to 240p on this server$/);
});

test('the page of a file that cannot be played tells its title, its path and why', async () => {
  await viewer.go();
  await viewer.page.getByRole('link', { name: 'text.mkv' }).click();
  await viewer.page.getByText('This file is not a film that can be played. Choose another film.', { exact: true }).waitFor();
  assert.equal(await viewer.page.getByRole('heading', { level: 1 }).textContent(), 'text.mkv');
  assert.equal(await viewer.page.locator('#view .facts').textContent(), `${path.basename(media)}/text.mkv`);
});

for (const kind of ['http', 'hls']) {
  test(`a film plays to its end by ${kind}`, async () => {
    await viewer.watch('mpeg4_mp3.avi', { kind });
    await viewer.playing();
    await viewer.seekTo(27);
    await viewer.page.waitForFunction(() => document.getElementById('video').ended, null, { timeout: 20000 });
    const { time, message } = await viewer.state();
    assert.ok(time > 29.5, `ended at ${time}`);
    assert.equal(message, '');
    await viewer.page.getByRole('button', { name: 'Play again' }).waitFor();
  });
}

for (const kind of ['http', 'hls']) {
  test(`leaving the page ends the transcoder of ${kind}`, async () => {
    await viewer.watch('h264_ac3.mkv', { kind });
    await viewer.playing();
    await viewer.leave();
    await service.isQuiet();
  });
}
