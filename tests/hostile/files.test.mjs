// Attacks with files by somebody who may write to a media folder: films that become links, and things that are no
// files.
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { eventually, media, Service } from '../service/support.mjs';

const password = 'correct horse battery';
const secret = 'argon2'; // in the accounts file and nowhere else
const soon = 20_000; // for an answer that takes a few milliseconds on an idle machine
let service;
let folder;
let session;

const inFolder = (name) => path.join(folder, name);
const accounts = () => path.join(service.root, 'var/packages/Mirevo/etc/accounts');

before(async () => {
  folder = fs.mkdtempSync(path.join(media, '../files-'));
  service = Service.prepare();
  service.account(['add', 'anna'], password);
  await service.serve([folder]);
  const form = new URLSearchParams({ account: 'anna', passwd: password });
  const answer = await fetch(service.query('Auth', 'login'), { method: 'POST', body: form });
  session = { _sid: (await answer.json()).data._sid };
  assert.ok(fs.readFileSync(accounts(), 'utf8').includes(secret));
});
after(async () => {
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});

const ask = (api, method, parameters) => fetch(service.query(api, method, { ...session, ...parameters }));
const open = async (name, parameters) =>
  (await (await ask('Streaming', 'open', { path: inFolder(name), ...parameters })).json()).data;
const close = (format, stream) => ask('Streaming', 'close', { format, stream_id: stream.stream_id });
const copy = (from, to) => fs.copyFileSync(path.join(media, from), inFolder(to));

// Makes `name` lead to `target` in one step.
function replaceByLink(name, target) {
  fs.symlinkSync(target, inFolder('.next'));
  fs.renameSync(inFolder('.next'), inFolder(name));
}

// Calls `body` while a process swaps `name` for a link to `target` and back, as fast as it can.
async function whileSwapped(name, target, body) {
  fs.linkSync(inFolder(name), inFolder('.real'));
  fs.symlinkSync(target, inFolder('.link'));
  const swap = `
    import os, sys
    name, real, link = sys.argv[1:]
    print(flush=True)
    while True:
        for other in (link, real):
            os.link(other, name + '.new', follow_symlinks=False)
            os.rename(name + '.new', name)
            if os.path.lexists(name + '.new'):
                os.unlink(name + '.new')  # both were the same file
  `.replace(/^ {4}/gm, '');
  const process = spawn('python3', ['-c', swap, inFolder(name), inFolder('.real'), inFolder('.link')], {
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  await once(process.stdout, 'data');
  try {
    await body();
  } finally {
    process.kill('SIGKILL');
    await once(process, 'exit');
    for (const left of [name, `${name}.new`, '.link']) fs.rmSync(inFolder(left), { force: true });
    fs.renameSync(inFolder('.real'), inFolder(name));
  }
}

// Asks again and again. Returns how many answers there were of each status; none may hold the secret.
async function askOften(times, request) {
  const seen = {};
  for (let i = 0; i < times; ++i) {
    const answer = await request();
    const body = Buffer.from(await answer.arrayBuffer()).toString('latin1');
    assert.ok(!body.includes(secret), `answer ${i} (${answer.status}) shows the accounts`);
    seen[answer.status] = (seen[answer.status] ?? 0) + 1;
  }
  return seen;
}

test('a film that is swapped for a link while it is sent never shows what the link leads to', async () => {
  copy('h264_aac.mp4', 'swapped.mp4');
  const stream = await open('swapped.mp4', { format: 'direct' });
  await whileSwapped('swapped.mp4', accounts(), async () => {
    const seen = await askOften(150, () => fetch(stream.url, { headers: { Range: 'bytes=0-999' } }));
    assert.ok(seen[206] > 0, `some requests met the film: ${JSON.stringify(seen)}`);
    assert.ok(Object.keys(seen).some((status) => status >= 400), `some met the link: ${JSON.stringify(seen)}`);
  });
  await close('direct', stream);
});

test('a film that is swapped for a link is described, shown and opened as itself or not at all', async () => {
  copy('h264_aac.mp4', 'shown.mp4');
  await whileSwapped('shown.mp4', accounts(), async () => {
    for (const [api, method, more] of [
      ['Library', 'info', {}],
      ['Library', 'card', {}],
      ['Library', 'poster', {}],
      ['Streaming', 'open', { format: 'direct' }],
    ]) {
      await askOften(12, () => ask(api, method, { path: inFolder('shown.mp4'), ...more }));
    }
  });
});

test('a subtitle file that is swapped for a link never shows what the link leads to', async () => {
  copy('h264_aac.mp4', 'titled.mp4');
  const cue = '1\n00:00:01,000 --> 00:00:02,000\nwords\n';
  fs.writeFileSync(inFolder('titled.srt'), cue);
  // As a cue, the accounts would be in the answer.
  fs.writeFileSync(path.join(service.root, 'cues.srt'), cue.replace('words', secret));
  const stream = await open('titled.mp4', { format: 'direct' });
  let page = 0;
  await whileSwapped('titled.srt', path.join(service.root, 'cues.srt'), async () => {
    const pages = ['', 'UTF-8', 'CP1252', 'ISO-8859-1'];
    await askOften(40, () =>
      ask('Subtitle', 'get', {
        id: stream.stream_id,
        stream_id: stream.stream_id,
        subtitle_id: inFolder('titled.srt'),
        subtitle_codepage: pages[page++ % pages.length],
      }),
    );
  });
  await close('direct', stream);
});

test('links within a root work, and links out of it do not', async () => {
  copy('h264_aac.mp4', 'real.mp4');
  fs.mkdirSync(inFolder('real'));
  fs.renameSync(inFolder('real.mp4'), inFolder('real/film.mp4'));
  fs.symlinkSync('real/film.mp4', inFolder('inside.mp4'));
  fs.symlinkSync('real', inFolder('folder'));
  fs.symlinkSync(path.join(media, 'h264_aac.mp4'), inFolder('outside.mp4'));
  for (const name of ['inside.mp4', 'folder/film.mp4']) {
    const stream = await open(name, { format: 'direct' });
    const sent = Buffer.from(await (await fetch(stream.url)).arrayBuffer());
    assert.deepEqual(sent, fs.readFileSync(path.join(media, 'h264_aac.mp4')), name);
    await close('direct', stream);
  }
  const refused = await ask('Streaming', 'open', { path: inFolder('outside.mp4'), format: 'direct' });
  assert.equal(refused.status, 403);
});

test('a film that was replaced after its opening is not played under the old address', async () => {
  copy('h264_aac.mp4', 'replaced.mp4');
  const streams = { direct: await open('replaced.mp4', { format: 'direct' }) };
  streams.http = await open('replaced.mp4', { format: 'http' });
  copy('h264_aac.mp4', 'other.mp4');
  fs.renameSync(inFolder('other.mp4'), inFolder('replaced.mp4'));
  const answer = await fetch(streams.direct.url);
  assert.equal(answer.status, 404);
  assert.match((await answer.json()).error.message, /has been replaced/);
  const transcoded = await fetch(streams.http.url);
  assert.equal((await transcoded.arrayBuffer()).byteLength === 0 || transcoded.status >= 400, true);
  for (const [format, stream] of Object.entries(streams)) await close(format, stream);
});

// Starts no process that waits, and answers.
async function isRefusedSoon(api, method, parameters) {
  const answer = await fetch(service.query(api, method, { ...session, ...parameters }), {
    signal: AbortSignal.timeout(soon),
  });
  assert.ok(answer.status >= 400 && answer.status < 500, `${method}: ${answer.status}`);
  await answer.arrayBuffer();
}

test('pipes, sockets and devices are neither films nor subtitles', async () => {
  execFileSync('mkfifo', [inFolder('pipe.mkv'), inFolder('odd.srt')]);
  const listener = net.createServer();
  const place = process.cwd();
  process.chdir(folder); // a socket's path is short
  listener.listen('socket.mkv');
  process.chdir(place);
  await once(listener, 'listening');
  const names = ['pipe.mkv', 'socket.mkv'];
  if (process.getuid() === 0) {
    try {
      execFileSync('mknod', [inFolder('device.mkv'), 'c', '1', '5'], { stdio: 'ignore' });
      names.push('device.mkv');
    } catch {
      // a container without that right
    }
  }
  for (const name of names) {
    for (const [api, method, more] of [
      ['Library', 'info', {}],
      ['Library', 'card', {}],
      ['Library', 'thumbnail', { time: 0 }],
      ['Streaming', 'open', { format: 'direct' }],
      ['Streaming', 'open', { format: 'hls' }],
    ]) {
      await isRefusedSoon(api, method, { path: inFolder(name), ...more });
    }
  }
  copy('h264_aac.mp4', 'odd.mp4');
  const stream = await open('odd.mp4', { format: 'direct' });
  await isRefusedSoon('Subtitle', 'get', {
    id: stream.stream_id,
    stream_id: stream.stream_id,
    subtitle_id: inFolder('odd.srt'),
  });
  await close('direct', stream);
  await new Promise((resolve) => listener.close(resolve));
});

test('a transcoder reads the film that was opened, whatever its name leads to now', async () => {
  copy('h264_ac3.mkv', 'kept.mkv');
  const stream = await open('kept.mkv', { format: 'http', profile: 'http_mp4_240p_vb300_ab96' });
  const answer = await fetch(stream.url);
  const reader = answer.body.getReader();
  await reader.read();
  const { pid, command } = await eventually(() => service.transcoders()[0]);
  assert.match(command, /-i file:\/proc\/self\/fd\/\d+ /);
  assert.ok(!command.includes(folder), command);
  const descriptor = command.match(/-i file:\/proc\/self\/fd\/(\d+) /)[1];
  assert.equal(fs.readlinkSync(`/proc/${pid}/fd/${descriptor}`), inFolder('kept.mkv'));
  await reader.cancel();
  await close('http', stream);
  await eventually(() => (service.transcoders().length === 0 ? true : undefined));
});

test('the web server may send pieces of streams and pictures, and nothing else', () => {
  const configuration = fs.readFileSync(path.join(service.root, 'run/mirevo/lighttpd.conf'), 'utf8');
  const folders = configuration.match(/cgi\.x-sendfile-docroot = \(([^)]*)\)/)[1].match(/"[^"]+"/g);
  const secrets = ['var/packages/Mirevo/etc', 'tmp/Mirevo/tickets', 'run/mirevo'].map((name) => path.join(service.root, name));
  for (const each of folders.map((quoted) => JSON.parse(quoted))) {
    for (const hidden of [folder, ...secrets]) {
      assert.ok(!`${hidden}/`.startsWith(`${each}/`), `${each} holds ${hidden}`);
    }
  }
});

test('a link in place of a film leads nowhere when its stream is played', async () => {
  copy('h264_aac.mp4', 'linked.mp4');
  const stream = await open('linked.mp4', { format: 'direct' });
  replaceByLink('linked.mp4', accounts());
  const answer = await fetch(stream.url);
  assert.ok(answer.status >= 400);
  assert.ok(!(await answer.text()).includes(secret));
  await close('direct', stream);
});
