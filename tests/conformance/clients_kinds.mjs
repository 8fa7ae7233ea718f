// Real players on CMAF presentations of many kinds of films: each one from the start to the end, and from its middle. It
// takes half an hour on an idle machine and needs mpv, VLC and GStreamer, so it is a command of its own:
// ORVO_TEST_BUILD=build/ci node --test tests/conformance/clients_kinds.mjs
// --test-name-pattern=mpv names one player.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { withBarePage } from '../service/bare_page.mjs';
import { build, Service } from '../service/support.mjs';
import { codecs, kinds, make, seconds } from './films.mjs';
import { gstreamer, isClean, mpv, nowhere, players, program, vlc } from './players.mjs';

const middle = seconds / 2;
// A film that is refused has no presentation.
const played = Object.entries(kinds).filter(([, { refusal }]) => !refusal);

let folder;
let service;

before(async () => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-clients-kinds-'));
  fs.chmodSync(folder, 0o755);
  service = await Service.start([folder]);
});
after(async () => {
  await service?.stop();
  fs.rmSync(folder, { recursive: true });
});

// The film, made for the first player that gets it.
async function filmOf(name) {
  const film = path.join(folder, name);
  if (!fs.existsSync(film)) {
    await make(folder, name, kinds[name]);
    if (kinds[name].copies.includes('picture')) {
      execFileSync(path.join(build, 'target/bin/mirevo-analyze'), [film], { env: service.environment, stdio: 'ignore' });
    }
  }
  return film;
}

// Opens a film for a client that plays these codecs, and closes it after `use`.
async function withStream(name, names, use) {
  const { wishes } = kinds[name];
  const stream = await service.open(await filmOf(name), { format: 'cmaf', codecs: names, ...wishes });
  try {
    await use(stream);
  } finally {
    await service.call('Streaming', 'close', { format: 'cmaf', stream_id: stream.stream_id });
  }
}

// FFmpeg's output guesses the rate of the pictures, and cannot hold two in one step of that rate.
const ownTimes = ['-enc_time_base', '-1'];
const ffmpeg = (address, ...words) => program('ffmpeg', ['-nostdin', '-v', 'error', ...words, '-i', address, ...ownTimes, ...nowhere]);

// Each program: how it plays an address to the end, how from a second on, and what it must not say. HLS demuxers of these
// releases cannot seek in fragmented MP4.
const programs = {
  FFmpeg: { plays: ffmpeg, from: (address, second) => ffmpeg(address, '-ss', `${second}`) },
  mpv: { plays: mpv, from: (address, second) => mpv(address, `--start=${second}`) },
  VLC: { plays: vlc, from: (address, second) => vlc(address, `--start-time=${second}`), complaint: /@ |no frame|decode error/i },
  GStreamer: { plays: gstreamer, from: (address, second) => gstreamer(address, `--start-position=${second}`), complaint: /error|warning/i },
};

for (const [player, { plays, from, complaint }] of Object.entries(programs)) {
  for (const [name] of played) {
    test(`${player}: ${name}`, { timeout: 300_000 }, async () => {
      await withStream(name, codecs, async (stream) => {
        isClean(await plays(stream.url), complaint);
        isClean(await plays(stream.dash), complaint);
        isClean(await from(stream.dash, middle), complaint);
      });
    });
  }
}

// The codecs of the list that this browser's MediaSource plays.
const TYPES = {
  avc1: 'video/mp4; codecs="avc1.640028"',
  hvc1: 'video/mp4; codecs="hvc1.2.4.L120.90"',
  av01: 'video/mp4; codecs="av01.0.08M.08"',
  vp09: 'video/mp4; codecs="vp09.00.40.08"',
  mp4a: 'audio/mp4; codecs="mp4a.40.2"',
  'ac-3': 'audio/mp4; codecs="ac-3"',
  'ec-3': 'audio/mp4; codecs="ec-3"',
  opus: 'audio/mp4; codecs="opus"',
  flac: 'audio/mp4; codecs="flac"',
};
const supported = (page) =>
  page.evaluate((types) => Object.keys(types).filter((name) => MediaSource.isTypeSupported(types[name])).join(), TYPES);

async function playsToItsEnd(page, description) {
  const state = () =>
    page.evaluate(() => {
      const { currentTime, duration, readyState, error } = document.getElementById('video');
      return JSON.stringify({ currentTime, duration, readyState, error: error?.message, errors: window.errors });
    });
  const isOver = () => document.getElementById('video').ended || window.errors.length > 0;
  await page.waitForFunction(isOver).catch(async () => assert.fail(`${description}: ${await state()}`));
  assert.deepEqual(await page.evaluate(() => window.errors), [], await state());
}

for (const [player, { script, kind, start }] of Object.entries(players)) {
  for (const [name] of played) {
    test(`${player}: ${name}`, { timeout: 300_000 }, async () => {
      await withBarePage(service, [script], async (page) => {
        await withStream(name, await supported(page), async (stream) => {
          await page.evaluate(() => {
            window.errors = [];
          });
          await page.evaluate(start, stream[kind]);
          await page.evaluate(() => document.getElementById('video').play());
          await playsToItsEnd(page, 'from the start');
          await page.evaluate((second) => {
            const video = document.getElementById('video');
            video.currentTime = second;
            return video.play();
          }, middle);
          await playsToItsEnd(page, 'from the middle');
        });
      });
    });
  }
}
