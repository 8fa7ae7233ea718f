// Three boxes behind HAProxy: segments of all of them fit together, and nobody misses a box that dies.
import assert from 'node:assert/strict';
import { execFile, execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { promisify } from 'node:util';

import { build, eventually, freePort, media, patience, processesWith, Service } from '../service/support.mjs';

const program = path.join(build, 'target/bin/mirevo');
const film = path.join(media, 'h264_ac3.mkv');
let folder;
let boxes;
let balancer; // HAProxy
let authority; // host and port of the balancer
let agentPort; // of all boxes

// Each box has an address of its own, so that all agents have the same port.
async function startBox(key, address) {
  const box = Service.prepare();
  const file = path.join(box.root, 'cluster_key');
  fs.writeFileSync(file, key, { mode: 0o600 });
  const cluster = ['--cluster_key', file, '--listen', address, '--agent', `${address}:${agentPort}`];
  await box.serve([media], [...cluster, '--host', authority, '--proxy', '127.0.0.1', '--no-conversions']);
  return box;
}

// Runs "mirevo cluster" on a box.
const cluster = (box, ...words) => execFileSync(program, ['cluster', ...words], { env: box.environment, encoding: 'utf8' });

before(async () => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-boxes-'));
  authority = `127.0.0.1:${await freePort()}`;
  const key = execFileSync(program, ['cluster', 'key'], { encoding: 'utf8' });
  boxes = [];
  agentPort = await freePort();
  for (const address of ['127.0.0.1', '127.0.0.2', '127.0.0.3']) boxes.push(await startBox(key, address));
  const places = boxes.map(({ address }) => new URL(address).host);
  const file = path.join(folder, 'haproxy.cfg');
  const socket = path.join(folder, 'admin.sock');
  fs.writeFileSync(file, execFileSync(program, ['cluster', 'haproxy', '--agent-port', agentPort, '--listen', authority, '--socket', socket, ...places]));
  balancer = spawn('/usr/sbin/haproxy', ['-db', '-f', file], { stdio: ['ignore', 'ignore', 'ignore'] });
  await eventually(async () => ((await fetch(`http://${authority}/`).catch(() => undefined))?.ok ? true : undefined), patience);
});
after(async () => {
  balancer?.kill('SIGKILL');
  await Promise.allSettled(boxes.map((box) => end(box)));
  fs.rmSync(folder, { recursive: true, force: true });
});

// Sends a signal to everything that belongs to a box.
function signal(box, name) {
  const found = processesWith(box.root);
  found.forEach(({ pid }) => {
    try {
      process.kill(pid, name);
    } catch {
      // it has ended
    }
  });
  return found.length;
}

// As a power failure does.
function kill(box) {
  while (signal(box, 'SIGKILL') > 0);
}

function end(box) {
  kill(box);
  fs.rmSync(box.root, { recursive: true, force: true });
}

// Opens the film through the balancer, until the end of the test.
async function open(t, parameters) {
  const query = new URLSearchParams({ api: 'ORVO.Mirevo2.Streaming', version: 1, method: 'open', path: film, ...parameters });
  const response = await fetch(`http://${authority}/webapi/entry.cgi?${query}`);
  const { data, error } = await response.json();
  assert.ok(response.ok, JSON.stringify(error));
  t.after(() => Promise.allSettled(boxes.map((box) => box.call('Streaming', 'close', { format: 'hls', stream_id: data.stream_id }))));
  return data;
}

const addressesIn = (playlist) =>
  playlist.split('\n').filter((line) => line.startsWith('/')).map((line) => `http://${authority}${line}`);

async function segments(url) {
  return addressesIn(await (await fetch(url)).text());
}

async function bytes(address) {
  const response = await fetch(address);
  const body = Buffer.from(await response.arrayBuffer());
  assert.equal(response.status, 200, body.toString('utf8', 0, 300));
  return body;
}

// The boxes that have made segments of the stream.
const makers = ({ stream_id: id }) =>
  boxes.filter(({ root }) => {
    const made = path.join(root, 'tmp/Mirevo/HLS', id);
    return fs.existsSync(made) && fs.readdirSync(made).some((name) => /^slice-\d+\.ts$/.test(name));
  });

// The seconds between each packet of a track and the next one.
async function steps(file, track) {
  const words = ['-v', 'error', '-select_streams', track, '-show_entries', 'packet=dts_time', '-of', 'csv=p=0', file];
  const { stdout } = await promisify(execFile)('ffprobe', words, { encoding: 'utf8', maxBuffer: 1 << 26 });
  const times = stdout.match(/^[\d.]+/gm).map(Number);
  return times.slice(1).map((time, index) => time - times[index]);
}

async function hasNoSeam(file, track) {
  const found = (await steps(file, track)).sort((one, other) => one - other);
  const usual = found[Math.floor(found.length / 2)];
  assert.ok(found.length > 500, `${found.length} packets`);
  const worst = Math.max(usual - found[0], found.at(-1) - usual);
  assert.ok(worst < 0.0015, `${track}: a packet is ${(worst * 1000).toFixed(2)} ms off its place`);
  return worst;
}

test('segments that three boxes have made by turns follow each other without a seam', async (t) => {
  const stream = await open(t, { format: 'hls', profile: 'hls_240p_vb300_ab96' });
  const list = await segments(stream.url);
  assert.ok(list.length > 8, 'four blocks');
  const whole = path.join(folder, 'whole.ts');
  for (const address of list) fs.appendFileSync(whole, await bytes(address));
  assert.equal(makers(stream).length, 3);
  for (const track of ['v', 'a']) {
    t.diagnostic(`${track}: at most ${((await hasNoSeam(whole, track)) * 1000).toFixed(2)} ms off`);
  }
});

test('a forged ticket is refused through the balancer', async (t) => {
  const { url } = await open(t, { format: 'hls', profile: 'hls_remux' });
  const [first] = await segments(url);
  const response = await fetch(first.replace(/ticket=./, (text) => `ticket=${text.at(-1) === 'A' ? 'B' : 'A'}`));
  assert.equal(response.status, 403);
});

// The box that makes the fourth block, while it makes the last segments of the film.
async function makerOf(stream, list) {
  await bytes(list[8]);
  return makers(stream).find(({ root }) =>
    fs.existsSync(path.join(root, 'tmp/Mirevo/HLS', stream.stream_id, 'slice-00008.ts')));
}

// What HAProxy answers to a command on its administration socket.
async function admin(command) {
  const socket = net.connect(path.join(folder, 'admin.sock'));
  socket.end(`${command}\n`);
  return Buffer.concat(await socket.toArray()).toString();
}

// Waits until HAProxy gives the box this part of its weight.
async function hasWeight(name, isIt) {
  await eventually(async () => {
    const weights = await Promise.all(['boxes', 'home'].map((backend) => admin(`get weight ${backend}/${name}`)));
    return weights.every((answer) => isIt(Number(answer.match(/^\d+/)[0]))) ? true : undefined;
  });
}

test('a drained box gets no new segment, its film goes on, and nobody misses it', async (t) => {
  const stream = await open(t, { format: 'hls', profile: 'hls_remux' });
  const running = await open(t, { format: 'http', path: film });
  const response = await fetch(running.url.replace(/^https?:\/\/[^/]+/, boxes[1].address));
  assert.equal(response.status, 200);
  const reader = response.body.getReader();
  assert.ok((await reader.read()).value.length > 0);
  cluster(boxes[1], 'drain');
  try {
    await hasWeight('b2', (weight) => weight === 0);
    for (const address of await segments(stream.url)) await bytes(address);
    assert.ok(!makers(stream).includes(boxes[1]));
    assert.ok((await reader.read()).value.length > 0, 'a film that the box sends goes on');
  } finally {
    await reader.cancel();
    cluster(boxes[1], 'ready');
  }
  await hasWeight('b2', (weight) => weight > 0);
  const again = await open(t, { format: 'hls', profile: 'hls_remux' });
  for (const address of await segments(again.url)) await bytes(address);
  assert.ok(makers(again).includes(boxes[1]));
});

test('when the first box is drained, the next one opens films', async (t) => {
  cluster(boxes[0], 'drain');
  try {
    await hasWeight('b1', (weight) => weight === 0);
    const { stream_id: id } = await open(t, { format: 'hls', profile: 'hls_remux' });
    const known = boxes.map(({ root }) => fs.existsSync(path.join(root, 'tmp/Mirevo/tickets', id)));
    assert.deepEqual(known, [false, true, false]);
  } finally {
    cluster(boxes[0], 'ready');
  }
  await hasWeight('b1', (weight) => weight > 0);
});

test('the segment that a frozen box was to make comes from another one', async (t) => {
  const stream = await open(t, { format: 'hls', profile: 'hls_240p_vb300_ab96' });
  const list = await segments(stream.url);
  const maker = await makerOf(stream, list);
  const begun = performance.now();
  signal(maker, 'SIGSTOP');
  try {
    assert.ok((await bytes(list[10])).length > 1000);
  } finally {
    signal(maker, 'SIGCONT');
  }
  t.diagnostic(`the segment came ${((performance.now() - begun) / 1000).toFixed(1)} s after the request`);
  // The next test needs it again.
  await eventually(async () => ((await fetch(`${maker.address}/`).catch(() => undefined)) ? true : undefined), patience);
});

test('the segment that a killed box was to make comes from another one', async (t) => {
  const stream = await open(t, { format: 'hls', profile: 'hls_240p_vb300_ab96' });
  const list = await segments(stream.url);
  const maker = await makerOf(stream, list);
  if (maker === boxes[0]) t.diagnostic('the killed box is the one with the sessions');
  const begun = performance.now();
  const waiting = bytes(list[10]);
  kill(maker);
  assert.ok((await waiting).length > 1000);
  t.diagnostic(`the segment came ${((performance.now() - begun) / 1000).toFixed(1)} s after the request`);
  assert.ok((await bytes(list[11])).length > 1000);
});
