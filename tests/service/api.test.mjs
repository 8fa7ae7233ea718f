// The web API against a running service: good, missing, wrong and hostile parameters.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { media, Service } from './support.mjs';

const film = path.join(media, 'h264_ac3.mkv');
let service;
let folder; // a media root with odd names, inside the service's own root

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

test('info says what each profile would do and why', async () => {
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

test('quotes around a value that holds quotes are only quotes', async () => {
  const name = 'a "b" & <c>\n%s.mkv';
  const answer = await service.call('Library', 'info', { path: `"${path.join(folder, name)}"` });
  assert.equal(answer.data.metadata.path, path.join(fs.realpathSync(folder), name));
});

test('a name that is not UTF-8 is refused with a sentence', async () => {
  const { data } = await service.call('Library', 'list', { path: folder });
  const entry = data.files.find(({ encoded_path: encoded }) => encoded.includes('%E9'));
  const response = await fetch(`${service.query('Streaming', 'open', { format: 'http' })}&path=${entry.encoded_path}`);
  assert.equal(response.status, 400);
  assert.match((await response.json()).error.message, /UTF-8/);
});

test('paths are only served from below a media root', async () => {
  await refuses(open({ path: '/etc/passwd' }), 403, 'Forbidden');
  await refuses(open({ path: '/etc/nothing' }), 403, 'Forbidden');
  await refuses(open({ path: `${media}/../../../../../../../../etc/passwd` }), 403, 'Forbidden');
  await refuses(open({ path: path.join(folder, 'leads out.mkv') }), 403, 'Forbidden');
  await refuses(service.call('Library', 'list', { path: '/' }), 403, 'Forbidden');
  await refuses(service.call('Library', 'info', { path: '/etc/passwd' }), 403, 'Forbidden');
});

test('what is no film is refused', async () => {
  await refuses(open({ path: `${media}/nothing.mkv` }), 404, 'NotFound');
  await refuses(open({ path: media }), 400, 'BadRequest');
  await refuses(open({ path: 'h264_ac3.mkv' }), 400, 'BadRequest');
  await refuses(open({}), 400, 'BadRequest');
  for (const name of ['zeros.mkv', 'text.mkv', 'empty.mkv', 'truncated.mp4', 'playlist.mkv', 'script.mkv', 'no_video.mka']) {
    await refuses(open({ path: path.join(media, name) }), 415, 'TransVideoNotSupported');
  }
});

test('calls that are not calls are refused', async () => {
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

test('ids that are not ids touch nothing', async () => {
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

test('a form says the same as a query, plain or as JSON texts', async () => {
  const body = new URLSearchParams({ api: '"ORVO.Mirevo2.Library"', version: 1, method: 'info', path: JSON.stringify(film) });
  const response = await fetch(`${service.address}/webapi/entry.cgi`, { method: 'POST', body });
  const { data } = await response.json();
  assert.equal(data.metadata.path, fs.realpathSync(film));
});

test('a body that is no form, or too long, is refused', async () => {
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

test('the page and nothing beside it is served', async () => {
  const page = await fetch(`${service.address}/`);
  assert.equal(page.status, 200);
  assert.match(page.headers.get('content-type'), /^text\/html/);
  for (const outside of ['/webapi/../../../etc/passwd', '/..%2f..%2fetc/passwd', '/webapi/', '/etc/passwd']) {
    assert.ok((await fetch(`${service.address}${outside}`)).status >= 400, outside);
  }
});
