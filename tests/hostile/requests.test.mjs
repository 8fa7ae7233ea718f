// Attacks with requests: clients that leave, that never read or send, and that come in crowds.
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { aboutProcess, eventually, media, patience, readSome, Service } from '../service/support.mjs';

const transcode = { profile: 'http_mp4_240p_vb300_ab96' };
const film = (name) => path.join(media, name);
const perAddress = 600; // more connections than one address may have
const soon = 20_000; // for an answer that takes a few milliseconds on an idle machine
// Locks the first bytes of a file, or all for 0, as F_OFD_SETLK does, and says so.
const lockBytes = `
import fcntl, struct, sys
file = open(sys.argv[1], "r+")
fcntl.fcntl(file, 37, struct.pack("hhqqi4x", fcntl.F_WRLCK, 0, 0, int(sys.argv[2]), 0))
print("locked", flush=True)
sys.stdin.read()
`;
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

let crowds = 0;
// Opens `count` connections, `each` from one address. Each crowd has addresses of its own.
async function crowd(count, each) {
  const network = `127.1.${(crowds += 1)}`;
  const sockets = [];
  while (sockets.length < count) {
    const from = `${network}.${1 + Math.floor(sockets.length / each)}`;
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
  await eventually(() => (fresh().length === 0 ? true : undefined));
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

test('a page that leaves as soon as it has closed its stream has closed it', async () => {
  // The request is at another point of its way each time.
  for (let milliseconds = 0; milliseconds < 30; ++milliseconds) {
    const stream = await service.open(film('long.mkv'));
    const socket = await connect();
    socket.write(`${head(service.query('Streaming', 'close', { format: 'http', stream_id: stream.stream_id }))}\r\n`);
    await new Promise((resolve) => setTimeout(resolve, milliseconds));
    socket.destroy();
    await service.isQuiet();
  }
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

// Asks the request program, as the web server does, and takes no answer from it.
async function askWithoutListening(query) {
  const program = path.join(service.root, 'var/packages/Mirevo/target/webapi/entry.cgi');
  const env = {
    ...service.environment,
    REQUEST_METHOD: 'GET',
    REQUEST_SCHEME: 'http',
    QUERY_STRING: query,
    HTTP_HOST: '127.0.0.1',
    MIREVO_HOSTS: '127.0.0.1',
    REMOTE_ADDR: '127.0.0.1',
    SCRIPT_NAME: '/webapi/entry.cgi',
  };
  const request = spawn(program, { env, stdio: ['ignore', 'pipe', 'ignore'] });
  request.stdout.destroy();
  await once(request, 'exit');
}

for (const format of ['direct', 'http', 'webm', 'hls', 'ss', 'cmaf']) {
  test(`a stream of the kind ${format} is removed if nobody is there to learn its id`, async () => {
    const tickets = () => {
      const place = path.join(service.root, 'tmp/Mirevo/tickets');
      return fs.existsSync(place) ? fs.readdirSync(place).filter((name) => /^\w{41}$/.test(name)) : [];
    };
    const known = new Set(tickets());
    const { search } = new URL(service.query('Streaming', 'open', { format, path: film('h264_aac.mp4') }));
    await askWithoutListening(search.slice(1));
    assert.deepEqual(tickets().filter((name) => !known.has(name)), []);
    await service.isQuiet();
  });
}

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
  try {
    for (const reader of readers) {
      reader.pause();
      reader.write(`${head(data.url)}Range: bytes=0-\r\n\r\n`);
    }
    for (let i = 0; i < 5; ++i) await ask();
  } finally {
    leave(readers);
  }
  const left = () => service.requestProcesses();
  const states = () => left().map(({ pid }) => aboutProcess(pid, 'status')).join('\n');
  await eventually(() => (left().length === 0 ? true : undefined), patience, states);
  await service.call('Streaming', 'close', { format: 'direct', stream_id: data.stream_id });
  fs.rmSync(large);
});

test('one client gets a limited number of files at a time, and another one gets its own', async () => {
  const [most, asked] = [64, 70];
  const large = path.join(folder, 'large.mkv');
  fs.writeFileSync(large, '');
  fs.truncateSync(large, 2 ** 31);
  const address = `${service.address}/files/${path.basename(folder)}/large.mkv`;
  const readers = await crowd(asked, asked);
  try {
    const statuses = await Promise.all(
      readers.map(async (reader) => {
        reader.write(`${head(address)}\r\n`);
        const [first] = await once(reader, 'data');
        reader.pause(); // reads no more
        return Number(/^HTTP\/1.1 (\d+)/.exec(first)[1]);
      }),
    );
    const count = (status) => statuses.filter((one) => one === status).length;
    assert.deepEqual([count(200), count(503)], [most, asked - most]);
    await eventually(() => (service.requestProcesses().length === most ? true : undefined));
    const other = await fetch(address, { headers: { Range: 'bytes=0-9' } });
    assert.equal((await other.arrayBuffer()).byteLength, 10);
  } finally {
    leave(readers);
  }
  await eventually(() => (service.requestProcesses().length === 0 ? true : undefined));
  fs.rmSync(large);
});

test('a client cannot fill the list of conversions alone', async () => {
  assert.deepEqual((await service.call('Conversion', 'list')).data.items, []);
  const database = path.join(service.root, 'var/packages/Mirevo/etc/conversions/queue.db');
  const fill = `
import sqlite3, sys
with sqlite3.connect(sys.argv[1], timeout=30) as database:
    database.executemany("INSERT INTO clients VALUES (?, CAST(? AS BLOB))", [(1000 + i, sys.argv[2]) for i in range(250)])
`;
  execFileSync('python3', ['-c', fill, database, 'address 127.0.0.1']);
  const refused = await service.call('Conversion', 'add', { path: film('h264_aac.mp4'), profile: 'mp4' });
  assert.equal(refused.status, 429);
  assert.match(refused.error.message, /^You have 250 films in the list of conversions/);
  assert.ok(Number(refused.headers.get('retry-after')) > 0);
  assert.deepEqual((await service.call('Conversion', 'list')).data.items, []);
});

test('huge forms and floods of headers are refused, and others are answered', async () => {
  const send = async (text) => {
    const socket = await connect();
    const answer = once(socket, 'data').then(([data]) => Number(/^HTTP\/1[.]\d (\d+)/.exec(data)?.[1]));
    socket.write(text);
    const status = await Promise.race([answer, once(socket, 'close').then(() => 0)]);
    socket.destroy();
    return status;
  };
  const post = head(`${service.address}/webapi/entry.cgi`).replace('GET', 'POST');
  const form = 'Content-Type: application/x-www-form-urlencoded\r\n';
  const part = `100000\r\n${'a'.repeat(0x100000)}\r\n`;
  assert.equal(await send(`${post}${form}Content-Length: 10000000000\r\n\r\n`), 413);
  const floods = [
    `${post}${form}Transfer-Encoding: chunked\r\n\r\n${part}`,
    `${head(`${service.address}/`)}${'X-Flood: a\r\n'.repeat(20000)}\r\n`,
    `${head(`${service.address}/`)}X-Long: ${'a'.repeat(200000)}\r\n\r\n`,
  ];
  // The end of the connection may overtake the answer, because not all was read.
  for (const flood of floods) assert.ok([0, 400, 413, 431].includes(await send(flood)));
  await ask();
});

test('one address has a limited number of connections, and leaving makes room', async () => {
  const sockets = await crowd(perAddress, perAddress);
  const address = `127.1.${crowds}.1`;
  await eventually(() => (sockets.filter((socket) => socket.closed).length >= perAddress - 512 ? true : undefined));
  leave(sockets);
  await eventually(async () => {
    const again = await connect(address);
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

// Opens a film from an address of this machine. Returns the answer with its time in milliseconds.
async function openFrom(from, parameters) {
  const start = performance.now();
  const address = service.query('Streaming', 'open', parameters);
  const request = http.get(address, { localAddress: from, agent: false, headers: { 'User-Agent': 'VLC/3.0.20' } });
  const [response] = await once(request, 'response');
  const answer = JSON.parse(Buffer.concat(await response.toArray()).toString());
  return { status: response.statusCode, headers: response.headers, time: performance.now() - start, ...answer };
}

async function closeAll(answers, format) {
  for (const { data } of answers) {
    if (!data?.stream_id) continue;
    const closed = await service.call('Streaming', 'close', { format, stream_id: data.stream_id });
    assert.equal(closed.status, 200, JSON.stringify(closed.error));
  }
}

test('of 300 openings at once a few wait, and the others are refused at once', async () => {
  const parameters = { format: 'hls', path: film('h264_ac3.mkv') };
  const answers = await Promise.all(Array.from({ length: 300 }, (_, i) => openFrom(`127.0.5.${1 + (i % 200)}`, parameters)));
  const refused = answers.filter(({ status }) => status === 503);
  assert.ok(answers.every(({ status }) => [200, 503].includes(status)));
  assert.ok(refused.length > 0 && refused.length < 300, `${refused.length} refused`);
  for (const { headers, error } of refused) {
    assert.equal(error.reason, 'Busy');
    assert.ok(Number(headers['retry-after']) > 0);
  }
  await closeAll(answers, 'hls');
  await service.isQuiet();
});

test('a refusal waits for nothing, and starts no further process', async () => {
  const parameters = { format: 'direct', path: film('h264_aac.mp4') };
  await closeAll([await openFrom('127.0.7.1', parameters)], 'direct');
  // Requests that do not come to an end hold the four places.
  const holder = spawn('python3', ['-c', lockBytes, path.join(service.root, 'tmp/Mirevo/work/films'), '4'], { stdio: ['pipe', 'pipe', 'inherit'] });
  await once(holder.stdout, 'data');
  try {
    const answers = [];
    const asked = Array.from({ length: 100 }, (_, i) => openFrom(`127.0.7.${2 + i}`, parameters).then((answer) => answers.push(answer)));
    // Twenty-eight wait for a place. Four more may have a process for a moment.
    await eventually(() => (answers.length >= 68 ? true : undefined));
    assert.ok(answers.every(({ status, headers }) => status === 503 && Number(headers['retry-after']) > 0));
    assert.ok(answers.every(({ error }) => error.reason === 'Busy' && /[.]$/.test(error.message)));
    assert.ok(answers.some(({ error }) => /requests of this kind/.test(error.message)), 'the web server refuses some itself');
    assert.ok(service.requestProcesses().length <= 32);
    holder.kill('SIGKILL');
    await Promise.all(asked);
    await closeAll(answers, 'direct');
  } finally {
    holder.kill('SIGKILL');
  }
  await service.isQuiet();
});

test('one client has a limited number of open streams, and forgotten ones give way', async () => {
  const client = '127.0.6.1';
  const parameters = { format: 'direct', path: film('h264_aac.mp4') };
  const answers = [];
  // The streams of this test that are still known.
  const tickets = () => {
    const known = new Set(fs.readdirSync(path.join(service.root, 'tmp/Mirevo/tickets')));
    return answers.map(({ data }) => data.stream_id).filter((id) => known.has(id));
  };
  for (let i = 0; i < 200; i += 4) {
    answers.push(...(await Promise.all(Array.from({ length: 4 }, () => openFrom(client, parameters)))));
  }
  assert.ok(answers.every(({ status }) => status === 200));
  const refused = await openFrom(client, parameters);
  assert.equal(refused.status, 429);
  assert.ok(Number(refused.headers['retry-after']) > 0);
  const other = await openFrom('127.0.6.2', parameters);
  assert.equal(other.status, 200, 'another client');
  answers.push(other);
  assert.equal(tickets().length, 201);
  // Nobody has used the first one for an hour.
  const [{ data: forgotten }] = answers;
  const then = Date.now() / 1000 - 3600;
  for (const name of [`tickets/${forgotten.stream_id}`, `DIRECT/${forgotten.stream_id}/access_status`]) {
    fs.utimesSync(path.join(service.root, 'tmp/Mirevo', name), then, then);
  }
  answers.push(await openFrom(client, parameters));
  assert.equal(answers.at(-1).status, 200);
  assert.equal(tickets().length, 201);
  assert.ok(!tickets().includes(forgotten.stream_id));
  await closeAll(answers, 'direct');
  await service.isQuiet();
});

test('a request that waits for a lock gives up in time', async () => {
  const stream = await service.open(film('long.mkv'), transcode);
  const ticket = path.join(service.root, 'tmp/Mirevo/tickets', stream.stream_id);
  assert.ok(fs.existsSync(ticket));
  // A request that was stopped while it held the ticket. The lock is the byte that the id names.
  const holder = spawn('python3', ['-c', lockBytes, path.join(service.root, 'tmp/Mirevo/tickets/.locks'), '0'], { stdio: ['pipe', 'pipe', 'inherit'] });
  await once(holder.stdout, 'data');
  const start = performance.now();
  const { status, error } = await service.call('Streaming', 'close', { format: 'http', stream_id: stream.stream_id });
  assert.equal(status, 503, JSON.stringify(error));
  assert.ok(performance.now() - start < 30000);
  holder.kill('SIGKILL');
  await once(holder, 'exit');
  assert.equal((await service.close(stream)).status, 200);
});

// A page without a referrer, on a server without https: the browser tells nothing about it.
function asPicture(method, parameters) {
  const headers = { 'user-agent': 'Mozilla/5.0 (X11; Linux x86_64)', accept: 'image/*' };
  return new Promise((resolve, reject) => {
    const address = service.query('Conversion', method, parameters);
    http.get(address, { headers }, (answer) => resolve(answer.resume().statusCode)).on('error', reject);
  });
}

test('a picture on a page of another server adds and removes no conversions', async () => {
  assert.equal(await asPicture('add', { path: film('h264_aac.mp4') }), 403);
  assert.equal(await asPicture('remove', { id: 1 }), 403);
  assert.equal(await asPicture('list', {}), 200);
  assert.deepEqual((await service.call('Conversion', 'list')).data.items, []);
});
