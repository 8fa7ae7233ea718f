// The network's speed, apart from the time that the transcoder takes.
//
// A complete segment comes as fast as the network allows; the server says how long it waited before it sent the first
// byte. A segment that is still being made comes in pairs of "moof" and "mdat". The server sends a pair at once when it
// is complete, so only the time between a pair's first and last byte is the network's.

const LEAST_BYTES = 16384; // less says nothing about speed
const LEAST_MILLISECONDS = 4; // what came at once came in at most this time
const HALF_WEIGHT_BYTES = 1 << 20; // after so many bytes, an older measurement counts half
const HEAD_BYTES = 8; // of a box

export class Throughput {
  constructor() {
    this.weight = 0;
    this.mean = 0; // of the logarithm of bit/s: one fast answer does not outweigh several slow ones
  }

  add(bytes, milliseconds) {
    if (bytes < LEAST_BYTES) {
      return;
    }
    const rate = Math.log((bytes * 8000) / Math.max(milliseconds, LEAST_MILLISECONDS));
    const kept = this.weight * 0.5 ** (bytes / HALF_WEIGHT_BYTES);
    const weight = 1 - 0.5 ** (bytes / HALF_WEIGHT_BYTES);
    this.mean = (this.mean * kept + rate * weight) / (kept + weight);
    this.weight = kept + weight;
  }

  // In bit/s; 0 before the first measurement.
  get rate() {
    return this.weight > 0 ? Math.exp(this.mean) : 0;
  }
}

// Milliseconds for which the server waited before it answered.
export function waitOf(headers) {
  const wait = (headers.get('server-timing') ?? '').match(/(?:^|,)\s*wait;dur=([\d.]+)/);
  return wait ? Number(wait[1]) : 0;
}

// Measures a segment that comes as it is made.
export class PairMeter {
  // `measured`: gets the bytes of a pair and its milliseconds.
  constructor(measured) {
    this.measured = measured;
    this.head = []; // the bytes of a box's head so far
    this.left = 0; // bytes up to the next box
    this.size = 0; // of the pair so far
  }

  add(bytes, now) {
    for (let at = 0; at < bytes.length; ) {
      const step = this.left > 0 ? Math.min(this.left, bytes.length - at) : 1;
      this.begun = this.size === 0 ? now : this.begun;
      this.size += step;
      if (this.left > 0) {
        this.left -= step;
      } else {
        this.head.push(bytes[at]);
      }
      at += step;
      this.look(now);
    }
  }

  look(now) {
    if (this.head.length === HEAD_BYTES && this.type === undefined) {
      const [a, b, c, d, ...type] = this.head;
      this.left = Math.max(0, a * 2 ** 24 + ((b << 16) | (c << 8) | d) - HEAD_BYTES);
      this.type = String.fromCharCode(...type);
    }
    if (this.type !== undefined && this.left === 0) {
      if (this.type === 'mdat') {
        this.measured(this.size, now - this.begun);
        this.size = 0;
      }
      this.head = [];
      this.type = undefined;
    }
  }
}
