// A machine whose engines GStreamer drives, with an engine for tests (tests/gst/test_engine.cpp).
import assert from 'node:assert/strict';
import { execFile, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, afterEach, before, test } from 'node:test';
import { promisify } from 'node:util';
import { build, eventually, processesWith, Service } from './support.mjs';

const run = promisify(execFile);
const seconds = 16;
const rate = 12;
let service;
let film;
let wish; // the file that tells the engine how to fail

// The build's programs, but the wrapper finds the engine.
function install(target) {
  const own = path.join(build, 'target');
  fs.rmSync(target);
  fs.mkdirSync(path.join(target, 'bin'), { recursive: true });
  for (const name of fs.readdirSync(own)) {
    if (name !== 'bin') fs.symlinkSync(path.join(own, name), path.join(target, name));
  }
  for (const name of fs.readdirSync(path.join(own, 'bin'))) {
    if (name !== 'orvo-gst') fs.symlinkSync(path.join(own, 'bin', name), path.join(target, 'bin', name));
  }
  const plugins = path.join(build, 'tests/gst/engine');
  fs.writeFileSync(
    path.join(target, 'bin/orvo-gst'),
    `#!/bin/sh
export GST_PLUGIN_PATH='${plugins}' GST_REGISTRY='${service.root}/registry.bin'
[ -e '${wish}' ] && export ORVO_TEST_ENGINE="$(cat '${wish}')"
exec '${own}/bin/orvo-gst' "$@"
`,
    { mode: 0o755 },
  );
  fs.mkdirSync(path.join(service.root, 'var/packages/Mirevo/etc'), { recursive: true });
  fs.writeFileSync(path.join(service.root, 'var/packages/Mirevo/etc/confinement.conf'), `libraries=${plugins}\n`);
}

const prove = () =>
  execFileSync(path.join(build, 'target/bin/ffmpeg'), ['--prove'], { env: service.environment, encoding: 'utf8' });

before(async () => {
  service = Service.prepare('apollolake');
  wish = path.join(service.root, 'wish');
  install(path.join(service.root, 'var/packages/Mirevo/target'));
  fs.mkdirSync(path.join(service.root, 'dev/dri'), { recursive: true });
  fs.symlinkSync('/dev/null', path.join(service.root, 'dev/dri/renderD128'));
  film = path.join(service.root, 'volume1/film.mkv');
  const source = ['-f', 'lavfi', '-i', `testsrc2=s=1280x720:r=${rate}:d=${seconds}`, '-f', 'lavfi', '-i', `sine=d=${seconds}`];
  execFileSync('ffmpeg', ['-v', 'error', ...source, '-c:v', 'mpeg4', '-q:v', '5', '-c:a', 'aac', film]);
  assert.match(prove(), /^orvo-gst: 1080 lines/m);
  await service.serve([path.dirname(film)]);
});
after(() => service?.stop());

let opened = [];
afterEach(async () => {
  for (const { stream_id, format } of opened.splice(0)) {
    await service.call('Streaming', 'close', { format, stream_id });
  }
  fs.rmSync(wish, { force: true });
});
async function open(parameters) {
  const stream = await service.open(film, parameters);
  opened.push(stream);
  return stream;
}

// Reads the whole stream as a player does. Returns the times of its pictures.
async function pictures(url) {
  const entries = ['-select_streams', 'v', '-show_entries', 'packet=pts_time', '-of', 'json'];
  const { stdout } = await run('ffprobe', ['-v', 'error', ...entries, url], { maxBuffer: 1 << 24, timeout: 240000 });
  const { packets } = JSON.parse(stdout);
  return packets.map(({ pts_time: time }) => Number(time)).sort((a, b) => a - b);
}
function assertWhole(times) {
  assert.equal(times.length, seconds * rate, 'each picture once');
  const steps = times.slice(1).map((time, i) => time - times[i]);
  assert.ok(Math.max(...steps) < 1.1 / rate && Math.min(...steps) > 0.9 / rate, `steps from ${Math.min(...steps)} to ${Math.max(...steps)}`);
}
const kinds = () => service.registry().map((entry) => entry.hardware_transcode);

test('a stream is made on the engine, in a place for hardware', async () => {
  for (const format of ['hls', 'http']) {
    const stream = await open({ format });
    assert.match(stream.profile, /^[a-z0-9_]+_720p_gst_/);
    const reading = pictures(stream.url);
    const [kind] = await eventually(() => (kinds().length > 0 ? kinds() : undefined), 60000);
    assert.equal(kind, true);
    assertWhole(await reading);
  }
});

test('a film that fails on the engine plays to its end, in a place for software', async () => {
  fs.writeFileSync(wish, `picture=${rate * 7}`);
  const stream = await open({ format: 'hls' });
  const reading = pictures(stream.url);
  assertWhole(await reading);
  const profiles = (await service.call('Library', 'info', { path: film })).data.profiles;
  assert.ok(!profiles.some(({ key }) => key.includes('_gst_')), 'until it is proved anew');
  prove();
});

test('the wrapper and the process beside it end with the stream', async () => {
  const stream = await open({ format: 'hls' });
  await (await fetch(`${stream.url}&fragment_id=%2200000%22`)).arrayBuffer();
  await service.call('Streaming', 'close', { format: 'hls', stream_id: stream.stream_id });
  opened = [];
  await eventually(() => (processesWith(service.root).some(({ command }) => command.includes('orvo-gst')) ? undefined : true), 60000);
  await service.isQuiet(60000);
});
