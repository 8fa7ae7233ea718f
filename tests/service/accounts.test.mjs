// Access to a running service: accounts, sessions, links, foreign pages and addresses.
import assert from 'node:assert/strict';
import { execFile, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';

import { build, media, readSome, Service } from './support.mjs';

const run = promisify(execFile);
const transcode = { profile: 'http_mp4_240p_vb300_ab96' };
const password = (name) => `${name}'s "pass" & word`;
const foreign = 'https://tv.example';
let folder; // contains a media root that only anna sees, and one that bob sees too
let service;
let anna;
let bob;

// A client that has logged in.
class Viewer {
  constructor(where, name, login) {
    Object.assign(this, { where, name, sid: login?._sid ?? '' });
  }

  static async login(where, name, words = password(name)) {
    return new Viewer(where, name, (await post(where, 'Auth', 'login', { account: name, passwd: words })).data);
  }

  call(api, method, parameters) {
    return this.where.call(api, method, { ...parameters, _sid: this.sid });
  }

  async open(name, parameters) {
    const answer = await this.call('Streaming', 'open', { format: 'http', path: path.join(folder, name), ...parameters });
    assert.ok(answer.success, JSON.stringify(answer.error));
    return answer.data;
  }

  close({ format, stream_id }) {
    return this.call('Streaming', 'close', { format, stream_id });
  }
}

async function post(where, api, method, parameters = {}, headers = {}) {
  const body = new URLSearchParams({ api: `ORVO.Mirevo2.${api}`, version: 1, method, ...parameters });
  const response = await fetch(`${where.address}/webapi/entry.cgi`, { method: 'POST', body, headers });
  return { status: response.status, headers: response.headers, ...(await response.json()) };
}

// Sends a request with exactly these headers; fetch would not allow that.
async function raw(address, { method = 'GET', headers = {} } = {}) {
  const request = http.request(address, { method, headers }).end();
  const [response] = await once(request, 'response');
  const chunks = await response.toArray();
  return { status: response.statusCode, headers: response.headers, text: Buffer.concat(chunks).toString() };
}

// The status of a request for the address without any session.
async function alone(address) {
  const response = await fetch(address);
  await response.body.cancel();
  return response.status;
}

async function refuses(call, status) {
  const answer = await call;
  assert.equal(answer.status, status, JSON.stringify(answer));
  return answer;
}

const sessionFiles = () => fs.readdirSync(path.join(service.root, 'run/mirevo/sessions'));

before(async () => {
  folder = fs.mkdtempSync(path.join(media, '../accounts-'));
  for (const name of ['anna', 'shared', 'shared/deep']) fs.mkdirSync(path.join(folder, name));
  for (const name of ['anna/secret.mkv', 'shared/film.mkv', 'shared/deep/film.mkv']) {
    fs.copyFileSync(path.join(media, 'h264_ac3.mkv'), path.join(folder, name));
  }
  for (const name of ['anna/secret.srt', 'shared/film.srt']) {
    fs.writeFileSync(path.join(folder, name), '1\n00:00:01,000 --> 00:00:02,000\nHello\n');
  }
  fs.symlinkSync(path.join(folder, 'anna/secret.mkv'), path.join(folder, 'shared/link.mkv'));
  service = Service.prepare();
  service.account(['add', 'anna'], password('anna'));
  service.account(['add', 'bob', '--root', path.join(folder, 'shared')], password('bob'));
  await service.serve([path.join(folder, 'anna'), path.join(folder, 'shared')], ['--host', 'films.lan', '--allow-origin', foreign]);
  anna = await Viewer.login(service, 'anna');
  bob = await Viewer.login(service, 'bob');
});

after(async () => {
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});

test('without a login the page and who answer, and other calls are refused', async () => {
  assert.equal(await alone(`${service.address}/`), 200);
  const { data } = await service.call('Auth', 'who');
  assert.deepEqual(data, { login_required: true, account: '', owner: false, first_start: 'none' });
  const film = path.join(folder, 'shared/film.mkv');
  for (const [api, method, parameters] of [
    ['Library', 'list', {}],
    ['Library', 'info', { path: film }],
    ['Streaming', 'open', { format: 'http', path: film }],
    ['Streaming', 'stream', { format: 'http', stream_id: `${'0'.repeat(32)}_AAAAAAAA` }],
    ['Streaming', 'close', { format: 'http', stream_id: `${'0'.repeat(32)}_AAAAAAAA` }],
    ['Subtitle', 'get', { id: `${'0'.repeat(32)}_AAAAAAAA` }],
    ['Status', 'get', {}],
  ]) {
    const { error } = await refuses(service.call(api, method, parameters), 401);
    assert.equal(error.reason, 'Unauthorized');
  }
  assert.deepEqual(service.streamFolders(), []);
});

test('a login gives a session that works as a parameter and as a cookie', async () => {
  const { status, data, headers } = await post(service, 'Auth', 'login', { account: 'bob', passwd: password('bob') });
  assert.equal(status, 200);
  assert.match(data._sid, /^[\w-]{43}$/);
  assert.deepEqual([data.account, data.owner], ['bob', false]);
  assert.ok(data.expires > Date.now() / 1000 + 86400);
  const [value, ...attributes] = headers.get('set-cookie').split('; ');
  assert.equal(value, `_sid=${data._sid}`);
  for (const attribute of ['HttpOnly', 'SameSite=Strict', 'Path=/']) assert.ok(attributes.includes(attribute), attribute);
  const who = (parameters, cookie) =>
    raw(service.query('Auth', 'who', parameters), { headers: cookie ? { Cookie: cookie } : {} }).then(({ text }) => JSON.parse(text).data.account);
  assert.equal(await who({ _sid: data._sid }), 'bob');
  assert.equal(await who({ _sid: JSON.stringify(data._sid) }), 'bob');
  assert.equal(await who({}, `_sid=${data._sid}`), 'bob');
  assert.equal(await who({}, `a=1; x_sid=${anna.sid}; _sid=${data._sid}; b=2`), 'bob');
  assert.equal(await who({}, `a=_sid=${data._sid}`), '');
});

test('a wrong password and a wrong name get the same answer', async () => {
  const wrong = await refuses(post(service, 'Auth', 'login', { account: 'bob', passwd: 'wrong password' }), 401);
  const unknown = await refuses(post(service, 'Auth', 'login', { account: 'bobby', passwd: password('bob') }), 401);
  assert.deepEqual(wrong.error, unknown.error);
  assert.equal(wrong.headers.get('set-cookie'), null);
});

test('a login is refused in an address', async () => {
  const answer = await service.call('Auth', 'login', { account: 'bob', passwd: password('bob') });
  assert.equal(answer.status, 405);
  assert.match(answer.headers.get('allow'), /POST/);
});

test('a logout ends the session and deletes the cookie', async () => {
  const viewer = await Viewer.login(service, 'bob');
  await refuses(viewer.call('Auth', 'logout'), 405);
  const { headers } = await refuses(post(service, 'Auth', 'logout', { _sid: viewer.sid }), 200);
  assert.match(headers.get('set-cookie'), /^_sid=; .*Max-Age=0/);
  await refuses(viewer.call('Library', 'list'), 401);
  await refuses(bob.call('Library', 'list'), 200);
});

test('a session ends after a month without use', async () => {
  const known = sessionFiles();
  const viewer = await Viewer.login(service, 'bob');
  await refuses(viewer.call('Library', 'list'), 200);
  const [file] = sessionFiles().filter((name) => !known.includes(name));
  const then = Date.now() / 1000 - 31 * 86400;
  fs.utimesSync(path.join(service.root, 'run/mirevo/sessions', file), then, then);
  await refuses(viewer.call('Library', 'list'), 401);
  assert.ok(!sessionFiles().includes(file));
});

test('a new password ends the sessions and the links of an account', async () => {
  service.account(['add', 'carl'], password('carl'));
  const carl = await Viewer.login(service, 'carl');
  const stream = await carl.open('shared/film.mkv', { format: 'hls' });
  assert.equal(await alone(stream.url), 200);
  service.account(['passwd', 'carl'], 'quite another one');
  await refuses(carl.call('Library', 'list'), 401);
  assert.equal(await alone(stream.url), 401);
  const again = await Viewer.login(service, 'carl', 'quite another one');
  await refuses(again.close(stream), 200);
  service.account(['remove', 'carl']);
  await refuses(again.call('Library', 'list'), 401);
});

test('invalid ids give no access and touch nothing', async () => {
  const marker = path.join(service.root, 'run/mirevo/marker');
  fs.writeFileSync(marker, 'here');
  const sessions = sessionFiles();
  for (const id of ['"', '""', '../marker', '../../../../etc/passwd', 'a'.repeat(43), 'a'.repeat(4000), `${bob.sid}x`, `${bob.sid}\n`, ` ${bob.sid}`, '[]', '{"a":1}', "' or 1", '%00', sessions[0]]) {
    await refuses(service.call('Library', 'list', { _sid: id }), 401);
    await refuses(post(service, 'Auth', 'logout', { _sid: id }), 200);
    if (/^[\x20-\x7e]+$/.test(id)) {
      assert.equal((await raw(service.query('Library', 'list'), { headers: { Cookie: `_sid=${id}x` } })).status, 401);
    }
  }
  for (const name of ['', '../anna', 'a'.repeat(60000 / 8), '{"$ne":1}', 'anna\n', 'ANNA']) {
    await refuses(post(service, 'Auth', 'login', { account: name, passwd: password('anna') }), 401);
  }
  assert.deepEqual(sessionFiles(), sessions);
  assert.equal(fs.readFileSync(marker, 'utf8'), 'here');
});

test('the link of a progressive stream plays it and opens nothing else', async () => {
  const stream = await bob.open('shared/film.mkv', transcode);
  const other = await bob.open('shared/deep/film.mkv', { format: 'hls' });
  const link = new URL(stream.url).searchParams.get('_sid');
  assert.match(link, /^[\w-]{43}$/);
  assert.notEqual(link, bob.sid);
  const response = await fetch(stream.url);
  assert.equal(response.status, 200);
  assert.ok((await readSome(response, 10000)).length >= 10000);
  await response.body.cancel();
  const id = stream.stream_id;
  const subtitle = path.join(folder, 'shared/film.srt');
  await refuses({ status: await alone(service.query('Subtitle', 'get', { id, subtitle_id: subtitle, _sid: link })) }, 200);

  const film = path.join(folder, 'shared/film.mkv');
  const both = { id: other.stream_id, stream_id: id, format: 'hls', _sid: link };
  for (const [api, method, parameters, status] of [
    ['Library', 'list', {}, 401],
    ['Library', 'info', { path: film }, 401],
    ['Streaming', 'open', { format: 'http', path: film }, 401],
    ['Streaming', 'open', { format: 'http', path: film, stream_id: id }, 401],
    ['Streaming', 'close', { format: 'http', stream_id: id }, 401],
    ['Streaming', 'stream', { format: 'hls', stream_id: other.stream_id }, 401],
    ['Subtitle', 'get', { id: other.stream_id, subtitle_id: subtitle }, 401],
    ['Status', 'get', { stream_id: id }, 401],
  ]) {
    await refuses(service.call(api, method, { ...parameters, _sid: link }), status);
  }
  // If a request has two names for the stream, the link is checked against the one that is used.
  const { status } = await service.call('Streaming', 'close', { ...both, stream_id: other.stream_id, id });
  assert.equal(status, 401);
  assert.equal(await alone(service.query('Subtitle', 'get', { ...both, subtitle_id: subtitle })), 200);
  const swapped = { ...both, id, stream_id: other.stream_id, subtitle_id: subtitle };
  assert.equal(await alone(service.query('Subtitle', 'get', swapped)), 401);
  assert.equal((await service.call('Auth', 'who', { stream_id: id, _sid: link })).data.account, '');
  await bob.close(other);

  await bob.close(stream);
  assert.equal(await alone(stream.url), 401);
});

test('every address of a segmented stream carries its link', async () => {
  const stream = await bob.open('shared/film.mkv', { format: 'hls', profile: 'hls_240p_vb300_ab96', subtitle_id: 'all' });
  const seen = [];
  const visit = async (address) => {
    const response = await fetch(address);
    assert.equal(response.status, 200, address);
    const text = await response.text();
    seen.push(address);
    if (!text.startsWith('#EXTM3U')) return;
    const next = [...text.matchAll(/^[^#\n].*$|URI="([^"]*)"/gm)].map(([line, uri]) => uri ?? line);
    // The first segments are enough for this check.
    for (const piece of next.slice(0, 3)) await visit(new URL(piece, address).href);
  };
  await visit(stream.url);
  for (const kind of ['playlist_type=video', 'playlist_type=subtitle', 'segment.ts', 'subtitle.vtt']) {
    assert.ok(seen.some((address) => address.includes(kind)), `${kind} in ${seen}`);
  }
  await bob.close(stream);
  for (const address of seen) assert.equal(await alone(address), 401, address);
  await service.isQuiet();
});

test('a Smooth manifest and a WebM stream are opened by their links', async () => {
  const smooth = await bob.open('shared/film.mkv', { format: 'ss' });
  const manifest = await (await fetch(smooth.url)).text();
  assert.ok(manifest.includes(`_sid=%22${new URL(smooth.url).searchParams.get('_sid')}%22`), manifest);
  await bob.close(smooth);
  const webm = await bob.open('shared/film.mkv', { format: 'webm' });
  assert.equal((await fetch(webm.url, { method: 'HEAD' })).status, 200);
  await bob.close(webm);
  assert.deepEqual([await alone(smooth.url), await alone(webm.url)], [401, 401]);
});

test('a joined stream keeps its link', async () => {
  const stream = await bob.open('shared/film.mkv', { format: 'hls' });
  const joined = await bob.open('shared/film.mkv', { format: 'hls', stream_id: stream.stream_id });
  assert.equal(joined.url, stream.url);
  const byOwner = await anna.open('shared/film.mkv', { format: 'hls', stream_id: stream.stream_id });
  assert.equal(byOwner.url, stream.url);
  await bob.close(stream);
});

test('only its account and an owner can use a stream', async () => {
  service.account(['add', 'dora'], password('dora'));
  const dora = await Viewer.login(service, 'dora');
  const stream = await bob.open('shared/film.mkv', { format: 'hls' });
  const { stream_id, format } = stream;
  const film = path.join(folder, 'shared/film.mkv');
  const subtitle = { id: stream_id, subtitle_id: path.join(folder, 'shared/film.srt') };
  for (const [api, method, parameters] of [
    ['Streaming', 'stream', { format, stream_id }],
    ['Streaming', 'stream', { format, id: stream_id }],
    ['Streaming', 'close', { format, stream_id }],
    ['Streaming', 'open', { format, stream_id, path: film }],
    ['Subtitle', 'get', subtitle],
  ]) {
    await refuses(dora.call(api, method, parameters), 403);
  }
  assert.equal(await alone(stream.url), 200);
  await refuses(anna.close(stream), 200);
  assert.equal(await alone(stream.url), 401);
  service.account(['remove', 'dora']);
});

test('an account and its links reach only its media folders', async () => {
  const { data } = await bob.call('Library', 'list');
  assert.deepEqual(data.folders.map(({ path: name }) => name), [path.join(folder, 'shared')]);
  const shared = await bob.call('Library', 'list', { path: path.join(folder, 'shared') });
  assert.deepEqual(shared.data.files.map(({ name }) => name), ['film.mkv'], 'a link that leads out is not there');
  for (const name of ['anna', 'anna/secret.mkv', 'anna/nothing.mkv', 'shared/link.mkv', 'shared/../anna/secret.mkv', '']) {
    await refuses(bob.call('Library', 'info', { path: path.join(folder, name) }), 403);
    await refuses(bob.call('Streaming', 'open', { format: 'http', path: path.join(folder, name) }), 403);
  }
  await refuses(anna.call('Library', 'info', { path: path.join(folder, 'anna/secret.mkv') }), 200);

  const stream = await bob.open('shared/film.mkv', { format: 'hls' });
  service.account(['grant', 'bob', path.join(folder, 'shared/deep')]);
  const { data: less } = await bob.call('Library', 'list');
  assert.deepEqual(less.folders.map(({ path: name }) => name), [path.join(folder, 'shared/deep')]);
  await refuses(bob.call('Library', 'list', { path: path.join(folder, 'shared') }), 403);
  await refuses(bob.call('Streaming', 'stream', { format: 'hls', stream_id: stream.stream_id }), 403);
  assert.equal(await alone(stream.url), 403);
  service.account(['grant', 'bob', path.join(folder, 'shared')]);
  assert.equal(await alone(stream.url), 200);
  service.account(['grant', 'bob', path.join(folder, 'shared/deep')]);
  await refuses(bob.close(stream), 200);
  service.account(['grant', 'bob', path.join(folder, 'shared')]);
});

test('an account whose media folder is gone sees nothing', async () => {
  const gone = path.join(folder, 'shared/gone');
  fs.mkdirSync(gone);
  service.account(['grant', 'bob', gone]);
  fs.rmdirSync(gone);
  const { data } = await bob.call('Library', 'list');
  assert.deepEqual([...data.folders, ...data.files], []);
  await refuses(bob.call('Library', 'info', { path: path.join(folder, 'shared/film.mkv') }), 403);
  service.account(['grant', 'bob', path.join(folder, 'shared')]);
});

test('only an owner sees the status and the rules for conversions', async () => {
  await refuses(bob.call('Status', 'get'), 403);
  await refuses(anna.call('Status', 'get'), 200);
  await refuses(bob.call('Conversion', 'list_rules'), 403);
  await refuses(anna.call('Conversion', 'list_rules'), 200);
  const { stdout } = await run(path.join(build, 'target/bin/mirevo'), ['status'], { env: service.environment });
  assert.match(stdout, /0 streams/, 'the user who runs the service needs no password on its machine');
});

test('a request under a foreign host name gets neither page nor answer', async () => {
  const { port } = new URL(service.address);
  const status = async (host, address) => (await raw(address, { headers: { Host: host } })).status;
  for (const host of [`localhost:${port}`, `127.0.0.1:${port}`, `[::1]:${port}`, 'films.lan', 'Films.LAN:1']) {
    assert.equal(await status(host, `${service.address}/`), 200, host);
    assert.equal(await status(host, service.query('Auth', 'who')), 200, host);
  }
  for (const host of ['evil.example', `evil.example:${port}`, 'localhost:1', `127.0.0.1.evil.example:${port}`, 'films.lan.evil.example', `192.0.2.7:${port}`]) {
    assert.equal(await status(host, `${service.address}/`), 403, host);
    assert.equal(await status(host, `${service.address}/player.js`), 403, host);
    assert.equal(await status(host, service.query('Auth', 'who')), 403, host);
  }
});

test('pages of other servers reach nothing, whichever headers the browser sends', async () => {
  const open = service.query('Streaming', 'open', { format: 'http', path: path.join(folder, 'shared/film.mkv') });
  const cookie = { Cookie: `_sid=${bob.sid}` };
  for (const headers of [
    { Origin: 'https://evil.example' },
    { Origin: 'null' },
    { Origin: `${foreign}.evil.example` },
    { Origin: service.address.replace('http', 'https') },
    { 'Sec-Fetch-Site': 'cross-site', 'Sec-Fetch-Mode': 'no-cors', 'Sec-Fetch-Dest': 'image' },
    { 'Sec-Fetch-Site': 'cross-site', 'Sec-Fetch-Mode': 'navigate' },
    { 'Sec-Fetch-Site': 'same-site', 'Sec-Fetch-Mode': 'no-cors', 'Sec-Fetch-Dest': 'video' },
    { Referer: 'https://evil.example/page' },
  ]) {
    const answer = await raw(open, { headers: { ...headers, ...cookie } });
    assert.equal(answer.status, 403, JSON.stringify(headers));
    assert.equal(answer.headers['access-control-allow-origin'], undefined);
    assert.equal((await raw(open, { method: 'OPTIONS', headers })).status, 403);
    await refuses(post(service, 'Auth', 'login', { account: 'bob', passwd: password('bob') }, headers), 403);
  }
  assert.deepEqual(service.streamFolders(), []);
  for (const headers of [{}, { Origin: service.address }, { 'Sec-Fetch-Site': 'same-origin' }, { 'Sec-Fetch-Site': 'none', 'Sec-Fetch-Mode': 'navigate' }]) {
    const { status } = await raw(service.query('Library', 'list'), { headers: { ...headers, ...cookie } });
    assert.equal(status, 200, JSON.stringify(headers));
  }
});

test('a page on the list plays a link and reads the answers', async () => {
  const stream = await bob.open('shared/film.mkv', { format: 'hls' });
  for (const address of [stream.url, service.query('Auth', 'who'), service.query('Status', 'get')]) {
    const { headers } = await raw(address, { headers: { Origin: foreign } });
    assert.equal(headers['access-control-allow-origin'], foreign);
    assert.equal(headers.vary, 'Origin');
    assert.equal(headers['access-control-allow-credentials'], undefined);
  }
  // A media element names its page in the Referer, if at all.
  const embedded = { 'Sec-Fetch-Site': 'cross-site', 'Sec-Fetch-Mode': 'no-cors', Referer: `${foreign}/` };
  assert.equal((await raw(stream.url, { headers: embedded })).status, 200);
  await bob.close(stream);
});

test('OPTIONS names the allowed methods, headers and origins', async () => {
  const address = `${service.address}/webapi/entry.cgi`;
  const plain = await raw(address, { method: 'OPTIONS' });
  assert.equal(plain.status, 204);
  assert.equal(plain.headers.allow, 'GET, HEAD, POST, OPTIONS');
  assert.equal(plain.headers['access-control-allow-origin'], undefined);
  const asked = { Origin: foreign, 'Access-Control-Request-Method': 'POST', 'Access-Control-Request-Headers': 'range' };
  const preflight = await raw(address, { method: 'OPTIONS', headers: asked });
  assert.equal(preflight.status, 204);
  assert.equal(preflight.headers['access-control-allow-origin'], foreign);
  assert.match(preflight.headers['access-control-allow-methods'], /POST/);
  assert.match(preflight.headers['access-control-allow-headers'], /Range/);
  assert.ok(Number(preflight.headers['access-control-max-age']) > 0);
  for (const method of ['PUT', 'DELETE', 'PATCH']) {
    const answer = await raw(address, { method });
    assert.equal(answer.status, 405);
    assert.match(answer.headers.allow, /GET/);
  }
});

test('answers carry the headers that protect pages', async () => {
  for (const address of [`${service.address}/`, service.query('Auth', 'who')]) {
    const { headers } = await raw(address);
    assert.equal(headers['x-content-type-options'], 'nosniff');
    assert.equal(headers['x-frame-options'], 'DENY');
    assert.match(headers['content-security-policy'], /frame-ancestors 'none'/);
    assert.equal(headers['referrer-policy'], 'same-origin');
  }
});

test('a client that guesses passwords must wait, and no other client', async () => {
  // A new service, because the client's address has a limit of its own too.
  const own = Service.prepare();
  for (const name of ['eve', 'bob']) own.account(['add', name], password(name));
  await own.serve([folder]);
  const guess = () => post(own, 'Auth', 'login', { account: 'eve', passwd: 'a wrong guess' });
  let answer = await guess();
  for (let i = 0; i < 15 && answer.status === 401; ++i) answer = await guess();
  assert.equal(answer.status, 429);
  assert.equal(answer.error.reason, 'TooManyRequests');
  const wait = Number(answer.headers.get('retry-after'));
  assert.ok(wait > 0 && wait <= 60, wait);
  await refuses(post(own, 'Auth', 'login', { account: 'eve', passwd: password('eve') }), 429);
  await refuses(post(own, 'Auth', 'login', { account: 'bob', passwd: password('bob') }), 200);
  await own.stop();
});

test('the service listens beyond this machine only with accounts', async () => {
  const own = Service.prepare();
  const refused = spawnSync(
    path.join(build, 'target/bin/mirevo-serve'),
    ['--no-browser', '--port', '0', '--listen', '0.0.0.0', '--', folder],
    { env: own.environment, encoding: 'utf8' },
  );
  assert.equal(refused.status, 1);
  assert.match(refused.stderr, /^Listening on 0\.0\.0\.0 needs an account; make one with .*mirevo account add NAME\n$/);
  own.account(['add', 'anna'], password('anna'));
  await own.serve([folder], ['--listen', '0.0.0.0', '--listen', '::1']);
  const { port } = new URL(own.address);
  for (const host of ['127.0.0.1', '[::1]', 'localhost']) {
    assert.equal(await alone(`http://${host}:${port}/`), 200, host);
  }
  own.address = `http://127.0.0.1:${port}`;
  const { sid } = await Viewer.login(own, 'anna');
  assert.ok(sid);
  // A player on another machine gets an address that it can reach, if this machine has a network.
  const [network] = Object.values(os.networkInterfaces()).flat().filter(({ family, internal, address }) => family === 'IPv4' && !internal && !address.startsWith('169.254.'));
  const film = path.join(folder, 'shared/film.mkv');
  const { data } = await own.call('Streaming', 'open', { format: 'http', path: film, _sid: sid });
  assert.equal(data.network_url, network && data.url.replace('127.0.0.1', network.address));
  own.account(['remove', 'anna']);
  await refuses(own.call('Library', 'list'), 401);
  assert.equal((await own.call('Auth', 'who')).data.login_required, true);
  await own.stop();
});

test('a service without accounts needs no login and still refuses foreign pages', async () => {
  const own = await Service.start([folder]);
  assert.deepEqual((await own.call('Auth', 'who')).data, { login_required: false, account: '', owner: true, first_start: 'none' });
  await refuses(post(own, 'Auth', 'login', { account: 'anna', passwd: password('anna') }), 400);
  const stream = await own.open(path.join(folder, 'shared/film.mkv'), { format: 'hls' });
  assert.equal(new URL(stream.url).searchParams.has('_sid'), false);
  assert.doesNotMatch(await (await fetch(stream.url)).text(), /_sid/);
  for (const address of [stream.url, own.query('Status', 'get'), own.query('Library', 'list')]) {
    const { status } = await raw(address, { headers: { 'Sec-Fetch-Site': 'cross-site', 'Sec-Fetch-Dest': 'video' } });
    assert.equal(status, 403, address);
  }
  await refuses(own.call('Status', 'get'), 200);
  await own.stop();
});

test('with a certificate the service speaks only HTTPS, and players play', async () => {
  const own = Service.prepare();
  const certificate = path.join(own.root, 'certificate.pem');
  const key = path.join(own.root, 'key.pem');
  await run('openssl', [
    'req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-days', '2',
    '-subj', '/CN=localhost', '-addext', 'subjectAltName=DNS:localhost,IP:127.0.0.1', '-keyout', key, '-out', certificate,
  ]);
  own.account(['add', 'anna'], password('anna'));
  await own.serve([folder], ['--certificate', certificate, '--key', key]);
  assert.match(own.address, /^https:/);
  const curl = async (...words) =>
    (await run('curl', ['-sS', '--include', '--cacert', certificate, ...words])).stdout;

  assert.match(await curl(`${own.address}/`), /\r\nStrict-Transport-Security: max-age=\d{7,}\r\n/);
  await assert.rejects(curl('--tls-max', '1.1', `${own.address}/`));
  await assert.rejects(fetch(own.address.replace('https', 'http')));
  const form = { api: 'ORVO.Mirevo2.Auth', version: '1', method: 'login', account: 'anna', passwd: password('anna') };
  const fields = Object.entries(form).flatMap(([name, value]) => ['--data-urlencode', `${name}=${value}`]);
  const login = await curl(...fields, `${own.address}/webapi/entry.cgi`);
  assert.match(login, /\r\nSet-Cookie: _sid=[^\r]*; Secure\r\n/);
  const { data } = JSON.parse(login.slice(login.indexOf('\r\n\r\n')));
  for (const format of ['hls', 'http']) {
    const opened = await curl(own.query('Streaming', 'open', {
      format, path: path.join(folder, 'shared/film.mkv'), _sid: data._sid, profile: `${format === 'hls' ? 'hls' : 'http_mp4'}_240p_vb300_ab96`,
    }));
    const stream = JSON.parse(opened.slice(opened.indexOf('\r\n\r\n'))).data;
    assert.ok(stream.url.startsWith(`${own.address}/`));
    const { stderr } = await run('ffmpeg', ['-v', 'error', '-tls_verify', '1', '-ca_file', certificate, '-t', '2', '-i', stream.url, '-f', 'null', '-']);
    assert.equal(stderr, '');
    await curl(own.query('Streaming', 'close', { format, stream_id: stream.stream_id, _sid: data._sid }));
  }
  const { stdout } = await run(path.join(build, 'target/bin/mirevo'), ['status'], { env: own.environment });
  assert.match(stdout, /0 streams/);
  await own.stop();
});
