// Attacks with subtitles: files that would keep a reader busy, markup that a page would run, and names that would break
// out of a playlist.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { media, Service } from '../service/support.mjs';

const size = 19 << 20; // just below the largest file that is read
const soon = 30000; // for a conversion that takes a second on an idle machine
const longest = (8 * size) + 100; // of the WebVTT
const repeated = (head, piece, bytes = size) => head + piece.repeat(Math.floor((bytes - head.length) / piece.length));
const halves = (head, first, second) => repeated(repeated(head, first, size / 2), second);

const events = '[Events]\nFormat: Start, End, Text';
const time = '1\n00:00:01,000 --> 00:00:02,000\n';
const busy = {
  'columns.ass': halves(events, ', a', '\nDialogue: 0:0:1,0:0:2,x'),
  'braces.ass': repeated(`${events}\nDialogue: 0:0:1,0:0:2,`, '{'),
  'nested.ass': repeated(`${events}\nDialogue: 0:0:1,0:0:2,`, '{\\t(\\i1'),
  'styles.ass': halves('[V4+ Styles]\n', 'Style: a,b\n', 'Style: c,d\n'),
  'tags.srt': repeated(time, '<b'),
  'line.srt': repeated(time, 'x'),
  'lines.srt': repeated(time, '\n'),
  'numbers.srt': repeated(time, '9'),
  'together.srt': repeated('', '1\n0:1-->9:0\nx\n\n'),
  'instants.smi': repeated('<SAMI>', '<SYNC Start=1><P Class=A>x'),
  'open.smi': repeated('<SYNC Start=1><P>', '<!--'),
};

const attack =
  '<script>alert(1)</script><img src=x onerror=alert(1)><i onclick=alert(1)>seen</i></b>&lt;script&gt;<a href="javascript:1">x';
const markup = {
  'markup.srt': `${time}${attack}\n`,
  'markup.ass': `${events}\nDialogue: 0:0:1,0:0:2,{\\i1}${attack}\n`,
  'markup.smi': `<SYNC Start=1000><P>${attack}<SYNC Start=2000><P>&nbsp;`,
};
const names = ['quote".srt', 'x",URI="http:__evil_', 'line\n#EXT-X-STREAM-INF:.srt', '<b>.srt', '$(reboot).srt', '..srt', '%00.srt'].map((name) =>
  name.endsWith('.srt') ? name : `${name}.srt`,
);

let service;
let folder;
let stream;

before(async () => {
  folder = fs.realpathSync(fs.mkdtempSync(path.join(media, '../hostile-subtitles-')));
  const write = (name, content) => fs.writeFileSync(path.join(folder, name), content);
  for (const [name, content] of Object.entries({ ...busy, ...markup })) write(`film.${name}`, content);
  for (const name of names) write(`film.${name}`, `${time}harmless\n`);
  write('track.srt', markup['markup.srt'].repeat(3));
  execFileSync('ffmpeg', [
    '-nostdin', '-v', 'error', '-i', path.join(media, 'h264_aac.mp4'), '-i', path.join(folder, 'track.srt'),
    '-map', '0', '-map', '1', '-c', 'copy', '-metadata:s:s:0', 'language=e",', '-metadata:s:s:0', 'title="\n#EXT-X-ENDLIST',
    path.join(folder, 'film.mkv'),
  ]);
  fs.unlinkSync(path.join(folder, 'track.srt'));
  service = await Service.start([folder]);
  stream = await service.open(path.join(folder, 'film.mkv'));
});
after(async () => {
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});

const ask = (id) => fetch(service.query('Subtitle', 'get', { id: stream.stream_id, subtitle_id: id }));
const beside = (name) => path.join(folder, `film.${name}`);

for (const name of Object.keys(busy)) {
  test(`${name} is answered in a time and a length with a bound`, { timeout: soon }, async () => {
    const response = await ask(beside(name));
    assert.equal(response.status, 200);
    const text = await response.text();
    assert.ok(text.startsWith('WEBVTT\n'));
    assert.ok(text.length <= longest, `${text.length} bytes`);
  });
}

test('a conversion keeps no lock from others', async () => {
  const kept = path.join(service.root, 'tmp/Mirevo/HTTP', stream.stream_id);
  const answers = await Promise.all(['columns.ass', 'columns.ass', 'markup.srt', 'markup.srt'].map((name) => ask(beside(name))));
  assert.ok(answers.every(({ status }) => status === 200));
  await Promise.all(answers.map((answer) => answer.arrayBuffer()));
  assert.deepEqual(fs.readdirSync(kept).filter((name) => name.endsWith('.vtt.lock')), []);
});

for (const name of [...Object.keys(markup), 'the film']) {
  test(`markup in ${name} reaches the page as text`, async () => {
    const tracks = (await service.call('Library', 'info', { path: path.join(folder, 'film.mkv') })).data.metadata.track_info.subtitle;
    const text = await (await ask(name === 'the film' ? tracks[0].track : beside(name))).text();
    assert.match(text, /seen/);
    const tags = text.replaceAll('-->', '').match(/<[^>]*>?/g) ?? [];
    assert.deepEqual(tags.filter((tag) => !/^<\/?[biu]>$/.test(tag)), []);
  });
}

test('names of files and tracks stay inside their quotes in a playlist', async () => {
  const film = await service.open(path.join(folder, 'film.mkv'), { format: 'hls', subtitle_id: 'all' });
  const lines = (await (await fetch(film.url)).text()).split('\n').filter((line) => line !== '');
  const own = /^#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID="subs",LANGUAGE="[^"]*",NAME="[^"]*",DEFAULT=(YES|NO),FORCED=NO,URI="[^"]*"$/;
  const listed = lines.filter((line) => line.startsWith('#EXT-X-MEDIA'));
  assert.ok(listed.length > names.length - 2, 'the tracks are listed');
  for (const line of listed) {
    assert.match(line, own);
    const address = new URL(line.match(/URI="([^"]*)"/)[1], film.url);
    assert.equal(address.host, new URL(service.address).host);
  }
  assert.equal(lines.filter((line) => line.startsWith('#EXT-X-STREAM-INF')).length, 1);
  await service.call('Streaming', 'close', { format: 'hls', stream_id: film.stream_id });
});
