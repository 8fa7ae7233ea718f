// The stream that is opened before the viewer asks for it.
import assert from 'node:assert/strict';
import { beforeEach, test } from 'node:test';

import { Warmth } from '../../player/src/playback/warmth.js';
import { refusal, Server, settled } from './fakes.mjs';

const parameters = { format: 'cmaf', start: '40', codecs: 'avc1' };
let server;
let warmth;

beforeEach(() => {
  let opened = 0;
  server = new Server({ open: () => ({ format: 'cmaf', stream_id: String(++opened) }), close: () => ({}) });
  warmth = new Warmth();
});

const closed = () => server.asked('close').map(({ stream_id: id }) => id);

test('a stream is opened once, and belongs to the player that takes it', async () => {
  await warmth.warm('/film', parameters);
  assert.deepEqual(server.asked('open').map(({ warm, start }) => [warm, start]), [['true', '40']]);
  assert.equal((await warmth.take('/film', { ...parameters, start: '0' })).stream_id, '1');
  assert.equal(warmth.take('/film', parameters), null);
  await warmth.drop();
  assert.deepEqual(closed(), []);
});

test('another film, and another choice, do not get it', async () => {
  await warmth.warm('/film', parameters);
  assert.equal(warmth.take('/other', parameters), null);
  assert.equal(warmth.take('/film', { ...parameters, renditions: 'h264-360' }), null);
});

test('it is closed when it is given up, and before the next one is opened', async () => {
  await warmth.warm('/film', parameters);
  await warmth.warm('/next', parameters);
  assert.deepEqual(closed(), ['1']);
  await warmth.drop();
  assert.deepEqual(closed(), ['1', '2']);
});

test('one that is given up while it is opened is closed as soon as it is open', async () => {
  const warming = warmth.warm('/film', parameters);
  await settled();
  await warmth.drop();
  await warming;
  assert.deepEqual(closed(), ['1']);
});

test('a film that is left at once opens none', async () => {
  const warming = warmth.warm('/film', parameters);
  warmth.drop();
  await warming;
  assert.deepEqual(server.asked('open'), []);
});

test('a busy server leaves the page without a stream, and says nothing', async () => {
  server.answers.open = refusal('TransEnable', { status: 503 });
  await warmth.warm('/film', parameters);
  assert.equal(warmth.take('/film', parameters), null);
});
