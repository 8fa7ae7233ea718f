// The media server as televisions use it: they find it, browse to a film and play it, without a login.
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import { Readable } from 'node:stream';
import { after, before, test } from 'node:test';

import { build, eventually, media, processesWith, readSome, Service } from './support.mjs';
import { ControlPoint, contentDirectory, elements } from './upnp.mjs';

const odd = 'Tom & "Jerry" <1>.mp4';
let base;
let service;
let television;

const inBase = (name) => path.join(base, name);
const mirevo = (words, options = {}) => execFileSync(path.join(build, 'target/bin/mirevo'), words, { env: service.environment, encoding: 'utf8', ...options });
const settings = () => path.join(service.root, 'var/packages/Mirevo/etc/televisions');
const mediaServers = () => processesWith(service.root).filter(({ command }) => command.includes('bin/orvodlnad'));

before(async () => {
  base = fs.mkdtempSync(path.join(media, '../dlna-'));
  fs.mkdirSync(inBase('films/series'), { recursive: true });
  fs.mkdirSync(inBase('secret'));
  for (const name of [`films/${odd}`, 'films/series/clip 10.mp4', 'films/series/clip 2.mp4', 'films/series/Harbour.Lights.S01E02.The.Storm.720p.mp4', 'secret/private.mp4']) {
    fs.copyFileSync(path.join(media, 'h264_aac.mp4'), inBase(name));
  }
  fs.copyFileSync(path.join(media, 'vp9_opus.webm'), inBase('films/web.webm'));
  fs.writeFileSync(inBase('films/web.srt'), '1\n00:00:00,000 --> 00:00:01,000\nHello\n');
  fs.writeFileSync(inBase('films/web.nfo'), '<movie><title>A film for the web</title></movie>');
  fs.symlinkSync(inBase('secret/private.mp4'), inBase('films/leads out.mp4'));
  service = Service.prepare();
  service.account(['add', 'anna'], 'a password');
  service.account(['add', 'telly', '--root', inBase('films')], 'another one');
  await service.serve([inBase('films'), inBase('secret')], ['--dlna-interface', 'lo']);
});

after(async () => {
  await service?.finish();
  fs.rmSync(base, { recursive: true });
});

test('nobody is shown anything before an owner says whose films', async () => {
  assert.deepEqual(mediaServers(), []);
  assert.equal(mirevo(['dlna']), 'televisions: off\n');
  assert.throws(() => mirevo(['dlna', 'on'], { stdio: 'pipe' }), { status: 64, stderr: /Name an account with --account/ });
  assert.throws(() => mirevo(['dlna', 'on', '--account', 'bob'], { stdio: 'pipe' }), { status: 1, stderr: /no account "bob"/ });
  assert.equal((await fetch(`${service.address}/dlna/browse?id=0`)).status, 404);
  assert.ok(!fs.existsSync(settings()));
});

test('a television finds the media server and the descriptions of its services', async () => {
  assert.match(mirevo(['dlna', 'on', '--account', 'telly']), /on, with the films of telly/);
  assert.equal(fs.statSync(settings()).mode & 0o777, 0o600, 'the file holds secrets');
  television = await ControlPoint.open(JSON.parse(fs.readFileSync(settings(), 'utf8')).device);
  assert.match(television.description, /<deviceType>urn:schemas-upnp-org:device:MediaServer:1</);
  for (const name of elements(television.description, 'serviceType')) {
    const description = await fetch(television.addressOf(name, 'SCPDURL'));
    assert.equal(description.status, 200);
    assert.match(await description.text(), /<scpd xmlns="urn:schemas-upnp-org:service-1-0">/);
  }
});

// What is at the top and in its folder, when the service knows the facts of all films.
async function known() {
  return eventually(async () => {
    const top = (await television.browse('0')).objects;
    const inside = (await television.browse(top[0].id)).objects;
    const films = [...top.slice(1), ...inside];
    return films.every(({ forms }) => forms[0].duration !== '') ? { top, inside } : undefined;
  });
}

test('it browses through the folders of that account and no others', async () => {
  const { top, inside } = await known();
  assert.equal((await television.browse('0')).total, 3);
  assert.deepEqual(top.map(({ kind, title, parent }) => [kind, title, parent]), [
    ['container', 'series', '0'],
    ['item', 'Tom & "Jerry" <1>', '0'],
    ['item', 'A film for the web', '0'],
  ]);
  const [series] = top;
  assert.deepEqual(inside.map(({ title, parent }) => [title, parent]), [['clip 2', series.id], ['clip 10', series.id], ['Harbour Lights S01E02 – The Storm', series.id]]);
  const self = await television.browse(inside[0].id, { self: true });
  assert.deepEqual(self.objects, [inside[0]]);
});

test('it gets a long folder in parts', async () => {
  const { top: objects } = await known();
  const second = await television.browse('0', { start: 1, count: 1 });
  assert.equal(second.total, 3);
  assert.deepEqual(second.objects, [objects[1]]);
  assert.deepEqual((await television.browse('0', { start: 7, count: 5 })).objects, []);
});

test('each film has the file itself and a conversion, and each tells what it is', async () => {
  const film = (await known()).top[2];
  const [own, converted] = film.forms;
  assert.match(own.protocol, /^http-get:\*:video\/webm:DLNA\.ORG_OP=01;DLNA\.ORG_CI=0;DLNA\.ORG_FLAGS=01[0-9]{30}$/);
  assert.equal(own.size, fs.statSync(inBase('films/web.webm')).size);
  assert.match(own.duration, /^0:00:\d\d\.\d{3}$/);
  assert.match(converted.protocol, /^http-get:\*:video\/mp2t:DLNA\.ORG_OP=10;DLNA\.ORG_CI=1;/);
  const [poster] = elements(film.xml, 'upnp:albumArtURI');
  // A busy server makes it later.
  await eventually(async () => ((await fetch(poster)).headers.get('content-type') === 'image/jpeg' ? true : undefined));
  const [subtitle] = elements(film.xml, 'sec:CaptionInfoEx');
  assert.match(await (await fetch(subtitle)).text(), /Hello/);
});

test('it plays the file itself from any byte', async () => {
  const [own] = (await television.browse('0')).objects[1].forms;
  const bytes = fs.readFileSync(path.join(media, 'h264_aac.mp4'));
  const part = await fetch(own.address, { headers: { range: 'bytes=1000-1999', 'getcontentFeatures.dlna.org': '1' } });
  assert.equal(part.status, 206);
  assert.equal(part.headers.get('transfermode.dlna.org'), 'Streaming');
  assert.match(part.headers.get('contentfeatures.dlna.org'), /DLNA\.ORG_OP=01/);
  assert.deepEqual(Buffer.from(await part.arrayBuffer()), bytes.subarray(1000, 2000));
});

// The number of video frames that FFmpeg decodes from the beginning of a transport stream.
async function framesOf(bytes) {
  const words = ['-v', 'error', '-f', 'mpegts', '-i', 'pipe:0', '-map', '0:v', '-frames:v', '5', '-f', 'framecrc', 'pipe:1'];
  const ffmpeg = spawn('/usr/bin/ffmpeg', words, { stdio: ['pipe', 'pipe', 'ignore'] });
  ffmpeg.stdin.on('error', () => {}); // it has seen enough
  Readable.from([bytes]).pipe(ffmpeg.stdin);
  const text = Buffer.concat(await ffmpeg.stdout.toArray()).toString();
  return text.split('\n').filter((line) => /^0,/.test(line)).length;
}

test('it plays the conversion, and seeks in it by time', async () => {
  const { address } = (await television.browse('0')).objects[2].forms[1];
  const head = await fetch(address, { method: 'HEAD' });
  assert.deepEqual([head.status, head.headers.get('content-type')], [200, 'video/mp2t']);
  assert.deepEqual(service.transcoders(), [], 'a question starts nothing');
  const headers = { 'TimeSeekRange.dlna.org': 'npt=0:00:03.000-' };
  for (const wish of [{}, headers]) {
    const leave = new AbortController();
    const playing = await fetch(address, { headers: wish, signal: leave.signal });
    assert.equal(playing.headers.get('content-type'), 'video/mp2t');
    assert.equal(playing.headers.get('timeseekrange.dlna.org')?.split('-')[0], wish === headers ? 'npt=3.000' : undefined);
    assert.equal(await framesOf(await readSome(playing, 300_000)), 5);
    leave.abort();
  }
  await service.isQuiet();
});

test('the file it fetches is not there for who does not know its address', async () => {
  const { address } = (await television.browse('0')).objects[1].forms[0];
  const changed = address.replace(/\/dlna\/(.)/, (_, first) => `/dlna/${first === 'A' ? 'B' : 'A'}`);
  assert.equal((await fetch(changed)).status, 404);
  assert.equal((await fetch(`${service.address}/dlna/browse?id=0`)).status, 403, 'only the media server browses');
});

test('events tell that the library has changed', async (t) => {
  const { createServer } = await import('node:http');
  const receiver = createServer().listen(0, '127.0.0.1');
  t.after(() => receiver.close().closeAllConnections());
  await once(receiver, 'listening');
  const notified = once(receiver, 'request');
  const callback = `<http://127.0.0.1:${receiver.address().port}/event>`;
  const subscribed = await fetch(television.addressOf(contentDirectory, 'eventSubURL'), { method: 'SUBSCRIBE', headers: { callback, nt: 'upnp:event', timeout: 'Second-300' } });
  assert.equal(subscribed.status, 200);
  const [event, answer] = await notified;
  assert.match(Buffer.concat(await event.toArray()).toString(), /<SystemUpdateID>\d+<\/SystemUpdateID>/);
  answer.end();
  const sid = subscribed.headers.get('sid');
  assert.equal((await fetch(television.addressOf(contentDirectory, 'eventSubURL'), { method: 'UNSUBSCRIBE', headers: { sid } })).status, 200);
});

test('an owner switches it off, and a film that plays no more is not there', async () => {
  const { address } = (await television.browse('0')).objects[1].forms[0];
  assert.equal(mirevo(['dlna', 'off']), 'televisions: off\n');
  await eventually(() => (mediaServers().length === 0 ? true : undefined));
  assert.equal((await fetch(address)).status, 404);
  assert.ok(!fs.existsSync(path.join(service.root, 'run/mirevo/dlna')), 'it leaves nothing behind');
});
