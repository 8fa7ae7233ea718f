// What the page tells the server about its browser.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { describeClient } from '../../player/src/playback/client.js';

const knows = (words) => (type) => words.some((word) => type.includes(word));
const decodes = (supported) => ({ decodingInfo: async ({ video }) => ({ supported: supported && video.transferFunction === 'pq', smooth: true }) });

test('the codecs are those that the browser surely plays', async () => {
  const { codecs } = await describeClient(knows(['avc1', 'mp4a']), false);
  assert.equal(codecs, 'avc1.640028,mp4a.40.2');
});

test('a high dynamic range needs the screen, a codec and a decoder', async () => {
  const hevc = knows(['avc1', 'hvc1']);
  const rangeOf = async (...values) => (await describeClient(...values)).dynamic_range;
  assert.equal(await rangeOf(hevc, true, decodes(true)), 'hdr');
  assert.equal(await rangeOf(hevc, false, decodes(true)), '', 'the screen');
  assert.equal(await rangeOf(knows(['avc1']), true, decodes(true)), '', 'the codec');
  assert.equal(await rangeOf(hevc, true, decodes(false)), '', 'the decoder');
  assert.equal(await rangeOf(hevc, true, undefined), '', 'nobody to ask');
  assert.equal(await rangeOf(hevc, true, { decodingInfo: async () => { throw new TypeError('an old browser'); } }), '');
});
