// A viewer who seeks all the time in a copied film: single seeks, three within 300 ms, and also while the run before begins or
// ends. Like a browser, it closes the connection of a request that it does not want any more. Each segment that it waits for
// has to come whole. It takes some minutes, so it is a command of its own:
// ORVO_TEST_BUILD=$PWD/build/ci node tests/conformance/seeks.mjs [MINUTES [SEED]]
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { setTimeout as pause } from 'node:timers/promises';

import { Service } from '../service/support.mjs';

const minutes = Number(process.argv[2] ?? 3);
const seed = Number(process.argv[3] ?? Date.now() % 100000);
const seconds = 300;
const seeksOfStream = 25; // later all segments are ready, so a new stream is opened
const patience = 90_000;

// A generator of numbers from 0 to 1 that can be repeated (mulberry32).
let state = seed;
function random() {
  state = (state + 0x6d2b79f5) | 0;
  let t = Math.imul(state ^ (state >>> 15), 1 | state);
  t = (t + Math.imul(t ^ (t >>> 7), 61 | t)) ^ t;
  return ((t ^ (t >>> 14)) >>> 0) / 2 ** 32;
}
const below = (number) => Math.floor(random() * number);

// About 8 Mbit/s, with B-frames and a key frame every two seconds.
function makeFilm(folder) {
  const clip = path.join(folder, 'clip.mkv');
  const film = path.join(folder, 'film.mkv');
  execFileSync('ffmpeg', [
    ...['-nostdin', '-v', 'error', '-f', 'lavfi', '-i', 'testsrc2=s=1280x720:r=25:d=10,noise=alls=8:allf=t'],
    ...['-f', 'lavfi', '-i', 'sine=440:r=48000:d=10', '-c:v', 'libx264', '-preset', 'ultrafast', '-b:v', '8M', '-bf', '2'],
    ...['-g', '50', '-sc_threshold', '0', '-pix_fmt', 'yuv420p', '-c:a', 'aac', clip],
  ]);
  execFileSync('ffmpeg', ['-nostdin', '-v', 'error', '-stream_loop', `${seconds / 10 - 1}`, '-i', clip, '-c', 'copy', film]);
  return film;
}

// What is wrong with the body of a segment; undefined if it has whole boxes and pictures or sound.
function flawOf(body) {
  let place = 0;
  let last = '';
  while (place + 8 <= body.length) {
    last = body.toString('latin1', place + 4, place + 8);
    place += Math.max(body.readUInt32BE(place), 8);
  }
  return place === body.length && last === 'mdat' ? undefined : `${body.length} bytes end in ${last || 'nothing'}`;
}

class Load {
  // `agent` keeps connections, as a browser does.
  constructor(name, address, agent) {
    this.name = name;
    this.begun = performance.now();
    this.isClosed = false;
    this.done = new Promise((resolve) => {
      this.request = http.get(address, { agent, timeout: patience }, async (response) => {
        try {
          const body = Buffer.concat(await response.toArray());
          const text = response.statusCode === 200 ? flawOf(body) : `${response.statusCode} ${body.toString('utf8', 0, 200)}`;
          resolve(text);
        } catch (error) {
          resolve(`breaks off: ${error.code ?? error.message}`);
        }
      });
      this.request.on('error', (error) => resolve(error.code ?? error.message));
      this.request.on('timeout', () => this.request.destroy(new Error('no answer')));
    });
  }

  close() {
    this.isClosed = true;
    this.request.destroy();
  }

  // The complaint about a load that was not closed.
  async complaint() {
    const found = await this.done;
    return found && !this.isClosed ? `${this.name}: ${found} after ${Math.round(performance.now() - this.begun)} ms` : undefined;
  }
}

class Viewer {
  // Watches these renditions of a stream.
  constructor({ url, presentation }, names) {
    this.agent = new http.Agent({ keepAlive: true, maxSockets: 6 });
    this.count = presentation.durations.length;
    const chosen = presentation.renditions.filter(({ name }) => names.includes(name));
    this.tracks = chosen.map(({ name, segments }) => ({ name, base: new URL(segments, url).href }));
    this.loads = [];
    this.history = [];
    this.complaints = [];
  }

  note(text) {
    this.history.push(`${Math.round(performance.now() % 1e6)} ${text}`);
  }

  // Leaves what is under way, and asks for a segment of each track.
  ask(number) {
    this.loads.forEach((load) => load.close());
    this.note(`ask ${number}`);
    this.number = number;
    this.loads = this.tracks.map(({ name, base }) => new Load(`${name} ${number}`, base + number, this.agent));
  }

  // Waits until everything has come that was asked for last.
  async settle() {
    for (const load of this.loads) {
      const complaint = await load.complaint();
      if (complaint) {
        this.complaints.push(complaint);
        console.log(`${complaint}\n    ${this.history.slice(-8).join(', ')}`);
      }
    }
    this.note('settled');
  }

  // Loads the segments behind the place.
  async playOn(pieces) {
    for (let i = 0; i < pieces && this.number + 1 < this.count; i += 1) {
      this.ask(this.number + 1);
      await this.settle();
    }
  }

  // Each seek has its kind: alone, three at once, or while the run that it leaves begins or goes on.
  async seek() {
    const kind = below(3);
    const anywhere = () => below(this.count);
    for (let i = kind === 0 ? 1 : 3; i > 0; i -= 1) {
      this.ask(anywhere());
      if (i > 1) await pause(kind === 1 ? below(100) : below(5));
    }
    await this.settle();
    await this.playOn(below(3));
  }

  leave() {
    this.agent.destroy();
  }
}

const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-seeks-'));
const film = makeFilm(folder);
const service = await Service.start([folder]);
const complaints = [];
let seeks = 0;
try {
  const end = performance.now() + minutes * 60_000;
  while (performance.now() < end) {
    const stream = await service.open(film, { format: 'cmaf', codecs: 'avc1,mp4a' });
    const viewer = new Viewer(stream, ['copy-video', below(2) ? 'stereo-0' : 'copy-audio-0']);
    for (let i = 0; i < seeksOfStream && performance.now() < end; i += 1) {
      await viewer.seek();
      seeks += 1;
    }
    viewer.leave();
    complaints.push(...viewer.complaints);
    await service.call('Streaming', 'close', { format: 'cmaf', stream_id: stream.stream_id });
  }
} finally {
  await service.stop();
  fs.rmSync(folder, { recursive: true });
}
console.log(`${seeks} seeks, ${complaints.length} errors, seed ${seed}`);
process.exitCode = complaints.length > 0 ? 1 : 0;
