// The life of progressive streams in a running service.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, beforeEach, test } from 'node:test';
import { promisify } from 'node:util';

import { aboutProcess, eventually, media, readSome, Service } from './support.mjs';

const run = promisify(execFile);
const film = (name) => path.join(media, name);
const transcode = { profile: 'http_mp4_240p_vb300_ab96' };
let service;

before(async () => {
  service = await Service.start([media]);
});
beforeEach(() => service.isQuiet());
after(() => service.stop());

async function probe(bytes) {
  const file = path.join(service.root, 'probe.bin');
  fs.writeFileSync(file, bytes);
  const { stdout } = await run('ffprobe', ['-v', 'error', '-of', 'json', '-show_streams', '-show_format', file]);
  return JSON.parse(stdout);
}

const films = {
  'h264_ac3.mkv': 60,
  'portrait.mp4': 60,
  'mpeg4_mp3.avi': 30,
  'mpeg2_mp2.ts': 30,
  'vp9_opus.webm': 30,
  'hevc10_aac.mov': 30,
  'no_audio.mkv': 60,
};
for (const [name, seconds] of Object.entries(films)) {
  test(`${name} plays from its middle`, async () => {
    const stream = await service.open(film(name), transcode);
    assert.equal(stream.duration, seconds);
    const response = await fetch(`${stream.url}&start=${seconds / 2}`);
    assert.equal(response.status, 200);
    assert.equal(response.headers.get('content-type'), 'video/mp4');
    const bytes = await readSome(response, 100000);
    await response.body.cancel();
    const { streams, format } = await probe(bytes);
    assert.deepEqual(
      streams.map((track) => track.codec_name),
      name === 'no_audio.mkv' ? ['h264'] : ['h264', 'aac'],
    );
    assert.ok(Math.abs(Number(format.start_time) - seconds / 2) < 0.2, `starts at ${format.start_time}`);
    await service.close(stream);
  });
}

test('every wish for the sound plays, and an unknown one is refused', async () => {
  const channels = {};
  for (const sound of ['stereo', 'night', 'original']) {
    const stream = await service.open(film('h264_ac3.mkv'), { ...transcode, sound });
    const response = await fetch(`${stream.url}&start=30`);
    const bytes = await readSome(response, 100000);
    await response.body.cancel();
    channels[sound] = (await probe(bytes)).streams.find((track) => track.codec_type === 'audio').channels;
    await service.close(stream);
  }
  assert.deepEqual(channels, { stereo: 2, night: 2, original: 2 });
  await assert.rejects(service.open(film('h264_ac3.mkv'), { ...transcode, sound: 'loud' }), /stereo, night/);
});

test('a stream arrives completely and leaves nothing behind', async () => {
  const stream = await service.open(film('h264_ac3.mkv'), { profile: 'http_mp4_remux' });
  const bytes = Buffer.from(await (await fetch(`${stream.url}&start=50`)).arrayBuffer());
  const { format } = await probe(bytes);
  assert.ok(Number(format.start_time) + Number(format.duration) > 59.5);
  await service.isQuiet();
});

test('a damaged film plays as far as possible and ends', async () => {
  const stream = await service.open(film('truncated.mkv'), transcode);
  const bytes = Buffer.from(await (await fetch(stream.url)).arrayBuffer());
  assert.ok(Number((await probe(bytes)).format.duration) > 20);
});

test('closing stops the transcoder', async () => {
  const stream = await service.open(film('h264_ac3.mkv'), transcode);
  const response = await fetch(stream.url);
  await readSome(response, 20000);
  assert.equal(service.transcoders().length, 1);
  await service.close(stream);
  await service.isQuiet();
  await response.body.cancel().catch(() => {});
});

test('the transcoder stops when the client leaves, and the address plays again', async () => {
  const stream = await service.open(film('h264_ac3.mkv'), transcode);
  const first = await fetch(stream.url);
  await readSome(first, 20000);
  await first.body.cancel();
  await service.isQuiet();
  const second = await fetch(`${stream.url}&start=20`);
  const { format } = await probe(await readSome(second, 50000));
  assert.ok(Math.abs(Number(format.start_time) - 20) < 0.2);
  await second.body.cancel();
});

test('a killed request leaves nothing behind', async () => {
  const stream = await service.open(film('h264_ac3.mkv'), transcode);
  const response = await fetch(stream.url);
  await readSome(response, 20000);
  const owner = service.registry().length;
  assert.equal(owner, 1);
  for (const { pid } of service.requestProcesses()) {
    const parent = aboutProcess(pid, 'status').match(/PPid:\t(\d+)/)?.[1];
    if (aboutProcess(parent, 'comm').startsWith('lighttpd')) process.kill(pid, 'SIGKILL');
  }
  await service.isQuiet();
  await response.body.cancel().catch(() => {});
});

test('the answer breaks off where its transcoder is killed, and does not look like a film that is over', async () => {
  const stream = await service.open(film('h264_ac3.mkv'), { profile: 'http_mp4_480p_vb1200_ab128' });
  const response = await fetch(stream.url);
  await readSome(response, 20000);
  process.kill(service.transcoders()[0].pid, 'SIGKILL');
  await assert.rejects(response.arrayBuffer());
  await service.isQuiet();
});

test('a newer request takes the stream over', async () => {
  const stream = await service.open(film('h264_ac3.mkv'), transcode);
  const older = await fetch(stream.url);
  await readSome(older, 20000);
  const newer = await fetch(`${stream.url}&start=30`);
  const { format } = await probe(await readSome(newer, 50000));
  assert.ok(Math.abs(Number(format.start_time) - 30) < 0.2);
  await older.arrayBuffer().catch(() => {});
  assert.equal(service.transcoders().length, 1);
  await newer.body.cancel();
});

test('the second viewer is told to wait, and plays after the first has left', async () => {
  const first = await service.open(film('h264_ac3.mkv'), transcode);
  const playing = await fetch(first.url);
  await readSome(playing, 20000);
  const refused = await service.call('Streaming', 'open', { format: 'http', path: film('h264_aac.mp4'), ...transcode });
  assert.equal(refused.status, 503);
  assert.equal(refused.error.reason, 'TransEnable');
  assert.ok(Number(refused.headers.get('retry-after')) > 0);
  await playing.body.cancel();
  await service.isQuiet();
  const second = await service.open(film('h264_aac.mp4'), transcode);
  const response = await fetch(second.url);
  assert.equal(response.status, 200);
  await response.body.cancel();
});

function waitsForPipe({ pid }) {
  return aboutProcess(pid, 'wchan').includes('pipe');
}

test('a stalled client pauses the copy and fills neither memory nor disk', async () => {
  // A film larger than all buffers on the way, copied at full speed.
  const stream = await service.open(film('long.mkv'), { profile: 'http_ts_remux' });
  const response = await fetch(stream.url);
  await readSome(response, 20000);
  // A paused copy waits in a write to its full pipe.
  await eventually(() => (service.transcoderPrograms().some(waitsForPipe) ? true : undefined), 60000)
    .catch(() => assert.fail('the copy never waited'));
  await response.body.cancel();
});

test('a byte range becomes a time', async () => {
  const stream = await service.open(film('h264_ac3.mkv'), transcode);
  const rate = (300 + 2 * 96) * 1024;
  const offset = (rate / 8) * 30;
  const response = await fetch(stream.url, { headers: { Range: `bytes=${offset}-` } });
  assert.equal(response.status, 206);
  assert.equal(response.headers.get('content-range'), `bytes ${offset}-${stream.size - 1}/*`);
  const { format } = await probe(await readSome(response, 50000));
  assert.ok(Math.abs(Number(format.start_time) - 30) < 0.2);
  await response.body.cancel();
});

test('a range after the end and an invalid start are refused', async () => {
  const stream = await service.open(film('h264_ac3.mkv'), transcode);
  const beyond = await fetch(stream.url, { headers: { Range: `bytes=${stream.size}-` } });
  assert.equal(beyond.status, 416);
  const huge = await fetch(stream.url, { headers: { Range: 'bytes=9223372036854775807-' } });
  assert.ok([200, 416].includes(huge.status));
  await huge.body.cancel();
  for (const start of ['-1', '61', 'x', '1e3', '99999999999999999999']) {
    assert.equal((await fetch(`${stream.url}&start=${start}`)).status, 400, start);
  }
  await service.close(stream);
});

test('HEAD returns the content type and starts nothing', async () => {
  const stream = await service.open(film('h264_ac3.mkv'), { profile: 'http_ts_240p_vb300_ab96' });
  const response = await fetch(stream.url, { method: 'HEAD' });
  assert.equal(response.status, 200);
  assert.equal(response.headers.get('content-type'), 'video/mp2t');
  assert.deepEqual(service.transcoders(), []);
  await service.close(stream);
});

test('the stream contains the chosen audio track', async () => {
  const { data } = await service.call('Library', 'info', { path: film('two_audio.mkv') });
  const tracks = data.metadata.track_info.audio;
  const stream = await service.open(film('two_audio.mkv'), { ...transcode, audio_id: tracks[1].id });
  const response = await fetch(stream.url);
  await readSome(response, 20000);
  assert.match(service.transcoders()[0].command, new RegExp(`-map 0:${tracks[1].track} `));
  await response.body.cancel();
});

test('the status shows the running transcoder', async () => {
  const stream = await service.open(film('h264_ac3.mkv'), transcode);
  const response = await fetch(stream.url);
  await readSome(response, 20000);
  const { data } = await service.call('Status', 'get');
  assert.equal(data.transcoders.length, 1);
  assert.equal(data.transcoders[0].kind, 'software');
  const program = service.transcoderPrograms().find(({ pid }) => pid === data.transcoders[0].pid);
  assert.match(program?.command ?? '', / -i /);
  assert.equal(data.streams.find(({ stream_id: id }) => id === stream.stream_id).playing, true);
  await response.body.cancel();
});
