// HTTP Live Streaming in real players, against a running service.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, afterEach, before, test } from 'node:test';
import { promisify } from 'node:util';

import { playback, plays, withBarePage } from './bare_page.mjs';
import { build, eventually, media, patience, processesWith, Service } from './support.mjs';

const run = promisify(execFile);
const film = (name) => path.join(media, name);
const transcode = { format: 'hls', profile: 'hls_240p_vb300_ab96' };
let service;

before(async () => {
  service = await Service.start([media]);
});
after(() => service.stop());

const opened = [];
async function open(name, parameters) {
  const stream = await service.open(film(name), parameters);
  opened.push(stream);
  return stream;
}
afterEach(async () => {
  for (const { stream_id } of opened.splice(0)) {
    await service.call('Streaming', 'close', { format: 'hls', stream_id });
  }
  await service.isQuiet();
});
const segment = (stream, number) => fetch(`${stream.url}&fragment_id=%22${String(number).padStart(5, '0')}%22`);

// Reads the whole presentation as a player does. Returns the time of every picture and sample, and errors.
async function readAll(url) {
  const { stderr } = await run('ffmpeg', ['-v', 'warning', '-i', url, '-f', 'null', '-'], { maxBuffer: 1 << 26 });
  const { stdout } = await run(
    'ffprobe',
    ['-v', 'error', '-show_entries', 'packet=stream_index,pts_time,duration_time', '-of', 'json', url],
    { maxBuffer: 1 << 26 },
  );
  const tracks = new Map();
  for (const { stream_index: index, pts_time: pts, duration_time: duration } of JSON.parse(stdout).packets) {
    if (!tracks.has(index)) tracks.set(index, []);
    tracks.get(index).push({ pts: Number(pts), end: Number(pts) + Number(duration ?? 0) });
  }
  return { complaints: stderr, tracks: [...tracks.values()] };
}

const films = {
  'h264_ac3.mkv': {},
  'mpeg4_mp3.avi': {},
  'mpeg2_mp2.ts': {},
  'vp9_opus.webm': {},
  'hevc10_aac.mov': {},
};
for (const name of Object.keys(films)) {
  test(`${name}: a player reads the whole presentation without a complaint`, async () => {
    const stream = await open(name, transcode);
    const { complaints, tracks } = await readAll(stream.url);
    assert.equal(complaints, '');
    assert.equal(tracks.length, 2);
    for (const packets of tracks) {
      const clock = packets.map(({ pts }) => pts).sort((a, b) => a - b);
      assert.equal(new Set(clock).size, clock.length, 'no time stands twice');
      const length = Math.max(...packets.map(({ end }) => end)) - clock[0];
      assert.ok(Math.abs(length - stream.duration) < 0.1, `${length} of ${stream.duration} s`);
    }
    });
}

// The stream's processes. The service's own do not name it.
const runs = ({ stream_id: id }) => processesWith(id).filter(({ command }) => command.includes('-hls_seek_time'));

test('a player that says where it begins finds the transcoder at work there', async () => {
  const stream = await open('h264_ac3.mkv', { ...transcode, start: 23 });
  const [ahead] = await eventually(() => (runs(stream).length > 0 ? runs(stream) : undefined));
  assert.match(ahead.command, /-hls_seek_time 20000 .*-segment_start_number 4 /);
  const answer = await segment(stream, 4);
  assert.equal(answer.status, 200);
  await answer.arrayBuffer();
  assert.ok(runs(stream).every(({ command }) => command.includes('-hls_seek_time 20000 ')), 'nothing started anew');
});

test('a client that does not say where it begins starts nothing by opening', async () => {
  const stream = await open('h264_ac3.mkv', transcode);
  assert.deepEqual(runs(stream), []);
});

test('a stream that nobody asks for gives its place back and plays later all the same', async () => {
  const stream = await open('long.mkv', { ...transcode, start: 0 });
  await eventually(() => (runs(stream).length > 0 ? true : undefined));
  await eventually(() => (runs(stream).length === 0 ? true : undefined), 30000);
  const answer = await segment(stream, 2);
  assert.equal(answer.status, 200);
  await answer.arrayBuffer();
});

test('an earlier viewer of a stream does not count as the one who is expected', async () => {
  const copied = { format: 'hls', profile: 'hls_remux' };
  const stream = await open('long.mkv', copied);
  await (await segment(stream, 0)).arrayBuffer();
  await open('long.mkv', { ...copied, stream_id: stream.stream_id, start: 100 });
  await eventually(() => (runs(stream).some(({ command }) => command.includes('-segment_start_number 12 ')) ? true : undefined));
  await eventually(() => (runs(stream).length === 0 ? true : undefined), 30000);
});

test('a start outside the film is refused', async () => {
  await assert.rejects(open('h264_ac3.mkv', { ...transcode, start: 61 }), /BadRequest|start/);
});

test('a presentation with copied video reads to its end', async () => {
  const stream = await open('h264_ac3.mkv', { format: 'hls', profile: 'hls_remux' });
  const { tracks } = await readAll(stream.url);
  const clock = tracks[0].map(({ pts }) => pts);
  assert.ok(Math.abs(Math.max(...clock) - Math.min(...clock) - 60) < 0.2);
});

test('copies are made by a process of the service, and go on without it', async () => {
  const parent = () => processesWith(service.root).find(({ command }) => command.includes(' --copies'));
  const { pid } = await eventually(parent);
  const stream = await open('long.mkv', { format: 'hls', profile: 'hls_remux' });
  await (await segment(stream, 0)).arrayBuffer();
  assert.notEqual(fs.readFileSync(`/proc/${pid}/task/${pid}/children`, 'utf8'), '');
  process.kill(pid, 'SIGKILL');
  await eventually(() => (parent() ? undefined : true));
  assert.equal((await segment(stream, 25)).status, 200);
});

test('copied video is cut at its key frames once they are stored', async () => {
  const folder = fs.mkdtempSync(path.join(media, 'planned-'));
  try {
    const copy = path.join(folder, 'film.mkv');
    fs.copyFileSync(film('h264_ac3.mkv'), copy);
    await run(path.join(build, 'target/bin/mirevo-analyze'), [copy]);
    const stream = await service.open(copy, { format: 'hls', profile: 'hls_remux' });
    opened.push(stream);
    const { complaints, tracks } = await readAll(stream.url);
    assert.equal(complaints, '');
    const clock = tracks[0].map(({ pts }) => pts);
    assert.equal(new Set(clock).size, clock.length);
    for (const number of [5, 2]) {
      const file = path.join(folder, 'segment.ts');
      fs.writeFileSync(file, Buffer.from(await (await segment(stream, number)).arrayBuffer()));
      const { stdout } = await run('ffprobe', [
        ...['-v', 'error', '-select_streams', 'v', '-show_entries', 'packet=pts_time,flags', '-of', 'json', file],
      ]);
      const [first] = JSON.parse(stdout).packets;
      assert.match(first.flags, /^K/);
      assert.ok(Math.abs(Number(first.pts_time) - clock[0] - 8 * number) < 0.05, first.pts_time);
    }
  } finally {
    fs.rmSync(folder, { recursive: true });
  }
});

for (const [wish, codec] of [
  [{ audio_format: 'ac3_copy' }, 'ac3'],
  [{ audio_format: 'ac3_copy', device: 'chromecast' }, 'aac'],
  [{ audio_format: 'mp3' }, 'mp3'],
]) {
  test(`sound wished for as ${JSON.stringify(wish)} comes as ${codec}`, async () => {
    const stream = await open('h264_ac3.mkv', { ...transcode, ...wish });
    const { stdout } = await run('ffprobe', [
      ...['-v', 'error', '-select_streams', 'a', '-show_entries', 'stream=codec_name', '-of', 'json', stream.url],
    ]);
    assert.equal(JSON.parse(stdout).streams[0].codec_name, codec);
  });
}

test('a film without sound is refused with a reason', async () => {
  const answer = await service.call('Streaming', 'open', { path: film('no_audio.mkv'), ...transcode });
  assert.equal(answer.status, 415);
  assert.equal(answer.error.reason, 'TransAudioNotSupported');
});

test('the answers have the content types that players need', async () => {
  const stream = await open('h264_ac3.mkv', transcode);
  assert.equal(stream.content_type, 'application/vnd.apple.mpegurl');
  const playlist = await fetch(stream.url);
  assert.equal(playlist.headers.get('content-type'), 'application/vnd.apple.mpegurl');
  const lines = (await playlist.text()).trim().split('\n');
  assert.equal(lines[0], '#EXTM3U');
  assert.equal(lines.at(-1), '#EXT-X-ENDLIST');
  assert.equal(lines.filter((line) => line.startsWith('#EXTINF')).length, 12);
  const first = await segment(stream, 0);
  assert.equal(first.status, 200);
  assert.equal(first.headers.get('content-type'), 'video/mp2t');
  await first.arrayBuffer();
});

test('the status shows the transcoder of a segmented stream', async () => {
  const stream = await open('long.mkv', { format: 'hls', profile: 'hls_480p_vb1200_ab128' });
  await (await segment(stream, 0)).arrayBuffer();
  const { data } = await service.call('Status', 'get');
  assert.deepEqual(data.transcoders.map(({ kind, pid }) => ({ kind, pid })), [
    { kind: 'software', pid: service.registry()[0].PID },
  ]);
  assert.equal(data.streams.find(({ stream_id: id }) => id === stream.stream_id).playing, true);
});

test('segments that do not exist are refused and start nothing', async () => {
  const stream = await open('h264_ac3.mkv', transcode);
  assert.equal((await segment(stream, 12)).status, 404);
  for (const number of ['-1', 'x', '', '99999999999999999999', '1/../2']) {
    assert.equal((await fetch(`${stream.url}&fragment_id=${encodeURIComponent(number)}`)).status, 400, number);
  }
  assert.equal((await fetch(`${stream.url}&playlist_type=subtitle&subtitle_id=..%2F..%2Fetc%2Fpasswd`)).status, 404);
  assert.deepEqual(service.transcoders(), []);
});

test('the newest of eight distant requests keeps the transcoder', async () => {
  const stream = await open('long.mkv', transcode);
  const places = [50, 7, 43, 14, 36, 21, 29, 57];
  const answers = await Promise.all(
    places.map(async (number) => {
      const response = await segment(stream, number);
      await response.arrayBuffer();
      return response.status;
    }),
  );
  assert.ok(answers.some((status) => status === 200), `${answers}`);
  assert.ok(answers.every((status) => [200, 503, 504].includes(status)), `${answers}`);
  assert.equal(service.transcoders().length, 1);
});

test('requests for one segment of a new stream are all answered', async () => {
  for (let number = 0; number < 3; ++number) {
    const stream = await open('h264_ac3.mkv', { format: 'hls', profile: 'hls_remux' });
    const answers = await Promise.all(Array.from({ length: 6 }, () => segment(stream, number)));
    assert.deepEqual(answers.map(({ status }) => status), Array(6).fill(200));
    await Promise.all(answers.map((answer) => answer.arrayBuffer()));
  }
});

test('a stream plays again after its directory was removed for idleness', async () => {
  const stream = await open('h264_ac3.mkv', transcode);
  await (await segment(stream, 0)).arrayBuffer();
  const link = path.join(service.root, 'tmp/Mirevo/HLS', stream.stream_id);
  const monitor = Number(fs.readFileSync(path.join(link, 'monitor.pid'), 'utf8'));
  process.kill(monitor, 'SIGTERM');
  await service.isQuiet(patience, [stream.stream_id]);
  fs.rmSync(fs.readlinkSync(link), { recursive: true });
  fs.unlinkSync(link);
  assert.equal((await segment(stream, 6)).status, 200);
});

test('a killed monitor ends its transcoder', async () => {
  const stream = await open('long.mkv', transcode);
  await (await segment(stream, 0)).arrayBuffer();
  const monitor = fs.readFileSync(path.join(service.root, 'tmp/Mirevo/HLS', stream.stream_id, 'monitor.pid'), 'utf8');
  process.kill(Number(monitor), 'SIGKILL');
  await eventually(() => (service.transcoders().length === 0 ? true : undefined));
  assert.equal((await segment(stream, 30)).status, 200, 'and the next request starts another');
});

// Plays a presentation with hls.js and calls `use` with the page.
const inBrowser = (url, use) =>
  withBarePage(service, ['hls.js/dist/hls.min.js'], async (page) => {
    await page.evaluate(async (address) => {
      window.errors = [];
      const video = document.getElementById('video');
      window.hls = new window.Hls({ maxBufferLength: 10 });
      window.hls.on(window.Hls.Events.ERROR, (_, data) => window.errors.push(`${data.fatal} ${data.details}`));
      window.hls.loadSource(address);
      window.hls.attachMedia(video);
      await video.play();
    }, url);
    await use(page);
  });

test('hls.js plays, seeks anywhere, and mixes segments of different runs', async () => {
  const stream = await open('long.mkv', transcode);
  await inBrowser(stream.url, seekAround);
});

async function seekAround(page) {
  await plays(page, 0);
  // Twenty positions, near and far, forwards and backwards.
  for (let step = 1, second = 0; step <= 20; ++step) {
    second = (second + step * 97) % 290;
    await page.evaluate((value) => {
      document.getElementById('video').currentTime = value;
    }, second);
    await plays(page, second);
  }
  const errors = await page.evaluate(() => window.errors);
  const { dropped, frames, duration } = await playback(page);
  assert.deepEqual(errors.filter((error) => error.startsWith('true')), [], 'no fatal error');
  assert.ok(Math.abs(duration - 300) < 1);
  assert.ok(frames > 50 && dropped < frames / 4, `${dropped} of ${frames} dropped`);
}

test('hls.js shows the chosen subtitles at the right times', async () => {
  const folder = fs.mkdtempSync(path.join(media, 'subtitled-'));
  try {
    const copy = path.join(folder, 'film.mkv');
    fs.copyFileSync(film('h264_ac3.mkv'), copy);
    const srt = (text) => `1\n00:00:02,500 --> 00:00:04,000\n${text}\n\n2\n00:00:31,000 --> 00:00:33,000\n${text} later\n`;
    fs.writeFileSync(path.join(folder, 'film.eng.srt'), srt('English'));
    fs.writeFileSync(path.join(folder, 'film.fre.srt'), srt('Français'));
    const stream = await service.open(copy, { ...transcode, subtitle_id: 'all' });
    opened.push(stream);
    await inBrowser(stream.url, async (page) => {
      await plays(page, 0);
      const names = await page.evaluate(() => window.hls.subtitleTracks.map(({ name }) => name));
      assert.deepEqual(names, ['eng', 'fre']);
      for (const [index, text] of [[0, 'English'], [1, 'Français']]) {
        await page.evaluate((track) => {
          window.hls.subtitleDisplay = true;
          window.hls.subtitleTrack = track;
          document.getElementById('video').currentTime = 1;
        }, index);
        const cue = await page.waitForFunction((wanted) => {
          const shown = [...document.getElementById('video').textTracks].filter(({ mode }) => mode === 'showing');
          const cues = shown.flatMap(({ cues: list }) => [...(list ?? [])]);
          const found = cues.find((candidate) => candidate.text === wanted);
          return found && { start: found.startTime, end: found.endTime };
        }, text);
        const { start, end } = await cue.jsonValue();
        assert.ok(Math.abs(start - 2.5) < 0.05 && Math.abs(end - 4) < 0.05, `${text} from ${start} to ${end}`);
      }
    });
  } finally {
    fs.rmSync(folder, { recursive: true });
  }
});
