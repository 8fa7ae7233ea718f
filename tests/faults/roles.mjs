// Which process of a running service has which part in a stream.
import fs from 'node:fs';

import { aboutProcess } from '../service/support.mjs';

// What the kernel says about a process; nothing if it has ended.
function describe(pid) {
  const stat = aboutProcess(pid, 'stat');
  const [state, parent, , session] = stat.slice(stat.lastIndexOf(')') + 2).split(' ');
  if (state === undefined || state === '' || state === 'Z') return undefined;
  const command = aboutProcess(pid, 'cmdline').split('\0');
  return { pid, state, parent: Number(parent), session: Number(session), program: command[0] ?? '', option: command[1] ?? '' };
}

// The living processes whose environment names the service's root.
export function processesOf(root) {
  return fs
    .readdirSync('/proc')
    .filter((name) => /^\d+$/.test(name) && Number(name) !== process.pid)
    .filter((pid) => aboutProcess(pid, 'environ').includes(root))
    .flatMap((pid) => describe(Number(pid)) ?? []);
}

// Roles by the first row that fits. `by` finds a process by its number.
const rules = [
  ['service', (one, by, service) => one.pid === service],
  ['keeper', (one, by, service) => one.parent === service && one.session === one.pid],
  ['analysis', (one) => one.program.endsWith('/mirevo-analyze')],
  ['conversions', (one) => one.program.endsWith('/orvovideoconversiond')],
  ['web', (one) => one.program.endsWith('/lighttpd')],
  ['request', (one, by) => isRequestProgram(one) && by(one.parent)?.program.endsWith('/lighttpd')],
  ['guardian', (one) => isRequestProgram(one) && one.session === one.pid],
  ['monitor', (one, by) => isRequestProgram(one) && !isRequestProgram(by(one.parent) ?? one)],
  ['copies', (one, by) => one.option === '--copies' && by(one.parent)?.option !== '--copies'],
  ['copy', (one) => one.option === '--copies'],
  ['ready', (one) => one.option === '--ready'],
  ['front', (one) => one.program.endsWith('/target/bin/ffmpeg')],
  ['ffmpeg', (one) => /^\/usr(\/local)?\/bin\/ffmpeg$/.test(one.program)],
];
const isRequestProgram = (one) => one.program.endsWith('/entry.cgi');

// All processes of the service with their roles, oldest first.
export function roles(service) {
  const all = processesOf(service.root).sort((one, other) => one.pid - other.pid);
  const by = (pid) => all.find((one) => one.pid === pid);
  return all.map((one) => ({ ...one, role: rules.find(([, fits]) => fits(one, by, service.process.pid))?.[0] ?? 'other' }));
}
