// How much faster several boxes encode one film than one does, each with a quota of processor time, and how long a viewer
// waits until the film runs without a stall.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

import { Cluster } from './cluster.mjs';

const cores = Number(process.argv[2] ?? 0.3);
const formats = { hls: playHls, cmaf: playCmaf };
const words = process.argv.slice(3);
const format = words.find((word) => word in formats) ?? 'hls';
const named = words.filter((word) => !(word in formats)).map(Number);
const counts = named.length > 0 ? named : [1, 2, 3];
const seconds = Number(process.env.MIREVO_SPEED_SECONDS ?? 320);
const noise = process.env.MIREVO_SPEED_NOISE; // makes the film cost more
const film = 'film.mkv';
const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-speed-'));
fs.chmodSync(folder, 0o755);

function makeFilm() {
  const picture = `testsrc2=s=1920x1080:r=24:d=${seconds}${noise ? `,noise=alls=${noise}:allf=t` : ''}`;
  execFileSync('ffmpeg', [
    ...['-nostdin', '-v', 'error', '-f', 'lavfi', '-i', picture, '-f', 'lavfi', '-i', `sine=440:r=48000:d=${seconds}`],
    ...['-c:v', 'libx264', '-preset', 'ultrafast', '-b:v', '6M', '-g', '48', '-c:a', 'ac3', path.join(folder, film)],
  ]);
}

// When each piece of the film has come to a player that asks as fast as it can: its start and its end in the film, and
// the time, in seconds.
const now = () => performance.now() / 1000;

// A connection that is kept may end in the moment in which it is used again.
const ask = (address) => fetch(address, { headers: { connection: 'close' } });

async function playHls(cluster) {
  const begun = now();
  const { url } = await cluster.open(film, { format: 'hls', profile: 'hls_720p_vb2500_ab128', start: 0 });
  const pieces = [];
  for (const [number, address] of (await cluster.segments(url)).entries()) {
    const response = await ask(address);
    await response.arrayBuffer();
    if (!response.ok) throw new Error(`${response.status} for segment ${number}`);
    pieces.push({ number, start: number * 5, end: Math.min((number + 1) * 5, seconds), time: now() - begun });
  }
  return pieces;
}

// Calls `found` with the decode time of each whole fragment as it arrives.
async function readFragments(response, found) {
  let rest = Buffer.alloc(0);
  let time;
  for await (const chunk of response.body) {
    rest = Buffer.concat([rest, chunk]);
    while (rest.length >= 8 && rest.length >= rest.readUInt32BE(0)) {
      const box = rest.subarray(0, rest.readUInt32BE(0));
      const kind = box.toString('latin1', 4, 8);
      const at = box.indexOf('tfdt');
      if (kind === 'moof') time = box[at + 4] === 1 ? Number(box.readBigUInt64BE(at + 8)) : box.readUInt32BE(at + 8);
      if (kind === 'mdat') found(time / 90000);
      rest = rest.subarray(box.length);
    }
  }
}

// A segment comes while it is made. Pictures count: sound costs little.
async function playCmaf(cluster) {
  const begun = now();
  const { url } = await cluster.open(film, { format: 'cmaf', codecs: 'avc1,mp4a', max_height: 720, start: 0 });
  const answer = await fetch(url);
  const master = await answer.text();
  if (!answer.ok) throw new Error(`${answer.status} for the playlist: ${master}`);
  const at = (line) => new URL(line, `http://${cluster.authority}`).href;
  const pictures = master.split('\n').find((line) => /rendition=h264-/.test(line));
  const sound = master.match(/URI="([^"]+rendition=stereo-[^"]+)"/)[1];
  const [list, heard] = await Promise.all([pictures, sound].map((line) => cluster.segments(at(line))));
  const pieces = [];
  for (const [number, address] of list.entries()) {
    const response = await ask(address);
    if (!response.ok) throw new Error(`${response.status} for segment ${number}`);
    await readFragments(response, (start) => pieces.push({ number, start, time: now() - begun }));
    await (await ask(heard[number])).arrayBuffer();
  }
  pieces.forEach((piece, i) => {
    piece.end = pieces[i + 1]?.start ?? seconds;
  });
  return pieces;
}

async function measure(count) {
  const cluster = await Cluster.start({ films: folder, count, cores });
  try {
    return await formats[format](cluster);
  } finally {
    await cluster.stop();
  }
}

// The times real time at which film came after its first ten seconds: all boxes have begun then.
function factorOf(pieces) {
  const first = pieces.find(({ start }) => start >= 10);
  const last = pieces.at(-1);
  return (last.end - first.end) / (last.time - first.time);
}

try {
  makeFilm();
  let alone;
  for (const count of counts) {
    const pieces = await measure(count);
    const factor = factorOf(pieces);
    alone ??= factor;
    // A player that begins then has each piece in time.
    const late = pieces.reduce((worst, piece) => (piece.time - piece.start > worst.time - worst.start ? piece : worst));
    console.log(
      `${format}, ${count} boxes of ${cores} cores: ${factor.toFixed(2)} times real time, ` +
        `${(factor / alone).toFixed(2)} of the first measurement; first piece after ${pieces[0].time.toFixed(1)} s, ` +
        `the film runs without a stall after ${(late.time - late.start).toFixed(1)} s (segment ${late.number}); ` +
        `load ${os.loadavg()[0].toFixed(0)}`,
    );
    const ends = pieces.filter((piece, i) => piece.number !== pieces[i + 1]?.number);
    console.log(`  ${ends.map(({ time }) => time.toFixed(0)).join(' ')}`);
  }
} finally {
  fs.rmSync(folder, { recursive: true, force: true });
}
