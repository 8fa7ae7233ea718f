// Attacks with films: files of a few bytes or none that want all memory, all time, or other files.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { aboutProcess, eventually, media, processesWith, Service } from '../service/support.mjs';

const longest = 30000; // a probe may take 10 s, and a picture is decoded in 10 s
const mebibyte = 2 ** 20;
const mostMemory = 1024 * mebibyte;
let service;
let folder;

before(async () => {
  folder = fs.mkdtempSync(path.join(media, '../films-'));
  service = await Service.start([folder]);
});
after(async () => {
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});

// --- MP4

const number = (value, bytes = 4) => {
  const field = Buffer.alloc(bytes);
  field.writeUIntBE(value, 0, bytes);
  return field;
};
const box = (type, ...content) => {
  const body = Buffer.concat(content.map((part) => Buffer.from(part)));
  return Buffer.concat([number(body.length + 8), Buffer.from(type), body]);
};
const plain = number(0); // version and flags
const zeros = (count) => Buffer.alloc(count);

// A film of 600 bytes whose tables promise `samples` samples.
function mp4(samples, width = 320, height = 180) {
  const entry = box('avc1', zeros(6), number(1, 2), zeros(16), number(Math.min(width, 65535), 2), number(Math.min(height, 65535), 2), zeros(50));
  const table = box(
    'stbl',
    box('stsd', plain, number(1), entry),
    box('stts', plain, number(1), number(samples), number(1)),
    box('stsc', plain, number(1), number(1), number(samples), number(1)),
    box('stsz', plain, number(1), number(samples)),
    box('stco', plain, number(1), number(48)),
  );
  const media_ = box(
    'mdia',
    box('mdhd', plain, zeros(8), number(1000), number(samples), zeros(4)),
    box('hdlr', plain, zeros(4), 'vide', zeros(13)),
    box('minf', box('vmhd', zeros(12)), box('dinf', box('dref', plain, number(1), box('url ', number(1)))), table),
  );
  const track = box('trak', box('tkhd', number(3), zeros(8), number(1), zeros(68)), media_);
  return Buffer.concat([
    box('ftyp', 'isom', zeros(4), 'isom'),
    box('moov', box('mvhd', plain, zeros(8), number(1000), number(samples), zeros(80)), track),
    box('mdat', zeros(64)),
  ]);
}

// --- Matroska

const element = (id, ...content) => {
  const body = Buffer.concat(content.map((part) => Buffer.from(part)));
  const size = Buffer.alloc(8);
  size.writeBigUInt64BE(BigInt(body.length) | (1n << 56n));
  return Buffer.concat([Buffer.from(id, 'hex'), size, body]);
};
const header = element('1a45dfa3', element('4282', 'matroska'), element('4287', [4]), element('4285', [2]));
const picture = (width, height) =>
  element('ae', element('d7', [1]), element('73c5', [1]), element('83', [1]), element('86', 'V_MPEG2'),
    element('e0', element('b0', number(width)), element('ba', number(height))));
const title = (n) =>
  element('ae', element('d7', number(n + 2)), element('73c5', number(n + 2)), element('83', [17]), element('86', 'S_TEXT/UTF8'));
const matroska = (tracks, ...more) => Buffer.concat([header, element('18538067', element('1654ae6b', ...tracks), ...more)]);
const endlessFrame = Buffer.concat([
  Buffer.from('1f43b67501ffffffffffffff', 'hex'), // a cluster of unknown size
  Buffer.from('a3', 'hex'), // and in it a block of 100 GB
  (() => {
    const size = Buffer.alloc(8);
    size.writeBigUInt64BE(100000000000n | (1n << 56n));
    return size;
  })(),
  Buffer.from('81000080', 'hex'),
]);

const films = {
  'samples.mp4': () => mp4(0x0fffffff),
  'more samples.mp4': () => mp4(0xfffffff0),
  'large.mkv': () => matroska([picture(15500, 15500)]),
  'larger.mkv': () => matroska([picture(100000, 100000)]),
  'tracks.mkv': () => matroska([picture(320, 180), ...Array.from({ length: 10000 }, (_, n) => title(n))]),
  'endless.mkv': () => matroska([picture(320, 180)], endlessFrame),
  'playlist.mkv': () => '#EXTM3U\n#EXT-X-TARGETDURATION:5\n#EXTINF:5,\n/etc/passwd\n#EXT-X-ENDLIST\n',
  'list.mkv': () => "ffconcat version 1.0\nfile '/etc/passwd'\n",
  'edl.mkv': () => '# mpv EDL v0\n/etc/passwd,0,5\n',
  'session.mkv': () => 'v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\nm=video 9 RTP/AVP 96\n',
};

// --- What is asked of each film

const memoryOf = () =>
  processesWith(service.root)
    .filter(({ command }) => /ffmpeg|entry\.cgi/.test(command))
    .reduce((sum, { pid }) => sum + Number(aboutProcess(pid, 'status').match(/VmRSS:\s+(\d+)/)?.[1] ?? 0) * 1024, 0);

// The greatest sum while `work` is done.
async function memoryDuring(work) {
  let most = 0;
  const look = setInterval(() => (most = Math.max(most, memoryOf())), 100);
  try {
    await work();
  } finally {
    clearInterval(look);
  }
  return most;
}

// Each request has a connection of its own: the server closes one that waits for the next request.
const ask = async (api, method, parameters) => {
  const headers = { connection: 'close' };
  const answer = await fetch(service.query(api, method, parameters), { headers, signal: AbortSignal.timeout(longest) });
  const body = await answer.text();
  assert.ok(!body.includes('root:x:0'), 'no other file is shown');
  return { status: answer.status, body };
};

const everyFormat = ['direct', 'http', 'hls', 'webm', 'ss'];

// Everything that the page of a film causes, at once, and an opening in each of these kinds.
async function visit(film, formats) {
  const wishes = [
    ['Library', 'info', {}],
    ['Library', 'card', {}],
    ['Library', 'poster', {}],
    ['Library', 'thumbnail', { time: 0 }],
  ];
  await Promise.all(wishes.map(([api, method, more]) => ask(api, method, { path: film, ...more })));
  for (const format of formats) {
    const { status, body } = await ask('Streaming', 'open', { path: film, format });
    if (status === 200) {
      await ask('Streaming', 'close', { format, stream_id: JSON.parse(body).data.stream_id });
    }
  }
}

async function survives(film, formats = everyFormat) {
  const most = await memoryDuring(() => visit(film, formats));
  assert.ok(most <= mostMemory, `${Math.round(most / mebibyte)} MB`);
  await eventually(() => (service.requestProcesses().length + service.transcoders().length === 0 ? true : undefined));
  assert.equal((await ask('Library', 'list', {})).status, 200);
}

for (const [name, make] of Object.entries(films)) {
  test(`${name} costs bounded time and memory, and leaves nothing`, async () => {
    const film = path.join(folder, name);
    fs.writeFileSync(film, make());
    await survives(film);
    fs.rmSync(film);
  });
}

// One of the kinds costs the time of a whole probe for each question. All of them are asked on wish.
const sparse = process.env.ORVO_LONG_TESTS ? ['sparse.mkv', 'sparse.ts', 'sparse.mp4'] : ['sparse.ts'];
for (const name of sparse) {
  test(`${name} of 200 GB costs bounded time and memory, and leaves nothing`, async () => {
    const film = path.join(folder, name);
    fs.writeFileSync(film, name === 'sparse.mkv' ? matroska([picture(320, 180)], endlessFrame) : '');
    fs.truncateSync(film, 200e9);
    await survives(film, process.env.ORVO_LONG_TESTS ? everyFormat : []);
    fs.rmSync(film);
  });
}

// --- Honest films that are larger than most

const ffmpeg = (...words) => execFileSync('ffmpeg', ['-v', 'error', '-y', ...words], { stdio: ['ignore', 'ignore', 'inherit'] });

async function describe(film) {
  let answer;
  const most = await memoryDuring(async () => (answer = await ask('Library', 'info', { path: film })));
  assert.equal(answer.status, 200, answer.body);
  assert.ok(most <= 512 * mebibyte, `${Math.round(most / mebibyte)} MB`);
  return JSON.parse(answer.body).data.metadata.track_info;
}

test('a film with 300 MB of fonts is described and opened', async () => {
  const font = path.join(folder, 'font.ttf');
  const film = path.join(folder, 'fonts.mkv');
  fs.writeFileSync(font, Buffer.alloc(30 * mebibyte, 'font'));
  const fonts = Array.from({ length: 10 }, (_, n) => ['-attach', font, `-metadata:s:t:${n}`, 'mimetype=font/ttf']).flat();
  ffmpeg('-i', path.join(media, 'h264_ac3.mkv'), '-map', '0', '-c', 'copy', ...fonts, film);
  assert.equal((await describe(film)).video.length, 1);
  await survives(film, ['direct', 'hls']);
  fs.rmSync(film);
  fs.rmSync(font);
});

test('a film with 60 audio tracks is described with all of them', async () => {
  const film = path.join(folder, 'sixty.mkv');
  const tracks = Array.from({ length: 60 }, () => ['-map', '0:a']).flat();
  ffmpeg('-i', path.join(media, 'h264_ac3.mkv'), '-map', '0:v', ...tracks, '-c', 'copy', film);
  assert.equal((await describe(film)).audio.length, 60);
  fs.rmSync(film);
});

test('a film in 8K has a poster', async () => {
  const film = path.join(folder, '8k.mkv');
  const source = ['-f', 'lavfi', '-i', 'testsrc2=size=8192x4320:rate=1:duration=1'];
  ffmpeg(...source, '-pix_fmt', 'yuv420p10le', '-c:v', 'libx265', '-preset', 'ultrafast', '-x265-params', 'log-level=0', film);
  assert.equal((await describe(film)).video.length, 1);
  assert.equal((await ask('Library', 'poster', { path: film })).status, 200);
  fs.rmSync(film);
});

test('a picture of 15,500 x 15,500 is not decoded', async () => {
  const film = path.join(folder, 'large.mkv');
  fs.writeFileSync(film, films['large.mkv']());
  assert.equal((await ask('Library', 'poster', { path: film })).status, 415);
  const { status, body } = await ask('Streaming', 'open', { path: film, format: 'hls' });
  assert.ok(status >= 400, body);
  fs.rmSync(film);
});
