// The service behind a reverse proxy on this machine. The tests speak as the proxy does.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { build, media, Service } from './support.mjs';

const NAME = 'films.example';
const film = path.join(media, 'h264_aac.mp4');

let trusting; // a service that knows the proxy
let plain; // one that does not

async function startService(options) {
  const service = Service.prepare();
  await service.serve([media], ['--host', NAME, ...options]);
  return service;
}

before(async () => {
  trusting = await startService(['--proxy', '127.0.0.1']);
  plain = await startService([]);
});
after(async () => {
  await trusting?.finish();
  await plain?.finish();
});

// A call that the proxy passes on, from a client with this address and over HTTPS. Returns { status, data }.
function pass(service, [api, method, parameters], client, headers = {}) {
  const body = new URLSearchParams({ api: `ORVO.Mirevo2.${api}`, version: 1, method, ...parameters }).toString();
  const told = { Host: NAME, 'X-Forwarded-For': client, 'X-Forwarded-Proto': 'https', 'Content-Type': 'application/x-www-form-urlencoded', 'Content-Length': body.length };
  return new Promise((resolve, reject) => {
    const request = http.request(`${service.address}/webapi/entry.cgi`, { method: 'POST', headers: { ...told, ...headers } }, async (response) => {
      const parts = [];
      for await (const part of response) parts.push(part);
      resolve({ status: response.statusCode, data: JSON.parse(Buffer.concat(parts)).data });
    });
    request.on('error', reject);
    request.end(body);
  });
}

// Opens and closes a film. Returns its address.
async function openFilm(service, client) {
  const { data } = await pass(service, ['Streaming', 'open', { format: 'direct', path: film }], client);
  await pass(service, ['Streaming', 'close', { format: 'direct', stream_id: data.stream_id }], client);
  return data.url;
}

// How many clients the service takes for different ones when films are opened from these addresses, each told in the
// header. The service keeps a list of streams for each of its clients.
async function clientsOf(service, ...addresses) {
  const folder = path.join(service.root, 'tmp/Mirevo/tickets');
  const lists = () => (fs.existsSync(folder) ? fs.readdirSync(folder).filter((name) => name.startsWith('.of-')) : []);
  lists().forEach((name) => fs.rmSync(path.join(folder, name)));
  for (const address of addresses) await openFilm(service, address);
  return lists().length;
}

for (const client of ['203.0.113.1', '127.0.0.1']) {
  test(`addresses for ${client} are those of the proxy’s encrypted side`, async () => {
    const url = await openFilm(trusting, client);
    assert.ok(url.startsWith(`https://${NAME}/webapi/`), url);
  });
}

test('pages of the proxy’s encrypted side are the server’s own, others are not', async () => {
  const statusFor = async (origin) => (await pass(trusting, ['Auth', 'who'], '203.0.113.1', { Origin: origin })).status;
  assert.deepEqual(await Promise.all([`https://${NAME}`, `http://${NAME}`, 'https://other.example'].map(statusFor)), [200, 403, 403]);
});

test('the clients of the proxy are different ones', async () => {
  assert.equal(await clientsOf(trusting, '203.0.113.7', '203.0.113.8', '2001:db8::1'), 3);
});

test('a client of the proxy cannot choose its address', async () => {
  // The proxy adds the address that it has seen to what the client has sent.
  assert.equal(await clientsOf(trusting, '198.51.100.1, 203.0.113.9', '198.51.100.2, 203.0.113.9'), 1);
});

test('nobody but a named proxy chooses addresses and protocols', async () => {
  const url = await openFilm(plain, '203.0.113.1');
  assert.ok(url.startsWith(`http://${NAME}/webapi/`), url);
  assert.equal(await clientsOf(plain, '203.0.113.7', '203.0.113.8'), 1);
});

test('below a path prefix the page, the API, streams, cookies and files have it, with and without the proxy taking it away', async (context) => {
  const service = Service.prepare();
  const password = 'right password';
  service.account(['add', 'anna'], password);
  await service.serve([media], ['--prefix', '/tv/films']);
  context.after(() => service.finish());
  const bare = service.address.replace('/tv/films', '');
  assert.notEqual(bare, service.address, 'the announced address has the prefix');
  const redirected = await fetch(`${bare}/tv/films`, { redirect: 'manual' });
  assert.match(redirected.headers.get('location'), /\/tv\/films\/$/);
  for (const where of [service.address, bare]) {
    const page = await fetch(`${where}/`);
    assert.match(await page.text(), /<html/);
    assert.equal((await fetch(`${where}/files/`)).status, 401, 'the files are there');
  }
  const body = new URLSearchParams({ api: 'ORVO.Mirevo2.Auth', version: 1, method: 'login', account: 'anna', passwd: password });
  const login = await fetch(`${service.address}/webapi/entry.cgi`, { method: 'POST', body });
  assert.match(login.headers.get('set-cookie'), /; Path=\/tv\/films\/;/);
  const { _sid } = (await login.json()).data;
  for (const format of ['hls', 'cmaf', 'direct']) {
    const data = await service.open(film, { format, _sid });
    assert.ok(data.url.startsWith(`${service.address}/webapi/`), data.url);
    if (format !== 'direct') await everyAddressHasThePrefix(data.url);
    assert.equal((await service.call('Streaming', 'close', { format, stream_id: data.stream_id, _sid })).status, 200);
  }
  const authorization = `Basic ${btoa(`anna:${password}`)}`;
  const index = await fetch(`${service.address}/files`, { headers: { authorization } });
  assert.equal(new URL(index.url).pathname, '/tv/films/files/');
  assert.ok((await index.text()).includes(`href="${path.basename(media)}/"`));
});

// Follows a playlist to the playlists below it. All addresses in them are paths, and the first segment is there.
async function everyAddressHasThePrefix(url) {
  const lines = (await (await fetch(url)).text()).split('\n');
  const named = lines.flatMap((line) => (line.startsWith('#') ? (line.match(/URI="([^"]+)"/)?.[1] ?? []) : line || []));
  assert.ok(named.length > 0);
  for (const address of named) assert.ok(address.startsWith('/tv/films/webapi/'), address);
  const next = new URL(named.find((address) => !address.includes('init')), url);
  if (/m3u8/.test(next.pathname) || /playlist_type/.test(next.search)) {
    await everyAddressHasThePrefix(next);
  } else {
    assert.equal((await fetch(next, { method: 'HEAD' })).status, 200);
  }
}

test('what is no path is refused as a prefix', () => {
  for (const prefix of ['tv', '/', '/tv/', '/../x', '/a b', '/a"b', '/webapi', '/files/x', '/tv//x']) {
    const { status, stderr } = spawnSync(path.join(build, 'target/bin/mirevo'), ['serve', '--prefix', prefix, media], { encoding: 'utf8' });
    assert.equal(status, 64, prefix);
    assert.match(stderr, /is not like \/films/);
  }
});
