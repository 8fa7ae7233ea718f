// Subtitles as WebVTT, against a running service: files in many formats beside a film, and tracks in it.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';

import { chromium } from 'playwright-core';

import { vobSub } from './dvd.mjs';
import { segmentsOf, whiteBox } from './pgs.mjs';
import { browserArguments, media, patience, Service } from './support.mjs';

const run = promisify(execFile);
const header = 'WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:126000,LOCAL:00:00:00.000\n';
const ffmpeg = (...options) => run('ffmpeg', ['-nostdin', '-v', 'error', '-y', ...options]);

const french = 'Où est passé le garçon ? Il était déjà là, très âgé.';
const japanese = 'こんにちは世界。今日はとてもいい天気ですね。';
const srt = (...texts) =>
  texts
    .map((text, i) => `${i + 1}\n00:00:${String(i * 4 + 1).padStart(2, '0')},000 --> 00:00:${String(i * 4 + 4).padStart(2, '0')},500\n${text}\n`)
    .join('\n');
const script = `[Script Info]
ScriptType: v4.00+
PlayResX: 1000
PlayResY: 500

[V4+ Styles]
Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, Bold, Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV, Encoding
Style: Default,Arial,20,&HFFFFFF,&HFFFFFF,&H0,&H0,0,0,0,0,100,100,0,0,1,1,1,2,10,10,10,1

[Events]
Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text
Dialogue: 0,0:00:10.00,0:00:12.00,Default,,0,0,0,,{\\fnArial\\i1}leaning{\\i0}, {\\c&H00FF00&}green & <so>\\Nsecond
Dialogue: 0,0:00:14.00,0:00:15.00,Default,,0,0,0,,{\\an8}above
Dialogue: 0,0:00:16.00,0:00:17.00,Default,,0,0,0,,{\\p1}m 0 0 l 100 0 100 100{\\p0}
`;
const sami =
  '<SAMI><HEAD><STYLE><!-- P {font-size:20px} .KRCC {lang:ko-KR} --></STYLE></HEAD><BODY>\n' +
  '<SYNC Start=1000><P Class=KRCC>안녕하세요<br><font color=red>여러분</font>\n<SYNC Start=3000><P Class=KRCC>&nbsp;\n' +
  '<SYNC Start=4000><P Class=KRCC>만나서 <b>반갑습니다</b> &amp; 감사합니다\n<SYNC Start=6000><P Class=KRCC>&nbsp;\n</BODY></SAMI>\n';

// Node supports no other character sets.
function encode(text, set) {
  const file = path.join(folder, 'text');
  fs.writeFileSync(file, text);
  return run('iconv', ['-f', 'UTF-8', '-t', set, file], { encoding: 'buffer' }).then(({ stdout }) => stdout);
}

let service;
let folder;
let stream; // of film.mkv
const beside = (name) => path.join(fs.realpathSync(folder), name);

before(async () => {
  folder = fs.mkdtempSync(path.join(media, '../subtitles-'));
  const write = (name, content) => fs.writeFileSync(path.join(folder, name), content);
  write('film.western.srt', await encode(srt(`<i>${french}</i>`, `{\\an8}${french} <font color="red">&</font>`), 'WINDOWS-1252'));
  write('film.japanese.SRT', await encode(srt(japanese, japanese), 'SHIFT_JIS'));
  write('film.wide.srt', Buffer.concat([Buffer.from([0xff, 0xfe]), Buffer.from(srt(japanese), 'utf16le')]));
  write('film.marked.srt', `\ufeff${srt(french)}`);
  write("film.a b & 'c'.ass", script);
  write('film.ssa', script);
  write('film.kor.smi', await encode(sami, 'CP949'));
  write('film.empty.srt', '');
  write('film.damaged.srt', Buffer.alloc(5000, 0xfe));
  write('film.large.srt', Buffer.alloc(20 * 1024 * 1024 + 1, 0x0a));
  write('film.txt', 'not a subtitle');
  write('other.srt', srt('of another film'));
  write('track.srt', srt('<i>first</i> & <b>bold</b>', 'second'));
  write('track.ass', script);
  fs.symlinkSync('/etc/passwd', path.join(folder, 'film.leads-out.srt'));
  const film = path.join(media, 'h264_ac3.mkv');
  const tracks = ['-i', path.join(folder, 'track.srt'), '-i', path.join(folder, 'track.ass')];
  await ffmpeg('-i', film, ...tracks, '-map', '0', '-map', '1', '-map', '2', '-c', 'copy', path.join(folder, 'film.mkv'));
  await ffmpeg('-i', path.join(media, 'h264_aac.mp4'), ...tracks.slice(0, 2), '-map', '0', '-map', '1', '-c', 'copy', '-c:s', 'mov_text', path.join(folder, 'film.mp4'));
  const pictures = path.join(folder, 'track.sup');
  fs.writeFileSync(pictures, whiteBox({ width: 640, height: 360 }, { x: 100, y: 300, width: 200, height: 20 }, 1, 5));
  const blu = ['-i', film, '-i', pictures, '-map', '0', '-map', '1', '-c', 'copy', '-copyts', '-disposition:s', 'forced', '-metadata:s:s', 'language=eng'];
  await ffmpeg(...blu, path.join(folder, 'pictures.mkv'));
  const { idx, sub } = vobSub({ width: 720, height: 576 }, ['000000', 'ff0000'], [
    { language: 'en', box: { x: 100, y: 480, width: 300, height: 40 }, start: 1, end: 5 },
    { language: 'fr', box: { x: 310, y: 80, width: 200, height: 21 }, start: 2, end: 4 },
  ]);
  write('disc.idx', idx);
  write('disc.sub', sub);
  await ffmpeg('-i', film, '-i', path.join(folder, 'disc.idx'), '-map', '0:v', '-map', '0:a', '-map', '1', '-c', 'copy', '-copyts', path.join(folder, 'disc.mkv'));
  fs.unlinkSync(path.join(folder, 'track.srt'));
  service = await Service.start([folder]);
  stream = await service.open(path.join(folder, 'film.mkv'));
});

after(async () => {
  await service.close(stream);
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});

const address = (subtitle, parameters = {}, id = stream.stream_id) =>
  service.query('Subtitle', 'get', { id, subtitle_id: subtitle, output_webvtt: true, ...parameters });

async function get(subtitle, parameters, id) {
  const response = await fetch(address(subtitle, parameters, id));
  assert.equal(response.status, 200, await response.clone().text());
  assert.equal(response.headers.get('content-type'), 'text/vtt; charset=utf-8');
  const text = await response.text();
  assert.equal(text.slice(0, header.length), header);
  return text.slice(header.length);
}

const span = (start, end) => ({ webvtt_start_time: start, webvtt_end_time: end });

async function refuses(subtitle, parameters, status, reason, id) {
  const answer = await service.call('Subtitle', 'get', { id: id ?? stream.stream_id, subtitle_id: subtitle, ...parameters });
  assert.equal(answer.status, status);
  assert.equal(answer.error.reason, reason);
}

const files = {
  'film.western.srt': `\n00:00:01.000 --> 00:00:04.500\n<i>${french}</i>\n\n00:00:05.000 --> 00:00:08.500 line:0\n${french} &amp;\n`,
  'film.japanese.SRT': `\n00:00:01.000 --> 00:00:04.500\n${japanese}\n\n00:00:05.000 --> 00:00:08.500\n${japanese}\n`,
  'film.wide.srt': `\n00:00:01.000 --> 00:00:04.500\n${japanese}\n`,
  'film.marked.srt': `\n00:00:01.000 --> 00:00:04.500\n${french}\n`,
  "film.a b & 'c'.ass":
    '\n00:00:10.000 --> 00:00:12.000\n<i>leaning</i>, green &amp; &lt;so&gt;\nsecond\n\n00:00:14.000 --> 00:00:15.000 line:0\nabove\n',
  'film.kor.smi':
    '\n00:00:01.000 --> 00:00:03.000\n안녕하세요\n여러분\n\n00:00:04.000 --> 00:00:06.000\n만나서 <b>반갑습니다</b> &amp; 감사합니다\n',
  'film.empty.srt': '',
  'film.damaged.srt': '',
};
for (const [name, expected] of Object.entries(files)) {
  test(`${name} is shown as it was meant`, async () => {
    assert.equal(await get(beside(name)), expected);
    assert.equal(await get(beside(name)), expected, 'the second time as the first');
  });
}

test('an id may be a JSON text, as in playlists', async () => {
  assert.equal(await get(JSON.stringify(beside('film.marked.srt'))), files['film.marked.srt']);
});

test('tracks of a Matroska film are shown', async () => {
  const { data } = await service.call('Library', 'info', { path: beside('film.mkv') });
  const [first, second] = data.subtitles.filter(({ source }) => source === 'embedded').map(({ id }) => id);
  assert.equal(
    await get(first),
    '\n00:00:01.000 --> 00:00:04.500\n<i>first</i> &amp; <b>bold</b>\n\n00:00:05.000 --> 00:00:08.500\nsecond\n',
  );
  assert.equal(await get(second), files["film.a b & 'c'.ass"]);
});

test('a track of an MP4 film is shown', async () => {
  const film = await service.open(beside('film.mp4'));
  assert.equal(
    await get('2', {}, film.stream_id),
    '\n00:00:01.000 --> 00:00:04.500\n<i>first</i> &amp; <b>bold</b>\n\n00:00:05.000 --> 00:00:08.500\nsecond\n',
  );
  await service.close(film);
});

test('a span contains every cue that is visible in it, uncut', async () => {
  const id = beside('film.western.srt');
  const all = await get(id);
  assert.equal(await get(id, span(0, 3)), all.slice(0, all.indexOf('\n00:00:05')));
  assert.equal(await get(id, span(3, 6)), all);
  assert.equal(await get(id, span(6, 9)), all.slice(all.indexOf('\n00:00:05')));
  assert.equal(await get(id, span(9, 12)), '');
  assert.equal(await get(id, span(3, 3)), all.slice(0, all.indexOf('\n00:00:05')));
  assert.equal(await get(id, { webvtt_start_time: 6 }), await get(id, span(6, 9)));
});

test('invalid times are refused', async () => {
  for (const [start, end] of [[5, 4], ['x', 5], [0, '5s'], [-1, 5], ['1.5', 3], ['', 3], [0, '99999999999999999999']]) {
    await refuses(beside('film.srt'), span(start, end), 400, 'BadRequest');
  }
});

test('a named code page is used, an unknown name is refused', async () => {
  const id = beside('film.western.srt');
  assert.match(await get(id, { subtitle_codepage: 'WINDOWS-1251' }), /Oщ est passй/);
  for (const name of ['klingon', 'UTF-8//TRANSLIT', '../../x', '-f', 'a\nb']) {
    await refuses(id, { subtitle_codepage: name }, 400, 'BadRequest');
  }
});

test('only subtitles of the film are served', async () => {
  for (const id of [
    '/etc/passwd',
    beside('other.srt'),
    beside('film.txt'),
    beside('film.mkv'),
    beside('film.leads-out.srt'),
    `${fs.realpathSync(folder)}/../${path.basename(folder)}/film.marked.srt`,
    `${fs.realpathSync(folder)}//film.marked.srt`,
    'film.marked.srt',
    '0',
    '1',
    '99',
    '-1',
    '2 -y',
    'all',
    '',
  ]) {
    await refuses(id, {}, 404, 'NotFound');
  }
});

test('unknown streams are refused', async () => {
  await refuses('2', {}, 400, 'BadRequest', '../../etc');
  await refuses('2', {}, 404, 'NotFound', `${'0'.repeat(32)}_AAAAAAAA`);
});

test('a file that is too large is refused', async () => {
  await refuses(beside('film.large.srt'), {}, 400, 'BadRequest');
});

test('a HEAD request gets the headers', async () => {
  const response = await fetch(address(beside('film.marked.srt')), { method: 'HEAD' });
  assert.equal(response.headers.get('content-type'), 'text/vtt; charset=utf-8');
  assert.equal(Number(response.headers.get('content-length')), Buffer.byteLength(header + files['film.marked.srt']));
});

test('simultaneous requests get the same answer, and one copy is stored', async () => {
  const film = await service.open(beside('film.mkv'));
  const answers = await Promise.all(Array.from({ length: 8 }, () => get('3', {}, film.stream_id)));
  assert.equal(new Set(answers).size, 1);
  const kept = fs.readdirSync(path.join(service.root, 'tmp/Mirevo/HTTP', film.stream_id)).filter((name) => /\.vtt(\.new)?$/.test(name));
  assert.equal(kept.length, 1);
  await service.close(film);
});

test('the subtitle addresses of a segmented stream work', async () => {
  const film = await service.open(beside('film.mkv'), { format: 'hls', subtitle_id: 'all' });
  const lines = async (url) => (await (await fetch(url)).text()).split('\n');
  const uris = (await lines(film.url)).flatMap((line) => line.match(/^#EXT-X-MEDIA:.*URI="([^"]*)"/)?.[1] ?? []);
  assert.ok(uris.length >= 9, 'every file and track is listed');
  for (const uri of uris.filter((text) => !text.includes('large') && !text.includes('leads-out'))) {
    const playlist = new URL(uri, film.url);
    const parts = (await lines(playlist)).filter((line) => line && !line.startsWith('#'));
    for (const part of parts.slice(0, 2)) {
      const response = await fetch(new URL(part, playlist));
      assert.equal(response.status, 200, part);
      assert.ok((await response.text()).startsWith(header));
    }
  }
  await service.call('Streaming', 'close', { format: 'hls', stream_id: film.stream_id });
});

test('cue times are mapped to the clock of the segments', async () => {
  const film = await service.open(beside('film.mkv'), { format: 'hls', profile: 'hls_240p_vb300_ab96', subtitle_id: '2' });
  const response = await fetch(`${film.url}&fragment_id=%2200001%22`);
  const segment = path.join(folder, 'segment.ts');
  fs.writeFileSync(segment, Buffer.from(await response.arrayBuffer()));
  await service.call('Streaming', 'close', { format: 'hls', stream_id: film.stream_id });
  await service.isQuiet(patience, [stream.stream_id]);
  assert.equal(response.status, 200);
  const { stdout } = await run('ffprobe', ['-v', 'error', '-select_streams', 'v', '-show_entries', 'packet=pts', '-of', 'csv=p=0', segment]);
  const first = Math.min(...stdout.trim().split(/[\s,]+/).map(Number));
  const [, offset] = header.match(/MPEGTS:(\d+)/);
  // The segment begins with the first picture of its second.
  const late = first - 5 * 90000 - Number(offset);
  assert.ok(late >= 0 && late < 90000 / 23, `${late} / 90000 s after the subtitles' clock`);
});

test('a stream gives subtitles and plays again after its folder was removed for idleness', async () => {
  const film = await service.open(beside('film.mkv'), { format: 'hls', subtitle_id: 'all' });
  for (const kind of ['tmp/Mirevo/HLS', 'volume1/@tmp/Mirevo/HLS']) {
    fs.rmSync(path.join(service.root, kind, film.stream_id), { recursive: true, force: true });
  }
  assert.equal(await get(beside('film.marked.srt'), {}, film.stream_id), files['film.marked.srt']);
  const playlist = await fetch(film.url);
  assert.match(await playlist.text(), /^#EXTM3U/);
  await service.call('Streaming', 'close', { format: 'hls', stream_id: film.stream_id });
});

test('a film that does not start at zero has its subtitles at the times of its pictures', async () => {
  const late = path.join(folder, 'late.mkv');
  await ffmpeg('-i', path.join(folder, 'film.mkv'), '-map', '0', '-c', 'copy', '-output_ts_offset', '10', late);
  const film = await service.open(late);
  assert.match(await get('2', {}, film.stream_id), /^\n00:00:01\.000 --> 00:00:04\.500\n/);
  await service.close(film);
});

test('a browser reads every cue with its style and position', async () => {
  const name = path.join(folder, 'film.places.srt');
  fs.writeFileSync(name, srt('{\\an7}a <i>b</i> & <c', '{\\an6}right', '{\\pos(192,144)}middle', 'usual'));
  const browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: browserArguments });
  try {
    const page = await browser.newPage();
    await page.goto(service.address);
    const cues = await page.evaluate(async (url) => {
      const track = document.createElement('track');
      const loaded = new Promise((resolve, reject) => {
        track.onload = resolve;
        track.onerror = () => reject(new Error('no track'));
      });
      track.src = url;
      document.getElementById('video').append(track);
      track.track.mode = 'hidden';
      await loaded;
      return [...track.track.cues].map((cue) => [cue.startTime, cue.getCueAsHTML().textContent, cue.line, cue.snapToLines, cue.align, cue.position]);
    }, new URL(address(beside('film.places.srt'))).href.replace(service.address, ''));
    assert.deepEqual(cues, [
      [1, 'a b & <c', 0, true, 'left', 'auto'],
      [5, 'right', 45, false, 'right', 'auto'],
      [9, 'middle', 44, false, 'center', 50],
      [13, 'usual', 'auto', true, 'center', 'auto'],
    ]);
  } finally {
    await browser.close();
    fs.unlinkSync(name);
  }
});

const formOf = async (name) => (await service.call('Library', 'info', { path: beside(name) })).data.subtitles;

test('a film tells the form of each of its subtitles', async () => {
  const forms = Object.fromEntries((await formOf('film.mkv')).map(({ id, form }) => [path.basename(id), form]));
  const [text, ass] = Object.keys(forms).filter((id) => /^\d+$/.test(id));
  assert.deepEqual([forms[text], forms[ass], forms['film.ssa'], forms['film.marked.srt'], forms['film.kor.smi']], ['text', 'ass', 'ass', 'text', 'text']);
  const [pictures] = await formOf('pictures.mkv');
  assert.deepEqual([pictures.form, pictures.codec, pictures.forced], ['picture', 'hdmv_pgs_subtitle', true]);
});

test('a script comes as it is, from a file and from the film', async () => {
  const [, track] = (await formOf('film.mkv')).filter(({ source }) => source === 'embedded');
  for (const id of [beside('film.ssa'), track.id]) {
    const answer = await fetch(address(id, { output: 'ass' }));
    assert.equal(answer.headers.get('content-type'), 'text/x-ssa; charset=utf-8');
    assert.match(await answer.text(), /^Dialogue: .*\{\\fnArial\\i1\}leaning\{\\i0\}, \{\\c&H00FF00&\}green & <so>/m);
  }
});

test('pictures come as a file that other programs read', async () => {
  const film = await service.open(beside('pictures.mkv'));
  const [{ id }] = await formOf('pictures.mkv');
  const answer = await fetch(address(id, { output: 'sup' }, film.stream_id));
  assert.equal(answer.status, 200);
  const sup = Buffer.from(await answer.arrayBuffer());
  assert.deepEqual(segmentsOf(sup), segmentsOf(fs.readFileSync(path.join(folder, 'track.sup'))));
  await refuses(id, {}, 400, 'BadRequest', film.stream_id);
  await service.close(film);
});

test('an output that the subtitles do not have is refused', async () => {
  await refuses(beside('film.marked.srt'), { output: 'ass' }, 400, 'BadRequest');
  await refuses(beside('film.ssa'), { output: 'sup' }, 400, 'BadRequest');
  await refuses(beside('film.ssa'), { output: '../ass' }, 400, 'BadRequest');
});

test('pictures of a DVD, in the film and beside it, are sent in the form of a Blu-ray', async () => {
  const film = beside('disc.mkv');
  const { subtitles } = (await service.call('Library', 'info', { path: film })).data;
  assert.deepEqual(subtitles.map(({ form, source, language }) => [form, source, language]), [
    ['picture', 'embedded', 'en'],
    ['picture', 'embedded', 'fr'],
    ['picture', 'file', 'en'],
    ['picture', 'file', 'fr'],
  ]);
  const { stream_id: id } = await service.open(film);
  const places = [];
  for (const { id: subtitle } of subtitles) {
    const response = await fetch(service.query('Subtitle', 'get', { id, subtitle_id: subtitle, output: 'sup' }));
    assert.equal(response.status, 200);
    const segments = segmentsOf(Buffer.from(await response.arrayBuffer()));
    const windows = segments.filter(({ type }) => type === 0x17);
    places.push(windows.map(({ tick, content }) => [Math.round(tick / 90000), Buffer.from(content, 'hex').readUInt16BE(2), Buffer.from(content, 'hex').readUInt16BE(4)]));
  }
  const [first, second] = [[[1, 100, 480], [5, 100, 480]], [[2, 310, 80], [4, 310, 80]]];
  assert.deepEqual(places, [first, second, first, second]);
  for (const wrong of [`${beside('disc.idx')}/2`, `${beside('disc.idx')}/-1`, beside('disc.idx'), `${beside('disc.idx')}/../../etc/passwd`]) {
    const { status } = await service.call('Subtitle', 'get', { id, subtitle_id: wrong, output: 'sup' });
    assert.equal(status, 404, wrong);
  }
  await service.close({ stream_id: id });
});
