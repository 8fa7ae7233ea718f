// Fakes of the browser and the server for tests of the page's modules. Tests control their time.

// Runs all code that waits only for promises.
export const settled = () => new Promise((resolve) => setImmediate(resolve));

// Replaces the timers. Time passes only when a test advances it.
export class Clock {
  constructor() {
    this.now = 0;
    this.timers = new Map();
    this.last = 0;
    this.real = {};
    const add = (action, milliseconds, every) => {
      this.timers.set(++this.last, { action, due: this.now + milliseconds, every });
      return this.last;
    };
    this.replace('setTimeout', (action, milliseconds) => add(action, milliseconds));
    this.replace('setInterval', (action, milliseconds) => add(action, milliseconds, milliseconds));
    this.replace('clearTimeout', (timer) => this.timers.delete(timer));
    this.replace('clearInterval', (timer) => this.timers.delete(timer));
  }

  replace(name, stand) {
    this.real[name] = globalThis[name];
    globalThis[name] = stand;
  }

  restore() {
    Object.assign(globalThis, this.real);
  }

  tick([id, timer]) {
    if (!this.timers.has(id) || timer.due > this.now) return;
    if (timer.every) {
      timer.due += timer.every;
    } else {
      this.timers.delete(id);
    }
    timer.action();
  }

  // The timers of the page last whole seconds.
  async pass(seconds) {
    await settled();
    for (let second = 0; second < seconds; ++second) {
      this.now += 1000;
      [...this.timers].forEach((entry) => this.tick(entry));
      await settled();
    }
  }
}

globalThis.HTMLMediaElement = { HAVE_METADATA: 1, HAVE_CURRENT_DATA: 2, HAVE_FUTURE_DATA: 3 };
globalThis.MediaError = { MEDIA_ERR_NETWORK: 2, MEDIA_ERR_DECODE: 3 };
globalThis.MediaSource = { isTypeSupported: () => true };
globalThis.window = { location: { href: 'http://box/' } };

// A video element that plays nothing.
export class Video extends EventTarget {
  constructor() {
    super();
    Object.assign(this, { muted: false, paused: true, ended: false, seeking: false, readyState: 0, currentTime: 0, playbackRate: 1 });
    this.error = null;
    this.ranges = []; // the buffered ranges, [[start, end]]
    this.refusal = ''; // the name of the error with which play() rejects
    this.classes = new Set();
    this.classList = {
      toggle: (name, on) => (on ? this.classes.add(name) : this.classes.delete(name)),
      remove: (name) => this.classes.delete(name),
    };
    this.children = [];
  }

  get buffered() {
    return { length: this.ranges.length, start: (part) => this.ranges[part][0], end: (part) => this.ranges[part][1] };
  }

  canPlayType() {
    return 'maybe';
  }

  async play() {
    if (this.refusal) {
      throw Object.assign(new Error(this.refusal), { name: this.refusal });
    }
    this.paused = false;
  }

  pause() {
    this.paused = true;
  }

  load() {
    this.readyState = 0;
  }

  hasAttribute(name) {
    return this[name] !== undefined;
  }

  removeAttribute(name) {
    delete this[name];
  }

  append(child) {
    this.children.push(child);
    child.remove = () => this.children.splice(this.children.indexOf(child), 1);
  }

  tell(...types) {
    types.forEach((type) => this.dispatchEvent(new Event(type)));
  }

  // Shows the first picture.
  show(second = this.currentTime) {
    this.currentTime = second;
    this.readyState = 4;
    this.tell('loadeddata', 'playing');
  }
}

const response = (status, body, headers = {}) => ({
  ok: status < 400,
  status,
  headers: new Headers(headers),
  json: async () => body,
});

// A refusal. `retryAfter`: seconds.
export function refusal(reason, { status = 500, message = '', retryAfter } = {}) {
  const error = { code: status, reason, message, ...(retryAfter && { retry_after: retryAfter }) };
  return () => response(status, { success: false, error });
}

export const unreachable = () => {
  throw new TypeError('no network');
};

// Replaces the server: answers each method of the API from `answers` and records the calls.
export class Server {
  constructor(answers = {}) {
    this.answers = answers; // by method: data, or a function of the parameters that returns data or a response
    this.calls = [];
    this.beacons = [];
    globalThis.fetch = (address, options = {}) => this.answer(address, options);
    const sendBeacon = (address, blob) => this.beacons.push(blob.text().then((text) => Object.fromEntries(new URLSearchParams(text))));
    Object.defineProperty(globalThis, 'navigator', { value: { sendBeacon }, configurable: true });
  }

  async answer(address, { method: verb = 'GET', body }) {
    const parameters = Object.fromEntries(new URLSearchParams(body ?? address.slice(address.indexOf('?') + 1)));
    this.calls.push({ ...parameters, verb });
    const answer = this.answers[parameters.method] ?? {};
    const data = typeof answer === 'function' ? await answer(parameters) : answer;
    return typeof data?.json === 'function' ? data : response(200, { success: true, data });
  }

  // The calls of a method.
  asked(method) {
    return this.calls.filter((call) => call.method === method);
  }

  // Returns a function; the method is answered with its argument when a test calls it.
  hold(method) {
    let release;
    const gate = new Promise((resolve) => {
      release = resolve;
    });
    this.answers[method] = () => gate;
    return release;
  }
}
