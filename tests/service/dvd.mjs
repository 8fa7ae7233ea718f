// Makes subtitles of DVDs (VobSub).
const CLOCK = 90000; // ticks a second
const COMMAND_TICKS = 1024;

const number = (value, bytes) => Array.from({ length: bytes }, (_, place) => Math.floor(value / 256 ** (bytes - 1 - place)) & 0xff);

// A run of colour 1 to the end of a row.
const ROW = [0x00, 0x01];

// A packet that shows a box of colour 1, opaque, for some seconds.
export function boxPacket({ x, y, width, height }, seconds) {
  const half = Math.ceil(height / 2) * ROW.length;
  const rows = Array.from({ length: height }, () => ROW).flat();
  const control = 4 + rows.length;
  const place = [x >> 4, ((x & 0xf) << 4) | ((x + width - 1) >> 8), (x + width - 1) & 0xff, y >> 4, ((y & 0xf) << 4) | ((y + height - 1) >> 8), (y + height - 1) & 0xff];
  const start = [3, 0x32, 0x10, 4, 0x00, 0xf0, 5, ...place, 6, ...number(4, 2), ...number(4 + half, 2), 1, 0xff];
  const end = control + 4 + start.length;
  const stop = [2, 0xff];
  const date = Math.round((seconds * CLOCK) / COMMAND_TICKS);
  const lists = [...number(0, 2), ...number(end, 2), ...start, ...number(date, 2), ...number(end, 2), ...stop];
  return Buffer.from([...number(control + lists.length, 2), ...number(control, 2), ...rows, ...lists]);
}

// A block of an MPEG program stream with (a part of) a packet of the track; 2048 bytes as on the disc.
function block(packet, second, track) {
  const pack = [0, 0, 1, 0xba, 0x44, 0, 4, 0, 4, 1, 0, 0, 3, 0xf8];
  const tick = second * CLOCK;
  const time = [0x21 | (Math.floor(tick / 2 ** 30) << 1), Math.floor(tick / 2 ** 22) & 0xff, (Math.floor(tick / 2 ** 14) & 0xfe) | 1, Math.floor(tick / 2 ** 7) & 0xff, ((tick & 0x7f) << 1) | 1];
  const content = [0x81, 0x80, 5, ...time, 0x20 + track, ...packet];
  const bytes = Buffer.from([...pack, 0, 0, 1, 0xbd, ...number(content.length, 2), ...content]);
  const rest = 2048 - bytes.length - 6;
  return Buffer.concat([bytes, Buffer.from([0, 0, 1, 0xbe, ...number(rest, 2), ...Array(rest).fill(0xff)])]);
}

const clock = (second) => new Date(second * 1000).toISOString().slice(11, 23).replace('.', ':');

// The files of tracks [{ language, box, start, end }], each with one box of the second colour of `palette`, on a picture of
// this size: { idx, sub }.
export function vobSub({ width, height }, palette, tracks) {
  const colors = [...palette, ...Array(16 - palette.length).fill('000000')].join(', ');
  const lines = ['# VobSub index file, v7 (do not modify this line!)', `size: ${width}x${height}`, `palette: ${colors}`];
  const blocks = tracks.map(({ language, box, start, end }, track) => {
    lines.push(`id: ${language}, index: ${track}`, `timestamp: ${clock(start)}, filepos: ${(2048 * track).toString(16).padStart(9, '0')}`);
    return block(boxPacket(box, end - start), start, track);
  });
  return { idx: `${lines.join('\n')}\n`, sub: Buffer.concat(blocks) };
}
