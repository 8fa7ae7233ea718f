// The engines in which the browser itself plays: one endless stream, and a file in which it seeks.
import assert from 'node:assert/strict';
import { beforeEach, describe, test } from 'node:test';

import { BrowserFile } from '../../player/src/playback/file.js';
import { Progressive } from '../../player/src/playback/progressive.js';
import { Smooth } from '../../player/src/playback/smooth.js';
import { settled, Video } from './fakes.mjs';

const stream = { url: 'http://box:8096/film?id=s1', duration: 100 };

let video;
let told; // the calls that the engine has made to its owner
let hooks;
let frames; // the callbacks for the next animation frame

const draw = () => frames.splice(0).forEach((action) => action());

beforeEach(() => {
  video = new Video();
  told = [];
  frames = [];
  globalThis.requestAnimationFrame = (action) => frames.push(action);
  const tell = (name) => (value) => told.push(value === undefined ? name : [name, value.reason ?? value]);
  hooks = { wish: { muted: false, speed: 1.5 }, mark: tell('mark'), play: tell('play'), ended: tell('ended'), fail: tell('fail'), clock() {} };
});

// The server's answer to the repeated request.
function answers(status, body = null) {
  const asked = [];
  globalThis.fetch = async (address, options) => {
    asked.push([address, options]);
    return { ok: status < 400, status, headers: new Headers(), json: async () => body };
  };
  return asked;
}

describe('one endless stream', () => {
  let engine;

  beforeEach(() => {
    engine = new Progressive(video, hooks);
    engine.open(stream, 20.7);
  });

  test('begins at a whole second and reports its steps', () => {
    assert.deepEqual([video.src, told], ['/film?id=s1&start=20', ['play']]);
    video.tell('loadstart', 'loadedmetadata');
    assert.deepEqual(told.slice(1), [['mark', 'manifest'], ['mark', 'media']]);
  });

  test('a seek is a new request within the film', () => {
    const places = [45, 500, -1].map((second) => {
      engine.seek(second);
      return video.src;
    });
    assert.deepEqual(places, ['/film?id=s1&start=45', '/film?id=s1&start=99', '/film?id=s1&start=0']);
  });

  test('the position is the requested one until pictures come, and never earlier', () => {
    assert.equal(engine.now(), 20);
    video.readyState = 4;
    assert.deepEqual([17, 25].map((second) => {
      video.currentTime = second;
      return engine.now();
    }), [20, 25]);
  });

  test('in Firefox, which counts each response from 0, the position and the subtitles keep the film’s clock', (t) => {
    const before = Object.getOwnPropertyDescriptor(globalThis, 'navigator');
    Object.defineProperty(globalThis, 'navigator', { value: { userAgent: 'Gecko/20100101 Firefox/153.0' }, configurable: true });
    t.after(() => (before ? Object.defineProperty(globalThis, 'navigator', before) : delete globalThis.navigator));
    engine.seek(30);
    video.readyState = 4;
    video.currentTime = 5;
    assert.deepEqual([engine.now(), engine.clockShift(), engine.isEarly()], [35, -30, false]);
  });

  test('the buffer counts from the requested second', () => {
    assert.equal(engine.buffered(), 0);
    video.ranges = [[10, 32]];
    video.currentTime = 15;
    assert.equal(engine.buffered(), 12);
    video.currentTime = 40;
    assert.equal(engine.buffered(), 0);
  });

  test('the part before the requested second plays fast, dimmed and silent', () => {
    video.paused = false;
    video.show(14);
    assert.deepEqual([video.muted, video.playbackRate, video.classes.has('early')], [true, 16, true]);
    video.currentTime = 19;
    draw();
    assert.equal(video.playbackRate, 3);
    video.currentTime = 20;
    draw();
    assert.deepEqual([video.muted, video.playbackRate, video.classes.has('early'), frames.length], [false, 1.5, false, 0]);
  });

  test('a catch-up ends when the viewer seeks elsewhere', () => {
    video.paused = false;
    video.show(14);
    engine.seek(60);
    video.playbackRate = 1;
    draw();
    assert.deepEqual([video.playbackRate, frames.length], [1, 0]);
  });

  test('a muted film stays muted after a catch-up', () => {
    hooks.wish.muted = true;
    video.show(30);
    assert.equal(video.muted, true);
  });

  test('a response that ends early is requested once more, then it counts as broken', () => {
    video.show(50);
    video.tell('ended');
    assert.equal(video.src, '/film?id=s1&start=50');
    video.tell('ended');
    assert.deepEqual(told.at(-1), ['fail', 'Broken']);
  });

  test('a response that has played again may end early again', () => {
    for (const second of [50, 70]) {
      video.show(second);
      video.tell('ended');
    }
    assert.deepEqual([video.src, told], ['/film?id=s1&start=70', ['play', 'play', 'play']]);
  });

  test('the end is within the last three seconds', () => {
    video.show(97);
    video.tell('ended');
    assert.equal(told.at(-1), 'ended');
  });

  test('a response that breaks off is requested once more', () => {
    video.show(50);
    video.error = { code: 2 };
    video.tell('error');
    assert.deepEqual([video.src, told.at(-1)], ['/film?id=s1&start=50', 'play']);
  });

  for (const [status, code, reason] of [[200, 3, 'Undecodable'], [200, 2, 'Broken'], [401, 2, 'Unauthorized'], [502, 2, 'Unreadable']]) {
    test(`an error after which the server answers ${status} to the browser’s ${code} is ${reason}`, async () => {
      const asked = answers(status);
      engine.again = true;
      video.error = { code };
      video.tell('error');
      await settled();
      assert.deepEqual([asked[0][0], told.at(-1)], ['/film?id=s1&start=20', ['fail', reason]]);
      assert.ok(asked[0][1].signal.aborted, 'the second response is not read');
    });
  }

  test('a seek that the server refuses for a moment is requested once more', async () => {
    answers(200);
    engine.seek(45);
    for (const expected of [['play'], ['fail', 'Broken']]) {
      video.error = { code: 4 };
      video.tell('error');
      await settled();
      assert.deepEqual([video.src, [told.at(-1)].flat()], ['/film?id=s1&start=45', expected]);
    }
  });

  test('a seek ends the question why the response before it failed', async () => {
    let answer;
    let asked;
    globalThis.fetch = (address, { signal }) => {
      asked = signal;
      return new Promise((resolve) => (answer = resolve));
    };
    engine.again = true;
    video.error = { code: 2 };
    video.tell('error');
    engine.seek(45);
    assert.ok(asked.aborted, 'it would take the stream');
    answer({ ok: true, status: 200 });
    await settled();
    assert.deepEqual([video.src, told.at(-1)], ['/film?id=s1&start=45', 'play']);
  });

  test('a response that was requested once more does not count after a seek', () => {
    video.show(50);
    video.tell('ended');
    video.readyState = 0;
    engine.seek(70);
    video.tell('ended');
    assert.deepEqual([video.src, told.at(-1)], ['/film?id=s1&start=70', 'play']);
  });

  test('an error without an answer means that the server is unreachable', async () => {
    globalThis.fetch = () => Promise.reject(new TypeError('no network'));
    video.tell('error');
    await settled();
    assert.deepEqual(told.at(-1), ['fail', 'Unreachable']);
  });

  test('closing restores the viewer’s settings and ignores later events', async () => {
    video.paused = false;
    video.show(10);
    engine.close();
    assert.deepEqual([video.src, video.muted, video.playbackRate, video.classes.size], [undefined, false, 1.5, 0]);
    told.length = 0;
    video.tell('ended', 'error', 'playing');
    draw();
    await settled();
    assert.deepEqual([told, frames], [[], []]);
  });
});

describe('a file in which the browser seeks', () => {
  let engine;

  beforeEach(() => {
    engine = new BrowserFile(video, hooks);
    engine.open(stream, 30);
  });

  test('seeks to the requested second as soon as the metadata is there', () => {
    assert.deepEqual([video.src, video.currentTime, engine.now()], ['/film?id=s1', 0, 30]);
    engine.seek(44);
    assert.deepEqual([video.currentTime, engine.now()], [0, 44]);
    video.readyState = 1;
    video.tell('loadstart', 'loadedmetadata');
    assert.deepEqual([video.currentTime, video.playbackRate], [44, 1.5]);
    engine.seek(50);
    assert.deepEqual([video.currentTime, engine.now()], [50, 50]);
    assert.deepEqual(told, ['play', ['mark', 'manifest'], ['mark', 'media']]);
  });

  test('the buffer ends at the first gap', () => {
    video.ranges = [[0, 10], [20, 35], [40, 50]];
    assert.deepEqual([5, 19.9, 25, 36].map((second) => {
      video.currentTime = second;
      return Math.round(engine.buffered() * 10) / 10;
    }), [5, 15.1, 10, 0]);
  });

  for (const [status, code, reason] of [[206, 3, 'Undecodable'], [206, 2, 'Broken'], [404, 2, 'Unreadable']]) {
    test(`an error after which the server answers ${status} to the browser’s ${code} is ${reason}`, async () => {
      const asked = answers(status);
      video.error = { code };
      video.tell('error');
      await settled();
      assert.deepEqual([asked[0][1].headers.Range, told.at(-1)], ['bytes=0-1', ['fail', reason]]);
    });
  }

  test('its end is the end of the film, until it is closed', () => {
    video.tell('ended');
    assert.equal(told.at(-1), 'ended');
    engine.close();
    told.length = 0;
    video.tell('ended', 'error', 'loadedmetadata');
    assert.deepEqual([told, video.src], [[], undefined]);
  });
});

test('a failure of Smooth Streaming gets the reason of the server’s status, if there is one', () => {
  const engine = new Smooth(video, hooks);
  const failure = (status) => ({ message: 'x', data: status && { response: { status } } });
  [failure(503), failure(404), failure(418), failure(undefined), undefined].forEach((error) => engine.judge(error));
  assert.deepEqual(told.map(([, reason]) => reason), ['TransEnable', 'NotFound', 'Broken', 'Undecodable', 'Undecodable']);
});
