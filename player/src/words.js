// The page's error texts: for each reason a sentence and the next step.
import { decimalText } from './format.js';
import { hasText, t } from './language.js';

const WORDS = {
  BadRequest: ['The server did not understand this request.', 'Reload the page. If that does not help, the server is older than the page.'],
  Unauthorized: ['You are not logged in.', 'Log in to continue.'],
  Forbidden: ['You do not have access to this film.', 'Choose another film from the library.'],
  NotFound: ['This film or stream no longer exists.', 'Open the film again from the library.'],
  Gone: ['The address of this film no longer works.', 'Open the film again from the library.'],
  MethodNotAllowed: ['The server did not understand this request.', 'Reload the page. If that does not help, the server is newer than the page.'],
  Busy: ['The server is busy.', 'Try again in a moment.'],
  Unavailable: ['FFmpeg is missing on the server, so it cannot convert films.', 'Install the package ffmpeg on the server.'],
  TooManyRequests: ['There were too many attempts.', 'Wait a minute, then try again.'],
  RangeNotSatisfiable: ['The film ends before this position.', 'Choose an earlier position.'],
  NotFinished: ['The conversion of this film has not ended.', 'Come back when it is ready.'],
  NotReady: ['The server did not finish this part in time.', 'Choose a lower quality, or try again.'],
  Internal: ['Something went wrong on the server.', 'Try again. The server’s log has the details.'],
  TransEnable: ['The server is busy with other films.', 'Your film starts when the server is free.'],
  TransEnableOfflineConverting: ['The server is busy with a conversion.', 'Your film starts when the conversion has ended.'],
  TransSapceNotEnough: ['The server’s disk is full.', 'Free some space, or choose another playback method in the settings.'],
  TransAudioNotSupported: ['This playback method does not support the film’s sound.', 'Choose another audio track or another playback method.'],
  TransVideoNotSupported: ['This film’s video cannot be played.', 'Choose another film.'],
  TransVideoNotHardwareSupported: ['The server’s hardware cannot decode this video.', 'Choose another quality.'],
  TransVideoOutOfResolutionCapability: ['The resolution of this film is too high for the server’s hardware.', 'Choose another quality.'],
  TransVideoOutOfProfileCapability: ['The server’s hardware cannot decode this type of video.', 'Choose another quality.'],
  TransVideoOutOfFramerateCapability: ['The server’s hardware is too slow for this frame rate.', 'Choose another quality.'],
  // Reasons that the page itself sets.
  Unreachable: ['The server does not answer.', 'Check that the server runs and that your network works, then try again.'],
  Unreadable: ['The page cannot read the server’s answer.', 'Reload the page, then try again.'],
  Broken: ['The stream stopped.', 'Try again, or choose another playback method.'],
  Undecodable: ['This browser cannot play this stream.', 'Choose another playback method in the settings.'],
  Parked: ['The film plays in another player.', 'Select “Try again” to continue here.'],
  Stalled: ['The server has sent nothing for a long time.', 'Choose a lower quality, or try again.'],
};

// Every reason that has a text of its own.
export const REASONS = Object.keys(WORDS);

// { sentence, next } of an error. The server's own sentence is more specific, so it replaces the page's where the viewer's
// language has it.
export function wordsOf(error) {
  if (error.reason === undefined) {
    return { sentence: t('An error occurred in this page.'), next: `${t('Reload the page.')} (${error})` };
  }
  const [sentence, next] = WORDS[error.reason] ?? WORDS.Internal;
  return { sentence: t(error.message && hasText(error.message) ? error.message : sentence), next: t(next) };
}

// Both in one text.
export function errorText(error) {
  const { sentence, next } = wordsOf(error);
  return `${sentence} ${next}`;
}

export const isBusy = (error) => error.reason === 'TransEnable' || error.reason === 'TransEnableOfflineConverting';

// The server has looked at the file, and it cannot be played.
export const isBroken = ({ code, reason }) => code === 415 || Boolean(reason?.startsWith('TransVideo') || reason?.startsWith('TransAudio'));

const RETRY_SECONDS = 5;

// The time to wait before the page asks a busy server again.
export const retrySeconds = (error) => Math.min(60, Math.max(1, Math.ceil(error.retryAfter ?? RETRY_SECONDS)));

// The sentences for a stream that makes no progress. `phase`: "opening", "manifest", "media", "frame" or
// "buffering"; `state`: the stream's state from the server, if there is one.
const PHASES = {
  opening: 'The server has not opened the film yet. It may still be examining the file.',
  manifest: 'The stream is open, but its playlist has not arrived yet.',
  media: 'The server is preparing the first seconds of the film.',
  frame: 'The film has arrived. The browser is decoding the first picture.',
  buffering: 'The next part of the film has not arrived yet.',
};

const STARVED_SECONDS = 60; // the page speaks of the last minute
const FULL_LOAD = 0.7; // of a core: a slow encoder that works less than this waits for its input
const DROPPED_SHARE = 0.05;
const SPARE_THROUGHPUT = 1.2; // a network that is faster than the stream by less than this is too slow

// Why the film stutters, in one sentence; '' while it does not. `facts`: { dropped, total } pictures of the player,
// `seconds` since it last ran out of film, `throughput` and `rate` of the stream in bit/s, and the server's
// `transcoder`. What is unknown may be missing.
export function stutterWords({ dropped = 0, total = 0, seconds = Infinity, throughput = 0, rate = 0, transcoder = null }) {
  if (seconds > STARVED_SECONDS) {
    return total > 0 && dropped / total > DROPPED_SHARE ? t('The player stutters: this device is too slow for the picture. Choose a lower quality.') : '';
  }
  if (transcoder?.speed > 0 && transcoder.speed < 1) {
    const isLoaded = (transcoder.cpu_percent ?? 100) / 100 >= FULL_LOAD;
    return isLoaded
      ? t('The processor of the server is too slow for this quality. Choose a lower one.')
      : t('The disk of the server is too slow: its converter waits for the film.');
  }
  if (throughput > 0 && rate > 0 && throughput < SPARE_THROUGHPUT * rate) {
    return t('The network is too slow for this quality. Choose a lower one.');
  }
  return t('The film arrived late; neither the network nor the server is too slow for it now.');
}

export function slowWords(phase, state) {
  const speed = state?.transcoder?.speed;
  if (speed > 0 && speed < 1) {
    return t('The server converts at {speed} times the film’s speed, which is too slow. Choose a lower quality.', { speed: decimalText(speed, 1) });
  }
  return t(PHASES[phase] ?? PHASES.buffering);
}
