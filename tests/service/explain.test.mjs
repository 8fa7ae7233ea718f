// The information about a film before it is opened.
import assert from 'node:assert/strict';
import { execFile, spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';

import { media, Service } from './support.mjs';

const run = promisify(execFile);
const film = (name) => path.join(media, name);
const firefox = 'Mozilla/5.0 (X11; Linux x86_64; rv:140.0) Gecko/20100101 Firefox/140.0';
const vlc = 'VLC/3.0.20 LibVLC/3.0.20';
let service;

before(async () => {
  service = await Service.start([media]);
});

after(() => service.stop());

async function info(name, parameters = {}, userAgent = vlc) {
  const response = await fetch(service.query('Library', 'info', { path: film(name), ...parameters }), {
    headers: { 'User-Agent': userAgent },
  });
  return (await response.json()).data;
}

const formats = (data) => [...new Set(data.profiles.map(({ format }) => format))];

test('every profile of every format describes its conversion', async () => {
  const data = await info('h264_ac3.mkv');
  assert.deepEqual(formats(data), ['hls', 'http', 'webm', 'ss']);
  for (const profile of data.profiles) {
    assert.match(profile.key, profile.format === 'ss' ? /^smoothstreaming_/ : new RegExp(`^${profile.format}_`));
    assert.match(profile.method, /^(remux|transcode|refused)$/);
    assert.match(profile.why, /^[A-Z].*\.$/);
    assert.match(profile.content_type, /^\w+\/[\w.+-]+$/);
    assert.equal(profile.method === 'refused', profile.command === '');
    assert.equal(profile.method === 'refused', profile.reason !== undefined);
    assert.equal(profile.method === 'refused', profile.width === 0);
  }
});

test('the picture has the size in the command', async () => {
  const { profiles } = await info('h264_ac3.mkv');
  const small = profiles.find(({ key }) => /^http_mp4_240p/.test(key));
  assert.match(small.command, new RegExp(` -s ${small.width}x${small.height} `));
  assert.equal(small.bit_rate, 396000);
  const copied = profiles.find(({ key }) => key === 'http_mp4_remux');
  assert.deepEqual([copied.width, copied.height], [640, 360]);
});

test('a film that cannot be copied has a reason and an error word', async () => {
  const { profiles } = await info('hevc10_aac.mov');
  for (const { method, reason } of profiles.filter(({ key }) => key.endsWith('_remux'))) {
    assert.deepEqual({ method, reason }, { method: 'refused', reason: 'TransVideoNotSupported' });
  }
});

test('a film without sound has no HLS', async () => {
  const { profiles } = await info('no_audio.mkv');
  assert.ok(profiles.filter(({ format }) => format === 'hls').every(({ method }) => method === 'refused'));
  assert.ok(profiles.some(({ format, method }) => format === 'http' && method === 'remux'));
});

test('a command works when it is pasted into a shell', async () => {
  const { profiles } = await info('h264_ac3.mkv');
  const { command } = profiles.find(({ format, default: isDefault }) => format === 'http' && isDefault);
  const shell = spawn('/bin/sh', ['-c', `${command} | head -c 200000 | ffprobe -v error -show_streams -`], {
    env: { ...process.env, ORVO_SYSROOT: service.root },
    stdio: ['ignore', 'pipe', 'ignore'],
  });
  const streams = (await shell.stdout.toArray()).join('');
  assert.match(streams, /codec_name=h264/);
  assert.match(streams, /codec_name=aac/);
});

test('the HLS command starts at the first segment and names a stream folder', async () => {
  const { profiles } = await info('h264_ac3.mkv');
  const { command } = profiles.find(({ key }) => key === 'hls_remux');
  assert.match(command, / -segment_start_number 0 .*\/tmp\/Mirevo\/HLS\/STREAM_ID\/slice-%05d\.ts$/);
});

test('explaining leaves nothing behind', async () => {
  await info('h264_ac3.mkv');
  assert.deepEqual(service.streamFolders(), []);
  assert.deepEqual(service.transcoders(), []);
  assert.ok(!fs.existsSync(path.join(service.root, 'tmp/Mirevo/tickets')));
});

test('the client decides whether the original file plays', async () => {
  assert.equal((await info('h264_ac3.mkv', {}, vlc)).direct.fits, true);
  const refused = (await info('h264_ac3.mkv', {}, firefox)).direct;
  assert.deepEqual([refused.fits, refused.content_type], [false, 'video/x-matroska']);
  assert.match(refused.why, /Firefox/);
  assert.equal((await info('h264_ac3.mkv', { device: 'vlc' }, firefox)).direct.fits, true);
  assert.equal((await info('h264_aac.mp4', {}, firefox)).direct.fits, true);
});

test('the program gives the same answer as the service', async () => {
  const told = await run(path.join(service.root, 'var/packages/Mirevo/target/bin/mirevo'),
    ['explain', '--json', '--device', 'vlc', film('h264_ac3.mkv')],
    { env: { ...process.env, ORVO_SYSROOT: service.root } });
  const { profiles, direct } = await info('h264_ac3.mkv', { device: 'vlc' });
  const document = JSON.parse(told.stdout);
  assert.deepEqual({ profiles: document.profiles, direct: document.direct }, { profiles, direct });
});
