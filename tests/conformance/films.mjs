// Many kinds of films, for the commands that check CMAF presentations.
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { promisify } from 'node:util';

const run = promisify(execFile);
export const seconds = 6;
const picture = (size = '320x180', rate = '24000/1001') => ['-f', 'lavfi', '-i', `testsrc2=s=${size}:d=${seconds}:r=${rate}`];
const sound = ['-f', 'lavfi', '-i', `sine=f=440:beep_factor=2:r=48000:d=${seconds}`];
const x264 = ['-c:v', 'libx264', '-preset', 'ultrafast', '-pix_fmt', 'yuv420p', '-sc_threshold', '0', '-g', '24'];
const x265 = (parameters, format = 'yuv420p10le') => [
  ...['-c:v', 'libx265', '-preset', 'ultrafast', '-pix_fmt', format],
  ...['-x265-params', `log-level=none:open-gop=0:keyint=24${parameters}`],
];
const aac = ['-c:a', 'aac'];
const highRange = (transfer) => [
  ...x265(`:repeat-headers=1:colorprim=bt2020:transfer=${transfer}:colormatrix=bt2020nc`),
  ...['-color_primaries', 'bt2020', '-color_trc', transfer, '-colorspace', 'bt2020nc'],
];
const transport = (size, offset) => [...picture(size, 25), ...sound, ...x264, ...aac, '-output_ts_offset', `${offset}`];
export const codecs = 'avc1,hvc1,av01,vp09,mp4a,ac-3,ec-3,opus,flac,mp3';

// Each film with FFmpeg's options (of each part, where it is put together), whether its pictures and its sound are
// copied, and what else the client says. `refusal`: a part of the answer.
export const kinds = {
  'h264.mp4': { parts: [[...picture(), ...sound, ...x264, '-bf', '3', ...aac]], copies: 'picture sound' },
  'h264.mkv': { parts: [[...picture(), ...sound, ...x264, '-bf', '3', ...aac]], copies: 'picture sound' },
  'fragments.mp4': { parts: [[...picture(), ...sound, ...x264, ...aac, '-movflags', 'frag_keyframe+empty_moov']], copies: 'picture sound' },
  'hevc.mp4': { parts: [[...picture(), ...sound, ...x265('', 'yuv420p'), '-tag:v', 'hvc1', ...aac]], copies: 'picture sound' },
  'ten-bits.mkv': { parts: [[...picture(), ...sound, ...x265(''), '-c:a', 'eac3']], copies: 'picture sound' },
  'pq.mkv': { parts: [[...picture(), ...sound, ...highRange('smpte2084'), '-c:a', 'ac3']], copies: 'picture sound', wishes: { dynamic_range: 'hdr' } },
  'hlg.mp4': { parts: [[...picture(), ...sound, ...highRange('arib-std-b67'), '-tag:v', 'hvc1', ...aac]], copies: 'sound' },
  'av1.mkv': { parts: [[...picture(), ...sound, '-c:v', 'libsvtav1', '-preset', '12', '-g', '24', '-c:a', 'libopus']], copies: 'picture sound' },
  'vp9.webm': { parts: [[...picture(), ...sound, '-c:v', 'libvpx-vp9', '-deadline', 'realtime', '-cpu-used', '8', '-g', '24', '-c:a', 'libopus']], copies: 'picture sound' },
  'flac.mkv': { parts: [[...picture(), ...sound, ...x264, '-c:a', 'flac']], copies: 'picture sound' },
  'mp3.mkv': { parts: [[...picture(), ...sound, ...x264, '-c:a', 'libmp3lame']], copies: 'picture sound' },
  'surround.mkv': { parts: [[...picture(), ...sound, ...x264, '-ac', '6', '-c:a', 'ac3']], copies: 'picture sound' },
  'two-tracks.mkv': { parts: [[...picture(), ...sound, ...x264, '-map', '0', '-map', '1', '-map', '1', '-c:a:0', 'aac', '-c:a:1', 'ac3']], copies: 'picture sound' },
  'camera.ts': { parts: [[...picture(), ...sound, ...x264, '-bf', '2', ...aac]], copies: 'picture sound' },
  'interlaced.ts': { parts: [[...picture(), ...sound, ...x264, '-flags', '+ildct+ilme', '-top', '1', '-c:a', 'ac3']], copies: 'picture sound' },
  'live.flv': { parts: [[...picture(), ...sound, ...x264, ...aac]], copies: 'picture sound' },
  'dvd.vob': { parts: [[...picture(), ...sound, '-c:v', 'mpeg2video', '-g', '12', '-c:a', 'ac3']], copies: '' },
  'old.avi': { parts: [[...picture(), ...sound, '-c:v', 'mpeg4', '-c:a', 'libmp3lame']], copies: '' },
  'old.wmv': { parts: [[...picture(), ...sound, '-c:v', 'wmv2', '-c:a', 'wmav2']], copies: '' },
  'theora.ogv': { parts: [[...picture(), ...sound, '-c:v', 'libtheora', '-c:a', 'libvorbis']], copies: '' },
  'silent.mkv': { parts: [[...picture(), ...x264]], copies: 'picture' },
  'music.flac': { parts: [[...sound, '-c:a', 'flac']], copies: '' },
  'cover.mp3': { parts: [[...sound, '-f', 'lavfi', '-i', 'testsrc=s=300x300:d=1', '-map', '0', '-map', '1', '-frames:v', '1', '-c:a', 'libmp3lame', '-c:v', 'mjpeg', '-disposition:v', 'attached_pic']], copies: '' },
  'rotated.mp4': { parts: [[...picture(), ...sound, ...x264, ...aac]], turn: 90, copies: 'picture sound' },
  'two-sizes.ts': { parts: [transport('320x180', 0), transport('640x360', seconds)], copies: 'sound' },
  // Its clock turns over after two seconds.
  'turn.ts': { parts: [transport('320x180', 2 ** 33 / 90000 - 2)], copies: 'picture sound' },
  'jump.ts': { parts: [transport('320x180', 0), transport('320x180', 3000)], refusal: 'clock of this film jumps' },
};

// FFmpeg turns a film only while it copies it.
async function turned(film, degrees) {
  const upright = `${film}.upright.mp4`;
  fs.renameSync(film, upright);
  await run('ffmpeg', ['-nostdin', '-v', 'error', '-i', upright, '-c', 'copy', '-metadata:s:v', `rotate=${degrees}`, film]);
  fs.rmSync(upright);
}

// Makes a film in the folder. Returns its path.
export async function make(folder, name, { parts, turn }) {
  const film = path.join(folder, name);
  const pieces = parts.map((_, i) => (parts.length === 1 ? film : `${film}.${i}.ts`));
  for (const [i, options] of parts.entries()) {
    await run('ffmpeg', ['-nostdin', '-v', 'error', ...options, pieces[i]]);
  }
  if (parts.length > 1) {
    fs.writeFileSync(film, Buffer.concat(pieces.map((piece) => fs.readFileSync(piece))));
    pieces.forEach((piece) => fs.rmSync(piece));
  }
  if (turn) await turned(film, turn);
  return film;
}
