// A thousand openings in ten seconds: never more transcoders than the limit, and refusals come at once.
import path from 'node:path';

import { media, Service } from '../service/support.mjs';
import { quantile, report, spread } from './support.mjs';

const count = 1000;
const seconds = 10;
const bound = 100; // ms for a refusal

export async function opensLoad() {
  const service = await Service.start([media]);
  const film = path.join(media, 'h264_ac3.mkv');
  const limit = (await service.call('Status', 'get')).data.limits.software;
  const first = await service.open(film, { profile: 'http_mp4_240p_vb300_ab96' });
  const playing = await fetch(first.url);
  const refusals = [];
  const answers = {};
  let most = 0;
  const open = async () => {
    const start = performance.now();
    const response = await fetch(
      service.query('Streaming', 'open', { format: 'http', path: film, profile: 'http_mp4_240p_vb300_ab96' }),
    ).catch(() => undefined);
    await response?.arrayBuffer().catch(() => undefined);
    const status = response?.status ?? 'none';
    answers[status] = (answers[status] ?? 0) + 1;
    if (status === 503) refusals.push(performance.now() - start);
  };
  const watch = setInterval(() => (most = Math.max(most, service.registry().length)), 200);
  const asked = [];
  const start = performance.now();
  for (let number = 0; number < count; ++number) {
    const pause = start + (number * seconds * 1000) / count - performance.now();
    if (pause > 0) await new Promise((resolve) => setTimeout(resolve, pause));
    asked.push(open());
  }
  await Promise.all(asked);
  clearInterval(watch);
  const took = (performance.now() - start) / 1000;
  await playing.body.cancel();
  await service.close(first);
  await service.stop();
  const list = Object.entries(answers).map(([status, number]) => `${number} × ${status}`);
  const words = `${count} openings, answered in ${took.toFixed(1)} s: ${list.join(', ')}; refusals ${spread(refusals)}; at most ${most} of ${limit} transcoders`;
  return report('opens', words, most <= limit && refusals.length > 0 && quantile(refusals, 0.99) <= bound);
}
