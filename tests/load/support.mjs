// What the load commands share: figures of a running service.
import fs from 'node:fs';
import os from 'node:os';

import { processesOf } from '../faults/roles.mjs';
import { aboutProcess } from '../service/support.mjs';

// The value below which this part of the sorted values lies.
export function quantile(values, part) {
  const sorted = [...values].sort((one, other) => one - other);
  return sorted[Math.min(sorted.length - 1, Math.floor(part * sorted.length))] ?? 0;
}

const rounded = (value) => Math.round(value * 10) / 10;
export const spread = (values) =>
  `p50 ${rounded(quantile(values, 0.5))} ms, p99 ${rounded(quantile(values, 0.99))} ms, longest ${rounded(quantile(values, 1))} ms`;

const number = (pid, file, pattern) => Number(aboutProcess(pid, file).match(pattern)?.[1] ?? 0);

function descriptors(pid) {
  try {
    return fs.readdirSync(`/proc/${pid}/fd`).length;
  } catch {
    return 0;
  }
}

const isZombie = (pid) => number(pid, 'stat', /\) Z (\d+)/) > 0;
const parentOf = (pid) => number(pid, 'stat', /\) \S (\d+)/);

// Zombies whose parent is one of the service's processes.
function zombies(pids) {
  const parents = new Set(pids);
  return fs.readdirSync('/proc').filter((name) => /^\d+$/.test(name) && isZombie(name) && parents.has(parentOf(name))).length;
}

// Processes, descriptors, resident memory in MiB and zombies of a service.
export function figures(service) {
  const pids = processesOf(service.root).map(({ pid }) => pid);
  const sum = (of) => pids.reduce((total, pid) => total + of(pid), 0);
  return {
    processes: pids.length,
    descriptors: sum(descriptors),
    memory: Math.round(sum((pid) => number(pid, 'status', /VmRSS:\s+(\d+)/)) / 1024),
    zombies: zombies(pids),
  };
}

// Calls `step` every `milliseconds` until `seconds` have passed. The pause is the load's rate, not a wait.
export async function repeat(seconds, milliseconds, step) {
  const start = performance.now();
  for (let count = 0; performance.now() - start < seconds * 1000; ++count) {
    await step(count);
    const next = start + (count + 1) * milliseconds;
    await new Promise((resolve) => setTimeout(resolve, Math.max(0, next - performance.now())));
  }
}

// One line for docs/reliability.md.
export function report(name, words, holds) {
  const machine = `${os.cpus().length} cores, ${os.cpus()[0].model.trim()}`;
  console.log(`| \`tests/load/run ${name}\` | ${words} | ${new Date().toISOString().slice(0, 10)}, ${machine} |`);
  console.log(holds ? 'holds' : 'DOES NOT HOLD');
  return holds;
}
