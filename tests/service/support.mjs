// A separate service for each test file: mirevo-serve in a system root that is removed afterwards.
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import readline from 'node:readline';

export const build = process.env.ORVO_TEST_BUILD;
export const media = process.env.ORVO_TEST_MEDIA;

// The arguments of headless Chromium.
export const browserArguments = [
  '--no-sandbox',
  '--disable-gpu',
  '--disable-quic',
  '--no-first-run',
  '--disable-background-networking',
  '--disable-component-update',
  '--disable-sync',
  '--autoplay-policy=no-user-gesture-required',
];

// A bound for what takes a moment on an idle machine. Other tests may use the processors.
export const patience = 60_000;

// Calls `look` until it returns a value other than undefined. For states that send no event to this process.
// The time is an upper bound. At least half of the time the processor is free for what is waited for.
// `describe`: what to say of the state if the time runs out.
export async function eventually(look, milliseconds = patience, describe = () => look) {
  const deadline = performance.now() + milliseconds;
  for (;;) {
    const begun = performance.now();
    const found = await look();
    if (found !== undefined) return found;
    if (performance.now() >= deadline) assert.fail(`not within ${milliseconds} ms: ${describe()}`);
    await new Promise((resolve) => setTimeout(resolve, Math.min(performance.now() - begun, 50)));
  }
}

// A port of this machine that nobody listens on.
export async function freePort() {
  const server = net.createServer().listen(0, '127.0.0.1');
  await once(server, 'listening');
  const { port } = server.address();
  server.close();
  return port;
}

// A file of the kernel about a process; '' if the process has ended.
export function aboutProcess(pid, name) {
  try {
    return fs.readFileSync(`/proc/${pid}/${name}`, 'latin1');
  } catch {
    return '';
  }
}

// The command lines of all running processes that contain `text`.
export function processesWith(text) {
  return fs
    .readdirSync('/proc')
    .filter((name) => /^\d+$/.test(name))
    .flatMap((pid) => {
      try {
        const command = fs.readFileSync(`/proc/${pid}/cmdline`, 'latin1').replaceAll('\0', ' ');
        const environment = fs.readFileSync(`/proc/${pid}/environ`, 'latin1');
        const state = fs.readFileSync(`/proc/${pid}/stat`, 'latin1').replace(/.*\) /s, '')[0];
        const ours = command.includes(text) || environment.includes(text);
        return ours && state !== 'Z' && Number(pid) !== process.pid ? [{ pid: Number(pid), command }] : [];
      } catch {
        return []; // the process has ended
      }
    });
}

export class Service {
  // An appliance of this platform, with the programs of a build folder and without a running service.
  static prepare(platform = 'x86', programs = build) {
    const service = new Service();
    service.root = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-test-'));
    const make = (name) => fs.mkdirSync(path.join(service.root, name), { recursive: true });
    ['etc.defaults', 'volume1', 'var/packages/Mirevo'].forEach(make);
    fs.writeFileSync(
      path.join(service.root, 'etc.defaults/orvoinfo.conf'),
      `unique="orvo_${platform}_unit"\n`,
    );
    fs.symlinkSync(path.join(programs, 'target'), path.join(service.root, 'var/packages/Mirevo/target'));
    return service;
  }

  // Serves `roots` on an appliance of this platform.
  static async start(roots, platform) {
    const service = Service.prepare(platform);
    await service.serve(roots);
    return service;
  }

  // The environment for programs of this appliance.
  get environment() {
    return { ...process.env, ORVO_SYSROOT: this.root };
  }

  // Serves `roots`, with further options of "mirevo serve". The films that all suites share get no
  // results in the middle of a test. `through`: a command that starts the service, with its words.
  async serve(roots, options = [], { analysis = false, port = 0, through = [] } = {}) {
    const quiet = analysis ? [] : ['--no-analysis'];
    const program = path.join(fs.realpathSync(path.join(this.root, 'var/packages/Mirevo/target')), 'bin/mirevo-serve');
    const [command, ...words] = [...through, program, '--no-browser', '--port', `${port}`];
    this.process = spawn(
      command,
      [...words, ...quiet, ...options, '--', ...roots],
      { env: this.environment, stdio: ['ignore', 'pipe', 'inherit'] },
    );
    for await (const line of readline.createInterface({ input: this.process.stdout })) {
      this.address = line.match(/^listening on (https?:\/\/[0-9a-f.:[\]]+:\d+(?:\/[\w.-]+)*)\/$/)?.[1];
      break;
    }
    // A test that fails before it stops its service ends all the same, and the service with it.
    const { process: started, root } = this;
    started.unref();
    started.stdout.unref();
    process.once('exit', () => {
      started.kill('SIGKILL');
      fs.rmSync(root, { recursive: true, force: true });
    });
    assert.ok(this.address, 'the service says where it listens');
  }

  // Runs "mirevo account" with these arguments.
  account(words, password = '') {
    const program = path.join(build, 'target/bin/mirevo');
    return execFileSync(program, ['account', ...words], { env: this.environment, input: password, encoding: 'utf8' });
  }

  // Waits until the service ends. Returns its exit code.
  async ended() {
    this.process.ref();
    const [code] = await once(this.process, 'exit');
    return code;
  }

  // Ends the service as Ctrl-C does, and checks that it leaves nothing behind.
  async stop() {
    this.process.kill('SIGINT');
    assert.equal(await this.ended(), 0);
    assert.deepEqual(processesWith(this.root), []);
    assert.deepEqual(this.streamFolders(), []);
    fs.rmSync(this.root, { recursive: true });
  }

  // Ends the service after checking that its clients left nothing.
  async finish() {
    try {
      await this.isQuiet();
    } finally {
      await this.stop();
    }
  }

  query(api, method, parameters = {}) {
    const query = new URLSearchParams({ api: `ORVO.Mirevo2.${api}`, version: 1, method, ...parameters });
    return `${this.address}/webapi/entry.cgi?${query}`;
  }

  async call(api, method, parameters) {
    const response = await fetch(this.query(api, method, parameters));
    const answer = await response.json();
    assert.equal(answer.success, response.ok);
    if (!answer.success) {
      assert.equal(answer.error.code, response.status);
      assert.match(answer.error.message, /^[A-Z].*\.$/s, 'a sentence');
    }
    return { status: response.status, headers: response.headers, ...answer };
  }

  async open(film, parameters = {}) {
    const answer = await this.call('Streaming', 'open', { format: 'http', path: film, ...parameters });
    assert.ok(answer.success, JSON.stringify(answer.error));
    return answer.data;
  }

  close(stream) {
    return this.call('Streaming', 'close', { format: 'http', stream_id: stream.stream_id });
  }

  streamFolders() {
    const kinds = ['HTTP', 'HLS', 'WEBM', 'SS', 'DIRECT'];
    return kinds.flatMap((kind) => [`tmp/Mirevo/${kind}`, `volume1/@tmp/Mirevo/${kind}`]).flatMap((name) => {
      const folder = path.join(this.root, name);
      return fs.existsSync(folder) ? fs.readdirSync(folder) : [];
    });
  }

  registry() {
    const file = path.join(this.root, 'tmp/Mirevo/enabled');
    // It is written in place, under a lock.
    return fs.existsSync(file) ? JSON.parse(execFileSync('flock', ['--shared', file, 'cat', file], { encoding: 'utf8' }) || '[]') : [];
  }

  requestProcesses() {
    return processesWith(this.root).filter(({ command }) => command.includes('webapi/entry.cgi'));
  }

  transcoders() {
    return processesWith(this.root).filter(({ command }) => command.includes('-progress pipe:'));
  }

  // The processes of the transcoder program itself: those that a copy without FFmpeg has, too.
  transcoderPrograms() {
    return processesWith(this.root).filter(({ command }) => command.includes('target/bin/ffmpeg '));
  }

  // Checks that nothing runs, nothing is registered, and only the streams in `kept` have directories.
  async isQuiet(milliseconds = patience, kept = []) {
    const rest = () => [
      ...this.requestProcesses(),
      ...this.transcoders(),
      ...this.streamFolders().filter((name) => !kept.includes(name)),
      ...this.registry(),
    ];
    await eventually(() => (rest().length === 0 ? true : undefined), milliseconds, () => `left ${JSON.stringify(rest())}`);
  }
}

// Reads at least `length` bytes of an endless response.
export async function readSome(response, length) {
  const reader = response.body.getReader();
  const chunks = [];
  let size = 0;
  while (size < length) {
    const { done, value } = await reader.read();
    if (done) break;
    chunks.push(value);
    size += value.length;
  }
  reader.releaseLock();
  return Buffer.concat(chunks);
}
