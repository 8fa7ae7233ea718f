// Leaves out pictures that nobody will see: those before the place of a seek on which no other picture depends.
//
// A decoder begins at a key frame, often seconds before the wanted picture. Of H.264 with B-frames, half of the pictures
// in between or more are needed by no other one.

const MARGIN = 0.1; // seconds before the wanted one whose pictures are all kept
const LAST_PAIR = 0.3; // pairs that begin within so many seconds before these are not worth waiting for their end
const HEAD = 8; // bytes of a box's head
const NOTHING = new Uint8Array(0);
const NO_SYNC_SAMPLE = 0x10000;
const DATA_OFFSET = 0x1;
const FIELDS = { duration: 0x100, size: 0x200, flags: 0x400, composition: 0x800 };
const MEDIA = ['moov', 'trak', 'mdia'];
const VISUAL = 8 + HEAD + 78; // up to the boxes of an entry for pictures: the list's own head, the entry's, and its fields
const SLICES = [1, 5]; // types of NAL units that contain pictures

const viewOf = (bytes) => new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
const typeAt = (bytes, at) => String.fromCharCode(...bytes.subarray(at + 4, at + HEAD));

// Where the content of the box `path` begins in these bytes, and where it ends; undefined if there is none.
function find(bytes, path, from = 0, to = bytes.length) {
  const [wanted, ...rest] = path;
  const view = viewOf(bytes);
  for (let at = from; at + HEAD <= to; at += Math.max(view.getUint32(at), HEAD)) {
    if (typeAt(bytes, at) === wanted) {
      const end = Math.min(at + view.getUint32(at), to);
      return rest.length > 0 ? find(bytes, rest, at + HEAD, end) : { from: at + HEAD, to: end };
    }
  }
  return undefined;
}

// The bytes of the length before each NAL unit, and the time scale, as the header of a rendition tells them; undefined for
// other codecs than H.264.
export function codingOf(header) {
  const entries = find(header, [...MEDIA, 'minf', 'stbl', 'stsd']);
  const clock = find(header, [...MEDIA, 'mdhd']);
  const found = entries && clock && find(header, ['avcC'], entries.from + VISUAL, entries.to);
  return found && { lengthSize: (header[found.from + 4] & 3) + 1, timescale: viewOf(header).getUint32(clock.from + 12) };
}

// Do no other pictures depend on this one?
function isDisposable(sample, lengthSize) {
  let slices = 0;
  for (let at = 0; at + lengthSize < sample.length; ) {
    const length = sample.subarray(at, at + lengthSize).reduce((sum, byte) => sum * 256 + byte, 0);
    const head = sample[at + lengthSize];
    if (SLICES.includes(head & 31)) {
      if (head & 0x60) {
        return false;
      }
      ++slices;
    }
    at += lengthSize + length;
  }
  return slices > 0;
}

// The samples of a fragment, [{ duration, size, flags, composition }], and where they stand; undefined if it has another
// form than the server's.
function samplesOf(bytes, { from, to }) {
  const view = viewOf(bytes);
  const flags = view.getUint32(from) & 0xffffff;
  const all = Object.values(FIELDS).reduce((sum, bit) => sum | bit, DATA_OFFSET);
  const count = view.getUint32(from + 4);
  const first = from + 12;
  if (flags !== all || first + count * 16 !== to) {
    return undefined;
  }
  return Array.from({ length: count }, (_, i) => {
    const [duration, size, own, composition] = [0, 4, 8, 12].map((field) => view.getUint32(first + i * 16 + field));
    return { duration, size, flags: own, composition };
  });
}

export class Thinner {
  // `coding`: as above. `start`, `second`: of the segment and of the wanted picture.
  constructor({ lengthSize, timescale }, start, second) {
    this.lengthSize = lengthSize;
    this.least = (second - MARGIN - start) * timescale; // from the segment's start on
    this.last = this.least - LAST_PAIR * timescale;
    this.parts = []; // what has come of the next pair
    this.size = 0;
    this.needed = HEAD; // bytes of it that must have come before it is looked at
    this.isDone = false;
  }

  // Takes bytes of the segment as they come. Returns what can be appended.
  add(bytes) {
    if (this.isDone) {
      return bytes;
    }
    this.parts.push(bytes);
    this.size += bytes.length;
    if (this.size < this.needed) {
      return NOTHING;
    }
    const out = [];
    let rest = joined(this.parts);
    for (let end = this.endOfPair(rest); end > 0 && !this.isDone; end = this.endOfPair(rest)) {
      out.push(...this.thin(rest.subarray(0, end)));
      rest = rest.subarray(end);
    }
    if (this.isDone) {
      return joined([...out, rest]);
    }
    this.parts = [rest];
    this.size = rest.length;
    return joined(out);
  }

  // What is left at the end.
  finish() {
    return this.isDone ? NOTHING : joined(this.parts);
  }

  // The end of the first "mdat"; 0 if it has not come, or if no pair needs to be looked at any more.
  endOfPair(bytes) {
    const view = viewOf(bytes);
    for (let place = 0; place + HEAD <= bytes.length; ) {
      const end = place + Math.max(view.getUint32(place), HEAD);
      const type = typeAt(bytes, place);
      this.needed = type === 'mdat' ? end : end + HEAD;
      if (type === 'moof' && end <= bytes.length) {
        this.isDone ||= this.startOf(bytes.subarray(place, end)) >= this.last;
      }
      if (this.isDone || end > bytes.length) {
        return 0;
      }
      if (type === 'mdat') {
        this.needed = HEAD;
        return end;
      }
      place = end;
    }
    return 0;
  }

  // Where a pair begins, from the segment's start on; infinite if it has another form than the server's.
  startOf(fragment) {
    const run = find(fragment, ['moof', 'traf', 'trun']);
    const time = find(fragment, ['moof', 'traf', 'tfdt']);
    const samples = run && time && fragment[time.from] === 1 && samplesOf(fragment, run);
    if (!samples) {
      return Infinity;
    }
    const decoded = Number(viewOf(fragment).getBigUint64(time.from + 4));
    this.origin ??= decoded + samples[0].composition; // a segment's first picture is shown at its start
    Object.assign(this, { run, samples, decoded: decoded - this.origin });
    return this.decoded + samples[0].composition;
  }

  // The parts of a pair without what nobody will see.
  thin(pair) {
    const data = find(pair, ['mdat']);
    const kept = this.keep(pair.subarray(data.from, data.to));
    return kept.length === this.samples.length ? [pair] : written(pair, this.run, kept);
  }

  // The samples that stay, with their bytes. A decoder must see no gap, so the one before lasts as long as those left out
  // after it, and a pair keeps its first one.
  keep(data) {
    const kept = [];
    let [at, time] = [0, this.decoded];
    for (const sample of this.samples) {
      const bytes = data.subarray(at, at + sample.size);
      const isEarly = time + sample.composition + sample.duration < this.least;
      const isWanted = !isEarly || kept.length === 0 || (sample.flags & NO_SYNC_SAMPLE) === 0 || !isDisposable(bytes, this.lengthSize);
      if (isWanted) {
        kept.push({ ...sample, bytes });
      } else {
        kept.at(-1).duration += sample.duration;
      }
      at += sample.size;
      time += sample.duration;
    }
    return kept;
  }
}

// A pair with other samples. Only the sizes of the boxes around them change.
function written(pair, run, kept) {
  const fragment = find(pair, ['moof']);
  const track = find(pair, ['moof', 'traf']);
  const first = run.from + 12;
  const less = run.to - first - kept.length * 16;
  const size = fragment.to - (fragment.from - HEAD) - less;
  const head = new Uint8Array(fragment.from - HEAD + size + HEAD);
  head.set(pair.subarray(0, first));
  const view = viewOf(head);
  const shrink = (box) => view.setUint32(box.from - HEAD, box.to - box.from + HEAD - less);
  [fragment, track, run].forEach(shrink);
  view.setUint32(run.from + 4, kept.length);
  view.setUint32(run.from + 8, size + HEAD);
  kept.forEach(({ duration, size: length, flags, composition }, i) =>
    [duration, length, flags, composition].forEach((value, field) => view.setUint32(first + i * 16 + field * 4, value)),
  );
  head.set(pair.subarray(run.to, fragment.to), first + kept.length * 16);
  const data = kept.map(({ bytes }) => bytes);
  const end = head.length - HEAD;
  view.setUint32(end, HEAD + data.reduce((sum, { length }) => sum + length, 0));
  head.set([...'mdat'].map((sign) => sign.charCodeAt(0)), end + 4);
  return [head, ...data];
}

// The parts as one.
export function joined(parts) {
  if (parts.length === 1) {
    return parts[0];
  }
  const whole = new Uint8Array(parts.reduce((size, { length }) => size + length, 0));
  parts.reduce((at, part) => {
    whole.set(part, at);
    return at + part.length;
  }, 0);
  return whole;
}
