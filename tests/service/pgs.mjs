// Makes subtitles of pictures in the format of Blu-rays (SUP).
const CLOCK = 90000; // ticks a second
const [PALETTE, OBJECT, COMPOSITION, WINDOW, END] = [0x14, 0x15, 0x16, 0x17, 0x80];

const number = (value, bytes) => Array.from({ length: bytes }, (_, place) => (value >> (8 * (bytes - 1 - place))) & 0xff);

function segment(type, second, content) {
  return Buffer.from([0x50, 0x47, ...number(second * CLOCK, 4), 0, 0, 0, 0, type, ...number(content.length, 2), ...content]);
}

// One row of a single colour (number 1): a run, and the end of the row.
const row = (width) => [0, 0xc0 | (width >> 8), width & 0xff, 1, 0, 0];

// What is shown from `second` on: a white box, or nothing.
function displaySet({ width, height }, box, second, order) {
  const has = box ? [0, 0, 0, 0, ...number(box.x, 2), ...number(box.y, 2)] : [];
  const composition = [...number(width, 2), ...number(height, 2), 0x10, ...number(order, 2), 0x80, 0, 0, box ? 1 : 0, ...has];
  const area = box ?? { x: 0, y: 0, width, height };
  const window = [1, 0, ...number(area.x, 2), ...number(area.y, 2), ...number(area.width, 2), ...number(area.height, 2)];
  const segments = [segment(COMPOSITION, second, composition), segment(WINDOW, second, window)];
  if (box) {
    const rows = Array.from({ length: box.height }, () => row(box.width)).flat();
    const object = [...number(0, 2), 0, 0xc0, ...number(rows.length + 4, 3), ...number(box.width, 2), ...number(box.height, 2), ...rows];
    segments.push(segment(PALETTE, second, [0, 0, 1, 235, 128, 128, 255]), segment(OBJECT, second, object));
  }
  return Buffer.concat([...segments, segment(END, second, [])]);
}

// A white box on a picture of this size, from one second to another.
export function whiteBox(size, box, start, end) {
  return Buffer.concat([displaySet(size, box, start, 0), displaySet(size, null, end, 1)]);
}

// [{ tick, type, content }], the segments in a file.
export function segmentsOf(sup) {
  const found = [];
  for (let at = 0; at < sup.length; ) {
    const end = at + 13 + sup.readUInt16BE(at + 11);
    found.push({ tick: sup.readUInt32BE(at + 2), type: sup[at + 10], content: sup.subarray(at + 13, end).toString('hex') });
    at = end;
  }
  return found;
}
