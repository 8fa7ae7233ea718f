// The web API against a running service: good, missing, wrong and hostile parameters.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { eventually, media, Service } from './support.mjs';

const film = path.join(media, 'h264_ac3.mkv');
let service;
let folder; // a media root with odd names, inside the service's root

before(async () => {
  folder = fs.mkdtempSync(path.join(media, '../odd-'));
  for (const name of ['a "b" & <c>\n%s.mkv', 'two  blanks.mkv', "it's.mkv"]) {
    fs.copyFileSync(film, path.join(folder, name));
  }
  fs.copyFileSync(film, Buffer.concat([Buffer.from(`${folder}/caf`), Buffer.from([0xe9]), Buffer.from('.mkv')]));
  fs.symlinkSync('/etc/passwd', path.join(folder, 'leads out.mkv'));
  fs.mkdirSync(path.join(folder, 'sub'));
  service = await Service.start([media, folder]);
});

after(async () => {
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});

async function refuses(call, status, reason) {
  const answer = await call;
  assert.equal(answer.status, status);
  assert.equal(answer.error?.reason, reason);
  assert.deepEqual(service.streamFolders(), [], 'no directory stays');
  assert.deepEqual(service.transcoders(), [], 'no process starts');
  return answer;
}

const open = (parameters) => service.call('Streaming', 'open', { format: 'http', ...parameters });

test('the media roots are listed first', async () => {
  const { data } = await service.call('Library', 'list');
  assert.deepEqual(
    data.folders.map((entry) => entry.path).sort(),
    [fs.realpathSync(media), fs.realpathSync(folder)].sort(),
  );
});

test('a folder lists its folders and films with size and time', async () => {
  const { data } = await service.call('Library', 'list', { path: JSON.stringify(folder) });
  assert.deepEqual(data.folders.map(({ name }) => name), ['sub']);
  const names = data.files.map(({ name }) => name);
  assert.ok(names.includes('a "b" & <c>\n%s.mkv'));
  assert.ok(!names.includes('leads out.mkv'), 'a link out of the roots is not there');
  assert.equal(data.files[0].size, fs.statSync(film).size);
  assert.ok(data.files[0].mtime > 0);
});

test('info explains what each profile does and why', async () => {
  const { data } = await service.call('Library', 'info', { path: path.join(media, 'hevc10_aac.mov') });
  assert.equal(data.metadata.track_info.video[0].codec, 'hevc');
  const remux = data.profiles.find(({ key }) => key === 'http_mp4_remux');
  assert.equal(remux.method, 'refused');
  assert.match(remux.why, /hevc/);
  const chosen = data.profiles.filter((profile) => profile.default);
  assert.deepEqual(chosen.map(({ format }) => format), [...new Set(data.profiles.map(({ format }) => format))]);
  assert.ok(chosen.every(({ method }) => method === 'transcode'));
});

test('a film whose video can be copied is remuxed by default', async () => {
  const { data } = await service.call('Library', 'info', { path: film });
  assert.equal(data.profiles.find((profile) => profile.default).method, 'remux');
});

test('odd names play', async () => {
  for (const name of ['a "b" & <c>\n%s.mkv', 'two  blanks.mkv', "it's.mkv"]) {
    const stream = await service.open(path.join(folder, name));
    const response = await fetch(stream.url);
    assert.equal(response.status, 200);
    await response.body.cancel();
    await service.close(stream);
  }
});

test('quotes around a value that contains quotes are plain characters', async () => {
  const name = 'a "b" & <c>\n%s.mkv';
  const answer = await service.call('Library', 'info', { path: `"${path.join(folder, name)}"` });
  assert.equal(answer.data.metadata.path, path.join(fs.realpathSync(folder), name));
});

test('a name that is not UTF-8 is refused with a clear message', async () => {
  const { data } = await service.call('Library', 'list', { path: folder });
  const entry = data.files.find(({ encoded_path: encoded }) => encoded.includes('%E9'));
  const response = await fetch(`${service.query('Streaming', 'open', { format: 'http' })}&path=${entry.encoded_path}`);
  assert.equal(response.status, 400);
  assert.match((await response.json()).error.message, /UTF-8/);
});

test('only paths below a media root are served', async () => {
  await refuses(open({ path: '/etc/passwd' }), 403, 'Forbidden');
  await refuses(open({ path: '/etc/nothing' }), 403, 'Forbidden');
  await refuses(open({ path: `${media}/../../../../../../../../etc/passwd` }), 403, 'Forbidden');
  await refuses(open({ path: path.join(folder, 'leads out.mkv') }), 403, 'Forbidden');
  await refuses(service.call('Library', 'list', { path: '/' }), 403, 'Forbidden');
  await refuses(service.call('Library', 'info', { path: '/etc/passwd' }), 403, 'Forbidden');
});

test('a file that is not a film is refused', async () => {
  await refuses(open({ path: `${media}/nothing.mkv` }), 404, 'NotFound');
  await refuses(open({ path: media }), 400, 'BadRequest');
  await refuses(open({ path: 'h264_ac3.mkv' }), 400, 'BadRequest');
  await refuses(open({}), 400, 'BadRequest');
  for (const name of ['zeros.mkv', 'text.mkv', 'empty.mkv', 'truncated.mp4', 'playlist.mkv', 'script.mkv', 'no_video.mka']) {
    await refuses(open({ path: path.join(media, name) }), 415, 'TransVideoNotSupported');
  }
});

test('unknown and malformed calls are refused', async () => {
  const get = async (query) => {
    const response = await fetch(`${service.address}/webapi/entry.cgi?${query}`);
    return { status: response.status, ...(await response.json()) };
  };
  await refuses(get(''), 400, 'BadRequest');
  await refuses(get('api=ORVO.Mirevo2.Status&method=get'), 400, 'BadRequest');
  await refuses(get('api=ORVO.Mirevo2.Status&version=2&method=get'), 400, 'BadRequest');
  await refuses(get('api=ORVO.Mirevo2.Status&version=1&method=drop'), 400, 'BadRequest');
  await refuses(get('api=%zz&version=1&method=get'), 400, 'BadRequest');
  await refuses(get('api=ORVO.Mirevo2.Library&version=1&method=list&path=%00'), 400, 'BadRequest');
  await refuses(open({ path: film, format: 'avi' }), 400, 'BadRequest');
  await refuses(open({ path: film, profile: 'http_nothing' }), 400, 'BadRequest');
  await refuses(open({ path: film, audio_id: '7' }), 400, 'BadRequest');
  await refuses(open({ path: path.join(media, 'vp9_opus.webm'), profile: 'http_mp4_remux' }), 415, 'TransVideoNotSupported');
});

test('invalid ids touch nothing', async () => {
  const marker = path.join(service.root, 'marker');
  fs.writeFileSync(marker, 'here');
  const foreign = `${'0'.repeat(32)}_AAAAAAAA`;
  for (const id of ['', '1', '../../../marker', `../${'a'.repeat(38)}`, `${'0'.repeat(32)}_AAAAAAA%2F`, `${'0'.repeat(32)}_AAAAAAAA\n`, foreign.toUpperCase().replace('0', 'G')]) {
    for (const method of ['stream', 'close']) {
      await refuses(service.call('Streaming', method, { format: 'http', stream_id: id }), 400, 'BadRequest');
    }
    await refuses(open({ path: film, stream_id: id }), 400, 'BadRequest');
  }
  await refuses(open({ path: film, stream_id: foreign }), 400, 'BadRequest');
  await refuses(service.call('Streaming', 'stream', { format: 'http', stream_id: foreign }), 404, 'NotFound');
  assert.equal(fs.readFileSync(marker, 'utf8'), 'here');
});

test('a form means the same as a query, plain or as JSON texts', async () => {
  const body = new URLSearchParams({ api: '"ORVO.Mirevo2.Library"', version: 1, method: 'info', path: JSON.stringify(film) });
  const response = await fetch(`${service.address}/webapi/entry.cgi`, { method: 'POST', body });
  const { data } = await response.json();
  assert.equal(data.metadata.path, fs.realpathSync(film));
});

test('a body that is not a form, or is too long, is refused', async () => {
  const post = async (headers, body) =>
    (await fetch(`${service.address}/webapi/entry.cgi`, { method: 'POST', headers, body })).status;
  assert.equal(await post({ 'Content-Type': 'application/json' }, '{}'), 400);
  const status = await post({ 'Content-Type': 'application/x-www-form-urlencoded' }, `a=${'x'.repeat(100000)}`);
  assert.equal(status, 400);
});

test('closing is idempotent', async () => {
  const stream = await service.open(film);
  assert.deepEqual((await service.close(stream)).data, {});
  assert.deepEqual((await service.close(stream)).data, {});
  const gone = await service.call('Streaming', 'stream', { format: 'http', stream_id: stream.stream_id });
  assert.equal(gone.status, 404);
});

test('the status names platform, limits and volumes', async () => {
  const { data } = await service.call('Status', 'get');
  assert.deepEqual(data.limits, { software: 1, hardware: 0 });
  assert.match(data.platform.profiles, /^x86_[12]$/);
  assert.equal(data.volumes[0].path, path.join(service.root, 'volume1'));
});

test('the page is served and no other file', async () => {
  const page = await fetch(`${service.address}/`);
  assert.equal(page.status, 200);
  assert.match(page.headers.get('content-type'), /^text\/html/);
  for (const outside of ['/webapi/../../../etc/passwd', '/..%2f..%2fetc/passwd', '/webapi/', '/etc/passwd']) {
    assert.ok((await fetch(`${service.address}${outside}`)).status >= 400, outside);
  }
});

const post = async (api, method, parameters) => {
  const body = new URLSearchParams(parameters);
  const response = await fetch(service.query(api, method), { method: 'POST', body });
  return { status: response.status, ...(await response.json()) };
};
const player = { headers: { 'User-Agent': 'VLC/3.0.20 LibVLC/3.0.20' } };
const openDirect = async (film_, options = player) =>
  (await fetch(service.query('Streaming', 'open', { format: 'direct', path: film_ }), options)).json();

test('a search finds films in any case below all roots, and says when it stops early', async () => {
  const { data } = await service.call('Library', 'search', { q: 'H264' });
  assert.ok(data.files.some(({ name }) => name === 'h264_ac3.mkv'));
  assert.equal(data.truncated, false);
  const below = await service.call('Library', 'search', { q: 'BLANKS', path: folder });
  assert.deepEqual(below.data.files.map(({ name }) => name), ['two  blanks.mkv']);
  const out = await service.call('Library', 'search', { q: 'leads' });
  assert.deepEqual(out.data.files, [], 'a link out of the roots is not there');
  await refuses(service.call('Library', 'search', { q: 'a', path: '/etc' }), 403, 'Forbidden');
});

test('a search finds words in any order, without accents, in the names of folders too', async () => {
  const season = path.join(folder, 'sub/Éclair 2');
  fs.mkdirSync(season);
  for (const name of ['10 Café.mkv', '9 Café.mkv']) fs.linkSync(film, path.join(season, name));
  const found = async (q) => {
    const { data } = await service.call('Library', 'search', { q });
    return [...data.folders, ...data.files].map(({ name }) => name);
  };
  assert.deepEqual(await found('2 eclair'), ['Éclair 2']);
  assert.deepEqual(await found('CAFE eclair'), ['9 Café.mkv', '10 Café.mkv']);
  assert.deepEqual(await found('cafe nowhere'), []);
  assert.deepEqual(await found(' '), []);
  fs.rmSync(season, { recursive: true });
});

test('a folder is listed as people count', async () => {
  const names = ['clip 1.mkv', 'Clip 2.mkv', 'clip 10.mkv'];
  const clips = path.join(folder, 'sub/clips');
  fs.mkdirSync(clips);
  for (const name of names) fs.linkSync(film, path.join(clips, name));
  const { data } = await service.call('Library', 'list', { path: clips });
  assert.deepEqual(data.files.map(({ name }) => name), names);
  fs.rmSync(clips, { recursive: true });
});

test('a folder is listed in parts', async () => {
  const parts = path.join(folder, 'sub/parts');
  fs.mkdirSync(path.join(parts, 'z folder'), { recursive: true });
  for (const number of [1, 2, 10]) fs.linkSync(film, path.join(parts, `clip ${number}.mkv`));
  fs.symlinkSync('/etc/passwd', path.join(parts, 'clip 3.mkv'));
  const part = async (offset) => {
    const { data } = await service.call('Library', 'list', { path: parts, offset, limit: 2 });
    return [[...data.folders, ...data.files].map(({ name }) => name), data.next];
  };
  assert.deepEqual(await part(0), [['z folder', 'clip 1.mkv'], 2]);
  assert.deepEqual(await part(2), [['clip 2.mkv'], 4], 'a link out of the roots is not there');
  assert.deepEqual(await part(4), [['clip 10.mkv'], undefined]);
  assert.deepEqual(await part(9), [[], undefined]);
  for (const wrong of [{ limit: 0 }, { limit: 'all' }, { offset: -1 }, { limit: 10001 }]) {
    await refuses(service.call('Library', 'list', { path: parts, ...wrong }), 400, 'BadRequest');
  }
  fs.rmSync(parts, { recursive: true });
});

test('a card has the facts of a film as it is displayed', async () => {
  const { data } = await service.call('Library', 'card', { path: path.join(media, 'portrait.mp4') });
  const facts = { duration: 60, width: 360, height: 640, video: 'h264', audio: 'aac', music: false };
  assert.deepEqual(data, { ...facts, title: '', artist: '', album: '', notes: {} });
  await refuses(service.call('Library', 'card', { path: path.join(media, 'zeros.mkv') }), 415, 'TransVideoNotSupported');
  await refuses(service.call('Library', 'card', { path: path.join(media, 'zeros.mkv') }), 415, 'TransVideoNotSupported');
});

test('a picture is made once and then checked by its tag', async () => {
  const address = service.query('Library', 'poster', { path: film, width: 64 });
  const first = await fetch(address);
  assert.equal(first.status, 200);
  assert.equal(first.headers.get('content-type'), 'image/jpeg');
  assert.match(first.headers.get('cache-control'), /max-age=\d+/);
  const picture = Buffer.from(await first.arrayBuffer());
  assert.equal(picture.readUInt16BE(0), 0xffd8, 'a JPEG');
  const tag = first.headers.get('etag');
  const again = await fetch(address, { headers: { 'If-None-Match': tag } });
  assert.equal(again.status, 304);
  const head = await fetch(address, { method: 'HEAD' });
  assert.equal(head.headers.get('content-length'), String(picture.length));
  assert.equal(head.headers.get('etag'), tag);
});

test('a thumbnail covers ten seconds', async () => {
  const at = async (time) => {
    const response = await fetch(service.query('Library', 'thumbnail', { path: film, time }));
    return Buffer.from(await response.arrayBuffer());
  };
  const picture = await at(21);
  assert.deepEqual(await at('29.5'), picture);
  assert.notDeepEqual(await at(31), picture);
  for (const wrong of ['', '-1', '3600', 'now']) {
    await refuses(service.call('Library', 'thumbnail', { path: film, time: wrong }), 400, 'BadRequest');
  }
  for (const width of ['0', '15', '321', 'wide']) {
    await refuses(service.call('Library', 'thumbnail', { path: film, time: 1, width }), 400, 'BadRequest');
  }
});

test('a playlist gives no picture', async () => {
  for (const name of ['playlist.mkv', 'script.mkv']) {
    await refuses(service.call('Library', 'poster', { path: path.join(media, name) }), 415, 'TransVideoNotSupported');
  }
});

test('music without a cover has no picture', async () => {
  await refuses(service.call('Library', 'poster', { path: path.join(media, 'no_video.mka') }), 404, 'NotFound');
});

test('all posters of a page are served, however many are requested at once', async () => {
  const widths = Array.from({ length: 12 }, (_, index) => 100 + 2 * index);
  const answers = await Promise.all(widths.map((width) => fetch(service.query('Library', 'poster', { path: film, width }))));
  for (const answer of answers) {
    assert.equal(answer.status, 200);
    await answer.arrayBuffer();
  }
});

test('the history lists watched films, newest first, until they are deleted', async () => {
  const passing = path.join(folder, 'passing.mkv');
  fs.copyFileSync(film, passing);
  assert.deepEqual((await service.call('History', 'get', { path: passing })).data, { position: 0, duration: 0, finished: false });
  await post('History', 'save', { path: film, position: '12.9', duration: 60 });
  await post('History', 'save', { path: passing, position: 59, duration: 60 });
  const names = async () => (await service.call('History', 'list')).data.items.map(({ name }) => name);
  assert.deepEqual(await names(), ['passing.mkv', 'h264_ac3.mkv']);
  assert.deepEqual((await service.call('History', 'get', { path: film })).data, { position: 12, duration: 60, finished: false });
  assert.equal((await service.call('History', 'get', { path: passing })).data.finished, true);
  fs.rmSync(passing);
  assert.deepEqual(await names(), ['h264_ac3.mkv']);
  await post('History', 'save', { path: film, position: 20, duration: 60 });
  assert.deepEqual(await names(), ['h264_ac3.mkv'], 'one entry for a film');
  await post('History', 'remove', { path: film });
  assert.deepEqual(await names(), []);
});

test('a damaged history counts as empty, and stays beside the new one', async () => {
  const file = path.join(service.root, 'var/packages/Mirevo/etc/history/all.json');
  for (const content of ['{', '[1,{"path":5}]', '"text"']) {
    fs.writeFileSync(file, content);
    assert.deepEqual((await service.call('History', 'list')).data, { items: [] });
  }
  await post('History', 'save', { path: film, position: 1, duration: 60 });
  assert.equal((await service.call('History', 'list')).data.items.length, 1);
  assert.equal(fs.readFileSync(`${file}.damaged`, 'utf8'), '"text"');
  await post('History', 'remove', {});
});

test('an invalid position is not saved', async () => {
  for (const wrong of [{ position: -1 }, { position: 70 }, { position: 'x' }, { duration: '' }]) {
    assert.equal((await post('History', 'save', { path: film, position: 1, duration: 60, ...wrong })).status, 400);
  }
  assert.equal((await post('History', 'save', { path: '/etc/passwd', position: 1, duration: 2 })).status, 403);
  assert.deepEqual((await service.call('History', 'list')).data, { items: [] });
});

test('a film with any name plays directly, whole and in ranges', async () => {
  const whole = fs.readFileSync(film);
  for (const name of ['a "b" & <c>\n%s.mkv', 'two  blanks.mkv', "it's.mkv"]) {
    const { data } = await openDirect(path.join(folder, name));
    assert.equal(data.content_type, 'video/x-matroska');
    const head = await fetch(data.url, { method: 'HEAD' });
    assert.equal(head.headers.get('content-length'), String(whole.length));
    assert.equal(head.headers.get('accept-ranges'), 'bytes');
    const tag = head.headers.get('etag');
    assert.ok(head.headers.get('last-modified'));
    const part = await fetch(data.url, { headers: { Range: 'bytes=1000-1999' } });
    assert.equal(part.status, 206);
    assert.equal(part.headers.get('content-range'), `bytes 1000-1999/${whole.length}`);
    assert.deepEqual(Buffer.from(await part.arrayBuffer()), whole.subarray(1000, 2000));
    const changed = await fetch(data.url, { headers: { Range: 'bytes=0-9', 'If-Range': '"other"' } });
    assert.equal(changed.status, 200);
    assert.deepEqual(Buffer.from(await changed.arrayBuffer()), whole);
    const behind = await fetch(data.url, { headers: { Range: `bytes=${whole.length}-` } });
    assert.equal(behind.status, 416);
    await behind.arrayBuffer();
    const same = await fetch(data.url, { headers: { 'If-None-Match': tag } });
    assert.equal(same.status, 304);
    await service.call('Streaming', 'close', { format: 'direct', stream_id: data.stream_id });
    const gone = await fetch(data.url);
    assert.equal(gone.status, 404);
    await gone.arrayBuffer();
  }
});

test('a client gets the original file only if it can play it', async () => {
  const { error } = await openDirect(path.join(media, 'mpeg4_mp3.avi'), { headers: { 'User-Agent': 'Mozilla/5.0 Firefox/120.0' } });
  assert.equal(error.reason, 'TransVideoNotSupported');
  assert.match(error.message, /avi/);
  assert.deepEqual(service.streamFolders(), []);
});

test('a direct stream needs no transcoder and appears in the status', async () => {
  const { data: stream } = await openDirect(film);
  const { data: state } = await service.call('Streaming', 'state', { format: 'direct', stream_id: stream.stream_id });
  const { why, times, ...facts } = state;
  assert.equal(typeof why, 'string');
  assert.ok(times.probe >= 0 && times.admission >= 0 && times.prepare >= 0, JSON.stringify(times));
  assert.deepEqual(facts, { method: 'direct', profile: 'direct', duration: 60, transcoder: null, can_encode: true });
  const response = await fetch(stream.url, { headers: { Range: `bytes=${Math.floor(stream.size / 2)}-` } });
  await response.arrayBuffer();
  const { data } = await service.call('Status', 'get');
  const told = data.streams.find((entry) => entry.stream_id === stream.stream_id);
  assert.equal(told.method, 'direct');
  assert.ok(Math.abs(told.position - 30) <= 1, `at ${told.position}`);
  assert.ok(told.idle_seconds < 30);
  await service.call('Streaming', 'close', { format: 'direct', stream_id: stream.stream_id });
  const { recent } = (await service.call('Status', 'get')).data;
  assert.deepEqual(recent.slice(0, 2).map(({ event, kind }) => `${kind} ${event}`), ['DIRECT closed', 'DIRECT opened']);
  assert.ok(recent.length <= 50);
});

test('a segment has a tag and ranges, a playlist is not cached', async () => {
  const { data: stream } = await service.call('Streaming', 'open', { format: 'hls', path: film });
  const master = await fetch(stream.url);
  assert.match(master.headers.get('cache-control'), /no-cache/);
  assert.equal((await fetch(stream.url, { headers: { 'If-None-Match': master.headers.get('etag') } })).status, 304);
  const address = service.query('Streaming', 'stream', { format: 'hls', stream_id: stream.stream_id, fragment_id: 0 });
  const segment = await fetch(address);
  assert.equal(segment.status, 200);
  assert.match(segment.headers.get('cache-control'), /^private, max-age=\d+$/);
  const bytes = Buffer.from(await segment.arrayBuffer());
  const part = await fetch(address, { headers: { Range: 'bytes=188-375', 'If-Range': segment.headers.get('etag') } });
  assert.equal(part.status, 206);
  assert.deepEqual(Buffer.from(await part.arrayBuffer()), bytes.subarray(188, 376));
  const { data: state } = await service.call('Streaming', 'state', { format: 'hls', id: JSON.stringify(stream.stream_id) });
  assert.equal(state.method, 'remux');
  assert.match(state.why, /^The video is copied/);
  await service.call('Streaming', 'close', { format: 'hls', id: JSON.stringify(stream.stream_id) });
  await service.isQuiet();
});

test('each request for a stream counts as its use', async () => {
  for (const format of ['http', 'hls', 'direct']) {
    const { data: stream } = await (
      await fetch(service.query('Streaming', 'open', { format, path: film }), player)
    ).json();
    const kind = { http: 'HTTP', hls: 'HLS', direct: 'DIRECT' }[format];
    const mark = path.join(service.root, 'tmp/Mirevo', kind, stream.stream_id, 'access_status');
    for (const method of ['HEAD', 'GET']) {
      if (fs.existsSync(mark)) fs.utimesSync(mark, 1, 1);
      const response = await fetch(stream.url, { method });
      assert.ok(fs.statSync(mark).mtimeMs > 1000, `${method} ${format}`);
      await response.body?.cancel();
    }
    await service.call('Streaming', 'close', { format, stream_id: stream.stream_id });
  }
  await service.isQuiet();
});

test('a viewer who finds no free transcoder is told when to try again', async () => {
  const first = await service.open(path.join(media, 'vp9_opus.webm'));
  const response = await fetch(first.url);
  await eventually(() => (service.registry().length === 1 ? true : undefined));
  const busy = await service.call('Streaming', 'open', { format: 'http', path: path.join(media, 'mpeg2_mp2.ts') });
  assert.equal(busy.status, 503);
  assert.equal(busy.headers.get('retry-after'), String(busy.error.retry_after));
  assert.ok(busy.error.retry_after > 0);
  const { data: state } = await service.call('Streaming', 'state', { format: 'http', stream_id: first.stream_id });
  assert.equal(state.method, 'transcode');
  assert.ok(state.transcoder.pid > 0);
  assert.ok(state.transcoder.cpu_seconds >= 0);
  await response.body.cancel();
  await service.close(first);
  await service.isQuiet();
});
