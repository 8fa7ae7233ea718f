// CMAF presentations of a running service: the conformance program over several kinds of films, and real
// players.
import assert from 'node:assert/strict';
import { execFile, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, afterEach, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { playback, plays, withBarePage } from '../service/bare_page.mjs';
import { build, eventually, processesWith, Service } from '../service/support.mjs';

const run = promisify(execFile);
const program = fileURLToPath(new URL('cmaf_conformance.py', import.meta.url));
const seconds = 10;
const picture = (rate) => ['-f', 'lavfi', '-i', `testsrc2=s=320x180:d=${seconds}:r=${rate}`];
const sound = ['-f', 'lavfi', '-i', `sine=f=440:beep_factor=2:r=48000:d=${seconds}`];
const h264 = ['-c:v', 'libx264', '-preset', 'ultrafast', '-pix_fmt', 'yuv420p', '-sc_threshold', '0'];
const aac = ['-c:a', 'aac', '-b:a', '64k'];
const films = {
  'closed.mp4': [...picture('24000/1001'), ...sound, ...h264, '-bf', '3', '-g', '36', ...aac],
  'closed.mkv': [...picture('24000/1001'), ...sound, ...h264, '-bf', '3', '-g', '36', ...aac],
  'open.mp4': [
    ...picture(25),
    ...sound,
    ...h264,
    ...['-bf', '2', '-x264-params', 'open-gop=1:keyint=25:min-keyint=25', ...aac],
  ],
  'opus.mkv': [...picture(25), ...sound, ...h264, '-g', '25', '-c:a', 'libopus'],
  'flac.mkv': [...picture(25), ...sound, ...h264, '-g', '25', '-c:a', 'flac'],
  'silent.mp4': [...picture(30), ...h264, '-g', '30'],
  'sound.m4a': [...sound, ...aac],
  'broadcast.ts': [...picture(25), ...sound, '-c:v', 'mpeg2video', '-g', '12', '-c:a', 'mp2'],
};
// Their containers do not tell where the key frames are. The sound begins before the pictures.
const unindexed = {
  'camera.ts': [...picture(25), ...sound, ...h264, '-bf', '2', '-g', '50', ...aac],
  'camera.flv': [...picture(25), ...sound, ...h264, '-bf', '2', '-g', '50', ...aac],
};
// Its run pauses before the film's end.
const longFilm = ['-f', 'lavfi', '-i', 'testsrc2=s=160x90:d=150:r=10', ...h264, '-g', '10'];
// Its pictures take so long that a segment grows for a while.
const slowFilm = ['-f', 'lavfi', '-i', 'testsrc2=s=1280x720:d=20:r=25', ...h264, '-g', '25'];
const wishes = { format: 'cmaf', codecs: 'avc1,mp4a,opus,flac' };
let folder;
let service;

before(async () => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-cmaf-'));
  for (const [name, options] of Object.entries({ ...films, ...unindexed, 'long.mp4': longFilm, 'slow.mp4': slowFilm })) {
    execFileSync('ffmpeg', ['-nostdin', '-v', 'error', ...options, path.join(folder, name)]);
  }
  service = await Service.start([folder]);
});
after(async () => {
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});

const opened = [];
async function open(name) {
  const stream = await service.open(path.join(folder, name), wishes);
  opened.push(stream);
  return stream;
}
async function closeAll() {
  for (const { stream_id } of opened.splice(0)) {
    await service.call('Streaming', 'close', { format: 'cmaf', stream_id });
  }
  await service.isQuiet();
}
afterEach(closeAll);

// Runs the conformance program. Fails with its findings.
async function conforms(stream, ...options) {
  try {
    await run('python3', [program, ...options, stream.url, stream.dash]);
  } catch (failure) {
    assert.fail(failure.stdout + failure.stderr);
  }
}
const playlist = async (stream) => (await fetch(stream.url)).text();

for (const name of Object.keys(films)) {
  test(`${name}: the presentation conforms`, async () => {
    await conforms(await open(name));
  });
}

test('runs that begin at any segment make the same times as one from the start', async () => {
  const times = path.join(folder, 'times.json');
  await conforms(await open('closed.mkv'), '--times', times);
  await closeAll();
  await conforms(await open('closed.mkv'), '--same', times, '--backwards');
});

test('the film is copied only if a player can start at each key frame', async () => {
  assert.match(await playlist(await open('closed.mp4')), /rendition=copy-video/);
  const stream = await open('open.mp4');
  assert.doesNotMatch(await playlist(stream), /rendition=copy-video/);
  const { data } = await service.call('Streaming', 'state', { format: 'cmaf', stream_id: stream.stream_id });
  assert.match(data.not_copied, /cannot start at the key frames/);
  const about = async (name, client) =>
    (await service.call('Library', 'info', { path: path.join(folder, name), ...client })).data.not_copied;
  assert.equal(await about('open.mp4', {}), data.not_copied);
  assert.equal(await about('closed.mp4', {}), '');
  assert.match(await about('closed.mp4', { codecs: 'vp09' }), /does not play/);
  assert.equal(await about('sound.m4a', {}), '');
});

test('the answer of open has the playlists that a player would request next', async () => {
  const film = path.join(folder, 'closed.mp4');
  for (const [form, count] of Object.entries({ hls: 3, dash: 1 })) {
    const stream = await service.open(film, { ...wishes, playlists: form });
    opened.push(stream);
    const texts = Object.entries(stream.playlists);
    assert.equal(texts.length, count);
    assert.ok(stream.playlists[form === 'hls' ? stream.url : stream.dash]);
    for (const [address, text] of texts) assert.equal(await (await fetch(new URL(address, stream.url))).text(), text);
  }
  const { error } = await service.call('Streaming', 'open', { ...wishes, path: film, playlists: 'all' });
  assert.equal(error.reason, 'BadRequest');
});

const analyze = (film) =>
  run(path.join(build, 'target/bin/mirevo-analyze'), [film], { env: service.environment });

for (const name of Object.keys(unindexed)) {
  test(`${name}: the pictures are copied once the analysis has found the key frames`, async () => {
    const film = path.join(folder, name);
    const early = await open(name);
    const plan = await playlist(early);
    assert.doesNotMatch(plan, /rendition=copy-video/);
    await analyze(film);
    const stream = await open(name);
    assert.match(await playlist(stream), /rendition=copy-video/);
    await conforms(stream, '--backwards');
    await eventually(() => (service.registry().length === 0 ? true : undefined));
    // The other stream keeps what its players know, also if its directory is made again.
    fs.rmSync(fs.realpathSync(path.join(service.root, 'tmp/Mirevo/CMAF', early.stream_id)), { recursive: true });
    assert.equal(await playlist(early), plan);
  });
}

test('the times of a start are those of its pictures', async () => {
  const stream = await open('closed.mp4');
  const base = stream.url.replace('master.m3u8', 'segment.m4s');
  for (const rendition of ['stereo-0', 'copy-video']) {
    await (await fetch(`${base}&rendition=${rendition}&segment=0`)).arrayBuffer();
  }
  // The request writes them after its answer.
  const times = await eventually(async () => {
    const { data } = await service.call('Status', 'get');
    const found = data.streams.find(({ stream_id: id }) => id === stream.stream_id).times;
    return 'sent' in found ? found : undefined;
  }, 60_000);
  assert.deepEqual(Object.keys(times).filter((step) => step !== 'first_key').sort(), [
    ...['admission', 'first_bytes', 'prepare', 'probe', 'sent', 'start'],
  ]);
});

test('a header costs no run', async () => {
  const stream = await open('closed.mp4');
  const base = stream.url.replace('master.m3u8', 'init.mp4');
  for (const rendition of ['copy-video', 'h264-180', 'stereo-0']) {
    const answer = await fetch(`${base}&rendition=${rendition}&segment=init`);
    assert.equal(answer.status, 200, rendition);
  }
  const { data } = await service.call('Status', 'get');
  assert.deepEqual(data.transcoders, []);
});

test('without a place, a stream gets a clear answer for encoded pictures, and its copy', async () => {
  const get = async (stream, rendition, number) => {
    const base = stream.url.replace('master.m3u8', 'segment.m4s');
    const answer = await fetch(`${base}&rendition=${rendition}&segment=${number}`);
    await answer.arrayBuffer();
    return answer.status;
  };
  const [first, second] = [await open('long.mp4'), await open('long.mp4')];
  assert.equal(await get(first, 'h264-90', 0), 200);
  assert.equal(await get(second, 'h264-90', 0), 503);
  assert.equal(await get(second, 'copy-video', 0), 200);
  assert.equal(await get(first, 'h264-90', 25), 200);
});

test('where one place is all there is, a change of the encoded rendition hands it over', async () => {
  const stream = await open('slow.mp4');
  const { renditions, durations } = stream.presentation;
  const ladder = renditions.filter(({ treatment }) => treatment === 'h264');
  assert.ok(ladder.length >= 2);
  for (let number = 0; number < durations.length; ++number) {
    const { segments } = ladder[number % ladder.length];
    const answer = await fetch(new URL(`${segments}${number}`, stream.url));
    assert.equal(answer.status, 200, `segment ${number}`);
    assert.ok((await answer.arrayBuffer()).byteLength > 0);
    assert.ok(service.registry().length <= 1, `${service.registry().length} transcoders at segment ${number}`);
  }
});

test('the server knows the requested segment before the player has it', async () => {
  const stream = await open('long.mp4');
  const base = stream.url.replace('master.m3u8', 'segment.m4s');
  const requested = path.join(service.root, 'tmp/Mirevo/CMAF', stream.stream_id, 'copy-video/requested');
  for (const turn of [1, 2]) {
    for (let number = 0; number < 10; ++number) {
      await (await fetch(`${base}&rendition=copy-video&segment=${number}`)).arrayBuffer();
      assert.equal(Number(fs.readFileSync(requested, 'utf8')), number, `turn ${turn}`);
    }
  }
});

test('a segment whose transcoder dies reaches the player as a broken one', async () => {
  const stream = await open('slow.mp4');
  const base = stream.url.replace('master.m3u8', 'segment.m4s');
  const isBroken = (answer) => answer.arrayBuffer().then(() => false, () => true);
  let seen = false;
  for (let number = 0; !seen; ++number) {
    const answer = await fetch(`${base}&rendition=h264-720&segment=${number}`);
    assert.equal(answer.status, 200, 'one of the segments is still being made when its transcoder dies');
    for (const { pid, command } of processesWith(service.root)) {
      if (command.includes(' -number ')) process.kill(pid, 'SIGKILL');
    }
    seen = await isBroken(answer);
  }
});

test('a wrong rendition, segment or parameter gets a clear error', async () => {
  const stream = await open('closed.mp4');
  const base = stream.url.replace('master.m3u8', 'segment.m4s');
  const status = async (rest) => (await fetch(`${base}${rest}`)).status;
  assert.equal(await status('&rendition=../x&segment=0'), 404);
  assert.equal(await status('&rendition=copy-video&segment=-1'), 400);
  assert.equal(await status('&rendition=copy-video&segment=9999'), 404);
  const file = path.join(folder, 'closed.mp4');
  for (const bad of [{ codecs: 'a"b' }, { max_height: 'x' }, { dynamic_range: 'wide' }]) {
    const answer = await service.call('Streaming', 'open', { path: file, ...wishes, ...bad });
    assert.equal(answer.error?.code, 400, JSON.stringify(answer));
  }
});

for (const kind of ['url', 'dash']) {
  test(`ffmpeg plays the ${kind} without a complaint`, async () => {
    const stream = await open('closed.mp4');
    const arguments_ = ['-v', 'warning', '-nostats', '-progress', 'pipe:1', '-i', stream[kind]];
    const { stdout, stderr } = await run('ffmpeg', [...arguments_, '-map', '0:v:0', '-map', '0:a:0', '-f', 'null', '-']);
    assert.equal(stderr, '');
    assert.ok(Number(stdout.match(/frame=(\d+)(?![^]*frame=)/)[1]) >= 230, stdout);
  });
}

test('hls.js plays, seeks and changes the rendition', async () => {
  const { url } = await open('closed.mp4');
  await withBarePage(service, ['hls.js/dist/hls.min.js'], async (page) => {
    await page.evaluate(async (address) => {
      window.errors = [];
      const video = document.getElementById('video');
      window.hls = new window.Hls();
      window.hls.on(window.Hls.Events.ERROR, (_, data) => window.errors.push(`${data.fatal} ${data.details}`));
      window.hls.loadSource(address);
      window.hls.attachMedia(video);
      await video.play();
    }, url);
    await plays(page, 0);
    for (const [level, second] of [
      [0, 6],
      [1, 2],
      [0, 4],
    ]) {
      await page.evaluate(
        ([chosen, time]) => {
          window.hls.nextLevel = chosen;
          document.getElementById('video').currentTime = time;
        },
        [level, second],
      );
      await plays(page, second);
    }
    assert.deepEqual(await page.evaluate(() => window.errors.filter((error) => error.startsWith('true'))), []);
    assert.ok((await playback(page)).sound > 0);
  });
});
