// Real players on a CMAF presentation: from the start to the end, with seeks, changes of rendition and of sound. It
// takes some minutes and needs mpv, VLC and GStreamer, so it is a command of its own:
// ORVO_TEST_BUILD=build/ci node --test tests/conformance/clients.mjs
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { playback, shownSecond, withBarePage } from '../service/bare_page.mjs';
import { eventually, Service } from '../service/support.mjs';
import { gstreamer, isClean, mpv, nowhere, observe, players, program, vlc } from './players.mjs';

const seconds = 40;
const rate = 25;
const places = [31, 2, 17, 17.5, 38, 0, 9, 24.3, 24.9, 12, 35, 5, 29, 21, 14, 36.6, 1, 27, 19, 7];
const changes = places.map((place) => Math.min(place, 35)); // where the film goes on for a while after them
// The luma of the picture tells its second (shownSecond).
const film = [
  ...['-f', 'lavfi', '-i', `color=black:s=640x360:d=${seconds}:r=${rate},geq=lum='16+3*T':cb=128:cr=128`],
  ...['-f', 'lavfi', '-i', `sine=f=440:beep_factor=2:r=48000:d=${seconds}`],
  ...['-f', 'lavfi', '-i', `sine=f=880:r=48000:d=${seconds}`],
  ...['-map', '0', '-map', '1', '-map', '2', '-metadata:s:a:0', 'language=eng', '-metadata:s:a:1', 'language=ger'],
  ...['-c:v', 'libx264', '-preset', 'ultrafast', '-pix_fmt', 'yuv420p', '-bf', '2', '-g', '50', '-sc_threshold', '0'],
  ...['-c:a', 'aac'],
];
let folder;
let service;
let stream;

before(async () => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-clients-'));
  execFileSync('ffmpeg', ['-nostdin', '-v', 'error', ...film, path.join(folder, 'film.mkv')]);
  service = await Service.start([folder]);
  stream = await service.open(path.join(folder, 'film.mkv'), { format: 'cmaf', codecs: 'avc1,mp4a' });
});
after(async () => {
  await service?.stop();
  fs.rmSync(folder, { recursive: true });
});

// FFmpeg's HLS demuxer cannot seek in fragmented MP4, its own included. That of GStreamer 1.22 stops at an assertion.
const seeksOf = (kind) => (kind === 'dash' ? places : []);

for (const kind of ['url', 'dash']) {
  test(`ffmpeg, ${kind}: to the end, seeks, each rendition and sound`, async () => {
    for (const maps of [['0:v:0', '0:a:0'], ['0:v:1', '0:a:1'], ['0:v:1', '0:a:3']]) {
      const words = ['-nostdin', '-v', 'warning', '-i', stream[kind], ...maps.flatMap((map) => ['-map', map]), ...nowhere];
      isClean(await program('ffmpeg', words));
    }
    for (const place of seeksOf(kind)) {
      const words = ['-ss', `${place}`, '-i', stream[kind], '-map', '0:v:0', '-map', '0:a:0', '-t', '0.5', ...nowhere];
      isClean(await program('ffmpeg', ['-nostdin', '-v', 'warning', ...words]));
    }
  });

  test(`mpv, ${kind}: to the end, seeks, other renditions and sound`, async () => {
    isClean(await mpv(stream[kind]));
    isClean(await mpv(stream[kind], '--vid=2', '--aid=2'));
    for (const place of seeksOf(kind)) isClean(await mpv(stream[kind], `--start=${place}`, '--length=0.5'));
  });

  test(`VLC, ${kind}: to the end, seeks, another sound`, async () => {
    const complaint = /h264 @|no frame|decode error/i;
    isClean(await vlc(stream[kind]), complaint);
    isClean(await vlc(stream[kind], '--audio-track=1'), complaint);
    for (const place of places.slice(0, 6)) isClean(await vlc(stream[kind], `--start-time=${place}`, '--run-time=2'), complaint);
  });

  test(`GStreamer, ${kind}: to the end, and from other places`, async () => {
    const complaint = /error|warning/i;
    isClean(await gstreamer(stream[kind]), complaint);
    for (const place of seeksOf(kind).slice(0, 6)) isClean(await gstreamer(stream[kind], `--start-position=${place}`), complaint);
  });
}

// --- Players in a browser ---

// The picture that is shown belongs to the player's clock. `deed`: what the viewer has just done.
async function showsItsTime(page, second, deed) {
  const from = Math.min(second, seconds - 1);
  const plays = (least) => {
    const video = document.getElementById('video');
    return video.currentTime > least + 0.2 && video.readyState >= 3 && !video.seeking;
  };
  await page.waitForFunction(plays, from).catch(async () => {
    assert.fail(`${deed}: stands still, ${await page.describe()}`);
  });
  // A busy browser may show the next pictures before its script runs.
  const shown = [await shownSecond(page), await shownSecond(page), await shownSecond(page)];
  assert.ok(shown.some(({ picture, clock }) => Math.abs(picture - clock) < 0.7), `${deed}: ${JSON.stringify(shown)}`);
}

// hls.js 1.7 and Shaka 4.16 may stand still after a seek while they load the header of another rendition.
async function playsOn(page, deed) {
  const { time } = await playback(page);
  await showsItsTime(page, time, deed);
}

async function seek(page, second, deed) {
  await page.evaluate((to) => {
    document.getElementById('video').currentTime = to;
  }, second);
  await showsItsTime(page, second, `${deed}, and to ${second}`);
}

for (const [name, { script, kind, start }] of Object.entries(players)) {
  test(`${name}: from the start, 20 seeks, 20 changes of rendition and of sound, to the end`, { timeout: 400000 }, async () => {
    await withBarePage(service, [script], async (page) => {
      page.describe = observe(page);
      await page.evaluate(() => {
        window.errors = [];
      });
      await page.evaluate(start, stream[kind]);
      await page.evaluate(() => document.getElementById('video').play());
      await showsItsTime(page, 0, 'start');
      for (const place of places) await seek(page, place, 'seek');
      await seek(page, changes.at(-1), 'seek');
      for (const [i, place] of changes.entries()) {
        await page.evaluate((n) => window.show(n % window.renditions), i + 1);
        await playsOn(page, `change ${i} of rendition`);
        await seek(page, place, `change ${i} of rendition`);
      }
      for (const [i, place] of changes.entries()) {
        await page.evaluate((n) => window.hear(n % window.sounds), i + 1);
        await playsOn(page, `change ${i} of sound`);
        await seek(page, place, `change ${i} of sound`);
      }
      assert.ok((await playback(page)).sound > 0);
      await seek(page, seconds - 2, 'end');
      await page.waitForFunction(() => document.getElementById('video').ended).catch(async () => {
        assert.fail(`does not end: ${await page.describe()}`);
      });
      assert.deepEqual(await page.evaluate(() => window.errors), []);
    });
  });
}

test('nothing runs after the players', async () => {
  await service.call('Streaming', 'close', { format: 'cmaf', stream_id: stream.stream_id });
  await eventually(() => (service.transcoders().length === 0 ? true : undefined));
});
