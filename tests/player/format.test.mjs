// Numbers, names and addresses of the page.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { clockText, frameRateText, nameOf, rateText, sizeText, spokenTime } from '../../player/src/format.js';
import { crumbsOf } from '../../player/src/view/library.js';
import { parseAddress } from '../../player/src/view/page.js';

test('times have a short and a spoken form', () => {
  assert.deepEqual([0, 59.9, 61, 3725, NaN].map(clockText), ['0:00', '0:59', '1:01', '1:02:05', '0:00']);
  assert.deepEqual([0, 61, 3725].map(spokenTime), ['0 seconds', '1 minute 1 second', '1 hour 2 minutes 5 seconds']);
});

test('sizes and rates have their units', () => {
  assert.deepEqual([1, 12272151, 4.7e9].map(sizeText), ['1 MB', '13 MB', '4.7 GB']);
  assert.deepEqual([192000, 5e6].map(rateText), ['192 kbit/s', '5.0 Mbit/s']);
  assert.deepEqual(['24000/1001', 25, '', 0, 'x'].map(frameRateText), ['23.98 fps', '25 fps', '', '', '']);
});

test('an encoded path gives a name, whether it is valid text or not', () => {
  assert.equal(nameOf('/films/Gr%C3%BC%C3%9Fe%20%3C1%3E.mkv'), 'Grüße <1>.mkv');
  assert.equal(nameOf('/films/Stra%DFe.mkv'), 'Stra\uFFFDe.mkv');
});

test('an address contains a view, an encoded path and parameters', () => {
  const { view, path, parameters } = parseAddress('#/play/films/a%3Fb%2F.mkv?t=12&kind=hls');
  assert.deepEqual([view, path, parameters.get('t'), parameters.get('kind')], ['play', '/films/a%3Fb%2F.mkv', '12', 'hls']);
  assert.deepEqual(['#/', '#/search?q=a', 'nonsense'].map((hash) => parseAddress(hash).view), ['', 'search', '']);
});

test('the way to a folder begins at its media root', () => {
  const roots = [{ name: 'films', encoded_path: '/volume1/films' }, { name: 'films2', encoded_path: '/volume1/films2' }];
  const names = (path) => crumbsOf(path, roots).map(({ name, encoded_path: place }) => `${name} ${place}`);
  assert.deepEqual(names('/volume1/films2/a%20b'), ['films2 /volume1/films2', 'a b /volume1/films2/a%20b']);
  assert.deepEqual(names('/elsewhere'), []);
});
