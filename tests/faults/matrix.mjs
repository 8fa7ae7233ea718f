// Kills and stops each process of a running service at each point of a stream's life, and lets the whole machine sleep
// there. Afterwards the files are whole,
// the register is true, nothing is left running, and the player goes on or gets a clear error.
import fs from 'node:fs';
import path from 'node:path';
import { parseArgs } from 'node:util';

import { eventually, media, Service } from '../service/support.mjs';
import { kindNames, Player } from './players.mjs';
import { processesOf, roles } from './roles.mjs';
import { leaveGroup, sleep, startSleeper } from './sleep.mjs';

const { values: options } = parseArgs({
  options: {
    only: { type: 'string', default: '.' }, // a regular expression for names of cells
    jobs: { type: 'string', default: '2' },
    json: { type: 'string' }, // a file for the results
    patience: { type: 'string', default: '5' }, // seconds until the state is whole
    short: { type: 'boolean', default: false },
  },
});
const patience = Number(options.patience) * 1000;
const answerTime = 25000;

const byteRoles = { http: ['guardian'], webm: ['guardian', 'monitor'] };
const rolesOf = (kind) => ['request', ...(byteRoles[kind] ?? ['monitor', 'front']), 'ffmpeg', 'web', 'keeper', 'service'];
const openingRoles = ['request', 'web', 'keeper', 'service'];
// The machine sleeps for so long: an hour, and longer than a stream is remembered.
const sleeps = { HOUR: 3600, DAYS: 3 * 24 * 3600 };
const points = ['opening', 'first', 'running', 'seek', 'pausing', 'closing'];
const infrastructure = new Set(['web', 'keeper', 'service', 'analysis', 'conversions', 'copies', 'ready', 'machine']);
const shortCells = /^(http:running:ffmpeg:STOP|webm:running:monitor:KILL|hls:running:service:KILL|ss:seek:monitor:KILL)$/;

const cellOf = (kind, point, role, signal) => ({ kind, point, role, signal, name: [kind, point, role, signal].join(':') });

function allCells() {
  const cells = [];
  for (const kind of kindNames) {
    for (const point of points) {
      for (const role of point === 'opening' ? openingRoles : rolesOf(kind)) {
        for (const signal of ['KILL', 'STOP']) cells.push(cellOf(kind, point, role, signal));
      }
      for (const name of Object.keys(sleeps)) cells.push(cellOf(kind, point, 'machine', name));
    }
  }
  return cells;
}

const within = (promise, milliseconds) =>
  Promise.race([promise, new Promise((resolve) => setTimeout(resolve, milliseconds, undefined).unref())]);

// Signals the first process of the role that `known` lacks. False if none appears before `end` settles.
async function hit(service, { role, signal }, known, end) {
  if (role === 'machine') return putToSleep(service, sleeps[signal], known, end);
  let over = false;
  end.finally(() => (over = true));
  for (;;) {
    const found = roles(service).find((one) => one.role === role && !known.has(one.pid));
    if (found) {
      try {
        process.kill(found.pid, `SIG${signal}`);
        return found.pid;
      } catch {
        known.add(found.pid); // it has ended
      }
    }
    if (over) return undefined;
    await new Promise((resolve) => setImmediate(resolve));
  }
}

// All sleep when a request is under way, or, if none comes, when `end` settles.
async function putToSleep(service, seconds, known, end) {
  let over = false;
  end.finally(() => (over = true));
  const isTime = () => over || roles(service).some(({ role, pid }) => role === 'request' && !known.has(pid));
  while (!isTime()) await new Promise((resolve) => setImmediate(resolve));
  await sleep(service, seconds);
  return service.process.pid;
}

const known = (service, role) => new Set(infrastructure.has(role) && role !== 'machine' ? [] : roles(service).map(({ pid }) => pid));

// Brings the stream to the point and signals the process there. Returns its number; undefined if there was none.
const bring = {
  async opening(player, cell) {
    const before = known(player.service, cell.role);
    player.opening = player.open().catch(() => {});
    return hit(player.service, cell, before, within(player.opening, answerTime));
  },
  async first(player, cell) {
    await player.open();
    const before = known(player.service, cell.role);
    return hit(player.service, cell, before, within(player.ask(0).result, answerTime));
  },
  async running(player, cell) {
    await player.open();
    await within(player.ask(0).result, answerTime);
    // Requests for pieces are short; this one waits for a piece that is not there yet.
    const before = cell.role === 'request' ? known(player.service, cell.role) : new Set();
    const isShort = player.kind === 'hls' || player.kind === 'ss';
    const next = isShort || cell.role === 'request' ? player.ask(15).result : new Promise(() => {});
    return hit(player.service, cell, before, within(next, answerTime));
  },
  async seek(player, cell) {
    await player.open();
    await within(player.ask(0).result, answerTime);
    const before = known(player.service, cell.role);
    return hit(player.service, cell, before, within(player.ask(200).result, answerTime));
  },
  async pausing(player, cell) {
    await player.open();
    await within(player.ask(0).result, answerTime);
    return hit(player.service, cell, new Set(), within(new Promise(() => {}), 1000));
  },
  async closing(player, cell) {
    await player.open();
    await within(player.ask(0).result, answerTime);
    const before = cell.role === 'request' ? known(player.service, cell.role) : new Set();
    player.closed = within(player.close(), answerTime);
    return hit(player.service, cell, before, player.closed);
  },
};

const isAlive = (pid) => {
  const state = /\) (\S)/.exec(fs.existsSync(`/proc/${pid}/stat`) ? fs.readFileSync(`/proc/${pid}/stat`, 'latin1') : '');
  return state !== null && state[1] !== 'Z';
};

// The first file of the state that is not whole; undefined if all are.
function damagedFile(root) {
  const folder = path.join(root, 'tmp/Mirevo');
  const names = fs.existsSync(folder) ? fs.readdirSync(folder, { recursive: true }) : [];
  return names
    .filter((name) => name === 'enabled' || /^tickets\/\w{41}$/.test(name) || name.endsWith('/video_metadata'))
    .find((name) => {
      try {
        const text = fs.readFileSync(path.join(folder, name), 'utf8');
        if (text !== '' || name !== 'enabled') JSON.parse(text);
        return false;
      } catch (failure) {
        return !['ENOENT', 'EISDIR'].includes(failure.code);
      }
    });
}

function isRegisterTrue(service) {
  try {
    return service.registry().every(({ PID }) => isAlive(PID));
  } catch {
    return false;
  }
}

// Waits until `look` returns no complaint. Returns the last one after the patience.
async function complaintOf(look) {
  let complaint;
  const tryToLook = () => {
    try {
      return look();
    } catch (failure) {
      return String(failure); // a folder went while it was read
    }
  };
  await eventually(() => ((complaint = tryToLook()) === undefined ? true : undefined), patience).catch(() => {});
  return complaint;
}

const wholeness = (service) =>
  complaintOf(() => {
    const damaged = damagedFile(service.root);
    if (damaged !== undefined) return `${damaged} is damaged`;
    return isRegisterTrue(service) ? undefined : 'the register names a process that has ended';
  });

// Asks again where the player was. What it gets, in words; `isClear` is false if it gets nothing.
async function playOn(player) {
  await within(player.opening, 3000);
  if (player.stream === undefined || player.closed !== undefined) return reopen(player, 'opened again');
  const second = player.asked.length > 1 ? 200 : 0;
  player.leave();
  const { status, size, text } = (await within(player.ask(second).result, answerTime)) ?? { status: 0, text: 'no answer' };
  if (status === 200 || status === 206) return { isClear: size > 0, words: 'went on' };
  if (status === 0) return reopen(player, `no answer (${text}), opened again`);
  return { isClear: /"message"/.test(text), words: `told: ${status}` };
}

async function leave(player) {
  await within(player.opening, answerTime);
  const isAnswered = player.stream === undefined || (await within(player.close(), answerTime)) !== undefined;
  player.leave();
  return isAnswered;
}

// As a player does, tries again while the old transcoder keeps its seat. Returns what went wrong, or nothing.
async function openWhenFree(player, deadline) {
  for (;;) {
    const problem = await within(player.open().then(() => '', String), answerTime);
    if (problem === undefined || !problem.includes('TransEnable') || performance.now() > deadline) return problem ?? 'no answer';
  }
}

async function reopen(player, words) {
  await leave(player);
  const next = new Player(player.service, player.kind);
  const problem = await openWhenFree(next, performance.now() + answerTime);
  if (problem !== '') return { isClear: false, words: `not opened: ${problem}` };
  player.stream = next.stream;
  player.closed = undefined;
  const { size = 0, status = 0 } = (await within(player.ask(0).result, answerTime)) ?? {};
  return { isClear: status === 200 && size > 0, words };
}

const isQuiet = (service) =>
  complaintOf(() => {
    const left = roles(service).filter(({ role }) => !infrastructure.has(role));
    if (left.length > 0) return `left running: ${left.map(({ role, state }) => `${role} (${state})`).join(', ')}`;
    if (service.streamFolders().length > 0) return `left on disk: ${service.streamFolders()}`;
    return service.registry().length > 0 ? 'the register is not empty' : undefined;
  });

// If the service has ended, nothing is left of it, and another one takes its place.
async function restartIfEnded(service, isGone) {
  if (!isGone) return undefined;
  const left = await complaintOf(() => {
    const all = roles(service);
    return all.length === 0 ? undefined : `outlived the service: ${all.map(({ role }) => role).join(', ')}`;
  });
  if (left === undefined) await service.serve([media]);
  return left;
}

async function endsSoon(service, milliseconds) {
  return eventually(() => (service.process.exitCode ?? service.process.signalCode ?? undefined), milliseconds)
    .then(() => true)
    .catch(() => false);
}

// A process may end before it is signalled.
function send(pid, signal) {
  try {
    process.kill(pid, signal);
  } catch (failure) {
    if (failure.code !== 'ESRCH') throw failure;
  }
}

// Sends SIGCONT to what a cell has stopped, if the service has not done so.
function release(root) {
  for (const { pid, state } of processesOf(root)) if (state === 'T') send(pid, 'SIGCONT');
}

async function judge(service, player, cell) {
  const pid = await bring[cell.point](player, cell);
  if (pid === undefined) {
    await leave(player);
    return { result: 'none', words: (await isQuiet(service)) ?? 'there is no such process at this point' };
  }
  const isEnd = infrastructure.has(cell.role) && cell.signal === 'KILL';
  const outlived = await restartIfEnded(service, isEnd && (await endsSoon(service, 15000)));
  const broken = outlived ?? (await wholeness(service));
  if (broken !== undefined) return { result: 'FAIL', words: broken };
  if (cell.role === 'service' && cell.signal === 'STOP') send(pid, 'SIGCONT');
  const { isClear, words } = await playOn(player);
  if (!isClear) return { result: 'FAIL', words };
  const isClosed = await leave(player);
  if (cell.role === 'machine' && !isClosed) return { result: 'FAIL', words: `${words}; no answer to close` };
  const left = await isQuiet(service);
  return left === undefined ? { result: 'ok', words } : { result: 'FAIL', words: `${words}; ${left}` };
}

async function retire(service) {
  release(service.root);
  send(service.process.pid, 'SIGKILL');
  await complaintOf(() => (processesOf(service.root).length === 0 ? undefined : 'still running'));
  for (const { pid } of processesOf(service.root)) send(pid, 'SIGKILL');
  await leaveGroup(service);
  fs.rmSync(service.root, { recursive: true, force: true });
}

// Runs the cell in a service. Returns that service for the next cell, or nothing if the cell has harmed it.
async function runCell(service, cell) {
  const player = new Player(service, cell.kind);
  const start = performance.now();
  Object.assign(
    cell,
    await judge(service, player, cell).catch((failure) => ({ result: 'FAIL', words: String(failure.message ?? failure) })),
  );
  cell.seconds = Math.round((performance.now() - start) / 100) / 10;
  player.leave();
  console.log(`${cell.result.padEnd(5)}${cell.name.padEnd(32)}${String(cell.seconds).padStart(6)} s  ${cell.words}`);
  return cell.result === 'FAIL' || infrastructure.has(cell.role) ? undefined : service;
}

// Services that still run when this program ends.
const running = new Set();
process.on('exit', () => running.forEach((service) => send(service.process.pid, 'SIGKILL')));
process.on('SIGTERM', () => process.exit(1));
process.on('SIGINT', () => process.exit(1));

// The service of the cell before, or a new one. What sleeps has one of its own.
async function serviceFor(cell, last) {
  if (cell.role !== 'machine') return last ?? Service.start([media]);
  if (last !== undefined) {
    await last.stop();
    running.delete(last);
  }
  return startSleeper();
}

async function work(queue) {
  let service;
  for (let cell = queue.shift(); cell !== undefined; cell = queue.shift()) {
    const current = await serviceFor(cell, service);
    running.add(current);
    service = await runCell(current, cell);
    if (service === undefined) {
      await retire(current);
      running.delete(current);
    }
  }
  if (service !== undefined) await service.stop();
  running.delete(service);
}

const cells = allCells().filter(({ name }) => (options.short ? shortCells : new RegExp(options.only)).test(name));
const queue = [...cells];
await Promise.all(Array.from({ length: Number(options.jobs) }, () => work(queue)));

const count = (result) => cells.filter((cell) => cell.result === result).length;
console.log(`${cells.length} cells: ${count('ok')} ok, ${count('none')} without such a process, ${count('FAIL')} failed`);
if (options.json) fs.writeFileSync(options.json, `${JSON.stringify(cells, null, 1)}\n`);
process.exit(count('FAIL') === 0 && cells.length > 0 ? 0 : 1);
