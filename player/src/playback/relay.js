// Music without a gap: the next piece waits in a media element of its own and begins when the one that plays ends.
//
// The rest of the page knows one video element. While another element plays, the page's element stands in for it: it
// passes on its state, its methods and its events. MediaSource in one element would need no such thing, but it takes no
// FLAC and Ogg files, so the server would have to convert them.
import { localAddress } from '../api.js';

const LEAD = 10; // milliseconds between play() and the first sound, as measured
const WATCHED_SECONDS = 1; // before the end, in which the end is timed

const STATE = ['currentTime', 'duration', 'paused', 'ended', 'seeking', 'readyState', 'buffered', 'error', 'playbackRate', 'volume', 'muted', 'src'];
const METHODS = ['play', 'pause', 'load', 'hasAttribute', 'removeAttribute'];
const EVENTS = ['play', 'playing', 'pause', 'waiting', 'seeking', 'seeked', 'timeupdate', 'progress', 'canplay', 'ended', 'error', 'volumechange'];

// Makes `video` stand in for `other` until the returned function is called.
function standIn(video, other) {
  const listening = new AbortController();
  for (const name of STATE) {
    const set = (value) => {
      other[name] = value;
    };
    Object.defineProperty(video, name, { configurable: true, get: () => other[name], set });
  }
  for (const name of METHODS) {
    Object.defineProperty(video, name, { configurable: true, value: (...values) => other[name](...values) });
  }
  for (const type of EVENTS) {
    other.addEventListener(type, () => video.dispatchEvent(new Event(type)), { signal: listening.signal });
  }
  return () => {
    listening.abort();
    [...STATE, ...METHODS].forEach((name) => delete video[name]);
    copySound(other, video);
  };
}

function copySound({ volume, muted, playbackRate }, to) {
  Object.assign(to, { volume, muted, playbackRate });
}

export class Relay {
  // `mayBegin`: is the next piece still to follow this one?
  constructor(video, mayBegin) {
    Object.assign(this, { video, mayBegin });
    this.clear();
    video.addEventListener('timeupdate', () => this.time());
    video.addEventListener('seeking', () => this.rewind());
    video.addEventListener('ended', () => this.begin());
  }

  clear() {
    this.stream = null; // the answer of `open` for the next piece
    this.element = null; // which waits with it
    this.hasBegun = false;
    clearTimeout(this.timer);
    this.timer = undefined;
  }

  // Loads the next piece, from the original file's stream.
  prepare(stream) {
    this.drop();
    this.stream = stream;
    this.element = document.createElement('video');
    this.element.preload = 'auto';
    this.element.src = localAddress(stream.url);
  }

  secondsLeft() {
    const { duration, currentTime, playbackRate } = this.video;
    return (duration - currentTime) / (playbackRate || 1);
  }

  // Timers are more exact than the events of the element.
  time() {
    if (this.element && !this.hasBegun && !this.timer && !this.video.paused && this.secondsLeft() < WATCHED_SECONDS) {
      this.timer = setTimeout(() => this.atEnd(), this.secondsLeft() * 1000 - LEAD);
    }
  }

  atEnd() {
    this.timer = undefined;
    const { paused, ended, seeking } = this.video;
    if (!seeking && (ended || !paused)) {
      if (ended || this.secondsLeft() * 1000 < 1.5 * LEAD) {
        this.begin();
      } else {
        this.time();
      }
    }
  }

  begin() {
    const { element } = this;
    if (element && !this.hasBegun && this.mayBegin() && element.readyState >= HTMLMediaElement.HAVE_FUTURE_DATA) {
      this.hasBegun = true;
      copySound(this.video, element);
      element.play().catch(() => this.drop()); // it then begins like any other
    }
  }

  // The viewer has gone back before the end.
  rewind() {
    clearTimeout(this.timer);
    this.timer = undefined;
    if (this.hasBegun) {
      this.hasBegun = false;
      this.element.pause();
      this.element.currentTime = 0;
    }
  }

  // Hands over the element that plays this stream, if there is one. Returns what ends that, or null.
  take({ stream_id: id }) {
    const { stream, element, hasBegun } = this;
    if (!hasBegun || stream?.stream_id !== id) {
      this.drop();
      return null;
    }
    this.clear();
    return standIn(this.video, element);
  }

  drop() {
    const { element } = this;
    this.clear();
    if (element) {
      element.pause();
      element.removeAttribute('src');
      element.load();
    }
  }
}
