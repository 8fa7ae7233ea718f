// Segments that the web server sends without the request program, and who gets none.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { after, afterEach, before, beforeEach, test } from 'node:test';

import { eventually, media, Service } from './support.mjs';

const password = 'a long "pass" & word';
let service;
let stream;
let segment; // the address of the first segment

before(async () => {
  service = Service.prepare();
  service.account(['add', 'anna'], password);
  await service.serve([media]);
});
after(() => service.stop());

beforeEach(async () => {
  stream = await open('anna');
  segment = await firstSegment(stream);
});
afterEach(async () => {
  await service.call('Streaming', 'close', { format: 'hls', stream_id: stream.stream_id, _sid: stream.sid });
});

async function open(account, parameters = { format: 'hls', profile: 'hls_remux' }) {
  const body = new URLSearchParams({ api: 'ORVO.Mirevo2.Auth', version: 1, method: 'login', account, passwd: password });
  const { data } = await (await fetch(`${service.address}/webapi/entry.cgi`, { method: 'POST', body })).json();
  const film = path.join(media, 'h264_ac3.mkv');
  return { sid: data._sid, ...(await service.open(film, { ...parameters, _sid: data._sid })) };
}

async function firstSegment({ url }) {
  const playlist = await (await fetch(url)).text();
  return `${service.address}${playlist.split('\n').find((line) => line.startsWith('/'))}`;
}

// Sends a request with exactly these headers; fetch would not allow that.
async function get(address, headers = {}, method = 'GET') {
  const [response] = await once(http.request(address, { method, headers }).end(), 'response');
  const body = Buffer.concat(await response.toArray());
  return { status: response.statusCode, headers: response.headers, body };
}

const folderOf = ({ stream_id: id }) => path.join(service.root, 'tmp/Mirevo/HLS', id);
const pass = ({ stream_id: id }) => path.join(service.root, 'tmp/Mirevo/tickets', `${id}.pass`);

// Only the web server writes into this file; the request program sets its time.
const access = () => path.join(folderOf(stream), 'access_status');
const isByWebServer = () => fs.statSync(access()).size > 0;
const forget = () => fs.truncateSync(access());

// A pass is left when the ticket has not changed for some seconds.
async function ready() {
  await eventually(async () => {
    const { status } = await get(segment);
    assert.equal(status, 200);
    return fs.existsSync(pass(stream)) ? true : undefined;
  }, 30000);
  forget();
}

test('the web server sends a ready segment as the request program does', async () => {
  await ready();
  const ours = await get(segment);
  assert.ok(isByWebServer());
  fs.rmSync(pass(stream));
  forget();
  const theirs = await get(segment);
  assert.ok(!isByWebServer());
  assert.deepEqual(ours.body, theirs.body);
  delete ours.headers.date;
  delete theirs.headers.date;
  assert.deepEqual(ours.headers, theirs.headers);
});

test('it keeps the stream alive and tells the transcoder where the viewer is', async () => {
  await ready();
  const asked = path.join(folderOf(stream), 'requested');
  fs.writeFileSync(asked, '0000004');
  fs.utimesSync(access(), 1, 1);
  await get(segment);
  assert.ok(isByWebServer());
  assert.equal(fs.readFileSync(asked, 'utf8'), '0000000');
  assert.ok(Date.now() - fs.statSync(access()).mtimeMs < 60000);
});

test('another link, another page and another host get nothing', async () => {
  await ready();
  const link = new URL(segment).searchParams.get('_sid').replaceAll('"', '');
  const wrong = `${link.slice(0, -1)}${link.endsWith('A') ? 'B' : 'A'}`;
  assert.equal((await get(segment.replace(link, wrong))).status, 401);
  assert.equal((await get(segment.replace(link, ''))).status, 401);
  for (const headers of [
    { Origin: 'https://tv.example' },
    { Referer: 'https://tv.example/page' },
    { 'Sec-Fetch-Site': 'cross-site' },
    { Host: 'tv.example' },
  ]) {
    assert.equal((await get(segment, headers)).status, 403, JSON.stringify(headers));
  }
  assert.ok(!isByWebServer());
});

test('other requests for a segment are for the request program', async () => {
  await ready();
  const { headers } = await get(segment, {}, 'HEAD');
  assert.equal(headers['content-type'], 'video/mp2t');
  assert.equal((await get(segment, { Range: 'bytes=188-375' })).status, 206);
  assert.equal((await get(segment.replace('fragment_id=', 'fragment_id=../'))).status, 400);
  assert.equal((await get(`${segment}&fragment_id=1`)).status, 200);
  assert.ok(!isByWebServer());
});

test('a report that the player ran out of film reaches the request program', async () => {
  await ready();
  await get(segment, { 'CMCD-Status': 'v=1', 'CMCD-Request': 'bl=4000' });
  assert.ok(isByWebServer());
  forget();
  await get(segment, { 'CMCD-Status': 'v=1, bs', 'CMCD-Request': 'bl=0' });
  assert.ok(!isByWebServer());
  assert.ok(fs.existsSync(path.join(folderOf(stream), 'client_report')));
});

test('a new password ends the links, also for ready segments', async () => {
  await ready();
  service.account(['passwd', 'anna'], password);
  assert.equal((await get(segment)).status, 401);
  assert.ok(!isByWebServer());
  stream = await open('anna');
});

test('pieces of a CMAF stream come as well, with what the transcoder and the player need', { timeout: 120_000 }, async () => {
  const cmaf = await open('anna', { format: 'cmaf' });
  try {
    const folder = path.join(service.root, 'tmp/Mirevo/CMAF', cmaf.stream_id);
    const accessed = path.join(folder, 'access_status');
    const address = (number) =>
      `${cmaf.url.replace('master.m3u8', number === 'init' ? 'init.mp4' : 'segment.m4s')}&rendition=copy-video&segment=${number}`;
    for (const number of [0, 1, 'init']) assert.equal((await get(address(number))).status, 200);
    await eventually(async () => {
      await get(address(0));
      return fs.existsSync(pass(cmaf)) ? true : undefined;
    }, 60_000);
    const take = async (number, isOurs) => {
      fs.truncateSync(accessed);
      const answer = await get(address(number), isOurs ? {} : { Range: 'bytes=0-' });
      assert.equal(fs.statSync(accessed).size > 0, isOurs, `segment ${number}`);
      const { 'content-type': type, etag, 'last-modified': date, 'cache-control': keep } = answer.headers;
      return { body: answer.body, type, etag, date, keep, timing: 'server-timing' in answer.headers };
    };
    // A request that the program answers slowly is remembered, which ends the pass. So these come last.
    const ours = [await take(1, true), await take('init', true)];
    assert.deepEqual(ours, [await take(1, false), await take('init', false)]);
    for (const file of [folder, path.join(folder, 'copy-video')]) {
      assert.equal(fs.readFileSync(path.join(file, 'requested'), 'utf8'), '0000001');
    }
    // What the request program would refuse is left to it.
    for (const [from, to] of [['copy-video', '..'], ['segment=1', 'segment=1x']]) {
      assert.ok((await get(address(1).replace(from, to))).status >= 400);
    }
  } finally {
    await service.call('Streaming', 'close', { format: 'cmaf', stream_id: cmaf.stream_id, _sid: cmaf.sid });
  }
});

test('a closed stream leaves no pass', async () => {
  await ready();
  await service.call('Streaming', 'close', { format: 'hls', stream_id: stream.stream_id, _sid: stream.sid });
  assert.ok(!fs.existsSync(pass(stream)));
  assert.notEqual((await get(segment)).status, 200);
});
