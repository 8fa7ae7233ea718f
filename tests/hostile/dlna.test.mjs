// Attacks on the media server for televisions, which answers everybody on the local network.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { build, eventually, media, processesWith, Service } from '../service/support.mjs';
import { ControlPoint, contentDirectory } from '../service/upnp.mjs';

let base;
let service;
let television;

before(async () => {
  base = fs.mkdtempSync(path.join(media, '../hostile-dlna-'));
  fs.mkdirSync(path.join(base, 'films'));
  fs.copyFileSync(path.join(media, 'h264_ac3.mkv'), path.join(base, 'films/a.mkv'));
  fs.copyFileSync(path.join(media, 'h264_ac3.mkv'), path.join(base, 'outside.mkv'));
  service = Service.prepare();
  execFileSync(path.join(build, 'target/bin/mirevo'), ['dlna', 'on'], { env: service.environment });
  await service.serve([path.join(base, 'films')], ['--dlna-interface', 'lo']);
  const settings = path.join(service.root, 'var/packages/Mirevo/etc/televisions');
  television = await ControlPoint.open(JSON.parse(fs.readFileSync(settings, 'utf8')).device);
});

after(async () => {
  await service?.finish();
  fs.rmSync(base, { recursive: true });
});

const browse = (inputs) => television.call(contentDirectory, 'Browse', { ObjectID: '0', BrowseFlag: 'BrowseDirectChildren', Filter: '*', StartingIndex: 0, RequestedCount: 0, SortCriteria: '', ...inputs });
const stillAnswers = async () => assert.equal((await television.browse('0')).total, 1);

// Sends these bytes and nothing more. Returns what comes until the connection ends or `enough` has come.
async function send(address, bytes, enough = /\r\n\r\n/) {
  const { hostname, port } = new URL(address);
  const socket = net.connect({ host: hostname, port });
  let answer = '';
  socket.on('error', () => {}); // the server hangs up
  socket.on('data', (chunk) => {
    answer += chunk;
    if (enough.test(answer)) socket.destroy();
  });
  socket.write(bytes);
  await once(socket, 'close');
  return answer;
}

test('names that the server did not make are no objects', async () => {
  const { objects } = await television.browse('0');
  const good = objects[0].id;
  const names = ['1', '-1', '..', '../../etc/passwd', path.join(base, 'outside.mkv'), path.join(base, 'films/a.mkv'), good.slice(0, -1), `${good}A`, 'x'.repeat(10_000), '\'"&<>%00', ''];
  for (const id of names) assert.equal((await browse({ ObjectID: id })).error, 701, id);
  await stillAnswers();
});

test('addresses that the server did not make lead to no film', async () => {
  const { forms: [{ address }] } = (await television.browse('0')).objects[0];
  const good = new URL(address).pathname;
  const id = good.split('/')[2];
  for (const target of [`/dlna/${id}`, `/dlna/${id}/`, `/dlna/${id}/other`, `/dlna/${id}/../../films/a.mkv`, '/dlna/../etc/passwd', '/dlna//film.mkv', `/dlna/${encodeURIComponent(path.join(base, 'outside.mkv'))}/film.mkv`, '/dlna/%00/film.mkv']) {
    const answer = await send(service.address, `GET ${target} HTTP/1.0\r\nHost: ${new URL(service.address).host}\r\n\r\n`);
    assert.match(answer, /^HTTP\/1\.[01] 40[0-9] /, target);
  }
  const posted = await fetch(address, { method: 'POST', body: 'x' });
  assert.equal(posted.status, 405);
  const embedded = await fetch(address, { headers: { 'sec-fetch-site': 'cross-site' } });
  assert.equal(embedded.status, 403, 'no page of another server gets it');
});

test('a film that is replaced by a link to another place is not sent', async () => {
  const film = path.join(base, 'films/a.mkv');
  const { forms: [{ address }] } = (await television.browse('0')).objects[0];
  fs.renameSync(film, `${film}.kept`);
  fs.symlinkSync(path.join(base, 'outside.mkv'), film);
  assert.ok([403, 404].includes((await fetch(address)).status));
  fs.unlinkSync(film);
  fs.renameSync(`${film}.kept`, film);
  assert.equal((await fetch(address, { method: 'HEAD' })).status, 200);
});

test('arguments that are none are refused', async () => {
  for (const inputs of [{ BrowseFlag: 'BrowseAll' }, { BrowseFlag: '' }]) {
    assert.equal((await browse(inputs)).error, 402);
  }
  for (const count of ['4294967295', '-1', 'many']) {
    const answer = await browse({ StartingIndex: count, RequestedCount: count });
    assert.ok(answer.status === 200 || answer.error > 0, count);
  }
  await stillAnswers();
});

test('a body that is too long, or does not say how long it is, is not read', async () => {
  const address = television.addressOf(contentDirectory, 'controlURL');
  const head = `POST ${new URL(address).pathname} HTTP/1.1\r\nHost: ${new URL(address).host}\r\nSOAPACTION: "${contentDirectory}#Browse"\r\nContent-Type: text/xml\r\n`;
  const long = 'x'.repeat(1 << 20);
  for (const bytes of [`${head}Content-Length: 1048576\r\n\r\n${long}`, `${head}Content-Length: 99999999999\r\n\r\n${long}`, `${head}Transfer-Encoding: chunked\r\n\r\n100000\r\n${long}\r\n0\r\n\r\n`]) {
    const answer = await send(address, bytes);
    assert.ok(answer === '' || / 413 /.test(answer), answer);
  }
  assert.match(await send(address, `${head}Content-Length: 9\r\n\r\n<not xml>`), /^HTTP\/1\.1 [45]/);
  await stillAnswers();
});

test('subscriptions are counted, and a client that takes all of them takes nothing else', async () => {
  const address = television.addressOf(contentDirectory, 'eventSubURL');
  const headers = { callback: '<http://127.0.0.1:9/>', nt: 'upnp:event', timeout: 'Second-300' };
  const statuses = [];
  for (let i = 0; i < 200; i += 1) statuses.push((await fetch(address, { method: 'SUBSCRIBE', headers })).status);
  assert.equal(statuses.filter((status) => status === 200).length, 64);
  assert.equal(statuses.filter((status) => status === 503).length, 136);
  await stillAnswers();
});

test('a crowd that browses is answered or told to come back', async () => {
  const answers = await Promise.all(Array.from({ length: 150 }, () => browse({})));
  assert.ok(answers.every(({ status, error }) => status === 200 || error === 720));
  assert.ok(answers.some(({ status }) => status === 200));
  await stillAnswers();
});

test('connections that say nothing give way to new ones', async () => {
  const { hostname, port } = new URL(television.location);
  const open = new Set();
  const sockets = [];
  for (let i = 0; i < 100; i += 1) {
    const socket = net.connect({ host: hostname, port });
    await once(socket, 'connect');
    open.add(socket);
    sockets.push(socket.on('error', () => {}).on('close', () => open.delete(socket)).resume());
  }
  await eventually(() => (open.size <= 64 ? true : undefined), undefined, () => `${open.size} connections are open`);
  await stillAnswers();
  assert.ok(open.size > 50, 'the others stay');
  for (const socket of sockets) socket.destroy();
});

test('the media server reaches no film', () => {
  const [{ pid }] = processesWith(service.root).filter(({ command }) => command.includes('bin/orvodlnad'));
  assert.match(fs.readFileSync(`/proc/${pid}/status`, 'latin1'), /^NoNewPrivs:\t1$/m);
});
