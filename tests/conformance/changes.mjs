// What a viewer gets who changes the rendition at every segment: the film's pictures at their times, and sound within
// 40 ms. It takes a minute, so it is a command of its own:
// ORVO_TEST_BUILD=build/ci node --test tests/conformance/changes.mjs
import assert from 'node:assert/strict';
import { execFile, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';

import { Service } from '../service/support.mjs';

const run = promisify(execFile);
const seconds = 24;
const [width, height, rate] = [640, 360, 25];
const pulses = "aevalsrc='if(lt(mod(t,1),0.2),0.5*sin(5000*t),0)'"; // at each whole second
// The picture moves so far that the next one is no longer like it.
const film = [
  ...['-f', 'lavfi', '-i', `testsrc2=s=${width}x${height}:d=${seconds}:r=${rate},scroll=horizontal=0.02:vertical=0.01`],
  ...['-f', 'lavfi', '-i', `${pulses}:s=48000:d=${seconds}`],
  ...['-c:v', 'libx264', '-preset', 'veryfast', '-crf', '16', '-pix_fmt', 'yuv420p', '-bf', '2', '-g', '25', '-sc_threshold', '0'],
  ...['-c:a', 'aac'],
];
let folder;
let service;
let stream;
let source;
let shown; // when the film's pictures are shown, in seconds

before(async () => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-changes-'));
  source = path.join(folder, 'film.mkv');
  execFileSync('ffmpeg', ['-nostdin', '-v', 'error', ...film, source]);
  const words = ['-v', 'error', '-select_streams', 'v', '-show_entries', 'packet=pts_time', '-of', 'csv=p=0', source];
  shown = execFileSync('ffprobe', words, { encoding: 'utf8' }).trim().split('\n').map(parseFloat);
  service = await Service.start([folder]);
  stream = await service.open(source, { format: 'cmaf', codecs: 'avc1,mp4a' });
});
after(async () => {
  try {
    await service?.call('Streaming', 'close', { format: 'cmaf', stream_id: stream?.stream_id });
    await service?.stop();
  } finally {
    fs.rmSync(folder, { recursive: true });
  }
});

async function bytes(address) {
  const answer = await fetch(new URL(address, service.address));
  assert.equal(answer.status, 200, address);
  return Buffer.from(await answer.arrayBuffer());
}

// Calls `look` with each segment as a file of its own, its beginning and its end in seconds, and the rendition. Each
// segment is of another rendition than the one before.
async function changing(kind, look) {
  const { timescale, durations, renditions } = stream.presentation;
  const rows = renditions.filter((row) => row.kind === kind);
  assert.ok(rows.length > 1);
  let start = 0;
  for (const [number, length] of durations.entries()) {
    const row = rows[number % rows.length];
    const file = path.join(folder, 'segment.mp4');
    fs.writeFileSync(file, Buffer.concat([await bytes(row.header), await bytes(`${row.segments}${number}`)]));
    const end = start + length / timescale;
    await look(file, start, end, `segment ${number} of ${row.name}`);
    start = end;
  }
}

test('each picture is the one of the film at that time', { timeout: 300_000 }, async () => {
  await changing('picture', async (file, start, end, what) => {
    const half = 0.5 / rate;
    const pictures = shown.filter((time) => time > start - half && time < end - half).length;
    const graph =
      `[0:v]trim=${start - half}:${end - half},setpts=PTS-${start}/TB[film];` +
      `[1:v]setpts=PTS-${start}/TB,scale=${width}:${height}[made];[made][film]ssim`;
    const words = ['-nostdin', '-copyts', '-i', source, '-i', file, '-lavfi', graph, '-an', '-f', 'null', '-'];
    const { stderr } = await run('ffmpeg', words);
    const likeness = Number(stderr.match(/SSIM .*All:([\d.]+)/)?.[1]);
    const frames = Number(stderr.match(/frame= *(\d+)(?!.*frame=)/s)?.[1]);
    assert.equal(frames, pictures, what);
    assert.ok(likeness > 0.85, `${what}: a likeness of ${likeness}`);
  });
});

test('each sound comes within 40 ms of its time', { timeout: 300_000 }, async () => {
  let heard = 0;
  await changing('sound', async (file, start, end, what) => {
    const filter = 'silencedetect=n=-26dB:d=0.3';
    const { stderr } = await run('ffmpeg', ['-nostdin', '-copyts', '-i', file, '-af', filter, '-f', 'null', '-']);
    for (const [, time] of stderr.matchAll(/silence_end: ([\d.]+)/g)) {
      const late = time - Math.round(time);
      // The silence that a segment ends with has no end.
      if (time < end - 0.1) assert.ok(Math.abs(late) <= 0.04, `${what}: a pulse at ${time}`);
      heard += time < end - 0.1;
    }
  });
  assert.ok(heard > seconds / 2, `${heard} pulses`);
});
