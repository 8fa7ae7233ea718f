// The engine for CMAF presentations: plan, network speed, choice of the quality, loading of segments.
import assert from 'node:assert/strict';
import { afterEach, beforeEach, describe, test } from 'node:test';

import { Presentation, qualityText, renditionNamed } from '../../player/src/playback/cmaf/presentation.js';
import { Quality } from '../../player/src/playback/cmaf/quality.js';
import { delayAfter } from '../../player/src/playback/cmaf/request.js';
import { Source } from '../../player/src/playback/cmaf/source.js';
import { PairMeter, Throughput, waitOf } from '../../player/src/playback/cmaf/throughput.js';
import { Track } from '../../player/src/playback/cmaf/track.js';
import { settled, Video } from './fakes.mjs';

const copy = { name: 'copy-video', kind: 'picture', codec: 'avc1', bandwidth: 8e6, encoded: false, width: 1920, height: 1080, header: '/copy/init', segments: '/copy/' };
const rung = (height, bandwidth) => ({ ...copy, name: `h264-${height}`, bandwidth, encoded: true, width: 2 * height, height, header: `/h264-${height}/init`, segments: `/h264-${height}/` });
const [high, low] = [rung(720, 3e6), rung(360, 8e5)];
const sound = (name, track, more = {}) => ({ name, kind: 'sound', codec: 'mp4a', track, treatment: 'stereo', bandwidth: 1e5, ...more });

const presentation = new Presentation({
  timescale: 10,
  durations: [10, 10, 20, 40, 20],
  renditions: [copy, high, low, sound('stereo-0', 1), sound('copy-audio-1', 2, { treatment: 'sound', default: true }), sound('stereo-1', 2), sound('night-1', 2, { treatment: 'night' })],
});

describe('the plan', () => {
  test('gives the segment of each second', () => {
    assert.deepEqual([-1, 0, 0.9, 1, 3.9, 4, 9, 99].map((second) => presentation.at(second)), [0, 0, 0, 1, 2, 3, 4, 4]);
    assert.deepEqual([presentation.count, presentation.duration, presentation.start(3), presentation.end(3)], [5, 10, 4, 8]);
  });

  test('names the usual sound, and the converted one of the same track', () => {
    const usual = presentation.usualSound();
    assert.deepEqual([usual.name, presentation.convertedSound(usual).name], ['copy-audio-1', 'stereo-1']);
  });

  test('names the night sound of a track, and the sound itself where there is none', () => {
    const [first] = presentation.sounds;
    assert.deepEqual([presentation.nightSound(presentation.usualSound()).name, presentation.nightSound(first).name], ['night-1', 'stereo-0']);
  });

  test('a quality’s text names its rendition', () => {
    assert.deepEqual([copy, high, low].map((picture) => renditionNamed(qualityText(picture))), ['copy-video', 'h264-720', 'h264-360']);
  });
});

describe('the speed of the network', () => {
  test('leaves out how long the server waited', () => {
    const wait = (text) => waitOf(new Headers(text ? { 'server-timing': text } : {}));
    assert.deepEqual([wait('wait;dur=120'), wait('cache, wait;dur=3.5'), wait('await;dur=9'), wait('')], [120, 3.5, 0, 0]);
  });

  test('is that of recent answers, and small ones say nothing', () => {
    const speed = new Throughput();
    speed.add(1000, 1);
    assert.equal(speed.rate, 0);
    speed.add(1e6, 1000);
    assert.equal(Math.round(speed.rate), 8e6);
    for (let time = 0; time < 20; ++time) speed.add(1e6, 4000);
    assert.ok(speed.rate < 2.1e6, String(speed.rate));
  });

  test('of a growing segment is measured within each pair', () => {
    const box = (type, size) => {
      const bytes = new Uint8Array(size);
      new DataView(bytes.buffer).setUint32(0, size);
      bytes.set(new TextEncoder().encode(type), 4);
      return bytes;
    };
    const pair = Buffer.concat([box('moof', 50), box('mdat', 950)]);
    const found = [];
    const meter = new PairMeter((bytes, milliseconds) => found.push([bytes, milliseconds]));
    const stream = Buffer.concat([pair, pair]);
    // The second pair begins long after the first one has ended, in the middle of a box's head.
    [[0, 500, 0], [500, 1000, 20], [1000, 1003, 5000], [1003, 2000, 5040]].forEach(([from, to, now]) => meter.add(stream.subarray(from, to), now));
    assert.deepEqual(found, [[1000, 20], [1000, 40]]);
  });
});

describe('the automatic quality', () => {
  let speed;
  let quality;
  let room;

  beforeEach(() => {
    speed = { rate: 0 };
    room = true;
    quality = new Quality([low, copy, high], speed, async () => room);
  });

  test('begins with the best one, and takes what the network carries', async () => {
    assert.equal(await quality.next(undefined, 0), copy);
    speed.rate = 5e6;
    assert.equal(await quality.next(undefined, 0), high);
    speed.rate = 1e5;
    assert.equal(await quality.next(undefined, 0), low);
  });

  test('falls when the buffer is short, and rises when it is long', async () => {
    speed.rate = 1.2e6;
    assert.equal(await quality.next(high, 25), high);
    assert.equal(await quality.next(high, 8), low);
    speed.rate = 5e6;
    assert.equal(await quality.next(low, 8), low);
    assert.equal(await quality.next(low, 15), high);
  });

  test('asks for no conversion that the server has no room for', async () => {
    speed.rate = 5e6;
    room = false;
    assert.equal(await quality.next(copy, 3), copy);
    room = true;
    assert.equal(await quality.next(copy, 3), copy); // it asks again after a while
  });

  test('leaves a refused rendition, unless there is no other', () => {
    assert.ok(quality.leave(high));
    assert.ok(quality.leave(copy));
    assert.equal(quality.best(), low);
    assert.ok(!quality.leave(low));
  });

  test('a picked quality stays', async () => {
    quality.pick('h264-720');
    speed.rate = 1e5;
    assert.equal(await quality.next(high, 0), high);
    assert.ok(!quality.leave(high));
    quality.pick('h264-9999');
    assert.equal(await quality.next(high, 0), low);
  });
});

test('a busy server is asked as long as the viewer waits, others a few times', () => {
  assert.equal(delayAfter({ reason: 'TransEnable', retryAfter: 2 }, 99), 1000);
  assert.deepEqual([0, 3, 4].map((failures) => delayAfter({ reason: 'NotReady' }, failures)), [500, 4000, undefined]);
  assert.equal(delayAfter({ reason: 'Forbidden' }, 0), undefined);
});

// A SourceBuffer that holds what is appended to it: one second for each byte, from `at` on.
class Buffer_ extends EventTarget {
  constructor() {
    super();
    Object.assign(this, { updating: false, parts: [], log: [], refusals: [] });
  }

  get buffered() {
    return { length: this.parts.length, start: (part) => this.parts[part][0], end: (part) => this.parts[part][1] };
  }

  finish() {
    this.updating = true;
    queueMicrotask(() => {
      this.updating = false;
      this.dispatchEvent(new Event('updateend'));
    });
  }

  appendBuffer(bytes) {
    const refusal = this.refusals.shift();
    if (refusal) throw new DOMException('', refusal);
    const text = new TextDecoder().decode(bytes);
    this.log.push(text);
    const number = Number(text.match(/(?<=#)\d+/)?.[0] ?? NaN);
    if (!Number.isNaN(number)) this.parts = [[this.parts[0]?.[0] ?? presentation.start(number), presentation.end(number)]];
    this.finish();
  }

  remove(from, to) {
    this.log.push(`remove ${from} ${to}`);
    this.finish();
  }

  abort() {
    this.log.push('abort');
  }
}

describe('a track', () => {
  let buffer;
  let track;
  let asked;
  let answers; // by address: a function in place of the usual answer
  let told;
  let chosen;
  let video;
  const realFetch = globalThis.fetch;

  const body = (address) => `${address.replace(/\/(\d+)$/, '#$1')}`;
  const usual = (address) => new Response(body(address), { headers: { 'content-length': '9' } });
  const refuse = (status, reason) => () => new Response(JSON.stringify({ success: false, error: { code: status, reason } }), { status });

  beforeEach(() => {
    buffer = new Buffer_();
    video = new Video();
    video.readyState = 4;
    asked = [];
    told = [];
    answers = {};
    chosen = copy;
    globalThis.fetch = async (address, { signal }) => {
      signal.throwIfAborted();
      asked.push(address);
      return (answers[address]?.shift() ?? usual)(address);
    };
    const hooks = {
      loaded: () => told.push('loaded'),
      done: () => told.push('done'),
      fail: (error) => told.push(error.reason ?? error),
      refused: (rendition, error) => told.push(`refused ${error.reason}`) && Boolean(error.instead),
    };
    const parts = { presentation, source: new Source(Promise.resolve(buffer)), throughput: new Throughput(), video, now: () => video.currentTime, hooks };
    track = new Track(parts, () => chosen, { [copy.name]: new TextEncoder().encode('known header') });
  });
  afterEach(() => {
    track.stop();
    globalThis.fetch = realFetch;
  });

  const appended = () => buffer.log.filter((text) => text !== 'abort');
  const finished = async () => {
    for (let turn = 0; turn < 200 && !told.includes('done'); ++turn) await settled();
  };

  test('loads all segments after the header, which needs no request if it is known', async () => {
    track.seek(0);
    await finished();
    assert.deepEqual(asked, [0, 1, 2, 3, 4].map((number) => `/copy/${number}`));
    assert.deepEqual(appended(), ['known header', ...asked.map(body)]);
    assert.equal(told.at(-1), 'done');
  });

  test('begins at the segment of the requested second', async () => {
    video.currentTime = 5;
    track.seek(5);
    await finished();
    assert.deepEqual(asked, ['/copy/3', '/copy/4']);
  });

  for (const [what, state] of Object.entries({ seeked: { seeking: true, readyState: 1 }, loadeddata: { readyState: 1 } })) {
    test(`until the wanted picture is shown (${what}), only what it needs is loaded`, async () => {
      Object.assign(video, state, { currentTime: 2.5 });
      track.seek(2.5);
      for (let turn = 0; turn < 50; ++turn) await settled();
      assert.deepEqual(asked, ['/copy/2']);
      Object.assign(video, { seeking: false, readyState: 4 });
      video.tell(what);
      await finished();
      assert.deepEqual(asked, ['/copy/2', '/copy/3', '/copy/4']);
    });
  }

  test('a place near the end of its segment needs the next one, too', async () => {
    Object.assign(video, { seeking: true, currentTime: 3.5 });
    track.seek(3.5);
    for (let turn = 0; turn < 50; ++turn) await settled();
    assert.deepEqual(asked, ['/copy/2', '/copy/3']);
  });

  test('what comes while the buffer works is appended as one', async () => {
    const parts = ['/co', 'py', '#', '0'];
    const stream = new ReadableStream({ pull: (to) => (parts.length > 0 ? to.enqueue(new TextEncoder().encode(parts.shift())) : to.close()) });
    answers['/copy/0'] = [() => new Response(stream, { headers: { 'content-length': '7' } })];
    let finishLater = [];
    buffer.finish = () => {
      buffer.updating = true;
      finishLater.push(() => {
        buffer.updating = false;
        buffer.dispatchEvent(new Event('updateend'));
      });
    };
    track.seek(0);
    const goOn = async () => {
      for (let turn = 0; turn < 20; ++turn) await settled();
      finishLater.splice(0).forEach((finish) => finish());
    };
    for (let turn = 0; turn < 3; ++turn) await goOn();
    finishLater = [];
    assert.deepEqual(appended().slice(0, 3), ['known header', '/co', 'py#0']);
  });

  test('a seek to what is buffered asks for nothing that is there', async () => {
    track.seek(0);
    await finished();
    track.seek(2);
    await settled();
    assert.equal(asked.length, 5);
  });

  test('a seek back to where pictures were left out loads the segment again', async () => {
    track.seek(0);
    await finished();
    track.thinned.set(3, 6);
    for (const [second, wanted] of [[6.5, []], [5, ['/copy/3']]]) {
      asked.length = 0;
      track.seek(second);
      for (let turn = 0; turn < 20; ++turn) await settled();
      assert.deepEqual(asked.slice(0, 1), wanted, `${second}`);
    }
    assert.equal(track.thinned.size, 0);
  });

  // The buffer removes when the test says so.
  const holdRemovals = () => {
    const held = [];
    buffer.remove = (from, to) => {
      buffer.updating = true;
      held.push(() => {
        buffer.parts = [[to, presentation.duration]];
        buffer.updating = false;
        buffer.dispatchEvent(new Event('updateend'));
      });
    };
    return held;
  };

  test('a seek to what is just being removed loads it again', async () => {
    track.seek(0);
    await finished();
    told.length = 0;
    const held = holdRemovals();
    track.source.removeUpTo(() => 4);
    await settled();
    video.currentTime = 1;
    track.seek(1);
    await settled();
    assert.equal(asked.length, 5);
    held[0]();
    await finished();
    assert.deepEqual(asked.slice(5), ['/copy/1', '/copy/2', '/copy/3', '/copy/4']);
  });

  test('a removal that waits for its turn spares what a seek wants', async () => {
    track.seek(0);
    await finished();
    const held = holdRemovals();
    video.currentTime = 8;
    const waiting = [() => 1, () => video.currentTime - 2].map((upTo) => track.source.removeUpTo(upTo));
    await settled();
    video.currentTime = 2;
    held[0]();
    await Promise.all(waiting);
    assert.equal(held.length, 1);
  });

  test('another choice takes its own header, from that segment on', async () => {
    track.seek(0);
    await finished();
    told.length = 0;
    chosen = low;
    track.renew(3);
    await finished();
    assert.deepEqual(asked.slice(5), ['/h264-360/3', '/h264-360/init', '/h264-360/4']);
    assert.deepEqual(track.shown.map(({ name }) => name), ['copy-video', 'copy-video', 'copy-video', 'h264-360', 'h264-360']);
  });

  test('a rendition that is refused gives way to another one at once', async () => {
    answers['/copy/0'] = [refuse(503, 'TransEnable')];
    track.hooks.refused = () => {
      chosen = low;
      return true;
    };
    track.seek(0);
    await finished();
    assert.deepEqual(asked.slice(0, 3), ['/copy/0', '/h264-360/0', '/h264-360/init']);
  });

  test('an error that repeats ends the loading', async () => {
    answers['/copy/1'] = [refuse(403, 'Forbidden')];
    track.seek(0);
    for (let turn = 0; turn < 50; ++turn) await settled();
    assert.deepEqual(told, ['loaded', 'refused Forbidden', 'Forbidden']);
    assert.deepEqual(asked, ['/copy/0', '/copy/1']);
  });

  test('a full buffer waits until something has been shown, removes it, and goes on', async () => {
    video.currentTime = 0;
    buffer.refusals = [undefined, undefined, 'QuotaExceededError'];
    track.seek(0);
    for (let turn = 0; turn < 50; ++turn) await settled();
    assert.ok(!told.includes('done'));
    video.currentTime = 7;
    video.tell('timeupdate');
    await finished();
    assert.deepEqual(buffer.log.filter((text) => text.startsWith('remove')), ['remove 0 5']);
    assert.deepEqual(buffer.log.filter((text) => text.startsWith('/copy#')), ['/copy#0', '/copy#1', '/copy#3', '/copy#4']); // 2 has passed
  });

  test('a growing segment that ends in the middle is loaded again', async () => {
    answers['/copy/0'] = [() => new Response('half a segment')];
    track.seek(0);
    for (let turn = 0; turn < 20; ++turn) await settled();
    assert.deepEqual([told, asked], [['refused Broken'], ['/copy/0']]);
  });

  test('nothing is appended after a stop', async () => {
    track.seek(0);
    track.stop();
    for (let turn = 0; turn < 20; ++turn) await settled();
    assert.deepEqual([told, appended()], [[], []]);
  });
});
