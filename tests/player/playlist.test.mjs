// Playlists: names and addresses stay text, whatever they contain.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { m3u, xspf } from '../../player/src/playlist.js';

const address = 'http://box:8096/film.mkv?a=1&b=2';

test('an M3U names each film in one line, and its address in the next one', () => {
  assert.equal(m3u([{ title: 'One, two', seconds: 20, address }, { title: 'B', address }]), `#EXTM3U\n#EXTINF:20,One, two\n${address}\n#EXTINF:-1,B\n${address}\n`);
});

test('a name cannot add a line to an M3U', () => {
  const lines = m3u([{ title: 'a\r\nfile:///etc/passwd\u2028b\u0085c', address }]).split(/[\r\n\u2028\u0085]/);
  assert.deepEqual(lines, ['#EXTM3U', '#EXTINF:-1,a  file:///etc/passwd b c', address, '']);
});

test('a name cannot add an element to an XSPF', () => {
  const text = xspf([{ title: '</title><location>file:///etc/passwd</location>&"', seconds: 2, address }], '<b>&');
  assert.equal(text.match(/<location>/g).length, 1);
  assert.ok(text.includes('<title>&lt;b&gt;&amp;</title>'));
  assert.ok(text.includes('<location>http://box:8096/film.mkv?a=1&amp;b=2</location>'));
  assert.ok(text.includes('<title>&lt;/title&gt;&lt;location&gt;file:///etc/passwd&lt;/location&gt;&amp;&quot;</title><duration>2000</duration>'));
});

test('an XSPF has no character that XML forbids', () => {
  const text = xspf([{ title: 'a\u0001b\u0000\uffff\ud800c', address }], 'n');
  assert.ok(text.includes('<title>a b \ufffd\ufffdc</title>'), text);
});
