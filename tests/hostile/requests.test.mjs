// Attacks with requests: clients that leave, that never read or send, and that come in crowds.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { eventually, media, readSome, Service } from '../service/support.mjs';

const transcode = { profile: 'http_mp4_240p_vb300_ab96' };
const film = (name) => path.join(media, name);
const perAddress = 600; // more connections than one address may have
const soon = 5000; // for an answer that takes a few milliseconds on an idle machine
let service;
let folder;
let port;

before(async () => {
  folder = fs.mkdtempSync(path.join(media, '../requests-'));
  service = await Service.start([media, folder]);
  port = Number(new URL(service.address).port);
});
after(async () => {
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});

// Opens a connection from an address of this machine. Resolves when it is open or was refused.
async function connect(from = '127.0.0.1') {
  const socket = net.connect({ port, host: '127.0.0.1', localAddress: from });
  socket.on('error', () => {});
  await new Promise((resolve) => socket.on('connect', resolve).on('close', resolve));
  return socket;
}

// Opens `count` connections from addresses 127.0.1.1, 127.0.1.2, ... with `each` from one address.
async function crowd(count, each) {
  const sockets = [];
  while (sockets.length < count) {
    const from = `127.0.1.${1 + Math.floor(sockets.length / each)}`;
    sockets.push(...(await Promise.all(Array.from({ length: Math.min(100, each) }, () => connect(from)))));
  }
  return sockets;
}

function leave(sockets) {
  for (const socket of sockets) socket.destroy();
}

const head = (address) => {
  const { pathname, search, host } = new URL(address);
  return `GET ${pathname}${search} HTTP/1.1\r\nHost: ${host}\r\n`;
};

// Sends a request and leaves when its process works. Returns the time until the process has ended.
async function leaveEarly(address, goodbye) {
  const socket = await connect();
  const running = new Set(service.requestProcesses().map(({ pid }) => pid));
  socket.write(`${head(address)}\r\n`);
  const fresh = () => service.requestProcesses().filter(({ pid }) => !running.has(pid));
  await eventually(() => (fresh().length > 0 ? true : undefined));
  goodbye(socket);
  const start = performance.now();
  await eventually(() => (fresh().length === 0 ? true : undefined), 30000);
  socket.destroy();
  return performance.now() - start;
}

// The time of a normal client's request.
async function ask() {
  const start = performance.now();
  const { success } = await service.call('Library', 'list');
  assert.ok(success);
  return performance.now() - start;
}

const goodbyes = {
  'closes its connection': (socket) => socket.destroy(),
  'closes its side of the connection': (socket) => socket.end(),
  'resets its connection': (socket) => socket.resetAndDestroy(),
};
for (const [how, goodbye] of Object.entries(goodbyes)) {
  test(`a viewer who waits for a transcoder and ${how} frees everything`, async () => {
    const [first, second] = [await service.open(film('long.mkv'), transcode), await service.open(film('long.mkv'), transcode)];
    const playing = await fetch(first.url);
    await readSome(playing, 1000);
    assert.ok((await leaveEarly(second.url, goodbye)) < soon);
    // The next request that waits for the transcoder gets it.
    await playing.body.cancel();
    const next = await fetch(second.url);
    assert.equal(next.status, 200);
    await next.body.cancel();
    await Promise.all([first, second].map((stream) => service.close(stream)));
    await service.isQuiet();
  });
}

test('a viewer who leaves before the first picture frees the transcoder', async () => {
  const stream = await service.open(film('long.mkv'), transcode);
  const socket = await connect();
  socket.write(`${head(`${stream.url}&start=200`)}\r\n`);
  await eventually(() => (service.transcoders().length > 0 || socket.bytesRead > 0 ? true : undefined));
  socket.destroy();
  await service.isQuiet(soon);
  assert.equal((await service.close(stream)).status, 200);
});

test('a client that leaves while a film is examined ends the examination', async () => {
  // The probe looks for sound in it until its time is over.
  const endless = path.join(folder, 'endless.mp3');
  fs.writeFileSync(endless, '');
  fs.truncateSync(endless, 200 * 2 ** 30);
  const address = service.query('Streaming', 'open', { format: 'hls', path: endless });
  assert.ok((await leaveEarly(address, goodbyes['closes its connection'])) < soon);
  await service.isQuiet();
  fs.rmSync(endless);
});

test('4,000 connections that never send leave room for others', async () => {
  const idle = await crowd(4000, 400);
  for (let i = 0; i < 5; ++i) assert.ok((await ask()) < soon);
  leave(idle);
});

test('2,000 clients that never finish their headers leave room for others', async () => {
  const slow = await crowd(2000, 400);
  for (const socket of slow) socket.write('GET / HTTP/1.1\r\nHost: local');
  for (let i = 0; i < 5; ++i) assert.ok((await ask()) < soon);
  leave(slow);
});

test('clients that read nothing of a large film leave room for others', async () => {
  const large = path.join(folder, 'large.mp4');
  fs.copyFileSync(film('h264_aac.mp4'), large);
  // A box that players skip, of 2 GB without data.
  const box = Buffer.concat([Buffer.from([0x7f, 0xff, 0xff, 0xff]), Buffer.from('free')]);
  const { size } = fs.statSync(large);
  fs.appendFileSync(large, box);
  fs.truncateSync(large, size + 0x7fffffff);
  const headers = { 'User-Agent': 'VLC/3.0.20 LibVLC/3.0.20' };
  const opened = await fetch(service.query('Streaming', 'open', { format: 'direct', path: large }), { headers });
  const { data } = await opened.json();
  const readers = await crowd(400, 400);
  for (const reader of readers) {
    reader.pause();
    reader.write(`${head(data.url)}Range: bytes=0-\r\n\r\n`);
  }
  for (let i = 0; i < 5; ++i) assert.ok((await ask()) < 20000);
  leave(readers);
  await service.call('Streaming', 'close', { format: 'direct', stream_id: data.stream_id });
  fs.rmSync(large);
});

test('one address has a limited number of connections, and leaving makes room', async () => {
  const sockets = await crowd(perAddress, perAddress);
  await eventually(() => (sockets.filter((socket) => socket.closed).length === perAddress - 512 ? true : undefined));
  leave(sockets);
  await eventually(async () => {
    const again = await connect('127.0.1.1');
    again.write(`${head(`${service.address}/`)}Connection: close\r\n\r\n`);
    await new Promise((resolve) => again.on('data', resolve).on('close', resolve));
    again.destroy();
    return again.bytesRead > 0 ? true : undefined;
  });
});

test('a proxy has no such limit', async () => {
  const own = Service.prepare();
  await own.serve([media], ['--connections', '4', '--proxy', '127.0.1.1']);
  const { port: there } = new URL(own.address);
  const [proxied, stranger] = ['127.0.1.1', '127.0.1.2'].map((localAddress) =>
    Array.from({ length: 10 }, () => net.connect({ port: Number(there), host: '127.0.0.1', localAddress }).on('error', () => {})),
  );
  await eventually(() => (stranger.filter((socket) => socket.closed).length === 6 ? true : undefined));
  assert.equal(proxied.filter((socket) => socket.closed).length, 0);
  leave([...proxied, ...stranger]);
  await own.stop();
});
