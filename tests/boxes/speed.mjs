// How much faster several boxes encode one film than one does, each with a quota of processor time.
import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

import { build, eventually, freePort, patience, processesWith, Service } from '../service/support.mjs';
import { Quota } from './quota.mjs';

const cores = Number(process.argv[2] ?? 0.3);
const seconds = 160;
const length = 5; // of a segment
const firstBlock = 2;
const program = path.join(build, 'target/bin/mirevo');
const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-speed-'));
const film = path.join(folder, 'film.mkv');

function makeFilm() {
  execFileSync('ffmpeg', [
    '-nostdin', '-v', 'error', '-f', 'lavfi', '-i', `testsrc2=s=1920x1080:r=24:d=${seconds}`, '-f', 'lavfi', '-i',
    `sine=440:r=48000:d=${seconds}`, '-c:v', 'libx264', '-preset', 'ultrafast', '-b:v', '6M', '-g', '48', '-c:a', 'ac3', film,
  ]);
}

async function startBox(key, authority, count, number) {
  const box = Service.prepare();
  const file = path.join(box.root, 'cluster_key');
  fs.writeFileSync(file, key, { mode: 0o600 });
  await box.serve([folder], [
    '--cluster_key', file, '--host', authority, '--proxy', '127.0.0.1', '--no-conversions',
    '--cluster_url', `http://${authority}`, '--cluster_boxes', `${count}`,
  ]);
  box.quota = new Quota(`mirevo-speed-${process.pid}-${count}-${number}`, cores);
  box.quota.take(processesWith(box.root));
  return box;
}

function end(box) {
  for (let left = processesWith(box.root); left.length > 0; left = processesWith(box.root)) {
    left.forEach(({ pid }) => {
      try {
        process.kill(pid, 'SIGKILL');
      } catch {
        // it has ended
      }
    });
  }
  fs.rmSync(box.root, { recursive: true, force: true });
  return eventually(() => {
    try {
      box.quota.remove();
      return true;
    } catch {
      return undefined; // a process is not gone yet
    }
  });
}

// The times at which a player that asks as fast as it can has got each segment.
async function play(authority) {
  const query = new URLSearchParams({
    api: 'ORVO.Mirevo2.Streaming', version: 1, method: 'open', path: film, format: 'hls', profile: 'hls_720p_vb2500_ab128',
  });
  const { data, error } = await (await fetch(`http://${authority}/webapi/entry.cgi?${query}`)).json();
  if (!data) throw new Error(JSON.stringify(error));
  const begun = performance.now();
  const list = (await (await fetch(data.url)).text()).split('\n').filter((line) => line.startsWith('/'));
  const times = [];
  for (const line of list) {
    const response = await fetch(`http://${authority}${line}`);
    await response.arrayBuffer();
    if (!response.ok) throw new Error(`${response.status} for segment ${times.length}`);
    times.push((performance.now() - begun) / 1000);
  }
  return times;
}

async function measure(count) {
  const authority = `127.0.0.1:${await freePort()}`;
  const key = execFileSync(program, ['cluster', 'key'], { encoding: 'utf8' });
  const boxes = [];
  let balancer;
  try {
    for (let number = 1; number <= count; number += 1) boxes.push(await startBox(key, authority, count, number));
    const file = path.join(folder, `haproxy-${count}.cfg`);
    const places = boxes.map(({ address }) => new URL(address).host);
    const socket = path.join(folder, 'admin.sock');
    fs.writeFileSync(file, execFileSync(program, ['cluster', 'haproxy', '--listen', authority, '--socket', socket, ...places]));
    balancer = spawn('/usr/sbin/haproxy', ['-db', '-f', file], { stdio: 'ignore' });
    await eventually(async () => ((await fetch(`http://${authority}/`).catch(() => undefined))?.ok ? true : undefined), patience);
    return await play(authority);
  } finally {
    balancer?.kill('SIGKILL');
    await Promise.allSettled(boxes.map(end));
  }
}

try {
  makeFilm();
  let alone;
  for (const count of [1, 2, 3]) {
    const times = await measure(count);
    const behind = times.length - firstBlock;
    const factor = (behind * length) / (times.at(-1) - times[firstBlock - 1]);
    alone ??= factor;
    // A player that begins then has each segment in time.
    const wait = Math.max(...times.map((time, number) => time - number * length));
    console.log(
      `${count} boxes of ${cores} cores: ${factor.toFixed(2)} times real time behind the first block, ` +
        `${(factor / alone).toFixed(2)} of one box; the film runs without a stall after ${wait.toFixed(1)} s; ` +
        `load ${os.loadavg()[0].toFixed(0)}`,
    );
    console.log(`  ${times.map((time) => time.toFixed(0)).join(' ')}`);
  }
} finally {
  fs.rmSync(folder, { recursive: true, force: true });
}
