// Runs one of the load commands that play films; see tests/load/run.
import { opensLoad } from './opens.mjs';
import { segmentsLoad } from './segments.mjs';
import { streamsLoad } from './streams.mjs';

const [name, seconds] = process.argv.slice(2);
const loads = {
  opens: () => opensLoad(),
  segments: () => segmentsLoad(Number(seconds ?? 600)),
  streams: () => streamsLoad(Number(seconds ?? 3600)),
};
process.exit((await loads[name]()) ? 0 : 1);
