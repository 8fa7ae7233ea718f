// Why the server plays a film as it does. The sentences are the server's own, with the film's values in them; here they
// get a translation.
import { t } from './language.js';

// What sentences about a player begin with.
export const PLAYERS = [
  'Every player can',
  'Not every player can',
  'This player can',
  'This player cannot',
  'This browser can',
  'This browser cannot',
  'Firefox can',
  'Firefox cannot',
  'Safari can',
  'Safari cannot',
];

export const REASONS = [
  '{player} play this file without conversion.',
  '{player} play the container {container}.',
  '{player} play the video codec {codec} in the container {container}.',
  '{player} play the audio codec {codec} in the container {container}.',
  '{player} play the pixel format {format}.',
  'The film is in {range}, and the player did not say that its screen shows a high dynamic range.',
  'This file has neither pictures nor sound.',
  'The server can copy only H.264 video; this film has {codec}.',
  'Players cannot decode H.264 video in the pixel format {format}; the server must re-encode it.',
  "This kind of stream cannot carry the film's rotation of {degrees} degrees; the server must re-encode the video.",
  'The video is copied without conversion; the sound is converted to AAC.',
  "FFmpeg, not GStreamer, transcodes this film's {codec} video on this server.",
  "The hardware cannot transcode this film's {codec} video.",
  'The {codec} video of {size} is re-encoded to {quality}.',
  'Its {range} colors become those of a standard screen.',
  'This file has sound alone, and this kind of stream needs a picture.',
  'This file is music with a cover; this kind of stream needs moving pictures.',
  'The sound is converted; the cover is not part of the stream.',
  "This server makes {quality} at {speed} of the film's speed; {chosen} is chosen.",
  'This file has no video.',
  'HLS needs sound, and this film has none.',
  'The picture size or the length of this film is unknown.',
  "The codec of this film's video is unknown.",
  "The client does not play this film's video without conversion.",
  'A player cannot start at the key frames of this film: they need pictures before them.',
  'The pictures of this film change their size or coding.',
  'The file has no usable index of its key frames, and the background analysis had not found them when the film was opened.',
  "The client does not show this film's high dynamic range.",
  "The film's own picture is larger than the client wants.",
  'This machine has no device for it.',
  'This FFmpeg cannot use it.',
  'It fails to encode pictures of {lines} lines.',
  'What it encodes at {lines} lines is not what it was given.',
];

// A value has no sentence in it, and a player is one of those above.
const patternOf = (text) => {
  const escaped = text.replace(/[.*+?^$()|[\]\\]/g, '\\$&');
  const named = escaped.replace('{player}', `(?<player>${PLAYERS.join('|')})`).replace(/\{(\w+)\}/g, '(?<$1>\\S.*?)');
  return new RegExp(`^${named}(?: |$)`);
};

// The first sentence of a text, in the page's language, and what follows it. Null if the page does not know it.
function takeSentence(text) {
  for (const reason of REASONS) {
    const found = patternOf(reason).exec(text);
    if (found) {
      const values = Object.fromEntries(Object.entries(found.groups ?? {}).map(([name, value]) => [name, t(value)]));
      return [t(reason, values), text.slice(found[0].length)];
    }
  }
  return null;
}

// The server's reason in the page's language; as it is if the page does not know all of its sentences.
export function reasonText(text) {
  const sentences = [];
  for (let rest = text ?? ''; rest; ) {
    const taken = takeSentence(rest);
    if (!taken) {
      return text;
    }
    sentences.push(taken[0]);
    [, rest] = taken;
  }
  return sentences.join(' ');
}
