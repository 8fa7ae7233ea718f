// The media folders as pages with links: what programs read that know nothing of the web API.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { media, Service } from './support.mjs';

const film = path.join(media, 'h264_ac3.mkv');
const password = 'a "pass" & word';
const odd = 'a "b" & <c>\n+%41.mkv';
let base; // holds all folders of this suite
let open; // a service without accounts
let closed; // a service whose accounts are anna and bob

const inBase = (...names) => path.join(base, ...names);

before(async () => {
  base = fs.mkdtempSync(path.join(media, '../files-'));
  for (const name of ['films/sub/deep', 'films/@ea', 'films/.hidden', 'second/films', 'outside']) {
    fs.mkdirSync(inBase(name), { recursive: true });
  }
  for (const name of ['clip 10.mkv', 'clip 2.mkv', odd, 'sub/deep/a.mkv', '@ea/x.mkv', '.hidden/x.mkv', '.x.mkv']) {
    fs.copyFileSync(film, inBase('films', name));
  }
  for (const name of ['clip 2.srt', 'clip 2.nfo', 'poster.jpg', 'private.pdf', 'films.db']) {
    fs.writeFileSync(inBase('films', name), `content of ${name}`);
  }
  fs.copyFileSync(film, Buffer.concat([Buffer.from(inBase('films/caf')), Buffer.from([0xe9]), Buffer.from('.mkv')]));
  fs.copyFileSync(film, inBase('outside/secret.mkv'));
  fs.symlinkSync(inBase('outside/secret.mkv'), inBase('films/leads out.mkv'));
  fs.symlinkSync(inBase('outside'), inBase('films/leads out'));
  fs.symlinkSync(inBase('films/private.pdf'), inBase('films/seems a film.mkv'));
  open = await Service.start([inBase('films'), inBase('second/films')]);
  closed = Service.prepare();
  closed.account(['add', 'anna'], password);
  closed.account(['add', 'bob', '--root', inBase('films/sub')], password);
  await closed.serve([inBase('films')]);
});

after(async () => {
  await open?.finish();
  await closed?.finish();
  fs.rmSync(base, { recursive: true });
});

// Sends exactly this path; fetch would change it.
async function get(service, target, { method = 'GET', headers = {} } = {}) {
  const { hostname, port } = new URL(service.address);
  const request = http.request({ hostname, port, path: target, method, headers }).end();
  const [response] = await once(request, 'response');
  const body = Buffer.concat(await response.toArray());
  return { status: response.statusCode, headers: response.headers, body, text: body.toString() };
}

const basic = (name, words = password) => ({
  headers: { authorization: `Basic ${Buffer.from(`${name}:${words}`).toString('base64')}` },
});
const links = (page) => [...page.text.matchAll(/<a href="([^"]*)">/g)].map(([, link]) => link);

test('the top of the index lists the media folders, each under a name of its own', async () => {
  const page = await get(open, '/files/');
  assert.equal(page.status, 200);
  assert.equal(page.headers['content-type'], 'text/html; charset=utf-8');
  assert.deepEqual(links(page), ['films/', 'films%20%282%29/']);
});

test('a folder lists folders, films and what lies beside them, with time and size, and nothing hidden', async () => {
  const page = await get(open, '/files/films/');
  const names = links(page).map((link) => decodeURIComponent(link.replace('%E9', 'e')));
  assert.deepEqual(names.slice(0, 2), ['../', 'sub/']);
  assert.deepEqual(
    new Set(names.slice(2)),
    new Set([odd, 'cafe.mkv', 'clip 2.mkv', 'clip 2.nfo', 'clip 2.srt', 'clip 10.mkv', 'poster.jpg', 'seems a film.mkv']),
  );
  assert.ok(names.indexOf('clip 2.mkv') < names.indexOf('clip 10.mkv'), 'numbers count by their value');
  const size = fs.statSync(film).size;
  assert.match(page.text, new RegExp(`>clip 2.mkv</a> +\\d\\d-[A-Z][a-z]{2}-\\d{4} \\d\\d:\\d\\d +${size}\n`));
});

// What Kodi's source for web servers makes of such a page, by the rules that its open code states: each line with a link is
// an item if its text is its decoded address; the end of the address tells a folder; time and size stand behind the link.
function kodiReads(page) {
  const plain = (text) => text.replace(/&(amp|lt|gt|quot);/g, (_, name) => ({ amp: '&', lt: '<', gt: '>', quot: '"' })[name]);
  return page.text.split('\n').flatMap((line) => {
    const [, link, text] = line.match(/<a href="(.*)">(.*)<\/a>/i) ?? [];
    const [shown, address] = link === undefined ? [] : [plain(text.trim()), plain(unescape(link.split('?')[0]))].map((one) => one.replace(/\/$/, ''));
    const isItem = link !== undefined && shown === Buffer.from(address, 'latin1').toString() && shown !== '..';
    const [, time] = line.match(/<\/a> +(\d\d-[A-Z]{3}-\d{4} \d\d:\d\d) /i) ?? [];
    return isItem ? [{ name: shown, isFolder: link.endsWith('/'), time, size: Number(line.match(/(\d+)$/)?.[1]) }] : [];
  });
}

test('Kodi finds the folders and films, with time and size', async () => {
  const top = kodiReads(await get(open, '/files/'));
  assert.deepEqual(top.map(({ name, isFolder }) => [name, isFolder]), [['films', true], ['films (2)', true]]);
  const items = kodiReads(await get(open, '/files/films/'));
  assert.deepEqual(items.filter(({ isFolder }) => isFolder).map(({ name }) => name), ['sub']);
  const { size, mtime } = fs.statSync(inBase('films/clip 2.mkv'));
  const found = items.find(({ name }) => name === 'clip 2.mkv');
  assert.equal(found.size, size);
  assert.equal(Date.parse(`${found.time} UTC`), mtime.setSeconds(0, 0));
  assert.ok(items.some(({ name }) => name === 'clip 2.nfo') && items.some(({ name }) => name === 'poster.jpg'), 'what describes the film');
});

test('hostile names are escaped, and their links lead to them', async () => {
  const page = await get(open, '/files/films/');
  assert.ok(page.text.includes('>a &quot;b&quot; &amp; &lt;c&gt;?+%41.mkv</a>'), page.text);
  assert.ok(page.text.includes('>caf?.mkv</a>'), 'a name that is no text');
  for (const link of links(page).filter((name) => /^a%20|^caf/.test(name))) {
    const answer = await get(open, `/files/films/${link}`);
    assert.deepEqual(answer.body, fs.readFileSync(film), link);
  }
});

test('a film is sent whole or in ranges, with its type', async () => {
  const target = '/files/films/clip%2010.mkv';
  const all = fs.readFileSync(film);
  const whole = await get(open, target);
  assert.equal(whole.headers['content-type'], 'video/x-matroska');
  assert.deepEqual(whole.body, all);
  const part = await get(open, target, { headers: { range: 'bytes=100-199' } });
  assert.equal(part.status, 206);
  assert.deepEqual(part.body, all.subarray(100, 200));
  const head = await get(open, target, { method: 'HEAD' });
  assert.equal(Number(head.headers['content-length']), all.length);
  assert.equal(head.body.length, 0);
  assert.equal((await get(open, target, { headers: { range: `bytes=${all.length}-` } })).status, 416);
});

test('an address of a folder without a slash leads to the one with it', async () => {
  for (const [target, location] of [['/files', 'files/'], ['/files/films/sub/deep', 'deep/']]) {
    const answer = await get(open, target);
    assert.equal(answer.status, 301);
    assert.equal(new URL(answer.headers.location, `http://x${target}`).pathname, `${target}/`, location);
  }
});

test('nothing outside the media folders, nothing hidden and no other file is there', async () => {
  const targets = [
    '/files/films/private.pdf', '/files/films/films.db', '/files/films/.x.mkv', '/files/films/.hidden/x.mkv',
    '/files/films/@ea/x.mkv', '/files/films/@ea/', '/files/films/seems%20a%20film.mkv', '/files/films/leads%20out.mkv',
    '/files/films/leads%20out/', '/files/films/leads%20out/secret.mkv', '/files/films/../../outside/secret.mkv',
    '/files/films/%2e%2e/%2e%2e/outside/secret.mkv', '/files/films/..%2f..%2foutside%2fsecret.mkv',
    '/files/films//sub/', '/files/films/./sub/', '/files/%00', '/files/films/%zz', '/files/nothing/',
    `/files${inBase('films')}/clip%202.mkv`, '/files/films/clip%202.mkv/', '/files/films/clip%202.mkv%00.srt', '/filesystem/',
    `/files/films/${'a'.repeat(300)}.mkv`, `/files/films/${'a/'.repeat(500)}`,
  ];
  for (const target of targets) {
    const answer = await get(open, target);
    assert.ok([400, 403, 404].includes(answer.status), `${target}: ${answer.status}`);
    assert.ok(!answer.text.includes('secret.mkv'), target);
  }
});

test('files can only be read', async () => {
  for (const method of ['PUT', 'DELETE', 'POST', 'PROPFIND', 'MKCOL']) {
    const answer = await get(open, '/files/films/clip%202.mkv', { method });
    assert.ok([405, 501].includes(answer.status), `${method}: ${answer.status}`);
  }
  assert.ok(fs.existsSync(inBase('films/clip 2.mkv')));
});

test('a page of another server and a foreign host name get nothing', async () => {
  for (const headers of [{ origin: 'https://tv.example' }, { host: 'evil.example' }]) {
    assert.equal((await get(open, '/files/', { headers })).status, 403);
  }
});

test('with accounts, a request needs a name and a password, and sees the folders of its account', async () => {
  for (const target of ['/files', '/files/', '/files/films/clip%202.mkv']) {
    const answer = await get(closed, target);
    assert.equal(answer.status, 401, target);
    assert.match(answer.headers['www-authenticate'], /^Basic realm="Mirevo"/);
  }
  assert.deepEqual(links(await get(closed, '/files/', basic('anna'))), ['films/']);
  assert.deepEqual(links(await get(closed, '/files/', basic('bob'))), ['sub/']);
  assert.equal((await get(closed, '/files/sub/deep/a.mkv', basic('bob'))).status, 200);
  assert.equal((await get(closed, '/files/films/clip%202.mkv', basic('bob'))).status, 404);
});

test('wrong and malformed logins are refused, and are limited as other logins', async () => {
  const malformed = ['Basic', 'Basic ', 'Basic !!!', 'Basic YW5uYQ==', `Basic ${'A'.repeat(5000)}`, 'Bearer x', 'Basic YQ==\tb'];
  for (const authorization of malformed) {
    assert.equal((await get(closed, '/files/', { headers: { authorization } })).status, 401, authorization);
  }
  const answers = [];
  for (let i = 0; i < 12; i += 1) answers.push((await get(closed, '/files/', basic('carl', `wrong ${i}`))).status);
  assert.equal(answers[0], 401);
  assert.equal(answers.at(-1), 429);
});

test('a right password is checked quickly again, and a new password counts at once', async () => {
  const remembered = () => fs.readdirSync(path.join(closed.root, 'run/mirevo/passwords')).length;
  await get(closed, '/files/', basic('anna'));
  const count = remembered();
  await get(closed, '/files/films/', basic('anna'));
  assert.equal(remembered(), count, 'no second check');
  closed.account(['passwd', 'anna'], 'another password');
  assert.equal((await get(closed, '/files/', basic('anna'))).status, 401);
  assert.equal((await get(closed, '/files/', basic('anna', 'another password'))).status, 200);
});
