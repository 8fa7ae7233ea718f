// The service behind a reverse proxy on this machine. The tests speak as the proxy does.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { media, Service } from './support.mjs';

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
