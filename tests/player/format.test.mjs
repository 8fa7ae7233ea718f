// Numbers, names and addresses of the page.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { clockText, codecText, frameRateText, nameOf, rateText, sizeName, sizeText, spokenTime } from '../../player/src/format.js';
import { crumbsOf } from '../../player/src/view/library.js';
import { addressAt, parseAddress } from '../../player/src/view/page.js';

test('times have a short and a spoken form', () => {
  assert.deepEqual([0, 59.9, 61, 3725, NaN].map(clockText), ['0:00', '0:59', '1:01', '1:02:05', '0:00']);
  assert.deepEqual([0, 61, 3725].map(spokenTime), ['0 seconds', '1 minute 1 second', '1 hour 2 minutes 5 seconds']);
});

test('sizes and rates have their units', () => {
  assert.deepEqual([0, 17, 999, 100000, 999600, 12272151].map(sizeText), ['0 bytes', '17 bytes', '999 bytes', '100 kB', '1.0 MB', '12 MB']);
  assert.deepEqual([4.7e9, 99.96e9, 2.5e12].map(sizeText), ['4.7 GB', '100 GB', '2.5 TB']);
  assert.deepEqual([192000, 5e6].map(rateText), ['192 kbit/s', '5.0 Mbit/s']);
  assert.deepEqual(['24000/1001', 25, '', 0, 'x'].map(frameRateText), ['23.98 fps', '25 fps', '', '', '']);
});

test('a picture is named by its lines, a wide one by the screen that it fills', () => {
  const sizes = [[1920, 1080], [1080, 1920], [1920, 800], [640, 272], [480, 360], [3440, 1440], [0, 0]];
  assert.deepEqual(sizes.map(([width, height]) => sizeName(width, height)), ['1080p', '1080p', '1080p', '360p', '360p', '1440p', '']);
  assert.deepEqual(['h264', 'vp9', '', undefined].map(codecText), ['H.264', 'VP9', '', '']);
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

test('the address follows the film that plays, and no other', () => {
  const film = { encoded_path: '/films/a%20b.mkv' };
  const addresses = ['#/play/films/a%20b.mkv?t=0', '#/play/films/c.mkv?t=0', '#/film/films/a%20b.mkv', '#/'];
  assert.deepEqual(addresses.map((hash) => addressAt(hash, film, 61.9, '')), ['#/play/films/a%20b.mkv?t=61', '', '', '']);
  assert.equal(addressAt('#/play/films/a%20b.mkv', film, 5, 'hls'), '#/play/films/a%20b.mkv?t=5&kind=hls');
});

test('the way to a folder begins at its media root', () => {
  const roots = [{ name: 'films', encoded_path: '/volume1/films' }, { name: 'films2', encoded_path: '/volume1/films2' }];
  const names = (path) => crumbsOf(path, roots).map(({ name, encoded_path: place }) => `${name} ${place}`);
  assert.deepEqual(names('/volume1/films2/a%20b'), ['films2 /volume1/films2', 'a b /volume1/films2/a%20b']);
  assert.deepEqual(names('/elsewhere'), []);
});
