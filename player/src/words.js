// What the page says when something goes wrong: for every reason a sentence and what to do next.

const WORDS = {
  BadRequest: ['The server did not understand this request.', 'Reload the page; if it stays so, the server is older than the page.'],
  Unauthorized: ['You are not logged in.', 'Log in to go on.'],
  Forbidden: ['This is not among the films that you may see.', 'Choose another one from the library.'],
  NotFound: ['This is not there any more.', 'Open the film again from the library.'],
  MethodNotAllowed: ['The server did not understand this request.', 'Reload the page; if it stays so, the server is newer than the page.'],
  Busy: ['The server has its hands full.', 'Try again in a moment.'],
  TooManyRequests: ['There were too many attempts.', 'Wait a minute, then try again.'],
  RangeNotSatisfiable: ['The film ends before this place.', 'Choose an earlier one.'],
  NotReady: ['The server has not finished this part in time.', 'Choose a lower quality, or try again.'],
  Internal: ['Something went wrong on the server.', 'Try again; the server’s log says more.'],
  TransEnable: ['The server is busy with other films.', 'It starts by itself when there is room.'],
  TransEnableOfflineConverting: ['The server is busy with a conversion.', 'It starts by itself when that has ended.'],
  TransSapceNotEnough: ['The server’s disk is full.', 'Free some space, or choose another way of playing in the settings.'],
  TransAudioNotSupported: ['The sound of this film cannot be played this way.', 'Choose another sound track or another way of playing.'],
  TransVideoNotSupported: ['This film’s picture cannot be played.', 'Choose another film.'],
  TransVideoNotHardwareSupported: ['The server’s hardware cannot decode this picture.', 'Choose another quality.'],
  TransVideoOutOfResolutionCapability: ['The picture is too large for the server’s hardware.', 'Choose another quality.'],
  TransVideoOutOfProfileCapability: ['The server’s hardware cannot decode this kind of picture.', 'Choose another quality.'],
  TransVideoOutOfFramerateCapability: ['The server’s hardware is too slow for this frame rate.', 'Choose another quality.'],
  // The page's own.
  Unreachable: ['The server does not answer.', 'See whether it runs and whether the network is there, then try again.'],
  Unreadable: ['The server’s answer makes no sense to this page.', 'Reload the page, then try again.'],
  Broken: ['The stream has broken off.', 'Try again, or choose another way of playing.'],
  Undecodable: ['This browser cannot play this stream.', 'Choose another way of playing in the settings.'],
  Parked: ['The film goes on in another player.', 'Try again to go on here.'],
  Stalled: ['Nothing has come from the server for a long time.', 'Choose a lower quality, or try again.'],
};

// Every reason that has words of its own.
export const REASONS = Object.keys(WORDS);

// { sentence, next } of an error. The server's own sentence is the closer one.
export function wordsOf(error) {
  if (error.reason === undefined) {
    return { sentence: 'The page has made a mistake.', next: `Reload it. (${error})` };
  }
  const [sentence, next] = WORDS[error.reason] ?? WORDS.Internal;
  return { sentence: error.message || sentence, next };
}

export const isBusy = (error) => error.reason === 'TransEnable' || error.reason === 'TransEnableOfflineConverting';

const RETRY_SECONDS = 5;

// How long to wait before a busy server is asked again.
export const retrySeconds = (error) => Math.min(60, Math.max(1, Math.ceil(error.retryAfter ?? RETRY_SECONDS)));

// Why nothing moves. `phase`: "opening", "manifest", "media", "frame" or "buffering"; `state`: the stream's
// state as the server tells it, where it does.
const PHASES = {
  opening: 'The server has not opened the film yet. It may be looking at the file.',
  manifest: 'The stream is open, but its table of contents has not come yet.',
  media: 'The server is making the first seconds of the film.',
  frame: 'The film has come, and its first picture is being decoded.',
  buffering: 'The next part of the film has not come yet.',
};

export function slowWords(phase, state) {
  const speed = state?.transcoder?.speed;
  if (speed > 0 && speed < 1) {
    return `The server encodes at ${speed.toFixed(1)} times the film’s speed. A lower quality would keep up.`;
  }
  return PHASES[phase] ?? PHASES.buffering;
}
