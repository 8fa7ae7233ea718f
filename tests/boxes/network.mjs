// A network for boxes: each one has a namespace with a cable to a bridge of this machine. It needs root.
import { execFileSync } from 'node:child_process';

const port = 'eth0'; // a box's end of its cable
const ip = (...words) => execFileSync('ip', words, { stdio: ['ignore', 'pipe', 'pipe'] });

let made = 0; // the kernel removes a network some time after it was told to

export class Network {
  // This machine has the last address.
  constructor() {
    this.bridge = `mb${process.pid}${String.fromCharCode(97 + made)}`; // at most 15 characters with a number behind it
    made += 1;
    this.subnet = `10.${100 + (process.pid % 100)}.${Math.floor(process.pid / 100) % 250}`;
    this.address = `${this.subnet}.254`;
    this.namespaces = [];
    ip('link', 'add', this.bridge, 'type', 'bridge');
    ip('address', 'add', `${this.address}/24`, 'dev', this.bridge);
    ip('link', 'set', this.bridge, 'up');
    // A test that is interrupted leaves nothing.
    this.leave = () => this.remove();
    process.once('exit', this.leave);
    ['SIGINT', 'SIGTERM'].forEach((name) => process.once(name, () => process.exit(1)));
  }

  // Connects box `number`, from 1. Returns its address.
  connect(number) {
    const address = `${this.subnet}.${number}`;
    const name = this.cable(number);
    const inside = (...words) => ip('-n', name, ...words);
    ip('netns', 'add', name);
    this.namespaces.push(name);
    ip('link', 'add', name, 'type', 'veth', 'peer', 'name', port, 'netns', name);
    ip('link', 'set', name, 'master', this.bridge);
    inside('address', 'add', `${address}/24`, 'dev', port);
    inside('link', 'set', 'lo', 'up');
    inside('link', 'set', port, 'up');
    this.plug(number);
    return address;
  }

  // The name of the namespace, and of this machine's end of the cable.
  cable(number) {
    return `${this.bridge}-${number}`;
  }

  // The beginning of a command that runs on the box.
  on(number) {
    return ['nsenter', `--net=/run/netns/${this.cable(number)}`];
  }

  pull(number) {
    ip('link', 'set', this.cable(number), 'down');
  }

  plug(number) {
    ip('link', 'set', this.cable(number), 'up');
  }

  // After the processes of all boxes have ended.
  remove() {
    process.removeListener('exit', this.leave);
    this.namespaces.forEach((name) => ip('netns', 'delete', name));
    ip('link', 'delete', this.bridge);
  }
}
