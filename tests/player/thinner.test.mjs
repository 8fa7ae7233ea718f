// Leaving out pictures that nobody will see.
import assert from 'node:assert/strict';
import { describe, test } from 'node:test';

import { codingOf, Thinner } from '../../player/src/playback/cmaf/thinner.js';

const bytes = (...parts) => Buffer.concat(parts.map((part) => (typeof part === 'string' ? Buffer.from(part, 'latin1') : Buffer.from(part))));
const number = (value, size = 4) => Array.from({ length: size }, (_, i) => Number((BigInt(value) >> BigInt(8 * (size - 1 - i))) & 255n));
const box = (type, ...content) => {
  const inside = bytes(...content);
  return bytes(number(inside.length + 8), type, inside);
};

const LENGTH = 10; // of a picture, in ticks
const DELAY = 20;
const KEY = 0x02000000;
const OTHER = 0x01010000;
const coding = { lengthSize: 4, timescale: 100 };

// A picture with two units: a message, and a slice that others depend on or not.
const picture = (type, isReference) => bytes(number(2), [6, 0], number(3), [(isReference ? 0x60 : 0) | type, 1, 2]);
const key = { data: picture(5, true), flags: KEY, composition: DELAY };
const reference = { data: picture(1, true), flags: OTHER, composition: DELAY };
const leaf = { data: picture(1, false), flags: OTHER, composition: DELAY };

function pair(start, samples) {
  const rows = samples.map(({ data, flags, composition }) => bytes(number(LENGTH), number(data.length), number(flags), number(composition)));
  const made = (offset) =>
    box(
      'moof',
      box('mfhd', number(0), number(1)),
      box(
        'traf',
        box('tfhd', number(0x020020), number(1), number(OTHER)),
        box('tfdt', number(0x01000000), number(start, 8)),
        box('trun', number(0x000f01), number(samples.length), number(offset), ...rows),
      ),
    );
  return bytes(made(made(0).length + 8), box('mdat', ...samples.map(({ data }) => data)));
}

// The pictures of pairs: [{ start, rows: [[duration, size, flags, composition]], data }].
function read(all) {
  const found = [];
  for (let at = 0; at < all.length; ) {
    const size = all.readUInt32BE(at);
    const fragment = all.subarray(at, at + size);
    const data = all.subarray(at + size, at + size + all.readUInt32BE(at + size));
    const run = fragment.indexOf('trun') + 4;
    const count = fragment.readUInt32BE(run + 4);
    assert.equal(fragment.readUInt32BE(run + 8), size + 8);
    const rows = Array.from({ length: count }, (_, i) => [0, 4, 8, 12].map((field) => fragment.readUInt32BE(run + 12 + i * 16 + field)));
    assert.equal(rows.reduce((sum, [, length]) => sum + length, 8), data.length);
    found.push({ start: Number(fragment.readBigUInt64BE(fragment.indexOf('tfdt') + 8)), rows, data: data.subarray(8) });
    at += size + data.length;
  }
  return found;
}

const thinned = (thinner, ...parts) => Buffer.concat([...parts.map((part) => thinner.add(part)), thinner.finish()]);

describe('thinning', () => {
  const lead = pair(1000, [key, reference, leaf, leaf, reference, leaf]);

  test('leaves out early pictures that no other one needs; the one before lasts longer', () => {
    const [made] = read(thinned(new Thinner(coding, 10, 20), lead));
    assert.equal(made.start, 1000);
    assert.deepEqual(made.rows.map(([duration]) => duration), [10, 30, 20]);
    assert.deepEqual(made.data, bytes(key.data, reference.data, reference.data));
  });

  test('does not change the pictures around the wanted one', () => {
    const thinner = new Thinner(coding, 10, 10.45);
    const [made] = read(thinned(thinner, lead));
    assert.deepEqual(made.rows.map(([duration]) => duration), [10, 20, 10, 10, 10]);
  });

  test('keeps the first picture of each pair, so that a decoder sees no gap', () => {
    const made = read(thinned(new Thinner(coding, 10, 20), lead, pair(1060, [leaf, leaf, reference])));
    assert.deepEqual(made.map(({ rows }) => rows.length), [3, 2]);
    assert.deepEqual([made[1].start, made[1].rows[0][0]], [1060, 20]);
  });

  test('takes bytes in any pieces', () => {
    const all = bytes(lead, pair(1060, [reference, leaf, leaf]), pair(1900, [reference, leaf, leaf]));
    const whole = thinned(new Thinner(coding, 10, 19), all);
    for (const size of [1, 7, 64, 200]) {
      const pieces = Array.from({ length: Math.ceil(all.length / size) }, (_, i) => all.subarray(i * size, (i + 1) * size));
      assert.deepEqual(thinned(new Thinner(coding, 10, 19), ...pieces), whole, `${size}`);
    }
    assert.equal(read(whole).length, 3);
  });

  test('passes on at once what begins near the wanted picture', () => {
    const thinner = new Thinner(coding, 10, 12);
    thinner.add(lead);
    const near = pair(1180, [key, leaf]);
    const begun = near.subarray(0, near.length - 3);
    assert.deepEqual(Buffer.from(thinner.add(begun)), begun);
    assert.deepEqual(Buffer.from(thinner.add(near.subarray(-3))), near.subarray(-3));
    assert.equal(thinner.finish().length, 0);
  });

  test('leaves another form as it is', () => {
    const other = bytes(box('moof', box('mfhd', number(0), number(1))), box('mdat', 'something'));
    assert.deepEqual(thinned(new Thinner(coding, 10, 20), other), other);
  });
});

test('the header tells the clock and the form of H.264, and nothing of other codecs', () => {
  const header = (entry) =>
    bytes(
      box('ftyp', 'iso6'),
      box('moov', box('trak', box('tkhd', number(0)), box('mdia', box('mdhd', number(0), number(0), number(0), number(90000)), box('minf', box('stbl', box('stsd', number(0), number(1), entry)))))),
    );
  assert.deepEqual(codingOf(header(box('avc1', new Uint8Array(78), box('avcC', [1, 100, 0, 31, 0xff])))), { lengthSize: 4, timescale: 90000 });
  assert.equal(codingOf(header(box('hvc1', new Uint8Array(78), box('hvcC', [1, 100])))), undefined);
});
