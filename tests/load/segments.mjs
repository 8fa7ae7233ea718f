// Requests for segments that are ready, at a fixed rate: p99 at most 50 ms, and none fails.
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';

import { eventually, media, Service } from '../service/support.mjs';
import { quantile, report, spread } from './support.mjs';

const rate = 200; // a second
const bound = 50; // ms
const segments = 6;

// Gets the answer and forgets it at once: what keeps it costs more processor time than the server.
function isAnswered(address, agent) {
  return new Promise((resolve) => {
    const request = http.get(address, { agent }, (response) => {
      let size = 0;
      response.on('data', (bytes) => (size += bytes.length));
      response.on('end', () => resolve(response.statusCode === 200 && size > 0));
      response.on('error', () => resolve(false));
    });
    request.on('error', () => resolve(false));
  });
}

// The seconds in which answers came later than the bound, and by how much this program itself was late then.
function lateSeconds(answers, delays) {
  const late = new Map();
  for (const { asked, took } of answers.filter((answer) => answer.took > bound)) {
    const second = Math.floor(asked / 1000);
    const { count = 0, longest = 0 } = late.get(second) ?? {};
    late.set(second, { count: count + 1, longest: Math.max(longest, took) });
  }
  return [...late]
    .sort(([a], [b]) => a - b)
    .map(([second, { count, longest }]) => {
      const own = Math.round(Math.max(delays[second] ?? 0, delays[second + 1] ?? 0));
      return `  second ${second}: ${count} answers took up to ${Math.round(longest)} ms; this program was late by ${own} ms`;
    });
}

export async function segmentsLoad(seconds) {
  const service = await Service.start([media]);
  const stream = await service.open(path.join(media, 'h264_ac3.mkv'), { format: 'hls', profile: 'hls_remux' });
  const playlist = await (await fetch(stream.url)).text();
  const addresses = playlist.split('\n').filter((line) => line.startsWith('/'));
  const address = (number) => new URL(addresses[number], stream.url);
  await (await fetch(address(0))).arrayBuffer();
  const last = path.join(service.root, 'tmp/Mirevo/HLS', stream.stream_id, `slice-0000${segments}.ts`);
  await eventually(() => (fs.existsSync(last) ? true : undefined), 30000);
  const answers = [];
  const delays = [];
  let failed = 0;
  const start = performance.now();
  const agent = new http.Agent({ keepAlive: true });
  const ask = async (number) => {
    const begun = performance.now();
    const isWhole = await isAnswered(address(number), agent);
    answers.push({ asked: begun - start, took: performance.now() - begun });
    if (!isWhole) ++failed;
  };
  const asked = [];
  const first = performance.now();
  for (let count = 0; count < rate * seconds; ++count) {
    const pause = first + (count * 1000) / rate - performance.now();
    if (pause > 0) await new Promise((resolve) => setTimeout(resolve, pause));
    const second = Math.floor((performance.now() - start) / 1000);
    delays[second] = Math.max(delays[second] ?? 0, -pause);
    asked.push(ask(count % segments));
  }
  await Promise.all(asked);
  const took = (performance.now() - first) / 1000;
  agent.destroy();
  const times = answers.map((answer) => answer.took);
  lateSeconds(answers, delays).forEach((line) => console.log(line));
  await service.call('Streaming', 'close', { format: 'hls', stream_id: stream.stream_id });
  await service.stop();
  const words = `${times.length} requests for ready segments in ${took.toFixed(1)} s: ${spread(times)}; ${failed} failed`;
  return report('segments', words, failed === 0 && quantile(times, 0.99) <= bound);
}
