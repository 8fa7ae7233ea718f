// What viewers see when a box dies, hangs or is cut off, and when boxes come and go under ten films. It takes some minutes.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { setTimeout as pause } from 'node:timers/promises';

import { build } from '../service/support.mjs';
import { Cluster } from './cluster.mjs';
import { watch } from './viewer.mjs';

const film = 'film.mkv';
const seconds = 100;
// The programs of another release, for the upgrade.
const upgraded = process.env.ORVO_OTHER_BUILD ?? build;
// How many of the ten films are encoded; the others are copied, every second one as CMAF. A box encodes one at a time in software, so each takes a box, and one box is away.
const encodedFilms = Number(process.env.ORVO_TEST_ENCODED ?? 1);
const boxesOfTen = Number(process.env.ORVO_TEST_BOXES ?? 3);
const isPolite = process.env.ORVO_TEST_POLITE !== undefined; // other work is not to wait
const encoded = { kind: { format: 'hls', profile: 'hls_240p_vb300_ab96' }, length: 5 };
const copied = { kind: { format: 'hls', profile: 'hls_remux' }, length: 8 };
const copiedCmaf = { kind: { format: 'cmaf', codecs: 'avc1,mp4a' } };
let films;
let cluster;

before(() => {
  if (!isPolite) os.setPriority(os.constants.priority.PRIORITY_HIGH);
  films = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-films-'));
  fs.chmodSync(films, 0o755);
  execFileSync('ffmpeg', [
    ...['-nostdin', '-v', 'error', '-f', 'lavfi', '-i', `testsrc2=s=640x360:r=25:d=${seconds}`],
    ...['-f', 'lavfi', '-i', `sine=440:r=48000:d=${seconds}`],
    ...['-c:v', 'libx264', '-preset', 'ultrafast', '-g', '50', '-c:a', 'ac3', path.join(films, film)],
  ]);
});
after(() => fs.rmSync(films, { recursive: true, force: true }));

// Starts boxes until the end of the test. They come before other work of the machine.
async function start(t, options = {}) {
  const cores = isPolite ? undefined : os.availableParallelism();
  cluster = await Cluster.start({ films, cores, ...options });
  t.after(() => cluster.stop());
}

// The box that opens films refuses an encoded one while its place is taken. Players are told to ask again.
async function open(kind) {
  for (;;) {
    try {
      return await cluster.open(film, kind);
    } catch (error) {
      if (!error.message.includes('"TransEnable"')) throw error;
      await pause(1000);
    }
  }
}

async function view({ kind, length }, ahead, asks) {
  const stream = await open(kind);
  const addresses = await cluster.segments(stream.url);
  return watch(addresses, { length, ahead, asks: (number) => asks?.(number, stream) });
}

// A player of CMAF loads pictures and sound side by side, each from a playlist of its own.
async function viewCmaf({ kind }, ahead) {
  const { url } = await open(kind);
  const master = await (await fetch(url)).text();
  const at = (line) => new URL(line, `http://${cluster.authority}`).href;
  const pictures = master.split('\n').find((line) => line.includes('rendition=copy-video'));
  const [, sound] = /TYPE=AUDIO.*URI="([^"]+)"/.exec(master);
  const lists = await Promise.all([pictures, sound].map((line) => cluster.segments(at(line))));
  const seen = await Promise.all(lists.map((list) => watch(list, { length: seconds / list.length, ahead })));
  return { longest: Math.max(...seen.map(({ longest }) => longest)), complaints: seen.flatMap(({ complaints }) => complaints) };
}

const viewerOf = (number) => {
  if (number < encodedFilms) return view(encoded, 30);
  return number % 2 === 0 ? viewCmaf(copiedCmaf, 30) : view(copied, 30);
};

const summary = ({ longest, stalls, complaints }) =>
  `longest stall ${longest.toFixed(1)} s of ${stalls.length}, errors: ${complaints.join(' ') || 'none'}`;

const faults = [
  { what: 'killed', bound: 5, strike: (box) => cluster.kill(box) },
  { what: 'frozen', bound: 10, strike: (box) => cluster.freeze(box) },
  { what: 'cut off from the network', bound: 10, strike: (box) => cluster.network.pull(box.number) },
];

// The box goes in the moment in which the viewer with little in advance asks it for a segment.
for (const { what, bound, strike } of faults) {
  test(`a box is ${what}: no stall with 30 s in advance, one under ${bound} s with 5 s`, async (t) => {
    await start(t);
    const struck = 9; // the last one of a block
    const patient = view(encoded, 30);
    const hasty = view(encoded, 5, (number, stream) => {
      if (number !== struck) return;
      const box = cluster.lastAsked(stream);
      t.diagnostic(`box ${box.number} at ${number * encoded.length} s`);
      strike(box);
    });
    const [with30, with5] = await Promise.all([patient, hasty]);
    t.diagnostic(`30 s in advance: ${summary(with30)}`);
    t.diagnostic(`5 s in advance: ${summary(with5)}; load ${os.loadavg()[0].toFixed(0)}`);
    assert.equal(with30.longest, 0);
    assert.ok(with5.longest < bound);
  });
}

test('a box is added, drained and upgraded while ten films play: no error', async (t) => {
  await start(t, { count: boxesOfTen, started: boxesOfTen - 1 });
  const [, second] = cluster.boxes;
  const last = cluster.boxes.at(-1);
  let playing = 10;
  const viewers = Array.from({ length: playing }, (_, number) => viewerOf(number).finally(() => (playing -= 1)));
  await cluster.serve(last);
  await cluster.isUp(last);
  t.diagnostic(`box ${last.number} is added`);
  cluster.command(second, 'drain');
  await cluster.hasWeight(second, (weight) => weight === 0);
  await cluster.isLeft(second);
  t.diagnostic('box 2 is drained');
  await cluster.shut(second);
  await cluster.serve(second, upgraded);
  cluster.command(second, 'ready');
  await cluster.hasWeight(second, (weight) => weight > 0);
  await cluster.isUp(second);
  t.diagnostic(`box 2 is back${upgraded === build ? '' : ' with another release'}; ${playing} films play`);
  assert.ok(playing > 0, 'the films ended before');
  const seen = await Promise.all(viewers);
  t.diagnostic(`longest stall ${Math.max(...seen.map(({ longest }) => longest)).toFixed(1)} s; load ${os.loadavg()[0].toFixed(0)}`);
  assert.deepEqual(seen.map(({ complaints }) => complaints.join(', ')), Array(10).fill(''));
});
