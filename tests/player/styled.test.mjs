// The choice of the fonts that subtitles with styles are drawn with.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { chosenFonts, namedFonts } from '../../player/src/playback/styled_track.js';

const script = `[V4+ Styles]
Format: Name, Fontname, Fontsize
Style: Main,Open Sans,80
Style: Upright,@Noto Serif CJK,60

[Events]
Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text
Dialogue: 0,0:00:01.00,0:00:50.00,Main,,0,0,0,,{\\fnComic Relief\\b1}word{\\fn}
`;
const MEGABYTE = 1 << 20;
const font = (id, megabytes, ...families) => ({ id, size: megabytes * MEGABYTE, families });
const idsOf = (fonts) => chosenFonts(fonts, script).map(({ id }) => id);

test('a script names the fonts of its styles and of its lines', () => {
  assert.deepEqual([...namedFonts(script)].sort(), ['comic relief', 'noto serif cjk', 'open sans']);
  assert.deepEqual([...namedFonts('no script')], []);
});

test('fonts that a script names come first, however many others there are', () => {
  const others = Array.from({ length: 30 }, (_, n) => font(n, 10, `Other ${n}`));
  assert.deepEqual(idsOf([...others, font(90, 20, 'OPEN SANS'), font(91, 30, 'x', 'Comic Relief')]), [90, 91, 0]);
});

test('fonts beyond the memory for them are left out', () => {
  assert.deepEqual(idsOf([font(1, 200, 'Open Sans'), font(2, 100, 'Comic Relief'), font(3, 30, 'Noto Serif CJK'), font(4, 1, 'Other')]), [1, 3]);
});

test('fonts without a known name are loaded', () => {
  assert.deepEqual(idsOf([font(1, 70, 'Other'), font(2, 10)]), [2]);
});
