// A machine that sleeps, as far as its processes can tell: all of them stand still, and the calendar clock goes on.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { eventually, media, Service } from '../service/support.mjs';
import { processesOf, roles } from './roles.mjs';

const library = path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-sleep-')), 'failing_call.so');
process.on('exit', () => fs.rmSync(path.dirname(library), { recursive: true, force: true }));
const source = fileURLToPath(new URL('failing_call.cpp', import.meta.url));

function buildLibrary() {
  if (!fs.existsSync(library)) {
    execFileSync('c++', ['-std=c++20', '-O1', '-shared', '-fPIC', '-o', library, source, '-ldl']);
  }
  return library;
}

const groupRoots = ['/sys/fs/cgroup', '/sys/fs/cgroup/unified'];

// Ends what is frozen when this program ends early.
function endWith(group) {
  process.on('exit', () => fs.existsSync(group) && fs.writeFileSync(path.join(group, 'cgroup.kill'), '1'));
  return group;
}

// A control group (v2) of its own; nothing where there are none.
function makeGroup() {
  for (const root of groupRoots) {
    const group = path.join(root, `mirevo-sleep-${process.pid}-${Date.now()}`);
    try {
      if (!fs.existsSync(path.join(root, 'cgroup.procs'))) continue;
      fs.mkdirSync(group);
      if (fs.existsSync(path.join(group, 'cgroup.freeze'))) return endWith(group);
      fs.rmdirSync(group);
    } catch {
      // not for this user
    }
  }
  return undefined;
}

const setClock = (file, seconds) => {
  const bytes = Buffer.alloc(16);
  bytes.writeBigInt64LE(BigInt(seconds), 0);
  bytes.writeBigInt64LE(BigInt(Math.floor(Date.now() / 1000)), 8);
  const descriptor = fs.openSync(file, 'r+');
  fs.writeSync(descriptor, bytes, 0, 16, 0); // in place: the processes have mapped it
  fs.closeSync(descriptor);
};

// A service whose clock can jump, and whose processes can be frozen together.
export async function startSleeper() {
  const service = Service.prepare();
  service.clock = path.join(service.root, 'clock');
  fs.writeFileSync(service.clock, Buffer.alloc(16));
  service.group = makeGroup();
  const enter = service.group === undefined ? '' : `echo $$ > ${service.group}/cgroup.procs; `;
  const command = `${enter}LD_PRELOAD=${buildLibrary()} CLOCK_FILE=${service.clock} exec "$@"`;
  await service.serve([media], [], { through: ['sh', '-c', command, 'sh'] });
  return service;
}

const stopped = (state) => state === 'T' || state === 't';

// The keeper continues stopped processes, so it and the service stop first.
async function stopAll(service) {
  const rank = { service: 0, keeper: 1 };
  await eventually(() => {
    const going = roles(service).filter(({ state }) => !stopped(state));
    going.sort((one, other) => (rank[one.role] ?? 2) - (rank[other.role] ?? 2));
    for (const { pid } of going) process.kill(pid, 'SIGSTOP');
    return going.length === 0 ? true : undefined;
  });
}

async function freeze(service) {
  if (service.group === undefined) return stopAll(service);
  fs.writeFileSync(path.join(service.group, 'cgroup.freeze'), '1');
  const events = path.join(service.group, 'cgroup.events');
  return eventually(() => (/^frozen 1$/m.test(fs.readFileSync(events, 'utf8')) ? true : undefined));
}

function thaw(service) {
  if (service.group === undefined) processesOf(service.root).forEach(({ pid }) => process.kill(pid, 'SIGCONT'));
  else fs.writeFileSync(path.join(service.group, 'cgroup.freeze'), '0');
}

export async function sleep(service, seconds) {
  await freeze(service);
  setClock(service.clock, seconds);
  thaw(service);
}

// Removes the group when its last process has ended.
export async function leaveGroup({ group }) {
  if (group === undefined) return;
  const events = path.join(group, 'cgroup.events');
  await eventually(() => (/^populated 0$/m.test(fs.readFileSync(events, 'utf8')) ? true : undefined));
  fs.rmdirSync(group);
}
