// Requests for segments that are ready, at a fixed rate: p99 at most 50 ms, and none fails.
import fs from 'node:fs';
import path from 'node:path';

import { eventually, media, Service } from '../service/support.mjs';
import { quantile, report, spread } from './support.mjs';

const rate = 200; // a second
const bound = 50; // ms
const segments = 6;

export async function segmentsLoad(seconds) {
  const service = await Service.start([media]);
  const stream = await service.open(path.join(media, 'h264_ac3.mkv'), { format: 'hls', profile: 'hls_remux' });
  const playlist = await (await fetch(stream.url)).text();
  const addresses = playlist.split('\n').filter((line) => line.startsWith('/'));
  const address = (number) => new URL(addresses[number], stream.url);
  await (await fetch(address(0))).arrayBuffer();
  const last = path.join(service.root, 'tmp/Mirevo/HLS', stream.stream_id, `slice-0000${segments}.ts`);
  await eventually(() => (fs.existsSync(last) ? true : undefined), 30000);
  const times = [];
  let failed = 0;
  const ask = async (number) => {
    const start = performance.now();
    const response = await fetch(address(number)).catch(() => undefined);
    const size = (await response?.arrayBuffer().catch(() => undefined))?.byteLength ?? 0;
    times.push(performance.now() - start);
    if (response?.status !== 200 || size === 0) ++failed;
  };
  const asked = [];
  const start = performance.now();
  for (let count = 0; count < rate * seconds; ++count) {
    const pause = start + (count * 1000) / rate - performance.now();
    if (pause > 0) await new Promise((resolve) => setTimeout(resolve, pause));
    asked.push(ask(count % segments));
  }
  await Promise.all(asked);
  const took = (performance.now() - start) / 1000;
  await service.call('Streaming', 'close', { format: 'hls', stream_id: stream.stream_id });
  await service.stop();
  const words = `${times.length} requests for ready segments in ${took.toFixed(1)} s: ${spread(times)}; ${failed} failed`;
  return report('segments', words, failed === 0 && quantile(times, 0.99) <= bound);
}
