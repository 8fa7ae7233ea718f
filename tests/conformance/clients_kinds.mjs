// Real players on CMAF presentations of many kinds of films: each one from the start to the end, and from its middle. In a
// browser also with 20 seeks, 20 changes of rendition and 20 of sound. It takes an hour on an idle machine and needs mpv,
// VLC and GStreamer, so it is a command of its own:
// ORVO_TEST_BUILD=build/ci node --test tests/conformance/clients_kinds.mjs
// ORVO_TEST_DEEDS=4 does everything that often instead of 20 times.
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
const deeds = Number(process.env.ORVO_TEST_DEEDS ?? 20); // seeks, and changes of each kind
const places = Array.from({ length: deeds }, (_, i) => (((i * 7) % 20) * (seconds - 1)) / 20);
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

const stateOf = (page) =>
  page.evaluate(() => {
    const { currentTime, duration, readyState, seeking, error, buffered } = document.getElementById('video');
    const parts = Array.from({ length: buffered.length }, (_, i) => [buffered.start(i), buffered.end(i)]);
    return JSON.stringify({ currentTime, duration, readyState, seeking, error: error?.message, errors: window.errors, parts });
  });

async function playsToItsEnd(page, description) {
  const isOver = () => document.getElementById('video').ended || window.errors.length > 0;
  await page.waitForFunction(isOver).catch(async () => assert.fail(`${description}: ${await stateOf(page)}`));
  assert.deepEqual(await page.evaluate(() => window.errors), [], await stateOf(page));
}

// The film goes on for a moment. `deed`: what the viewer has just done.
async function playsOn(page, deed) {
  const from = await page.evaluate(() => document.getElementById('video').currentTime);
  const goesOn = (second) => {
    const { currentTime, readyState, seeking, ended } = document.getElementById('video');
    return window.errors.length > 0 || (!seeking && (ended || (readyState >= 2 && currentTime > second + 0.1)));
  };
  await page.waitForFunction(goesOn, from).catch(async () => assert.fail(`${deed}: stands still, ${await stateOf(page)}`));
  assert.deepEqual(await page.evaluate(() => window.errors), [], `${deed}: ${await stateOf(page)}`);
}

async function seek(page, place, deed) {
  await page.evaluate((second) => {
    const video = document.getElementById('video');
    video.currentTime = second;
    // A player that has just replaced its media source interrupts this; whether the film goes on is looked at below.
    return video.play().catch(() => {});
  }, place);
  await playsOn(page, deed);
}

// What the players' pages offer by number (players.mjs).
const changes = {
  rendition: (page, i) => page.evaluate((n) => window.renditions > 1 && window.show(n % window.renditions), i),
  sound: (page, i) => page.evaluate((n) => window.sounds > 1 && window.hear(n % window.sounds), i),
};

for (const [player, { script, kind, start }] of Object.entries(players)) {
  for (const [name] of played) {
    test(`${player}: ${name}`, { timeout: 600_000 }, async () => {
      await withBarePage(service, [script], async (page) => {
        await withStream(name, await supported(page), async (stream) => {
          await page.evaluate(() => {
            window.errors = [];
          });
          await page.evaluate(start, stream[kind]);
          await page.evaluate(() => document.getElementById('video').play());
          await playsToItsEnd(page, 'from the start');
          for (const [i, place] of places.entries()) await seek(page, place, `seek ${i} to ${place}`);
          for (const [what, change] of Object.entries(changes)) {
            for (const [i, place] of places.entries()) {
              await seek(page, place, `before change ${i} of ${what}`);
              await change(page, i + 1);
              await playsOn(page, `change ${i} of ${what} at ${place}`);
            }
          }
          await seek(page, middle, 'to the middle');
          await playsToItsEnd(page, 'from the middle');
        });
      });
    });
  }
}
