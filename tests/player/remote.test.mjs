// Playing a film on another device: when the page offers it, and what it does then.
import assert from 'node:assert/strict';
import { beforeEach, test } from 'node:test';

import { Remote } from '../../player/src/playback/remote.js';
import { settled } from './fakes.mjs';

class File {
  static hasAddress = true;
}
class Pieces {}
const hasAddress = (kind) => kind === 'direct';

// What a browser has for other devices. The test says whether there is one.
class Devices extends EventTarget {
  constructor() {
    super();
    this.state = 'disconnected';
    this.prompts = 0;
  }

  async cancelWatchAvailability() {
    this.tell = undefined;
  }

  async watchAvailability(tell) {
    if (this.refusal) throw Object.assign(new Error(), { name: this.refusal });
    this.tell = tell;
  }

  async prompt() {
    ++this.prompts;
  }
}

const both = { direct: { fits: true }, profiles: [{ format: 'hls', method: 'remux', key: 'hls_remux' }] };
const piecesOnly = { profiles: [{ format: 'hls', method: 'remux', key: 'hls_remux' }] };

class FakePlayback extends EventTarget {
  constructor(video) {
    super();
    this.video = video;
    this.can = { plays: () => true, cmaf: true, segments: true };
    this.changes = [];
  }

  show(info, Engine) {
    this.film = { info };
    this.engine = new Engine();
    this.dispatchEvent(new Event('change'));
    return settled();
  }

  async change(changes) {
    this.changes.push(changes);
    await this.show(this.film.info, File);
  }
}

let video;
let playback;
beforeEach(() => {
  globalThis.window.location.hostname = 'box';
  video = new EventTarget();
  video.remote = new Devices();
  playback = new FakePlayback(video);
});
const remoteOf = () => new Remote(playback, hasAddress);

test('a device is offered when the browser has found one for the film, and as long', async () => {
  const remote = remoteOf();
  await playback.show(both, File);
  assert.equal(remote.isOffered(), false);
  video.remote.tell(true);
  assert.equal(remote.isOffered(), true);
  video.remote.tell(false);
  assert.equal(remote.isOffered(), false);
});

test('each stream is asked for anew, and an answer for the one before does not count', async () => {
  const remote = remoteOf();
  await playback.show(both, File);
  const { tell } = video.remote;
  tell(true);
  await playback.show(both, Pieces);
  tell(true);
  assert.equal(remote.isOffered(), false);
});

test('nothing is offered in a browser without other devices', async () => {
  delete video.remote;
  const remote = remoteOf();
  await playback.show(both, File);
  assert.deepEqual([remote.isOffered(), remote.isConnected()], [false, false]);
});

test('a browser that cannot look for devices lets its viewer ask; one that refuses does not', async () => {
  const remote = remoteOf();
  video.remote.refusal = 'NotSupportedError';
  await playback.show(both, File);
  assert.equal(remote.isOffered(), true);
  video.remote.refusal = 'InvalidStateError';
  await playback.show(both, File);
  assert.equal(remote.isOffered(), false);
});

test('a film without an address is not given to other devices', async () => {
  const remote = remoteOf();
  await playback.show(piecesOnly, Pieces);
  assert.deepEqual([video.disableRemotePlayback, video.remote.tell, remote.isOffered()], [true, undefined, false]);
  await playback.show(both, File);
  assert.equal(video.disableRemotePlayback, false);
});

test('a page on the address of this computer offers nothing, because other devices cannot reach it', async () => {
  const remote = remoteOf();
  await playback.show(both, File);
  video.remote.tell(true);
  for (const name of ['localhost', '127.0.0.1', '[::1]']) {
    globalThis.window.location.hostname = name;
    assert.equal(remote.isOffered(), false, name);
  }
});

test('a stream of pieces gives way to one with an address before the viewer chooses', async () => {
  const remote = remoteOf();
  await playback.show(both, Pieces);
  await remote.choose();
  assert.deepEqual([playback.changes, video.remote.prompts], [[{ kind: 'direct', profile: '' }], 1]);
  await remote.choose();
  assert.deepEqual([playback.changes.length, video.remote.prompts], [1, 2]);
});

test('AirPlay is used where the browser has it', async () => {
  let pickers = 0;
  video.webkitShowPlaybackTargetPicker = () => ++pickers;
  const remote = remoteOf();
  await playback.show(both, File);
  video.dispatchEvent(Object.assign(new Event('webkitplaybacktargetavailabilitychanged'), { availability: 'available' }));
  assert.equal(remote.isOffered(), true);
  await remote.choose();
  video.webkitCurrentPlaybackTargetIsWireless = true;
  assert.deepEqual([pickers, video.remote.prompts, remote.isConnected()], [1, 0, true]);
});
