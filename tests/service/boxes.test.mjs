// Two services with the same films and the same key: an address of one plays on the other.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { EventEmitter, once } from 'node:events';
import fs from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { build, eventually, freePort, media, patience, readSome, Service } from './support.mjs';

const password = 'a long "pass" & word';
let films; // the folder that both boxes serve
let opening; // the box that opens
let other; // the box that only sees addresses
let sid; // anna's session on the box that opens

const newKey = () => execFileSync(path.join(build, 'target/bin/mirevo'), ['cluster', 'key'], { encoding: 'utf8' });

// A box of the cluster with this key, with the accounts of `like`.
async function startBox(key, like, options = []) {
  const box = Service.prepare();
  const folder = path.join(box.root, 'var/packages/Mirevo/etc');
  fs.mkdirSync(folder, { recursive: true });
  fs.writeFileSync(path.join(folder, 'cluster_key'), key, { mode: 0o600 });
  if (like) fs.copyFileSync(path.join(like.root, 'var/packages/Mirevo/etc/accounts'), path.join(folder, 'accounts'));
  else box.account(['add', 'anna'], password);
  await box.serve([films], ['--cluster_key', path.join(folder, 'cluster_key'), '--no-conversions', ...options]);
  return box;
}

before(async () => {
  films = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-films-'));
  for (const name of ['h264_ac3.mkv', 'h264_aac.mp4']) fs.copyFileSync(path.join(media, name), path.join(films, name));
  const key = newKey();
  opening = await startBox(key);
  other = await startBox(key, opening);
  const body = new URLSearchParams({ api: 'ORVO.Mirevo2.Auth', version: 1, method: 'login', account: 'anna', passwd: password });
  const answer = await (await fetch(`${opening.address}/webapi/entry.cgi`, { method: 'POST', body })).json();
  sid = answer.data._sid;
});
after(async () => {
  await Promise.allSettled([opening?.stop(), other?.stop()]);
  fs.rmSync(films, { recursive: true, force: true });
});

const open = (format, parameters = {}, film = 'h264_ac3.mkv') =>
  opening.open(path.join(films, film), { format, _sid: sid, ...parameters });

// The same address on another box.
function at(box, address) {
  const moved = new URL(address, opening.address);
  return `${box.address}${moved.pathname}${moved.search}`;
}
const changed = (address, name, change) => {
  const url = new URL(address);
  url.searchParams.set(name, change(url.searchParams.get(name)));
  return url.href;
};
const addressesIn = (playlist) => playlist.split('\n').filter((line) => line.startsWith('/') || line.startsWith('http'));
const ticketsOf = (box) => {
  const folder = path.join(box.root, 'tmp/Mirevo/tickets');
  return fs.existsSync(folder) ? fs.readdirSync(folder).filter((name) => name.length === 41) : [];
};

async function text(address) {
  const response = await fetch(address);
  const body = await response.text();
  assert.equal(response.status, 200, body.slice(0, 500));
  return body;
}

// Checks that the box refuses the address with this status and a sentence, and that it makes nothing.
async function isRefused(address, status, box = other) {
  const known = ticketsOf(box);
  const running = new Set(box.transcoders().map(({ pid }) => pid)); // of earlier streams
  const response = await fetch(address);
  const { error } = await response.json();
  assert.equal(response.status, status, JSON.stringify(error));
  assert.match(error.message, /^[A-Z].*\.$/);
  assert.deepEqual(ticketsOf(box), known);
  assert.deepEqual(box.transcoders().filter(({ pid }) => !running.has(pid)), []);
  const made = new URL(address).searchParams.get('stream_id');
  assert.ok(!box.streamFolders().includes(made) || known.includes(made), 'no folder is made');
}

test('HLS: the playlists of both boxes are the same, and segments of both follow each other', async () => {
  const stream = await open('hls', { profile: 'hls_remux' });
  const own = await text(stream.url);
  const elsewhere = await text(at(other, stream.url));
  assert.equal(elsewhere, own);
  const [first, second] = addressesIn(own);
  for (const address of [at(opening, first), at(other, second)]) {
    const response = await fetch(address);
    assert.equal(response.status, 200);
    assert.equal(Buffer.from(await response.arrayBuffer())[0], 0x47, 'a transport stream');
  }
});

test('HLS: a segment can be the first thing that a box hears of a stream', async () => {
  const stream = await open('hls', { profile: 'hls_remux' });
  const [, second] = addressesIn(await text(stream.url));
  const answer = await fetch(at(other, second));
  assert.equal(answer.status, 200);
  await answer.arrayBuffer();
});

test('of several first requests at once, one makes the stream and all are answered', async () => {
  const stream = await open('hls', { profile: 'hls_remux' });
  const playlists = await Promise.all([1, 2, 3, 4].map(() => text(at(other, stream.url))));
  assert.deepEqual(new Set(playlists), new Set([await text(stream.url)]));
});

test('CMAF: playlist, manifest, header and segment come from the other box', async () => {
  const stream = await open('cmaf');
  assert.equal(await text(at(other, stream.url)), await text(stream.url));
  assert.match(await text(at(other, stream.dash)), /<MPD/);
  const rendition = addressesIn(await text(stream.url))[0];
  const playlist = await text(at(other, rendition));
  const header = playlist.match(/URI="([^"]+)"/)[1];
  for (const address of [header, addressesIn(playlist)[1]]) {
    const response = await fetch(at(other, address));
    assert.equal(response.status, 200);
    assert.ok((await response.arrayBuffer()).byteLength > 100);
  }
});

// The numbers of the complete pieces in a folder of this box's streams.
function pieces(box, folder) {
  const whole = path.join(box.root, 'tmp/Mirevo', folder);
  const names = fs.existsSync(whole) ? fs.readdirSync(whole) : [];
  return names.map((name) => name.match(/^(?:slice-)?(\d{5})\.(?:ts|m4s)$/)?.[1]).filter(Boolean).map(Number).sort((a, b) => a - b);
}

async function sends(address) {
  const response = await fetch(address);
  const body = await response.arrayBuffer();
  assert.equal(response.status, 200);
  assert.ok(body.byteLength > 100);
}

// Waits until nothing is encoded on the box.
const isFree = (box) => eventually(() => (box.registry().length === 0 && box.transcoders().length === 0 ? true : undefined), 2 * patience);

test('HLS: a box makes the rest of the block that it is asked for, and then its place is free', async () => {
  const stream = await open('hls', { profile: 'hls_240p_vb300_ab96' });
  const list = addressesIn(await text(stream.url));
  await sends(at(other, list[5]));
  await isFree(other);
  const folder = path.join('HLS', stream.stream_id);
  assert.deepEqual(pieces(other, folder), [5, 6]);
  // Another box may be down, so this one makes the next block, too.
  await sends(at(other, list[7]));
  await isFree(other);
  assert.deepEqual(pieces(other, folder), [7, 8, 9]);
  await sends(at(other, list[10]));
  await isFree(other);
  assert.deepEqual(pieces(other, folder), [10, 11], 'up to the end of the film');
});

test('CMAF: the runs of pictures and of sound end with their block', async () => {
  const stream = await open('cmaf');
  const master = await text(stream.url);
  const pictures = addressesIn(master).find((line) => line.includes('rendition=h264-'));
  const sound = master.match(/URI="([^"]+rendition=stereo-[^"]+)"/)[1];
  for (const playlist of [pictures, sound]) {
    const track = playlist.match(/rendition=([\w-]+)/)[1];
    const list = addressesIn(await text(at(other, playlist)));
    await sends(at(other, list[3]));
    await isFree(other);
    assert.deepEqual(pieces(other, path.join('CMAF', stream.stream_id, track)), [3, 4]);
    await sends(at(other, list[7]));
    await isFree(other);
    assert.deepEqual(pieces(other, path.join('CMAF', stream.stream_id, track)), [3, 4, 7, 8, 9]);
  }
});

// Asks a box to begin with a segment before a viewer wants it, as boxes do.
async function warm(address) {
  const response = await fetch(`${address}&warm=1`);
  assert.equal(response.status, 202);
  assert.equal((await response.json()).success, true);
}

const arePieces = (box, folder, numbers) =>
  eventually(() => (String(pieces(box, folder)) === String(numbers) ? true : undefined), 3 * patience, () => `${pieces(box, folder)}`);

test('a warm request is answered at once, and its box makes the block', async () => {
  const stream = await open('hls', { profile: 'hls_240p_vb300_ab96' });
  const list = addressesIn(await text(stream.url));
  await warm(at(other, list[5]));
  await arePieces(other, path.join('HLS', stream.stream_id), [5, 6]);
  const adaptive = await open('cmaf');
  const pictures = addressesIn(await text(adaptive.url)).find((line) => line.includes('rendition=h264-'));
  await isFree(other);
  await warm(at(other, addressesIn(await text(at(other, pictures)))[5]));
  await arePieces(other, path.join('CMAF', adaptive.stream_id, pictures.match(/rendition=([\w-]+)/)[1]), [5, 6]);
  await isFree(other);
});

test('a warm request waits until a viewer has asked for all that the run before has made', async () => {
  const stream = await open('hls', { profile: 'hls_240p_vb300_ab96' });
  const list = addressesIn(await text(stream.url));
  const folder = path.join('HLS', stream.stream_id);
  await sends(at(other, list[7]));
  await warm(at(other, list[10]));
  await sends(at(other, list[8]));
  await isFree(other);
  assert.deepEqual(pieces(other, folder), [7, 8, 9]);
  await sends(at(other, list[9]));
  await arePieces(other, folder, [10, 11]);
  await isFree(other);
});

test('a warm request waits for the place of another film', async () => {
  const [viewed, later] = [await open('hls', { profile: 'hls_240p_vb300_ab96' }), await open('hls', { profile: 'hls_240p_vb300_ab96' })];
  const [now, next] = await Promise.all([viewed, later].map(async ({ url }) => addressesIn(await text(url))));
  await sends(at(other, now[7]));
  await warm(at(other, next[7]));
  await arePieces(other, path.join('HLS', later.stream_id), [7, 8, 9]);
  assert.deepEqual(pieces(other, path.join('HLS', viewed.stream_id)), [7, 8, 9]);
  await isFree(other);
});

test('a request and an opening make their box ask the balancer, once, for the blocks that the other boxes make', async () => {
  const asked = new EventEmitter();
  const numbers = [];
  const balancer = http.createServer((request, response) => {
    const { searchParams } = new URL(request.url, 'http://balancer');
    assert.equal(searchParams.get('warm'), '1');
    numbers.push(Number(searchParams.get('fragment_id') ?? searchParams.get('segment')));
    response.writeHead(202).end();
    asked.emit('request', request.url);
  });
  balancer.listen(0, '127.0.0.1');
  await once(balancer, 'listening');
  const key = fs.readFileSync(path.join(opening.root, 'var/packages/Mirevo/etc/cluster_key'), 'utf8');
  const url = `http://127.0.0.1:${balancer.address().port}`;
  const box = await startBox(key, opening, ['--cluster_url', url, '--cluster_boxes', '3']);
  const next = async (expected) => {
    await eventually(() => (numbers.length >= expected.length ? true : undefined));
    assert.deepEqual(numbers.splice(0), expected);
  };
  try {
    const stream = await open('hls', { profile: 'hls_remux' });
    const list = addressesIn(await text(stream.url));
    const hears = once(asked, 'request');
    await sends(at(box, list[0]));
    const [address] = await hears;
    await next([3, 1]);
    // What it asks for is what another box can serve.
    assert.equal((await fetch(at(other, address))).status, 202);
    await sends(at(box, list[1]));
    await next([5, 3]);
    await sends(at(box, list[2]));
    await sends(at(box, list[5]));
    await next([7]);
    await box.open(path.join(films, 'h264_ac3.mkv'), { format: 'hls', profile: 'hls_remux', start: 0, _sid: sid });
    await next([3, 1, 0]);
    const adaptive = await open('cmaf');
    const pictures = addressesIn(await text(adaptive.url)).find((line) => line.includes('rendition=copy-video'));
    await sends(at(box, addressesIn(await text(at(box, pictures)))[3]));
    await next([7, 5]);
  } finally {
    balancer.close();
    await box.stop();
  }
});

test('Smooth Streaming, progressive, WebM and direct addresses play on the other box', async () => {
  const smooth = await open('ss');
  assert.match(await text(at(other, smooth.url)), /<SmoothStreamingMedia/);
  for (const [format, film] of [['http', 'h264_ac3.mkv'], ['webm', 'h264_ac3.mkv'], ['direct', 'h264_aac.mp4']]) {
    const stream = await open(format, {}, film);
    const response = await fetch(at(other, stream.url));
    assert.equal(response.status, 200, format);
    assert.ok((await readSome(response, 1000)).length >= 1000);
    await response.body.cancel();
  }
});

test('the address tells nobody the path or the account', async () => {
  const { url } = await open('hls', { profile: 'hls_remux' });
  const ticket = new URL(url).searchParams.get('ticket');
  assert.ok(ticket.length < 260, `${ticket.length} characters`);
  const bytes = Buffer.from(ticket, 'base64url').toString('latin1');
  for (const word of [films, 'anna', 'h264', 'hls']) assert.ok(!bytes.includes(word));
});

test('forged, altered and borrowed tickets are refused with 403', async () => {
  const { url } = await open('hls', { profile: 'hls_remux' });
  const { url: another } = await open('hls', { profile: 'hls_remux' });
  const address = at(other, url);
  const flip = (ticket, index) => `${ticket.slice(0, index)}${ticket[index] === 'A' ? 'B' : 'A'}${ticket.slice(index + 1)}`;
  for (const index of [0, 11, 40, 100]) {
    await isRefused(changed(address, 'ticket', (ticket) => flip(ticket, index)), 403);
  }
  await isRefused(changed(address, 'ticket', () => 'A'.repeat(120)), 403);
  await isRefused(`${changed(address, 'ticket', () => 'A'.repeat(120))}&warm=1`, 403);
  await isRefused(changed(address, 'ticket', () => 'not base64url at all!'), 403);
  await isRefused(changed(address, 'ticket', () => new URL(another).searchParams.get('ticket')), 403);
});

test('a forged ticket is refused by a box that knows the stream, too', async () => {
  const { url } = await open('hls', { profile: 'hls_remux' });
  await isRefused(changed(at(opening, url), 'ticket', () => 'A'.repeat(120)), 403, opening);
});

test('a ticket of another cluster is refused with 403', async () => {
  const { url } = await open('hls', { profile: 'hls_remux' });
  const foreign = await startBox(newKey(), opening);
  try {
    await isRefused(at(foreign, url), 403, foreign);
  } finally {
    await foreign.stop();
  }
});

test('a second key in the file opens what it has sealed, so that a key can be changed', async () => {
  const { url } = await open('hls', { profile: 'hls_remux' });
  const file = path.join(other.root, 'var/packages/Mirevo/etc/cluster_key');
  const key = fs.readFileSync(file, 'utf8');
  try {
    fs.writeFileSync(file, newKey() + key);
    await text(at(other, url));
  } finally {
    fs.writeFileSync(file, key);
  }
});

test('the address works with its own link only, and with none after a new password', async () => {
  const { url } = await open('hls', { profile: 'hls_remux' });
  const address = at(other, url);
  await isRefused(changed(address, '_sid', (link) => link.split('').reverse().join('')), 401);
  await isRefused(address.replace(/&_sid=[^&]*/, ''), 401);
  const accounts = path.join(other.root, 'var/packages/Mirevo/etc/accounts');
  const kept = fs.readFileSync(accounts);
  try {
    other.account(['passwd', 'anna'], 'another long password');
    await isRefused(address, 401);
  } finally {
    fs.writeFileSync(accounts, kept);
  }
  await text(address);
});

// Three boxes with one key whose accounts, history and sessions are on the same storage.
async function startSharing(t, options = []) {
  const storage = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-shared-'));
  const boxes = [];
  t.after(async () => {
    await Promise.allSettled(boxes.map((box) => box.stop()));
    fs.rmSync(storage, { recursive: true, force: true });
  });
  const key = newKey();
  for (let count = 0; count < 3; count += 1) {
    const box = Service.prepare();
    const etc = path.join(box.root, 'var/packages/Mirevo/etc');
    fs.mkdirSync(etc, { recursive: true });
    fs.symlinkSync(storage, path.join(etc, 'shared'));
    fs.writeFileSync(path.join(etc, 'cluster_key'), key, { mode: 0o600 });
    if (count === 0) box.account(['add', 'anna'], password);
    await box.serve([films], ['--cluster_key', path.join(etc, 'cluster_key'), '--no-conversions', ...options]);
    boxes.push(box);
  }
  return boxes;
}

async function logIn(box, passwd = password) {
  const body = new URLSearchParams({ api: 'ORVO.Mirevo2.Auth', version: 1, method: 'login', account: 'anna', passwd });
  return (await (await fetch(`${box.address}/webapi/entry.cgi`, { method: 'POST', body })).json()).data._sid;
}

// The boxes on which a session is valid.
async function valid(boxes, session) {
  const answers = await Promise.all(boxes.map((box) => box.call('Library', 'list', { _sid: session })));
  return answers.map(({ status }) => status === 200);
}

test('a session that began on one box is valid on all until it ends on one', async (t) => {
  const boxes = await startSharing(t);
  const [one, another, third] = boxes;
  const session = await logIn(one);
  assert.doesNotMatch(Buffer.from(session, 'base64url').toString('latin1'), /anna/);
  assert.deepEqual(await valid(boxes, session), [true, true, true]);
  assert.deepEqual(await valid(boxes, `${session.slice(0, -9)}${'A'.repeat(9)}`), [false, false, false]);

  const post = (box, api, method, parameters) =>
    fetch(box.query(api, method), { method: 'POST', body: new URLSearchParams(parameters) }).then((response) => response.json());
  const film = path.join(films, 'h264_ac3.mkv');
  await post(one, 'History', 'save', { _sid: session, path: film, position: 7, duration: 60 });
  assert.equal((await another.call('History', 'get', { _sid: session, path: film })).data.position, 7);

  const stays = await logIn(another);
  assert.ok((await post(another, 'Auth', 'logout', { _sid: session })).success);
  assert.deepEqual(await valid(boxes, session), [false, false, false], 'a logout');
  assert.deepEqual(await valid(boxes, stays), [true, true, true], 'of one session');

  third.account(['passwd', 'anna'], 'another long password');
  assert.deepEqual(await valid(boxes, stays), [false, false, false], 'a new password');

  const last = await logIn(third, 'another long password');
  third.account(['logout', 'anna']);
  assert.deepEqual(await valid(boxes, last), [false, false, false], 'a logout everywhere');

  const inOldKey = await logIn(one, 'another long password');
  for (const box of boxes) {
    const file = path.join(box.root, 'var/packages/Mirevo/etc/cluster_key');
    fs.writeFileSync(file, newKey() + fs.readFileSync(file, 'utf8'));
  }
  assert.deepEqual(await valid(boxes, inOldKey), [true, true, true], 'a second key');
});

// A balancer that knows the boxes by their numbers only. `boxes` is asked at each request.
// `answers` gets what each request came to.
async function startBalancer(t, boxes, answers) {
  const balancer = http.createServer(async (request, response) => {
    const number = Number(new URL(request.url, 'http://balancer').searchParams.get('box'));
    const answer = await fetch(`${boxes()[number - 1]?.address}${request.url}`).catch((error) => error);
    answers.push(`box ${number}: ${answer.status ?? answer.cause}`);
    response.writeHead(answer.status ?? 503).end(await answer.text?.());
  });
  t.after(() => balancer.close());
  balancer.listen(0, '127.0.0.1');
  await once(balancer, 'listening');
  return `http://127.0.0.1:${balancer.address().port}`;
}

test('a stream that is closed on one box ends on all that the balancer knows', async (t) => {
  let boxes = [];
  const answers = [];
  const url = await startBalancer(t, () => boxes, answers);
  boxes = await startSharing(t, ['--cluster_url', url, '--cluster_boxes', '3']);
  const [one, another] = boxes;
  const session = await logIn(one);
  const stream = await one.open(path.join(films, 'h264_ac3.mkv'), { format: 'hls', profile: 'hls_remux', _sid: session });
  await text(at(another, stream.url));
  const stays = await one.open(path.join(films, 'h264_ac3.mkv'), { format: 'hls', profile: 'hls_remux', _sid: session });
  const close = { format: 'hls', stream_id: stream.stream_id };
  assert.equal((await another.call('Streaming', 'close', close)).status, 401, 'not without a session');
  await text(at(another, stream.url));
  assert.ok((await another.call('Streaming', 'close', { ...close, _sid: session })).success);
  for (const box of boxes) {
    let answer;
    const isGone = async () => {
      answer = await fetch(at(box, stream.url));
      await answer.arrayBuffer();
      return answer.status === 410 ? true : undefined;
    };
    await eventually(isGone, patience, () => `box ${boxes.indexOf(box) + 1} says ${answer.status}, ${answers}`);
    await text(at(box, stays.url));
  }
});

test('a film that has changed, or is gone, is refused with 410', async () => {
  const file = path.join(films, 'changing.mkv');
  fs.copyFileSync(path.join(media, 'h264_ac3.mkv'), file);
  const { url } = await open('hls', { profile: 'hls_remux' }, 'changing.mkv');
  const { atime, mtime } = fs.statSync(file);
  fs.utimesSync(file, atime, new Date(mtime.getTime() + 1000));
  await isRefused(at(other, url), 410);
  fs.rmSync(file);
  await isRefused(at(other, url), 410);
});

test('where the other box would cut the film differently, it refuses with 410', async () => {
  const file = path.join(films, 'cut.mkv');
  fs.copyFileSync(path.join(media, 'h264_ac3.mkv'), file);
  const analyze = () => execFileSync(mirevo, ['analyze', file], { env: opening.environment, stdio: 'ignore' });
  const forget = () => fs.rmSync(path.join(films, '@ea'), { recursive: true });
  analyze();
  const { url: planned } = await open('hls', { profile: 'hls_remux' }, 'cut.mkv');
  forget();
  await isRefused(at(other, planned), 410);
  const { url } = await open('hls', { profile: 'hls_remux' }, 'cut.mkv');
  analyze();
  assert.equal(await text(at(other, url)), await text(url), 'an analysis that came later changes nothing');
  forget();
});

test('a closed stream stays closed on the box that was told', async () => {
  const stream = await open('hls', { profile: 'hls_remux' });
  await text(at(other, stream.url));
  const login = await fetch(`${other.address}/webapi/entry.cgi`, {
    method: 'POST',
    body: new URLSearchParams({ api: 'ORVO.Mirevo2.Auth', version: 1, method: 'login', account: 'anna', passwd: password }),
  });
  const { data } = await login.json();
  const answer = await other.call('Streaming', 'close', { format: 'hls', stream_id: stream.stream_id, _sid: data._sid });
  assert.ok(answer.success);
  await isRefused(at(other, stream.url), 410);
  await text(stream.url);
});

test('a stream that was last used a day ago is refused with 410', async () => {
  const stream = await open('hls', { profile: 'hls_remux' });
  await text(at(other, stream.url));
  const yesterday = new Date(Date.now() - 25 * 3600 * 1000);
  fs.utimesSync(path.join(other.root, 'tmp/Mirevo/tickets', stream.stream_id), yesterday, yesterday);
  fs.utimesSync(path.join(other.root, 'tmp/Mirevo/HLS', stream.stream_id, 'access_status'), yesterday, yesterday);
  const response = await fetch(at(other, stream.url));
  assert.equal(response.status, 410);
  assert.match((await response.json()).error.message, /expired/);
});

const mirevo = path.join(build, 'target/bin/mirevo');
const balancer = (...words) => execFileSync(mirevo, ['cluster', 'haproxy', ...words], { encoding: 'utf8', stdio: 'pipe' });

test('the printed configuration is one that HAProxy accepts', { skip: !fs.existsSync('/usr/sbin/haproxy') && 'HAProxy is not installed' }, () => {
  for (const boxes of [['127.0.0.1'], ['127.0.0.1:8001', '[::1]:8002', 'localhost', 'box.invalid']]) {
    const file = path.join(opening.root, 'haproxy.cfg');
    fs.writeFileSync(file, balancer(...boxes));
    execFileSync('/usr/sbin/haproxy', ['-c', '-f', file], { stdio: 'pipe' });
  }
});

test('words that are no boxes are refused before anything is printed', () => {
  for (const word of ['', 'a b', 'a\nb', 'box:0', 'box:65536', 'box:x', '[::1', '::1', 'box:1:2', 'BOX', '$(id)', '"']) {
    assert.throws(() => balancer(word), ({ status, stdout }) => status === 64 && stdout === '', word);
  }
  assert.throws(() => balancer('box', '--socket', '/run/a b'), ({ status }) => status === 64);
  assert.throws(() => balancer('box', '--listen', '*'), ({ status }) => status === 64);
});

test('tries of a password count for the client that a named proxy tells, and for no other', async () => {
  const tryAt = (box) =>
    fetch(`${box.address}/webapi/entry.cgi`, {
      method: 'POST',
      headers: { 'X-Forwarded-For': '198.51.100.7, 203.0.113.9' },
      body: new URLSearchParams({ api: 'ORVO.Mirevo2.Auth', version: 1, method: 'login', account: 'nobody', passwd: 'wrong' }),
    });
  const counted = (box, client) =>
    fs.existsSync(path.join(box.root, 'run/mirevo/attempts', createHash('sha256').update(`address ${client}`).digest('hex')));
  const behind = await startBox(newKey(), opening, ['--proxy', '127.0.0.1']);
  try {
    assert.equal((await tryAt(behind)).status, 401);
    assert.deepEqual(['203.0.113.9', '198.51.100.7', '127.0.0.1'].map((client) => counted(behind, client)), [true, false, false]);
    assert.equal((await tryAt(other)).status, 401);
    assert.deepEqual(['203.0.113.9', '127.0.0.1'].map((client) => counted(other, client)), [false, true]);
  } finally {
    await behind.stop();
  }
});

test('health is told without a login and under any name, and nothing else is', async () => {
  const ask = async (method, api = 'Status') => {
    const { hostname, port } = new URL(opening.address);
    const query = `/webapi/entry.cgi?api=ORVO.Mirevo2.${api}&version=1&method=${method}`;
    const [response] = await once(http.get({ hostname, port, path: query, headers: { Host: 'balancer.example' } }), 'response');
    return { status: response.statusCode, ...JSON.parse(Buffer.concat(await response.toArray())) };
  };
  const health = await ask('health');
  assert.equal(health.status, 200);
  assert.deepEqual(Object.keys(health.data).sort(), ['draining', 'free', 'limit', 'streams']);
  assert.equal((await ask('get')).status, 403);
  assert.equal((await ask('who', 'Auth')).status, 403);
});

test('the agent tells the free places, and nothing of a box that lets its films run out', async () => {
  const box = Service.prepare();
  const cluster = (word) => execFileSync(mirevo, ['cluster', word], { env: box.environment, stdio: 'pipe' });
  const port = await freePort();
  assert.throws(() => cluster('drain'), ({ status }) => status === 69, 'no service has run');
  await box.serve([films], ['--agent', `127.0.0.1:${port}`]);
  try {
    const line = async () => Buffer.concat(await net.connect(port, '127.0.0.1').toArray()).toString();
    const health = async (parameters = {}) => (await box.call('Status', 'health', parameters)).data;
    assert.equal(await eventually(() => line().catch(() => undefined)), 'up 100%\n');
    assert.equal((await health({ ready: 1 })).draining, false);
    cluster('drain');
    assert.equal(await line(), 'up 0%\n');
    assert.equal((await health()).draining, true);
    const response = await fetch(box.query('Status', 'health', { ready: 1 }));
    assert.equal(response.status, 503);
    assert.equal((await response.json()).data.draining, true);
    cluster('ready');
    assert.equal(await line(), 'up 100%\n');
  } finally {
    await box.stop();
  }
});

test('words that are no place for an agent are refused', () => {
  for (const word of ['', '127.0.0.1', ':8097', 'localhost:8097', '::1:8097', '[::1]', '[127.0.0.1]:8097', '127.0.0.1:0', '127.0.0.1:65536']) {
    const run = () => execFileSync(mirevo, ['agent', '--listen', word], { env: opening.environment, stdio: 'pipe' });
    assert.throws(run, ({ status }) => status === 64, word);
  }
});

test('a service without a key makes addresses without a ticket', async () => {
  const alone = await Service.start([films]);
  try {
    const { url } = await alone.open(path.join(films, 'h264_ac3.mkv'), { format: 'hls', profile: 'hls_remux' });
    assert.ok(!url.includes('ticket'));
    assert.ok(!(await text(url)).includes('ticket'));
  } finally {
    await alone.stop();
  }
});

test('a service whose key others can read does not start', () => {
  const box = Service.prepare();
  try {
    const file = path.join(box.root, 'key');
    fs.writeFileSync(file, newKey(), { mode: 0o644 });
    assert.throws(
      () => execFileSync(path.join(build, 'target/bin/mirevo-serve'), ['--no-browser', '--cluster_key', file, '--', films], {
        env: box.environment,
        stdio: 'pipe',
      }),
      (error) => error.status === 1 && /0600/.test(error.stderr.toString()),
    );
  } finally {
    fs.rmSync(box.root, { recursive: true });
  }
});
