// Texts for numbers, languages and names.
import { counted, language, t } from './language.js';

const pad = (number) => String(number).padStart(2, '0');

// 3725 -> "1:02:05"
export function clockText(seconds) {
  const whole = Math.max(0, Math.floor(seconds || 0));
  const minutes = Math.floor(whole / 60);
  const rest = pad(whole % 60);
  return minutes < 60 ? `${minutes}:${rest}` : `${Math.floor(minutes / 60)}:${pad(minutes % 60)}:${rest}`;
}

// 4.7 -> "4.7", with the comma of languages that use one.
export const decimalText = (number, digits) => number.toLocaleString(language, { minimumFractionDigits: digits, maximumFractionDigits: digits, useGrouping: false });

// The same for screen readers: "1 hour 2 minutes 5 seconds".
export function spokenTime(seconds) {
  const whole = Math.max(0, Math.floor(seconds || 0));
  const parts = [
    [Math.floor(whole / 3600), '{count} hour', '{count} hours'],
    [Math.floor(whole / 60) % 60, '{count} minute', '{count} minutes'],
    [whole % 60, '{count} second', '{count} seconds'],
  ];
  const said = parts.filter(([count]) => count > 0).map((part) => counted(...part));
  return said.join(' ') || counted(0, '{count} second', '{count} seconds');
}

const UNITS = [t('bytes'), 'kB', 'MB', 'GB', 'TB'];

// 100000 -> "100 kB", 4700000000 -> "4.7 GB"
export function sizeText(bytes) {
  let size = bytes;
  let unit = 0;
  // 999.5 would be shown as 1000.
  while (size >= 999.5 && unit < UNITS.length - 1) {
    size /= 1000;
    ++unit;
  }
  return `${unit > 0 && size < 9.95 ? decimalText(size, 1) : Math.round(size)} ${UNITS[unit]}`;
}

export function rateText(bitsPerSecond) {
  return bitsPerSecond < 1e6 ? `${Math.round(bitsPerSecond / 1000)} kbit/s` : `${decimalText(bitsPerSecond / 1e6, 1)} Mbit/s`;
}

export const millisecondsText = (milliseconds) => `${Math.round(milliseconds)} ms`;

// "24000/1001" or 23.976 -> "23.98 fps"; '' if `rate` is not a rate.
export function frameRateText(rate) {
  const [above, below = 1] = String(rate ?? '').split('/').map(Number);
  const frames = above / below;
  return Number.isFinite(frames) && frames > 0 ? `${frames.toLocaleString(language, { maximumFractionDigits: 2 })} fps` : '';
}

// The name of a language in the viewer's own language; the code itself if it has no name.
export function languageText(code) {
  if (!code || code === 'und') {
    return '';
  }
  try {
    return new Intl.DisplayNames(undefined, { type: 'language' }).of(code);
  } catch {
    return code;
  }
}

// The readable last part of an encoded path.
export function nameOf(encodedPath) {
  const text = encodedPath.split('/').at(-1);
  const bytes = [...text.matchAll(/%([0-9A-Fa-f]{2})|[^]/g)].map(([whole, digits]) => (digits ? parseInt(digits, 16) : whole.charCodeAt(0)));
  return new TextDecoder().decode(new Uint8Array(bytes));
}

const CODECS = {
  h264: 'H.264',
  hevc: 'HEVC',
  mpeg1video: 'MPEG-1',
  mpeg2video: 'MPEG-2',
  mpeg4: 'MPEG-4',
  aac: 'AAC',
  ac3: 'AC-3',
  eac3: 'E-AC-3',
  truehd: 'TrueHD',
  dts: 'DTS',
  opus: 'Opus',
  vorbis: 'Vorbis',
};

// The name of a codec as people write it; '' for none.
export const codecText = (codec) => CODECS[codec] ?? (codec ?? '').toUpperCase();

const RANGES = { hdr10: 'HDR10', hlg: 'HLG', dolby_vision: 'Dolby Vision' };

// The name of a high dynamic range as viewers know it; '' for a standard one.
export const rangeText = (range) => RANGES[range] ?? '';

const USUAL_LINES = [240, 360, 480, 576, 720, 1080, 1440, 2160, 4320];

// "1080p" for a picture of this size, whichever way it stands; '' without a size. A film that is wider than a screen is
// named after the screen that it fills.
export function sizeName(width, height) {
  const lines = Math.min(width, height);
  const ofScreen = Math.round((width * 9) / 16);
  const named = ofScreen > lines && USUAL_LINES.includes(ofScreen) ? ofScreen : lines;
  return named > 0 ? `${named}p` : '';
}
