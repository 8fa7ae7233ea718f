// Three boxes behind HAProxy: segments of all of them fit together, and nobody misses a box that is drained.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { media } from '../service/support.mjs';
import { Cluster } from './cluster.mjs';

const film = 'h264_ac3.mkv';
const checker = fileURLToPath(new URL('../conformance/cmaf_conformance.py', import.meta.url));
const run = promisify(execFile);
let cluster;

before(async () => {
  cluster = await Cluster.start({ films: media });
});
after(() => cluster?.stop());

// Opens the film through the balancer, until the end of the test.
async function open(t, parameters) {
  const stream = await cluster.open(film, parameters);
  t.after(() => cluster.close(stream));
  return stream;
}

async function bytes(address) {
  const response = await fetch(address);
  const body = Buffer.from(await response.arrayBuffer());
  assert.equal(response.status, 200, body.toString('utf8', 0, 300));
  return body;
}

// The seconds between each packet of a track and the next one.
async function steps(file, track) {
  const words = ['-v', 'error', '-select_streams', track, '-show_entries', 'packet=dts_time', '-of', 'csv=p=0', file];
  const { stdout } = await run('ffprobe', words, { encoding: 'utf8', maxBuffer: 1 << 26 });
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

test('HLS segments that three boxes have made by turns follow each other without a seam', async (t) => {
  const stream = await open(t, { format: 'hls', profile: 'hls_240p_vb300_ab96' });
  const list = await cluster.segments(stream.url);
  assert.ok(list.length > 8, 'more than four blocks');
  const whole = path.join(cluster.folder, 'whole.ts');
  for (const address of list) fs.appendFileSync(whole, await bytes(address));
  assert.equal(cluster.makers(stream).length, 3);
  for (const track of ['v', 'a']) {
    t.diagnostic(`${track}: at most ${((await hasNoSeam(whole, track)) * 1000).toFixed(2)} ms off`);
  }
});

test('CMAF segments of three boxes pass the conformance test', async (t) => {
  const { url, dash } = await open(t, { format: 'cmaf', codecs: 'avc1,mp4a' });
  const { stdout } = await run('python3', [checker, url, dash], { maxBuffer: 1 << 26 });
  t.diagnostic(stdout.trim().split('\n').at(-1));
});

test('a forged ticket is refused through the balancer', async (t) => {
  const { url } = await open(t, { format: 'hls', profile: 'hls_remux' });
  const [first] = await cluster.segments(url);
  const response = await fetch(first.replace(/ticket=./, (text) => `ticket=${text.at(-1) === 'A' ? 'B' : 'A'}`));
  assert.equal(response.status, 403);
});

test('a film is opened by POST through the balancer, on the first box and on each other', async (t) => {
  const call = { api: 'ORVO.Mirevo2.Streaming', version: 1, method: 'open', _sid: cluster.session };
  const wish = { path: path.join(media, film), format: 'hls', profile: 'hls_remux' };
  for (const box of ['', '?box=1', '?box=2', '?box=3']) {
    const response = await fetch(`http://${cluster.authority}/webapi/entry.cgi${box}`, { method: 'POST', body: new URLSearchParams({ ...call, ...wish }) });
    const answer = await response.json();
    assert.ok(answer.success, `${box}: ${JSON.stringify(answer.error)}`);
    t.after(() => cluster.close(answer.data));
    const [first, ...others] = await cluster.segments(answer.data.url);
    for (const address of [first, others[2]]) await bytes(address);
    assert.ok(cluster.makers(answer.data).length > 1, 'the blocks come from several boxes');
  }
});

test('a drained box gets no new segment, its film goes on, and nobody misses it', async (t) => {
  const drained = cluster.boxes[1];
  const stream = await open(t, { format: 'hls', profile: 'hls_remux' });
  const running = await open(t, { format: 'http' });
  const response = await fetch(running.url.replace(/^https?:\/\/[^/]+/, drained.address));
  assert.equal(response.status, 200);
  const reader = response.body.getReader();
  assert.ok((await reader.read()).value.length > 0);
  cluster.command(drained, 'drain');
  try {
    await cluster.hasWeight(drained, (weight) => weight === 0);
    for (const address of await cluster.segments(stream.url)) await bytes(address);
    assert.ok(!cluster.makers(stream).includes(drained));
    assert.ok((await reader.read()).value.length > 0, 'a film that the box sends goes on');
  } finally {
    await reader.cancel();
    cluster.command(drained, 'ready');
  }
  await cluster.hasWeight(drained, (weight) => weight > 0);
  const again = await open(t, { format: 'hls', profile: 'hls_remux' });
  for (const address of await cluster.segments(again.url)) await bytes(address);
  assert.ok(cluster.makers(again).includes(drained));
});

test('when the first box is drained, the next one opens films', async (t) => {
  const [first] = cluster.boxes;
  cluster.command(first, 'drain');
  try {
    await cluster.hasWeight(first, (weight) => weight === 0);
    const { stream_id: id } = await open(t, { format: 'hls', profile: 'hls_remux' });
    const known = cluster.boxes.map(({ root }) => fs.existsSync(path.join(root, 'tmp/Mirevo/tickets', id)));
    assert.deepEqual(known, [false, true, false]);
  } finally {
    cluster.command(first, 'ready');
  }
  await cluster.hasWeight(first, (weight) => weight > 0);
});
