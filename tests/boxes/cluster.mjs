// Boxes with the same films behind a real HAProxy with the configuration that "mirevo cluster haproxy" prints. Each box is
// alone in a network namespace. Accounts, history and sessions are shared.
import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';

import { build, eventually, patience, processesWith, Service } from '../service/support.mjs';
import { Network } from './network.mjs';
import { Quota } from './quota.mjs';

const program = path.join(build, 'target/bin/mirevo');
const port = 8096;
const password = 'a long password of boxes';

// Sends a signal to everything that belongs to a box. Returns the number of processes.
function signal(box, name) {
  const found = processesWith(box.root);
  found.forEach(({ pid }) => {
    try {
      process.kill(pid, name);
    } catch {
      // it has ended
    }
  });
  return found.length;
}

export class Cluster {
  // Serves `films`, a folder. `count`: of boxes. `started`: those that run from the beginning. `cores`: the processor
  // time of each box, which comes before other work of the machine; no bound and no precedence if it is missing.
  static async start({ films, count = 3, started = count, cores }) {
    const cluster = new Cluster();
    try {
      await cluster.#prepare(films, count, cores);
      for (const box of cluster.boxes.slice(0, started)) await cluster.serve(box);
      await cluster.#balance();
      await cluster.#logIn();
    } catch (error) {
      await cluster.stop();
      throw error;
    }
    return cluster;
  }

  async #prepare(films, count, cores) {
    this.films = films;
    this.cores = cores;
    this.folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-boxes-'));
    this.key = execFileSync(program, ['cluster', 'key'], { encoding: 'utf8' });
    this.boxes = [];
    this.network = new Network();
    this.authority = `${this.network.address}:8080`;
    this.shared = path.join(this.folder, 'shared');
    fs.mkdirSync(this.shared, { mode: 0o700 });
    for (let number = 1; number <= count; number += 1) this.boxes.push(this.#makeBox(number));
    this.boxes[0].account(['add', 'anna'], password);
  }

  #makeBox(number) {
    const box = Service.prepare();
    const etc = path.join(box.root, 'var/packages/Mirevo/etc');
    fs.mkdirSync(etc, { recursive: true });
    fs.symlinkSync(this.shared, path.join(etc, 'shared'));
    box.number = number;
    box.host = this.network.connect(number);
    box.keyFile = path.join(etc, 'cluster_key');
    fs.writeFileSync(box.keyFile, this.key, { mode: 0o600 });
    return box;
  }

  // Starts a box, with the programs of another build folder if one is named.
  async serve(box, programs = build) {
    const target = path.join(box.root, 'var/packages/Mirevo/target');
    fs.unlinkSync(target);
    fs.symlinkSync(path.join(programs, 'target'), target);
    const agent = ['--agent', `${box.host}:8097`];
    const others = ['--cluster_url', `http://${this.authority}`, '--cluster_boxes', `${this.boxes.length}`];
    await box.serve(
      [this.films],
      ['--cluster_key', box.keyFile, '--listen', box.host, '--host', this.authority, '--proxy', this.network.address,
        '--no-conversions', ...agent, ...others],
      { port, through: this.network.on(box.number) },
    );
    box.address = `http://${box.host}:${port}`;
    if (this.cores) this.#bound(box, this.cores);
  }

  #bound(box, cores) {
    box.quota ??= new Quota(`mirevo-boxes-${process.pid}-${box.number}`, cores);
    box.quota.take(processesWith(box.root));
  }

  // Bounds the processor time of each box from now on.
  limit(cores) {
    this.boxes.forEach((box) => this.#bound(box, cores));
  }

  async #balance() {
    const file = path.join(this.folder, 'haproxy.cfg');
    this.socket = path.join(this.folder, 'admin.sock');
    const places = this.boxes.map(({ host }) => `${host}:${port}`);
    const words = ['cluster', 'haproxy', '--listen', this.authority, '--socket', this.socket, ...places];
    fs.writeFileSync(file, execFileSync(program, words));
    this.balancer = spawn('/usr/sbin/haproxy', ['-db', '-f', file], { stdio: 'ignore' });
    os.setPriority(this.balancer.pid, os.constants.priority.PRIORITY_HIGHEST);
    await eventually(async () => ((await fetch(`http://${this.authority}/`).catch(() => undefined))?.ok ? true : undefined), patience);
  }

  async #logIn() {
    const body = new URLSearchParams({ api: 'ORVO.Mirevo2.Auth', version: 1, method: 'login', account: 'anna', passwd: password });
    const response = await fetch(`http://${this.authority}/webapi/entry.cgi`, { method: 'POST', body });
    this.session = (await response.json()).data._sid;
  }

  // Asks through the balancer, or a box.
  async call(api, method, parameters = {}, base = `http://${this.authority}`) {
    const query = new URLSearchParams({ api: `ORVO.Mirevo2.${api}`, version: 1, method, _sid: this.session, ...parameters });
    const response = await fetch(`${base}/webapi/entry.cgi?${query}`);
    return { status: response.status, ...(await response.json()) };
  }

  // Opens a film of the folder.
  async open(name, parameters) {
    const answer = await this.call('Streaming', 'open', { path: path.join(this.films, name), ...parameters });
    if (!answer.success) throw new Error(JSON.stringify(answer.error));
    return answer.data;
  }

  close({ stream_id: id, format }) {
    return this.call('Streaming', 'close', { format, stream_id: id });
  }

  // The addresses of a playlist's segments.
  async segments(url) {
    const text = await (await fetch(url)).text();
    const lines = text.split('\n').filter((line) => line.startsWith('/') || line.startsWith('http'));
    return lines.map((line) => new URL(line, `http://${this.authority}`).href);
  }

  // The boxes that have made segments of an HLS stream.
  makers({ stream_id: id }) {
    return this.boxes.filter(({ root }) => {
      const made = path.join(root, 'tmp/Mirevo/HLS', id);
      return fs.existsSync(made) && fs.readdirSync(made).some((name) => /^slice-\d+\.ts$/.test(name));
    });
  }

  // The box that was asked last for a segment of an HLS stream.
  lastAsked({ stream_id: id }) {
    const time = ({ root }) => fs.statSync(path.join(root, 'tmp/Mirevo/HLS', id, 'requested'), { throwIfNoEntry: false })?.mtimeMs ?? 0;
    return this.boxes.reduce((last, box) => (time(box) > time(last) ? box : last));
  }

  // What HAProxy answers to a command on its administration socket.
  async admin(command) {
    const socket = net.connect(this.socket);
    socket.end(`${command}\n`);
    return Buffer.concat(await socket.toArray()).toString();
  }

  // Waits until HAProxy gives the box a part of its weight that fits.
  async hasWeight(box, fits) {
    await eventually(async () => {
      const names = ['boxes', 'home'].map((backend) => `${backend}/b${box.number}`);
      const answers = await Promise.all(names.map((name) => this.admin(`get weight ${name}`)));
      return answers.every((answer) => fits(Number(answer.match(/^\d+/)[0]))) ? true : undefined;
    });
  }

  // The box's rows in HAProxy's statistics.
  async #rows(box) {
    const table = await this.admin('show stat');
    return table.split('\n').map((row) => row.split(',')).filter(([, name]) => name === `b${box.number}`);
  }

  // Waits until HAProxy sends requests to the box.
  isUp(box) {
    return eventually(async () => ((await this.#rows(box)).every((row) => row[17].startsWith('UP')) ? true : undefined));
  }

  // Waits until no request to the box is under way.
  isLeft(box) {
    return eventually(async () => ((await this.#rows(box)).every((row) => row[4] === '0') ? true : undefined), 2 * patience);
  }

  // Runs "mirevo cluster" on a box.
  command(box, ...words) {
    return execFileSync(program, ['cluster', ...words], { env: box.environment, encoding: 'utf8' });
  }

  // As a power failure does.
  kill(box) {
    while (signal(box, 'SIGKILL') > 0);
  }

  freeze(box) {
    signal(box, 'SIGSTOP');
  }

  thaw(box) {
    signal(box, 'SIGCONT');
  }

  // Ends the service of a box as its owner does.
  async shut(box) {
    box.process.kill('SIGTERM');
    await box.ended();
  }

  async stop() {
    this.balancer?.kill('SIGKILL');
    this.boxes?.forEach((box) => this.kill(box));
    for (const { quota, root } of this.boxes ?? []) {
      // A process is not gone at once.
      if (quota) await eventually(() => quota.tryRemove() || undefined);
      fs.rmSync(root, { recursive: true, force: true });
    }
    this.network?.remove();
    fs.rmSync(this.folder, { recursive: true, force: true });
  }
}
