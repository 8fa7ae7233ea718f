// Music plays from one piece of an album to the next without a gap.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { encode, launch, Viewer } from './page.mjs';
import { media, Service } from './support.mjs';

const SECONDS = 6; // of each piece
const BOUND = 40; // milliseconds; other tests may use the processors, so it is more than the page needs alone

let service;
let browser;
let folder;

// One tone, cut into pieces.
before(async () => {
  folder = fs.mkdtempSync(path.join(media, 'album-'));
  for (const ending of ['flac', 'mp3']) {
    fs.mkdirSync(path.join(folder, ending));
    for (const piece of [1, 2, 3]) {
      const [from, to] = [(piece - 1) * SECONDS, piece * SECONDS];
      const tone = `sine=frequency=441:sample_rate=44100:duration=${to},atrim=start=${from},asetpts=PTS-STARTPTS`;
      const tags = ['-metadata', `title=Piece ${piece}`, '-metadata', 'artist=Tone', '-metadata', 'album=Sine'];
      execFileSync('ffmpeg', ['-loglevel', 'error', '-f', 'lavfi', '-i', tone, ...tags, path.join(folder, ending, `0${piece} piece.${ending}`)]);
    }
  }
  service = await Service.start([folder]);
  browser = await launch();
});
after(async () => {
  await browser.close();
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});

// Notes the loudness of all that the page plays, for each millisecond.
function record() {
  const context = new AudioContext({ sampleRate: 44100 });
  const source = `registerProcessor('loudness', class extends AudioWorkletProcessor {
    left = 44; peak = 0; heard = [];
    process([[sound]]) {
      for (let at = 0; at < 128; ++at) {
        this.peak = Math.max(this.peak, Math.abs(sound?.[at] ?? 0));
        if (--this.left === 0) { this.heard.push(this.peak); this.left = 44; this.peak = 0; }
      }
      if (this.heard.length > 99) { this.port.postMessage(this.heard); this.heard = []; }
      return true;
    }
  })`;
  window.heard = [];
  const ready = context.audioWorklet.addModule(URL.createObjectURL(new Blob([source], { type: 'text/javascript' }))).then(() => {
    const recorder = new AudioWorkletNode(context, 'loudness');
    recorder.port.onmessage = ({ data }) => window.heard.push(...data);
    recorder.connect(context.destination);
    return recorder;
  });
  const known = new WeakSet();
  const { play } = HTMLMediaElement.prototype;
  HTMLMediaElement.prototype.play = function playRecorded() {
    if (!known.has(this)) {
      known.add(this);
      const node = context.createMediaElementSource(this);
      ready.then((recorder) => node.connect(recorder));
    }
    return play.call(this);
  };
}

// The silences between the first sound and the last, in milliseconds.
function gapsIn(heard) {
  const quiet = Math.max(...heard) / 3;
  const [first, last] = [heard.findIndex((peak) => peak > quiet), heard.findLastIndex((peak) => peak > quiet)];
  const gaps = [];
  for (let at = first; at < last; ++at) {
    const length = heard.slice(at).findIndex((peak) => peak > quiet);
    if (length > 0) gaps.push(length);
    at += Math.max(0, length);
  }
  return gaps;
}

async function open(ending, piece, second) {
  const viewer = await Viewer.open(browser, service, { bypassCSP: true });
  await viewer.page.addInitScript(record);
  const place = (number) => encode(path.join(folder, ending, `0${number} piece.${ending}`));
  await viewer.go(`#/play${place(piece)}?t=${second}`);
  const reaches = (number, least) => viewer.page.waitForFunction(
    ([end, time]) => {
      const { currentTime, paused } = document.getElementById('video');
      return window.location.hash.includes(end) && currentTime >= time && !paused;
    },
    [place(number), least],
  );
  return { viewer, reaches };
}

for (const ending of ['flac', 'mp3']) {
  test(`pieces of an album in ${ending.toUpperCase()} follow each other without a gap`, async (context) => {
    const { viewer, reaches } = await open(ending, 1, 0); // after a seek, browsers know the place in an MP3 file only roughly
    await reaches(2, 2);
    await reaches(3, 2);
    const gaps = gapsIn(await viewer.page.evaluate(() => window.heard));
    context.diagnostic(`${gaps.length} silences, ms: ${gaps.join(' ')}`);
    assert.ok(Math.max(0, ...gaps) <= BOUND, `silences of ${gaps.join(', ')} ms`);
    assert.deepEqual(viewer.complaints, []);
    await viewer.close();
  });
}

test('what follows without a gap obeys the controls and the media keys, and the end of the album is its end', async () => {
  const { viewer, reaches } = await open('flac', 2, 4);
  const { page } = viewer;
  await reaches(3, 1);
  assert.match(await page.locator('#title').innerText(), /03 piece/);
  assert.equal(await page.evaluate(() => navigator.mediaSession.metadata.title), 'Piece 3');
  assert.match(await page.locator('#clock').innerText(), /^0:0\d \/ 0:06$/);
  await page.getByRole('button', { name: 'Pause' }).click();
  await page.waitForFunction(() => document.getElementById('video').paused);
  await page.getByRole('slider', { name: 'Volume' }).fill('0.5');
  await viewer.page.evaluate(() => {
    const position = document.getElementById('position');
    position.value = '4';
    position.dispatchEvent(new Event('change'));
  });
  await page.keyboard.press('>');
  await page.getByRole('button', { name: 'Play', exact: true }).click();
  const sounds = () => page.evaluate(() => (({ currentTime, volume, playbackRate }) => ({ currentTime, volume, playbackRate }))(document.getElementById('video')));
  const { currentTime, volume, playbackRate } = await sounds();
  assert.ok(currentTime >= 4 && volume === 0.5 && playbackRate === 1.25, `${currentTime} ${volume} ${playbackRate}`);
  await page.getByRole('button', { name: 'Play again' }).waitFor();
  await page.getByRole('button', { name: 'Previous film' }).click();
  await reaches(2, 0.5);
  assert.equal((await sounds()).volume, 0.5);
  assert.deepEqual(viewer.complaints, []);
  await viewer.close();
});

test('a viewer who goes back before the end hears the piece, and the next one follows later', async () => {
  const { viewer, reaches } = await open('flac', 1, 5);
  const { page } = viewer;
  await page.waitForFunction(() => document.getElementById('video').currentTime > 5.3);
  await page.evaluate(() => {
    document.getElementById('video').currentTime = 2;
  });
  await reaches(1, 2.5);
  await reaches(2, 1);
  assert.ok(Math.max(0, ...gapsIn(await page.evaluate(() => window.heard.slice(-3000)))) <= BOUND);
  await viewer.close();
});
