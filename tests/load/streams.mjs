// Many streams for a long time: descriptors and memory stay flat, and no zombie is left.
import path from 'node:path';

import { media, Service } from '../service/support.mjs';
import { figures, repeat, report } from './support.mjs';

const streamCount = 32;
const lookSeconds = 5;

// A busy server names the time after which it may be asked again. A player waits for that time.
async function open(service, film) {
  for (;;) {
    const answer = await service.call('Streaming', 'open', { format: 'hls', path: film, profile: 'hls_remux' });
    if (answer.success) return answer.data;
    if (answer.status !== 503) throw new Error(JSON.stringify(answer.error));
    await new Promise((resolve) => setTimeout(resolve, 1000 * Number(answer.headers.get('retry-after'))));
  }
}

// Copies the video, so the register has room for all. Reads a piece every few seconds, as a player does.
async function play(service, isOver) {
  const stream = await open(service, path.join(media, 'long.mkv'));
  const failed = [];
  for (let number = 0; !isOver(); number = (number + 1) % 30) {
    const failure = await fetch(`${stream.url}&fragment_id=${number}`)
      .then(async (response) => ((await response.arrayBuffer()).byteLength > 0 && response.ok ? undefined : response.status))
      .catch((error) => `no answer: ${error.cause?.code ?? error.name}`);
    if (failure !== undefined) failed.push(failure);
    await new Promise((resolve) => setTimeout(resolve, 2000));
  }
  await service.call('Streaming', 'close', { format: 'hls', stream_id: stream.stream_id });
  return failed;
}

const largest = (rows, name) => Math.max(...rows.map((row) => row[name]));

export async function streamsLoad(seconds) {
  const service = await Service.start([media]);
  let over = false;
  const playing = Array.from({ length: streamCount }, () => play(service, () => over));
  const rows = [];
  await repeat(seconds, lookSeconds * 1000, () => void rows.push(figures(service)));
  over = true;
  const failed = (await Promise.all(playing)).flat();
  await service.isQuiet(20000);
  const rest = figures(service);
  await service.stop();
  // The first quarter fills caches; after it nothing may grow by more than a tenth.
  const early = rows.slice(Math.floor(rows.length / 4), Math.floor(rows.length / 2));
  const late = rows.slice(Math.floor(rows.length * 0.75));
  const isFlat = ['descriptors', 'memory'].every((name) => largest(late, name) <= 1.1 * largest(early, name) + 20);
  const words =
    `${streamCount} HLS remuxes for ${seconds} s: descriptors ${largest(early, 'descriptors')} → ${largest(late, 'descriptors')}, ` +
    `memory ${largest(early, 'memory')} → ${largest(late, 'memory')} MiB, at most ${largest(rows, 'processes')} processes; ` +
    `afterwards ${rest.processes} processes, ${rest.zombies} zombies; ${failed.length} requests failed${failed.length > 0 ? ` (${[...new Set(failed)].join(', ')})` : ''}`;
  return report('streams', words, isFlat && rest.zombies === 0 && failed.length === 0);
}
