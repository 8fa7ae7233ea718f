// Texts for numbers, languages and names.

const pad = (number) => String(number).padStart(2, '0');

// 3725 -> "1:02:05"
export function clockText(seconds) {
  const whole = Math.max(0, Math.floor(seconds || 0));
  const minutes = Math.floor(whole / 60);
  const rest = pad(whole % 60);
  return minutes < 60 ? `${minutes}:${rest}` : `${Math.floor(minutes / 60)}:${pad(minutes % 60)}:${rest}`;
}

// The same for screen readers: "1 hour 2 minutes 5 seconds".
export function spokenTime(seconds) {
  const whole = Math.max(0, Math.floor(seconds || 0));
  const parts = [
    [Math.floor(whole / 3600), 'hour'],
    [Math.floor(whole / 60) % 60, 'minute'],
    [whole % 60, 'second'],
  ];
  const said = parts.filter(([count]) => count > 0).map(([count, unit]) => `${count} ${unit}${count === 1 ? '' : 's'}`);
  return said.join(' ') || '0 seconds';
}

export function sizeText(bytes) {
  return bytes < 1e9 ? `${Math.ceil(bytes / 1e6)} MB` : `${(bytes / 1e9).toFixed(1)} GB`;
}

export function rateText(bitsPerSecond) {
  return bitsPerSecond < 1e6 ? `${Math.round(bitsPerSecond / 1000)} kbit/s` : `${(bitsPerSecond / 1e6).toFixed(1)} Mbit/s`;
}

export const millisecondsText = (milliseconds) => `${Math.round(milliseconds)} ms`;

// "24000/1001" or 23.976 -> "23.98 fps"; '' if `rate` is not a rate.
export function frameRateText(rate) {
  const [above, below = 1] = String(rate ?? '').split('/').map(Number);
  const frames = above / below;
  return Number.isFinite(frames) && frames > 0 ? `${Number(frames.toFixed(2))} fps` : '';
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
