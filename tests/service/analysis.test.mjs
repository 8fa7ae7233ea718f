// The library's films are analyzed in the background, without anybody asking for it.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { aboutProcess, build, eventually, media, processesWith, Service } from './support.mjs';

const RESULT = 'ORVOVIDEO_PREPROCESS_V1';
const patience = 240_000; // the analysis runs only when nothing else wants the processors

// Prints the names that the catalog remembers of a folder, in their order.
const READ_CATALOG = `
import sqlite3, sys
rows = sqlite3.connect(sys.argv[1]).execute(
    "SELECT name FROM entries JOIN folders ON id = folder WHERE path = ? ORDER BY key", (sys.argv[2].encode(),))
print(",".join(name.decode() for name, in rows))`;
let service;
let films;

before(async () => {
  service = Service.prepare();
  films = path.join(service.root, 'films');
  fs.mkdirSync(path.join(films, 'walled'), { recursive: true });
  put('h264_ac3.mkv', 'present.mkv');
  // Nothing can be made below a file.
  put('h264_aac.mp4', 'walled/film.mp4');
  fs.writeFileSync(path.join(films, 'walled/@ea'), '');
  fs.writeFileSync(path.join(films, 'text.mkv'), 'This is no film.\n');
  await service.serve([films], [], { analysis: true });
});

after(() => service.stop());

// The film has another time than its model: it was made now.
function put(model, name) {
  const film = path.join(films, name);
  fs.mkdirSync(path.dirname(film), { recursive: true });
  fs.copyFileSync(path.join(media, model), film);
  return film;
}

const resultOf = (film) => path.join(path.dirname(film), '@ea', path.basename(film), RESULT);

// The result as it is once there is one, other than `older`.
function result(film, older) {
  return eventually(() => {
    const file = resultOf(film);
    const content = fs.existsSync(file) ? fs.readFileSync(file, 'latin1') : undefined;
    return content === older ? undefined : content;
  }, patience, () => `no result of ${film}: ${JSON.stringify(state())}`);
}

const state = () => {
  const file = path.join(service.root, 'run/mirevo/analysis');
  return fs.existsSync(file) ? JSON.parse(fs.readFileSync(file, 'utf8')) : undefined;
};
const isIdle = () => eventually(() => (state()?.waiting === 0 && !state().film ? true : undefined), patience);

// The process that watches the library. Its child works on a film.
function watcher() {
  const all = processesWith(service.root).filter(({ command }) => command.includes('mirevo-analyze --watch'));
  const parent = ({ pid }) => Number(aboutProcess(pid, 'stat').replace(/.*\) /s, '').split(' ')[1]);
  return all.find((one) => parent(one) === service.process.pid);
}

// How many segments the film's playlist has, and how long they are together.
async function playlistOf(film) {
  const { data } = await service.call('Streaming', 'open', { format: 'hls', profile: 'hls_remux', path: film });
  const text = await (await fetch(new URL(data.url, service.address))).text();
  const segments = text.split('\n').filter((line) => line.startsWith('/'));
  const lengths = [...text.matchAll(/#EXTINF:([\d.]+)/g)].map(([, length]) => Number(length));
  return { stream: data.stream_id, segments, lengths };
}
const close = (stream) => service.call('Streaming', 'close', { format: 'hls', stream_id: stream });

test('the films of the library get results', async () => {
  await result(path.join(films, 'present.mkv'));
});

test('a stream is planned from the result as soon as it is there', async () => {
  const { stream, segments, lengths } = await playlistOf(path.join(films, 'present.mkv'));
  const answer = await fetch(new URL(segments[1], service.address));
  assert.equal(answer.status, 200);
  const segment = path.join(service.root, 'segment.ts');
  fs.writeFileSync(segment, Buffer.from(await answer.arrayBuffer()));
  const probed = execFileSync('ffprobe', ['-v', 'error', '-select_streams', 'v:0', '-show_entries', 'packet=flags', '-of', 'csv=p=0', segment], { encoding: 'utf8' });
  assert.match(probed, /^K/, 'a segment begins with a key frame');
  assert.ok(Math.abs(lengths.reduce((sum, length) => sum + length) - 60) < 0.1);
  await close(stream);
});

test('a film whose folder cannot be written gets a plan all the same', async () => {
  await isIdle();
  const own = path.join(service.root, 'var/packages/Mirevo/cache/keyframes');
  const records = fs.readdirSync(own).map((name) => fs.readFileSync(path.join(own, name, 'film'), 'utf8').split('\n'));
  const record = records.find((lines) => lines[2].endsWith('/walled/film.mp4'));
  assert.equal(record[1], '');
  const { stream } = await playlistOf(path.join(films, 'walled/film.mp4'));
  const kept = path.join(service.root, 'tmp/Mirevo/HLS', stream, 'pre_analysis');
  assert.ok(fs.statSync(kept).size > 0, 'the stream has a plan');
  await close(stream);
});

test('what is no film is tried once', async () => {
  await isIdle();
  const own = path.join(service.root, 'var/packages/Mirevo/cache/keyframes');
  const failures = fs.readdirSync(own).filter((name) => /\/text\.mkv$/.test(fs.readFileSync(path.join(own, name, 'film'), 'utf8')));
  assert.equal(failures.length, 1);
  const tried = fs.statSync(path.join(own, failures[0], 'film')).mtimeMs;
  process.kill(watcher().pid, 'SIGKILL');
  await eventually(() => (watcher() ? true : undefined));
  await isIdle();
  assert.equal(fs.statSync(path.join(own, failures[0], 'film')).mtimeMs, tried);
});

test('status and doctor say how far it is and what has failed', () => {
  const mirevo = (command) =>
    execFileSync(path.join(build, 'target/bin/mirevo'), [command], { env: service.environment, encoding: 'utf8' });
  assert.match(mirevo('status'), /^key frames: \d+ films analyzed, \d+ failed, \d+ in line/m);
  assert.match(mirevo('doctor'), /key frames +failed: 1, such as \S+text\.mkv: Invalid data/);
});

test('a film that is added gets a result, in a new folder, too', async () => {
  await result(put('h264_aac.mp4', 'new/deep/added.mp4'));
  const aside = put('h264_ac3.mkv', 'new/.aside');
  const moved = path.join(films, 'new/moved.mkv');
  fs.renameSync(aside, moved);
  await result(moved);
});

test('a film that is still being copied waits until it is closed', async () => {
  const content = fs.readFileSync(path.join(media, 'mpeg2_mp2.ts'));
  const film = path.join(films, 'slow.ts');
  const file = fs.openSync(film, 'w');
  fs.writeSync(file, content.subarray(0, content.length >> 1));
  await eventually(() => (state()?.waiting > 0 ? true : undefined), patience);
  await result(put('h264_aac.mp4', 'later.mp4'));
  await eventually(() => (state().waiting === 1 && !state().film ? true : undefined), patience);
  assert.ok(!fs.existsSync(resultOf(film)), 'its turn came, and it was left');
  fs.writeSync(file, content.subarray(content.length >> 1));
  fs.closeSync(file);
  await result(film);
});

test('a film that is replaced gets a result of its own', async () => {
  const film = put('h264_aac.mp4', 'replaced.mp4');
  const older = await result(film);
  const next = put('hevc10_aac.mov', '.next');
  const past = new Date(Date.now() - 86400000);
  fs.utimesSync(next, past, past);
  fs.renameSync(next, film);
  assert.notEqual(await result(film, older), older);
});

test('an open stream keeps its plan', async () => {
  const film = put('h264_aac.mp4', 'open.mp4');
  const { stream, segments, lengths } = await playlistOf(film);
  const sizeOf = () => fs.statSync(path.join(service.root, 'tmp/Mirevo/HLS', stream, 'pre_analysis')).size;
  const size = sizeOf();
  await result(film);
  assert.equal((await fetch(new URL(segments.at(-1), service.address))).status, 200);
  assert.equal(sizeOf(), size);
  assert.equal(segments.length, lengths.length);
  await close(stream);
});

test('it goes on after it was killed, with what it was at', async () => {
  await isIdle();
  const { pid } = watcher();
  process.kill(pid, 'SIGSTOP');
  const film = put('h264_ac3.mkv', 'after.mkv');
  process.kill(pid, 'SIGKILL');
  await result(film);
  assert.notEqual(watcher().pid, pid);
});

test('the library does not show what lies beside films', async () => {
  for (const name of ['@eaDir', '#recycle', '$RECYCLE.BIN', 'lost+found', '.hidden', 'System Volume Information']) {
    put('h264_aac.mp4', `${name}/secret.mp4`);
  }
  put('h264_aac.mp4', '@ea/secret.mp4');
  const { data } = await service.call('Library', 'list', { path: films });
  assert.deepEqual(data.folders.map(({ name }) => name), ['new', 'walled']);
  assert.deepEqual((await service.call('Library', 'search', { q: 'secret' })).data.files, []);
  fs.rmSync(path.join(films, 'text.mkv'));
  const out = execFileSync(path.join(build, 'target/bin/mirevo'), ['analyze', '--json', films], {
    env: service.environment,
    encoding: 'utf8',
  });
  assert.ok(!out.includes('secret'));
});

test('the catalog follows the folders, and a change is listed before the catalog knows it', async () => {
  const folder = path.join(films, 'catalog');
  const database = path.join(service.root, 'var/packages/Mirevo/cache/catalog/films.db');
  const remembered = () => execFileSync('python3', ['-c', READ_CATALOG, database, folder], { encoding: 'utf8' }).trim();
  const listed = async () => {
    const { data } = await service.call('Library', 'list', { path: folder });
    return data.files.map(({ name }) => name);
  };
  put('mpeg4_mp3.avi', 'catalog/2.avi');
  assert.deepEqual(await listed(), ['2.avi']);
  await eventually(() => (remembered() === '2.avi' ? true : undefined), patience);
  put('mpeg4_mp3.avi', 'catalog/10.avi');
  assert.deepEqual(await listed(), ['2.avi', '10.avi']);
  await eventually(() => (remembered() === '2.avi,10.avi' ? true : undefined), patience);
  fs.rmSync(folder, { recursive: true });
  await eventually(() => (remembered() === '' ? true : undefined), patience);
});

test('the service ends while a film is analyzed, and nothing half is left', async () => {
  await isIdle();
  for (let i = 0; i < 20; ++i) put('mpeg2_mp2.ts', `last/${i}.ts`);
  await eventually(() => (state()?.film ? true : undefined), patience);
  service.process.kill('SIGTERM');
  await service.ended();
  assert.deepEqual(processesWith(service.root), []);
  assert.ok(!fs.existsSync(path.join(service.root, 'run/mirevo/analysis')));
  const leftovers = fs.readdirSync(films, { recursive: true }).filter((name) => name.includes(`${RESULT}.`));
  assert.deepEqual(leftovers, []);
  await service.serve([films], [], { analysis: true });
});
