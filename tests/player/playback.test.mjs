// Playback: opening a film, falling back to the next method, waiting, and closing.
import assert from 'node:assert/strict';
import { afterEach, beforeEach, describe, test } from 'node:test';

import { whenUnauthorized } from '../../player/src/api.js';
import { Playback } from '../../player/src/playback/playback.js';
import { Clock, refusal, Server, settled, unreachable, Video } from './fakes.mjs';

const profile = (key, format, more = {}) => ({ key, format, method: 'transcode', ...more });
const info = {
  direct: { fits: true, content_type: 'video/mp4', why: 'it fits' },
  metadata: { duration: 100, track_info: { audio: [{ id: '1' }, { id: '2' }] } },
  profiles: [profile('hls_720p', 'hls'), profile('http_mp4_720p', 'http', { content_type: 'video/mp4' })],
  subtitles: [],
};
const film = { entry: { encoded_path: '/films/a.mkv' }, info };
const withSubtitles = { ...film, info: { ...info, subtitles: [{ id: '7' }] } };
const usual = { kind: '', profile: '', audio: '', subtitle: '' };

let clock;
let server;
let video;
let engines; // all created engines, in order
let playback;

class Engine {
  constructor(kind, shownVideo, hooks) {
    Object.assign(this, { kind, video: shownVideo, hooks, isClosed: false, ahead: 0, subtitles: [] });
    engines.push(this);
  }

  open(stream, second) {
    Object.assign(this, { stream, second });
    return Engine.opening?.(this);
  }

  now() {
    return this.second;
  }

  buffered() {
    return this.ahead;
  }

  seek(second) {
    this.second = second;
  }

  close() {
    this.isClosed = true;
  }
}

const engineFor = (kind) =>
  class extends Engine {
    constructor(...values) {
      super(kind, ...values);
    }
  };

const engine = () => engines.at(-1);
const opened = () => server.asked('open').map(({ format }) => format);
const closed = () => server.asked('close').map(({ stream_id: id }) => id);

beforeEach(() => {
  clock = new Clock();
  server = new Server();
  let streams = 0;
  server.answers.open = ({ format }) => ({ format, stream_id: `s${++streams}`, duration: 100, profile: `${format}_720p`, url: `http://box/${format}` });
  video = new Video();
  engines = [];
  Engine.opening = undefined;
  playback = new Playback(video, engineFor);
  playback.can.cmaf = false; // in most tests the original file and HLS are enough
});
afterEach(() => {
  playback.stop();
  clock.restore();
  whenUnauthorized(null);
});

describe('opening', () => {
  test('the best method is opened and plays from the requested second', async () => {
    await playback.play(film, usual, 42);
    assert.deepEqual(opened(), ['direct']);
    assert.equal(server.asked('open')[0].path, '/films/a.mkv');
    assert.equal(server.asked('open')[0].verb, 'POST');
    assert.deepEqual([engine().kind, engine().second, engine().stream.stream_id], ['direct', 42, 's1']);
    assert.equal(playback.now(), 42);
  });

  test('a position after the end becomes the last second', async () => {
    await playback.play(film, usual, 500);
    assert.equal(engine().second, 99);
  });

  test('the server is told where the player begins', async () => {
    await playback.play(film, usual, 42.7);
    await playback.play(film, usual, 500);
    await playback.play({ ...film, info: { ...info, metadata: {} } }, usual, 42);
    assert.deepEqual(server.asked('open').map(({ start }) => start), ['42', '99', '0']);
  });

  test('a quality is sent only with its own playback method', async () => {
    server.answers.open = ({ format }) => (format === 'hls' ? refusal('Internal')() : { format, stream_id: 's', duration: 100, url: '/' });
    await playback.play(film, { ...usual, kind: 'hls', profile: 'hls_720p' }, 0);
    assert.deepEqual(server.asked('open').map(({ format, profile: key }) => [format, key]), [['hls', 'hls_720p'], ['http', undefined]]);
  });

  test('an audio track is requested of streams, not of the original file', async () => {
    await playback.play(film, { ...usual, audio: '1' }, 0);
    await playback.play(film, { ...usual, audio: '2' }, 0);
    assert.deepEqual(server.asked('open').map(({ format, audio_id: id }) => [format, id]), [['direct', undefined], ['hls', '2']]);
  });

  test('the steps of opening are reported in order, each once', async () => {
    const phases = [];
    playback.addEventListener('change', () => phases.at(-1) !== playback.phase && phases.push(playback.phase));
    await playback.play(film, usual, 0);
    for (const name of ['manifest', 'media', 'media']) engine().hooks.mark(name);
    video.show();
    assert.deepEqual(phases, ['opening', 'manifest', 'media', 'frame', 'buffering']);
    const first = { ...playback.marks };
    engine().hooks.mark('media');
    assert.deepEqual(playback.marks, first);
    assert.deepEqual(Object.keys(first), ['start', 'open', 'manifest', 'media', 'frame']);
  });

  test('a browser that needs a key press gets a Play button', async () => {
    video.refusal = 'NotAllowedError';
    await playback.play(film, usual, 0);
    await engine().hooks.play();
    assert.ok(playback.needsPress && !playback.isWaiting());
    video.refusal = '';
    playback.toggle();
    await settled();
    assert.ok(!playback.needsPress && playback.isPlaying());
  });

  test('a stream is closed before the next one is opened', async () => {
    await playback.play(film, usual, 0);
    const first = engine();
    const release = server.hold('close');
    const changing = playback.change({ kind: 'http' });
    await settled();
    assert.deepEqual([first.isClosed, opened()], [true, ['direct']]);
    release({});
    await changing;
    assert.deepEqual([closed(), opened()], [['s1'], ['direct', 'http']]);
  });

  test('another choice keeps the position', async () => {
    await playback.play(film, usual, 10);
    engine().second = 33;
    await playback.change({ kind: 'hls', profile: 'hls_720p' });
    assert.deepEqual([engine().kind, engine().second], ['hls', 33]);
  });
});

describe('falling back', () => {
  test('after a refusal the next method follows, with a sentence', async () => {
    const open = server.answers.open;
    server.answers.open = (parameters) => (parameters.format === 'direct' ? refusal('TransVideoNotSupported', { status: 415 })() : open(parameters));
    await playback.play(film, usual, 12);
    assert.deepEqual(opened(), ['direct', 'hls']);
    assert.deepEqual([engine().kind, engine().second, playback.error], ['hls', 12, null]);
    assert.match(playback.notice, /^Original file failed: .* Trying HLS instead\.$/);
  });

  test('after an engine fails its stream is closed, and the next method continues there', async () => {
    await playback.play(film, usual, 0);
    engine().second = 55;
    engine().hooks.fail({ reason: 'Undecodable' });
    await settled();
    assert.deepEqual(engines.map(({ kind, isClosed }) => [kind, isClosed]), [['direct', true], ['hls', false]]);
    assert.deepEqual([engine().second, closed(), playback.error], [55, ['s1'], null]);
  });

  test('the failure of the last method is shown', async () => {
    server.answers.open = refusal('Internal', { message: 'No such luck.' });
    await playback.play(film, usual, 7);
    assert.deepEqual(opened(), ['direct', 'hls', 'http']);
    assert.deepEqual([playback.error.message, playback.phase, playback.place], ['No such luck.', '', 7]);
    assert.ok(!playback.isPlaying() && !playback.isWaiting());
  });

  for (const reason of ['Forbidden', 'NotFound']) {
    test(`${reason} is the same everywhere and ends it at once`, async () => {
      server.answers.open = refusal(reason, { status: 404 });
      await playback.play(film, usual, 0);
      assert.deepEqual([opened(), playback.error.reason, playback.notice], [['direct'], reason, '']);
    });
  }

  test('an unreachable server ends the attempts at once', async () => {
    server.answers.open = unreachable;
    await playback.play(film, usual, 0);
    assert.deepEqual([opened(), playback.error.reason], [['direct'], 'Unreachable']);
  });

  test('a film without a playback method cannot be played', async () => {
    await playback.play({ ...film, info: { ...info, direct: null, profiles: [profile('hls_720p', 'hls', { method: 'refused' })] } }, usual, 0);
    assert.deepEqual([opened(), playback.error.reason], [[], 'TransVideoNotSupported']);
  });

  test('if an engine cannot be loaded, its stream is closed before the next method opens', async () => {
    Engine.opening = async ({ kind }) => {
      if (kind === 'direct') throw new TypeError('failed to fetch a module');
    };
    await playback.play(film, usual, 0);
    assert.deepEqual(engines.map(({ kind, isClosed }) => [kind, isClosed]), [['direct', true], ['hls', false]]);
    assert.deepEqual(server.calls.map(({ method, format }) => `${method} ${format}`), ['open direct', 'close direct', 'open hls']);
  });

  test('the last engine leaves no stream behind if it cannot be loaded', async () => {
    Engine.opening = () => Promise.reject(new TypeError('failed to fetch a module'));
    await playback.play(film, usual, 0);
    assert.ok(playback.error instanceof TypeError);
    assert.deepEqual([closed(), engines.map(({ isClosed }) => isClosed)], [['s1', 's2', 's3'], [true, true, true]]);
  });

  test('events of a closed engine are ignored', async () => {
    await playback.play(film, usual, 0);
    const first = engine();
    await playback.change({ kind: 'http' });
    first.hooks.fail({ reason: 'Broken' });
    first.hooks.busy({ reason: 'TransEnable' });
    await settled();
    assert.deepEqual([playback.error, playback.queue, engine().kind, engines.length], [null, null, 'http', 2]);
  });
});

describe('waiting in line', () => {
  const busy = (seconds) => refusal('TransEnable', { status: 503, retryAfter: seconds });

  test('a busy server is asked again with the same method after a countdown', async () => {
    const { open } = server.answers;
    server.answers.open = busy(3);
    playback.play(film, usual, 21);
    const counts = [];
    for (let second = 0; second < 3; ++second) {
      await clock.pass(second === 0 ? 0 : 1);
      counts.push([playback.queue.seconds, opened().length]);
    }
    assert.deepEqual(counts, [[3, 1], [2, 1], [1, 1]]);
    server.answers.open = open;
    await clock.pass(1);
    assert.deepEqual([opened(), playback.queue, playback.error, engine().second], [['direct', 'direct'], null, null, 21]);
  });

  test('leaving the film ends the wait', async () => {
    server.answers.open = busy(3);
    playback.play(film, usual, 0);
    await clock.pass(1);
    playback.stop();
    await clock.pass(10);
    assert.deepEqual([opened().length, playback.queue], [1, null]);
  });

  test('a position that is chosen during the wait is played', async () => {
    const { open } = server.answers;
    server.answers.open = busy(3);
    playback.play(film, usual, 0);
    await clock.pass(1);
    playback.seek(64);
    assert.equal(playback.now(), 64);
    server.answers.open = open;
    await clock.pass(2);
    assert.deepEqual([opened().length, engine().second], [2, 64]);
  });

  test('an engine that must wait closes its stream and waits in line', async () => {
    await playback.play(film, usual, 0);
    engine().second = 30;
    engine().hooks.fail({ reason: 'TransEnable', retryAfter: 2 });
    await clock.pass(1);
    assert.deepEqual([playback.queue.seconds, closed()], [1, ['s1']]);
    await clock.pass(1);
    assert.deepEqual([opened(), engine().second], [['direct', 'direct'], 30]);
  });

  test('a segment that waits for a transcoder shows the wait until it arrives', async () => {
    await playback.play(film, usual, 0);
    engine().hooks.busy({ reason: 'TransEnable' });
    assert.equal(playback.queue.error.reason, 'TransEnable');
    engine().hooks.busy(null);
    assert.equal(playback.queue, null);
  });
});

describe('logging in', () => {
  test('after the login the film continues at its position', async () => {
    let isKnown = true;
    const known = (answer) => (parameters) => (isKnown ? answer(parameters) : refusal('Unauthorized', { status: 401 })());
    server.answers.open = known(server.answers.open);
    server.answers.list = known(() => ({}));
    whenUnauthorized(async () => {
      isKnown = true;
    });
    await playback.play(film, usual, 0);
    engine().second = 48;
    isKnown = false;
    engine().hooks.fail({ reason: 'Unauthorized' });
    await settled();
    assert.deepEqual([engines.length, engine().kind, engine().second, playback.error], [2, 'direct', 48, null]);
  });

  test('a viewer who cancels the login gets an error', async () => {
    server.answers.open = refusal('Unauthorized', { status: 401 });
    server.answers.list = server.answers.open;
    await playback.play(film, usual, 0);
    assert.deepEqual([opened(), playback.error.reason], [['direct'], 'Unauthorized']);
  });
});

describe('changes while a film opens', () => {
  test('a stream that opens after the viewer has left is closed', async () => {
    const release = server.hold('open');
    const playing = playback.play(film, usual, 0);
    await settled();
    playback.stop();
    release({ format: 'direct', stream_id: 'late', duration: 100, url: '/' });
    await playing;
    assert.deepEqual([closed(), engines.length, playback.stream], [['late'], 0, null]);
  });

  test('a seek opens the new position, and the late stream is closed', async () => {
    const { open } = server.answers;
    const release = server.hold('open');
    const playing = playback.play(film, usual, 5);
    await settled();
    server.answers.open = open;
    playback.seek(70);
    await settled();
    assert.deepEqual([engines.length, engine().second], [1, 70]);
    release({ format: 'direct', stream_id: 'late', duration: 100, url: '/' });
    await playing;
    assert.deepEqual([closed(), engines.length, playback.stream.stream_id], [['late'], 1, 's1']);
  });

  test('an engine that loads late does not disturb the current film', async () => {
    let load;
    Engine.opening = () => new Promise((resolve) => {
      load = resolve;
    });
    const playing = playback.play(film, usual, 0);
    await settled();
    playback.stop();
    load();
    await playing;
    assert.deepEqual([engine().isClosed, playback.engine, closed()], [true, null, ['s1']]);
  });
});

describe('seeking', () => {
  beforeEach(() => playback.play(film, usual, 0));

  test('a position within the film goes to the engine', () => {
    const places = [30, -5, 400].map((second) => {
      playback.seek(second);
      return engine().second;
    });
    assert.deepEqual([places, opened().length, playback.phase], [[30, 0, 100], 1, 'buffering']);
  });

  test('after an error a seek is a new attempt from there', async () => {
    engine().hooks.fail({ reason: 'NotFound' });
    await settled();
    assert.equal(playback.error.reason, 'NotFound');
    playback.seek(80);
    await settled();
    assert.deepEqual([playback.error, engine().second, opened().length], [null, 80, 2]);
  });

  test('Play after the end starts from the beginning', () => {
    engine().second = 100;
    video.ended = true;
    playback.toggle();
    assert.equal(engine().second, 0);
  });
});

describe('waiting without progress', () => {
  beforeEach(async () => {
    await playback.play(film, usual, 0);
    video.paused = false;
  });

  test('after six seconds the page explains the wait', async () => {
    server.answers.state = { transcoder: { speed: 0.5 } };
    await clock.pass(6);
    assert.equal(playback.slow, '');
    await clock.pass(1);
    assert.match(playback.slow, /0\.5 times/);
    assert.deepEqual(server.asked('state').map(({ stream_id: id }) => id), ['s1']);
    video.show(1);
    await clock.pass(1);
    assert.equal(playback.slow, '');
  });

  test('after a minute it counts as a failure', async () => {
    await clock.pass(60);
    assert.equal(engines.length, 1);
    await clock.pass(1);
    assert.deepEqual([engines.length, engine().kind, closed()], [2, 'hls', ['s1']]);
  });

  test('a paused film is not slow', async () => {
    video.paused = true;
    await clock.pass(120);
    assert.deepEqual([playback.slow, engines.length], ['', 1]);
  });

  test('a film that waits in line is not slow', async () => {
    engine().hooks.busy({ reason: 'TransEnable' });
    await clock.pass(120);
    assert.deepEqual([playback.slow, engines.length], ['', 1]);
  });

  test('a late explanation of a closed film is not shown', async () => {
    const release = server.hold('state');
    await clock.pass(7);
    playback.stop();
    release({ transcoder: { speed: 0.5 } });
    await settled();
    assert.equal(playback.slow, '');
  });
});

describe('a segment is missing', () => {
  beforeEach(() => playback.play(film, usual, 0));

  test('a stream that the server knows continues', async () => {
    engine().hooks.missing();
    await settled();
    assert.deepEqual([playback.error, engine().isClosed], [null, false]);
  });

  test('a stream that the server has closed ends', async () => {
    server.answers.state = refusal('NotFound', { status: 404 });
    engine().hooks.missing();
    await settled();
    assert.deepEqual([playback.error.reason, engine().isClosed, opened().length], ['NotFound', true, 1]);
  });

  test('an unknown state does not end the stream', async () => {
    server.answers.state = refusal('Internal');
    engine().hooks.missing();
    await settled();
    assert.deepEqual([playback.error, engine().isClosed], [null, false]);
  });
});

describe('closing', () => {
  beforeEach(() => playback.play(film, usual, 0));

  test('stopping closes the stream and forgets the film', async () => {
    await playback.stop();
    assert.deepEqual([closed(), engine().isClosed, playback.film, playback.isPlaying()], [['s1'], true, null, false]);
    assert.equal(clock.timers.size, 0);
  });

  test('a parked film can resume at its position', async () => {
    engine().second = 61;
    await playback.park();
    assert.deepEqual([playback.error.reason, closed(), playback.now()], ['Parked', ['s1'], 61]);
    await playback.reopen(playback.place);
    assert.deepEqual([playback.error, engine().second], [null, 61]);
  });

  test('a page that unloads closes the stream once', async () => {
    playback.stopLastly();
    playback.stopLastly();
    const [call, ...others] = await Promise.all(server.beacons);
    assert.deepEqual([call.method, call.format, call.stream_id, others], ['close', 'direct', 's1', []]);
  });

  test('a failed close does not prevent the next film from opening', async () => {
    server.answers.close = unreachable;
    await playback.change({ kind: 'http' });
    assert.deepEqual([opened(), playback.error], [['direct', 'http'], null]);
  });
});

describe('subtitles', () => {
  let tracks;

  beforeEach(() => {
    tracks = [];
    globalThis.document = {
      createElement() {
        const track = { track: { mode: 'disabled', cues: null }, append() {}, setAttribute(name, value) { track[name] = value; } };
        track.addEventListener = (type, handler) => { track[type] = handler; };
        tracks.push(track);
        return track;
      },
    };
  });
  afterEach(() => delete globalThis.document);

  const loadCue = (track) => {
    const cue = { startTime: 10, endTime: 12, line: 'auto' };
    track.track.cues = [cue];
    track.load();
    return cue;
  };

  test('a subtitle is one track over the picture', async () => {
    await playback.play(withSubtitles, { ...usual, subtitle: '7' }, 0);
    const { searchParams } = new URL(tracks[0].src, 'http://box');
    assert.deepEqual(['id', 'subtitle_id', 'output_webvtt'].map((name) => searchParams.get(name)), ['s1', '"7"', 'true']);
    assert.equal(tracks[0].track.mode, 'showing');
    playback.changeSubtitles({ subtitle: '8' });
    assert.deepEqual([video.children, tracks[0].track.mode], [[tracks[1]], 'disabled']);
    playback.changeSubtitles({ subtitle: '' });
    assert.deepEqual(video.children, []);
  });

  test('a second subtitle stands above, and the first one stays while it changes', async () => {
    await playback.play(withSubtitles, { ...usual, subtitle: '7' }, 0);
    playback.changeSubtitles({ second: '8' });
    assert.deepEqual(video.children, [tracks[0], tracks[1]]);
    assert.deepEqual([loadCue(tracks[0]).line, loadCue(tracks[1]).line], ['auto', -4]);
    playback.changeSubtitles({ second: '' });
    assert.deepEqual(video.children, [tracks[0]]);
  });

  test('a subtitle is not shown twice', async () => {
    await playback.play(withSubtitles, { ...usual, subtitle: '7', second: '7' }, 0);
    assert.equal(video.children.length, 1);
  });

  test('a delay moves the cues that are loaded, and those that come later', async () => {
    await playback.play(withSubtitles, { ...usual, subtitle: '7' }, 0);
    const cue = loadCue(tracks[0]);
    playback.changeSubtitles({ delay: 1.5 });
    assert.deepEqual([cue.startTime, cue.endTime], [11.5, 13.5]);
    playback.changeSubtitles({ delay: -0.5 });
    assert.deepEqual([cue.startTime, cue.endTime], [9.5, 11.5]);
    playback.changeSubtitles({ subtitle: '8' });
    assert.equal(loadCue(tracks[1]).startTime, 9.5);
  });

  test('a delay stays with the film when its stream changes', async () => {
    await playback.play(withSubtitles, { ...usual, subtitle: '7', delay: 2 }, 0);
    await playback.change({ kind: 'hls' });
    assert.equal(loadCue(tracks[1]).startTime, 12);
  });

  test('the cues follow the clock of the stream', async () => {
    await playback.play(withSubtitles, { ...usual, subtitle: '7' }, 0);
    const cue = loadCue(tracks[0]);
    engine().clockShift = () => -0.4;
    engine().hooks.clock();
    assert.equal(cue.startTime, 9.6);
  });

  test('a track is removed with its stream', async () => {
    await playback.play(withSubtitles, { ...usual, subtitle: '7' }, 0);
    playback.stop();
    assert.deepEqual(video.children, []);
  });
});

test('the viewer’s sound and speed settings are kept', async () => {
  await playback.play(film, usual, 0);
  playback.setMuted(true);
  playback.setSpeed(1.5);
  assert.deepEqual([video.muted, video.playbackRate, engine().hooks.wish], [true, 1.5, { muted: true, speed: 1.5 }]);
});

test('the conversion of the film is known', async () => {
  await playback.play(film, usual, 0);
  assert.deepEqual(playback.methodOf(), { method: 'direct', why: 'it fits' });
  await playback.change({ kind: 'hls' });
  assert.equal(playback.methodOf().key, 'hls_720p');
  assert.equal(playback.address(), 'http://box/hls');
});

test('the end of the film is reported', async () => {
  let ends = 0;
  playback.addEventListener('ended', () => ++ends);
  await playback.play(film, usual, 0);
  engine().hooks.ended();
  assert.equal(ends, 1);
});
