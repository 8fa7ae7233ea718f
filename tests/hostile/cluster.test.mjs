// Attacks on a box of a cluster: tickets in addresses that were altered, and ones that are right but come in crowds;
// crowds at the port where a balancer asks.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { build, eventually, freePort, media, processesWith, Service } from '../service/support.mjs';

const film = path.join(media, 'h264_aac.mp4');
const streams = 3; // that one viewer may have on the attacked box
let opening; // the box that opens
let attacked; // another one with the same key
let agentPort;

async function startBox(key, limits, options) {
  const box = Service.prepare();
  const folder = path.join(box.root, 'var/packages/Mirevo/etc');
  fs.mkdirSync(folder, { recursive: true });
  fs.writeFileSync(path.join(folder, 'cluster_key'), key, { mode: 0o600 });
  fs.writeFileSync(path.join(folder, 'limits'), JSON.stringify(limits));
  await box.serve([media], ['--cluster_key', path.join(folder, 'cluster_key'), '--no-conversions', ...options]);
  return box;
}

before(async () => {
  agentPort = await freePort();
  const key = execFileSync(path.join(build, 'target/bin/mirevo'), ['cluster', 'key'], { encoding: 'utf8' });
  opening = await startBox(key, {}, []);
  attacked = await startBox(key, { streams_per_viewer: streams }, ['--agent', `127.0.0.1:${agentPort}`]);
});
after(async () => {
  await Promise.allSettled([opening?.stop(), attacked?.stop()]);
});

const elsewhere = (address) => `${attacked.address}${new URL(address).pathname}${new URL(address).search}`;
const stateFolder = () => path.join(attacked.root, 'tmp/Mirevo');
const tickets = () => {
  const folder = path.join(stateFolder(), 'tickets');
  return fs.existsSync(folder) ? fs.readdirSync(folder).filter((name) => name.length === 41) : [];
};

async function play(address) {
  const response = await fetch(address, { headers: { Range: 'bytes=0-9' } });
  const body = await response.text();
  return { status: response.status, headers: response.headers, body };
}

// Opens on one box and gives the address on the other.
const openElsewhere = async () => elsewhere((await opening.open(film, { format: 'direct' })).url);

test('tickets that are altered, cut off or far too long make nothing', async () => {
  const address = new URL(await openElsewhere());
  const ticket = address.searchParams.get('ticket');
  const flip = (index) => ticket.slice(0, index) + (ticket[index] === 'A' ? 'B' : 'A') + ticket.slice(index + 1);
  const step = Math.ceil(ticket.length / 12);
  const places = Array.from({ length: 12 }, (_, i) => Math.min(i * step, ticket.length - 2));
  const wrong = [...places.map(flip), ...places.map((length) => ticket.slice(0, length)), `${ticket}A`, ticket.repeat(20)];
  for (const text of wrong.filter((word) => word !== '')) {
    address.searchParams.set('ticket', text);
    const { status, body } = await play(address);
    assert.equal(status, 403, text);
    assert.match(JSON.parse(body).error.message, /^[A-Z].*\.$/);
  }
  assert.deepEqual(tickets(), []);
  assert.deepEqual(attacked.streamFolders(), []);
});

test('streams of other boxes count among those of their viewer, and a forgotten one gives way', async () => {
  const addresses = [];
  for (let i = 0; i <= streams; ++i) addresses.push(await openElsewhere());
  for (const address of addresses.slice(0, streams)) assert.equal((await play(address)).status, 206);
  const refused = await play(addresses[streams]);
  assert.equal(refused.status, 429, refused.body);
  assert.ok(Number(refused.headers.get('retry-after')) > 0);
  assert.equal(tickets().length, streams);
  assert.equal(attacked.streamFolders().length, streams, 'nothing is left of the refused one');
  assert.equal((await play(addresses[0])).status, 206, 'the others go on');
  // Nobody has used the first one for an hour.
  const forgotten = new URL(addresses[0]).searchParams.get('stream_id');
  const then = Date.now() / 1000 - 3600;
  for (const name of [`tickets/${forgotten}`, `DIRECT/${forgotten}/access_status`]) {
    fs.utimesSync(path.join(stateFolder(), name), then, then);
  }
  assert.equal((await play(addresses[streams])).status, 206);
  assert.equal(tickets().length, streams);
  assert.ok(!tickets().includes(forgotten));
});

test('clients that send without end and never read do not keep the agent from others', async () => {
  const ask = async () => Buffer.concat(await net.connect(agentPort, '127.0.0.1').toArray()).toString();
  const answer = () => eventually(() => ask().then((line) => line || undefined, () => undefined));
  assert.match(await answer(), /^up \d+%\n$/);
  const garbage = Buffer.alloc(65536, 'GET / HTTP/1.1\r\n');
  const attackers = Array.from({ length: 200 }, () => {
    const socket = net.connect(agentPort, '127.0.0.1').on('error', () => {}).pause();
    socket.write(garbage);
    return socket;
  });
  try {
    await Promise.all(attackers.map((socket) => Promise.race([once(socket, 'connect'), once(socket, 'close')])));
    for (let i = 0; i < 5; ++i) assert.match(await answer(), /^up \d+%\n$/);
    const agents = processesWith(attacked.root).filter(({ command }) => / agent /.test(command));
    assert.equal(agents.length, 1);
  } finally {
    for (const socket of attackers) socket.destroy();
  }
});
