// The page’s texts for errors and for waiting.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import { test } from 'node:test';

import { isBusy, REASONS, retrySeconds, slowWords, stutterWords, wordsOf } from '../../player/src/words.js';

test('every reason that the server gives has a sentence and a next step', () => {
  const source = fs.readFileSync(new URL('../../webapi/http/answer.cpp', import.meta.url), 'utf8');
  const given = [...source.matchAll(/Reason\{(?:k(\w+)|"(\w+)"), \d/g)].map(([, constant, word]) => constant ?? word);
  assert.ok(given.length > 10);
  for (const reason of given) {
    assert.ok(REASONS.includes(reason), reason);
    const { sentence, next } = wordsOf({ reason, message: '' });
    assert.match(sentence, /^[A-Z].*\.$/, reason);
    assert.match(next, /^[A-Z].*\.$/, reason);
  }
});

test('the server’s own sentence replaces the page’s', () => {
  assert.deepEqual(wordsOf({ reason: 'NotFound', message: 'This stream has been closed.' }), {
    sentence: 'This stream has been closed.',
    next: 'Open the film again from the library.',
  });
});

test('an unknown reason and an error in the page have texts too', () => {
  assert.equal(wordsOf({ reason: 'Strange', message: '' }).sentence, 'Something went wrong on the server.');
  assert.match(wordsOf(new TypeError('no such thing')).next, /TypeError: no such thing/);
});

test('only a server without a free transcoder is busy, and the wait has bounds', () => {
  assert.ok(isBusy({ reason: 'TransEnable' }) && isBusy({ reason: 'TransEnableOfflineConverting' }));
  assert.ok(!isBusy({ reason: 'TransSapceNotEnough' }));
  assert.deepEqual([{}, { retryAfter: 12.5 }, { retryAfter: 0 }, { retryAfter: 9999 }].map(retrySeconds), [5, 13, 1, 60]);
});

test('one sentence tells why a film stutters', () => {
  const starved = { seconds: 5, dropped: 0, total: 100 };
  assert.equal(stutterWords({}), '');
  assert.equal(stutterWords({ ...starved, seconds: 100 }), '', 'long ago');
  assert.match(stutterWords({ seconds: Infinity, dropped: 20, total: 100 }), /this device/);
  assert.match(stutterWords({ ...starved, transcoder: { speed: 0.6, cpu_percent: 180 } }), /processor/);
  assert.match(stutterWords({ ...starved, transcoder: { speed: 0.6, cpu_percent: 20 } }), /disk/);
  assert.match(stutterWords({ ...starved, transcoder: { speed: 2 }, throughput: 1e6, rate: 2e6 }), /network/);
  assert.match(stutterWords({ ...starved, transcoder: { speed: 2 }, throughput: 9e6, rate: 2e6 }), /neither/);
});

test('a slow encoder is named as the cause', () => {
  assert.match(slowWords('media', { transcoder: { speed: 0.62 } }), /0\.6 times/);
  assert.match(slowWords('media', { transcoder: { speed: 3 } }), /first seconds/);
  assert.match(slowWords('opening', null), /not opened/);
});
