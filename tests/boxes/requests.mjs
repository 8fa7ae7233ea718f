// How many requests a second for ready segments come through the balancer, and the processor time of each, with one box and
// with three.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';

import { processesWith } from '../service/support.mjs';
import { Cluster } from './cluster.mjs';

const clients = 6; // for each box
const seconds = 10;
const share = 0.25; // of a processor for each box, so that the clients and the balancer have the rest
const film = 'film.mkv';
const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-requests-'));
fs.chmodSync(folder, 0o755);

function makeFilm() {
  execFileSync('ffmpeg', [
    ...['-nostdin', '-v', 'error', '-f', 'lavfi', '-i', 'testsrc2=s=320x180:r=25:d=200', '-f', 'lavfi', '-i'],
    ...['sine=440:r=48000:d=200', '-c:v', 'libx264', '-preset', 'ultrafast', '-g', '50', '-c:a', 'aac', path.join(folder, film)],
  ]);
}

const tick = Number(execFileSync('getconf', ['CLK_TCK']));

// The processor time of a process and of its children that have ended, in seconds.
function usedBy({ pid }) {
  try {
    const fields = fs.readFileSync(`/proc/${pid}/stat`, 'utf8').replace(/^.*\) /s, '').split(' ');
    return fields.slice(11, 15).reduce((sum, value) => sum + Number(value), 0) / tick;
  } catch {
    return 0; // it has ended
  }
}

const usedByBoxes = ({ boxes }) =>
  boxes.flatMap(({ root }) => processesWith(root)).reduce((sum, each) => sum + usedBy(each), 0);

// Asks for a film's segments one after the other until `end`. Returns the number of answers.
async function ask(addresses, agent, end) {
  let count = 0;
  while (performance.now() < end) {
    await new Promise((resolve, reject) => {
      const request = http.get(addresses[count % addresses.length], { agent }, (response) => {
        if (response.statusCode !== 200) reject(new Error(`${response.statusCode}`));
        response.resume().on('end', resolve);
      });
      request.on('error', reject);
    });
    count += 1;
  }
  return count;
}

// Asks once for each segment of a stream, so that it is ready and the web server may send it.
async function makeReady(cluster) {
  const { url } = await cluster.open(film, { format: 'cmaf', codecs: 'avc1,mp4a' });
  const master = await (await fetch(url)).text();
  const pictures = master.split('\n').find((line) => line.includes('rendition=copy-video'));
  const addresses = await cluster.segments(new URL(pictures, url).href);
  for (const address of addresses) await (await fetch(address)).arrayBuffer();
  return addresses;
}

async function measure(count) {
  const cluster = await Cluster.start({ films: folder, count });
  try {
    const lists = await Promise.all(Array.from({ length: clients * count }, () => makeReady(cluster)));
    cluster.limit(share);
    const agent = new http.Agent({ keepAlive: true });
    const used = usedByBoxes(cluster);
    const end = performance.now() + seconds * 1000;
    const asking = await Promise.all(lists.map((addresses) => ask(addresses, agent, end)));
    const answers = asking.reduce((sum, each) => sum + each, 0);
    agent.destroy();
    return { rate: answers / seconds, cost: ((usedByBoxes(cluster) - used) / answers) * 1000 };
  } finally {
    await cluster.stop();
  }
}

try {
  makeFilm();
  let alone;
  for (const count of [1, 3]) {
    const { rate, cost } = await measure(count);
    alone ??= rate;
    console.log(
      `${count} boxes of ${share} cores: ${rate.toFixed(0)} requests a second, ${(rate / alone).toFixed(2)} of one box, ` +
        `${cost.toFixed(2)} ms of the boxes' processor time for each; load ${os.loadavg()[0].toFixed(0)}`,
    );
  }
} finally {
  fs.rmSync(folder, { recursive: true, force: true });
}
