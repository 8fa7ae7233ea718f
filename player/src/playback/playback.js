// One film in one video element: opens it with a playback method, and tries the next method after a failure.
//
// Events: "change" when something visible has changed; "ended".
import { get, localAddress, post, postLastly } from '../api.js';
import { t } from '../language.js';
import { isBusy, retrySeconds, slowWords, wordsOf } from '../words.js';
import { abilitiesOf, kindText, plan } from './kinds.js';
import { openParameters, wishFor } from './opening.js';
import { SubtitleTrack } from './subtitle_track.js';
import { warmth } from './warmth.js';

const SLOW_SECONDS = 6; // without progress, after which the page explains the wait
const HOPELESS_SECONDS = 60; // without progress, after which the method has failed

// Errors that every other playback method would report too.
const SAME_EVERYWHERE = new Set(['Unauthorized', 'Forbidden', 'NotFound', 'Unreachable']);

export class Playback extends EventTarget {
  // `engineFor`: gives the class that plays a kind in a browser with these abilities; `trackFor`: the one that shows
  // subtitles of a form.
  constructor(video, engineFor, trackFor = () => SubtitleTrack) {
    super();
    this.video = video;
    this.engineFor = engineFor;
    this.trackFor = trackFor;
    this.can = abilitiesOf(video);
    this.wish = { muted: video.muted, speed: 1 }; // the viewer's settings; a catch-up changes the element's for a while
    this.subtitles = [null, null]; // the tracks over the picture
    this.relay = null; // what goes on from one piece of music to the next
    this.turn = 0; // increases when the running operations become obsolete
    this.clear();
    video.addEventListener('loadeddata', () => this.mark('frame'));
    video.addEventListener('waiting', () => this.noteStarvation());
    for (const type of ['playing', 'pause', 'waiting', 'seeking', 'seeked', 'canplay', 'loadstart']) {
      video.addEventListener(type, () => this.changed());
    }
  }

  clear() {
    this.film = null; // { entry, info }
    this.stream = null; // the answer of open
    this.engine = null;
    this.place = 0; // the second of the film at which to begin
    this.error = null; // the error after all attempts have failed
    this.queue = null; // { seconds, error } while waiting in line
    this.notice = ''; // a sentence that does not stop the film
    this.slow = ''; // the reason for a wait
    this.needsPress = false;
    this.phase = '';
    this.marks = {};
    this.starved = -Infinity; // when the player last ran out of film
  }

  // A wait right after a seek or before the first picture is no lack of film.
  noteStarvation() {
    if (this.marks.frame !== undefined && !this.video.seeking) {
      this.starved = performance.now();
    }
  }

  secondsSinceStarved() {
    return (performance.now() - this.starved) / 1000;
  }

  changed() {
    this.dispatchEvent(new Event('change'));
  }

  // Plays a film from this second on. `choice`: { kind, profile, audio, treatment, subtitle, second, delay }; '' is the
  // default of each text. `treatment` of the sound: '' or 'night'.
  play(film, choice, second) {
    this.film = film;
    this.choice = choice;
    this.notice = '';
    this.kinds = plan(film.info, this.can, choice);
    return this.reopen(second);
  }

  // Closes the stream and opens the chosen one at this second.
  async reopen(second) {
    const turn = ++this.turn;
    this.error = null;
    this.place = second;
    const closed = this.closeStream();
    this.phase = 'opening';
    this.changed();
    await closed;
    while (turn === this.turn) {
      try {
        await this.openKind(this.kinds[0], turn);
        return;
      } catch (error) {
        await this.afterFailedOpening(error, turn);
      }
    }
  }

  async openKind(kind, turn) {
    if (kind === undefined) {
      throw this.lastError ?? { reason: 'TransVideoNotSupported' };
    }
    this.kind = kind;
    this.phase = 'opening';
    this.marks = { start: performance.now() };
    this.watch();
    const engine = Promise.resolve(this.engineFor(kind, this.can));
    engine.catch(() => {}); // a refused opening comes first
    const stream = await this.openStream(kind);
    if (turn !== this.turn) {
      this.closeOnServer(stream);
      return;
    }
    this.stream = stream;
    this.queue = null;
    this.phase = 'manifest';
    this.mark('open');
    const Engine = await engine;
    if (turn !== this.turn) {
      return;
    }
    this.engine = this.makeEngine(Engine);
    await this.engine.open(stream, this.firstSecond(), wishFor(this.film.info, this.choice, kind));
    this.showSubtitles();
    this.changed();
  }

  // The stream that waits for this film, or a new one.
  async openStream(kind) {
    const { entry, info } = this.film;
    const parameters = openParameters(info, this.choice, kind, this.firstSecond());
    const warmed = warmth.take(entry.encoded_path, parameters);
    const dropped = warmth.drop(); // another one may use the only free transcoder
    const stream = await warmed?.catch(() => null);
    await dropped;
    return stream ?? post('Streaming', 'open', parameters, entry.encoded_path);
  }

  // Where the film begins: the viewer's place, but not its very end.
  firstSecond() {
    return Math.min(this.place, Math.max(0, this.duration() - 1));
  }

  makeEngine(Engine) {
    const turn = this.turn;
    const current = (action) => (...values) => turn === this.turn && action(...values);
    const hooks = {
      wish: this.wish,
      mark: current((name) => this.mark(name)),
      play: current(() => this.start()),
      busy: current((error) => this.setBusy(error)),
      changed: current(() => this.changed()),
      missing: current(() => this.checkStream(turn)),
      clock: current(() => this.moveSubtitles()),
      ended: current(() => this.dispatchEvent(new Event('ended'))),
      fail: current((error) => this.fail(error)),
      running: (stream) => this.relay?.take(stream),
    };
    return new Engine(this.video, hooks);
  }

  // Notes when a step of opening is done: open, manifest, media, frame, in milliseconds since the start.
  mark(name) {
    if (this.marks.start !== undefined && this.marks[name] === undefined) {
      this.marks[name] = performance.now() - this.marks.start;
      const isShown = this.marks.frame !== undefined;
      this.phase = isShown ? 'buffering' : { open: 'manifest', manifest: 'media', media: 'frame' }[name];
      this.changed();
    }
  }

  async start() {
    try {
      await this.video.play();
      this.needsPress = false;
    } catch (error) {
      this.needsPress = error.name === 'NotAllowedError';
    }
    this.changed();
  }

  // Handles a refusal of the server, or an engine that did not load; in that case its stream is open.
  async afterFailedOpening(error, turn) {
    if (turn === this.turn) {
      await this.closeStream();
    }
    await this.afterFailure(error, turn);
  }

  // Handles the failure of an engine.
  async fail(error) {
    this.place = this.now();
    const turn = ++this.turn;
    const closed = this.closeStream();
    await this.afterFailure(error, turn);
    await closed;
    if (turn === this.turn && !this.error) {
      await this.reopen(this.place);
    }
  }

  // Prepares the next attempt, or reports the error.
  async afterFailure(error, turn) {
    if (turn !== this.turn || error.name === 'AbortError') {
      return;
    }
    if (isBusy(error)) {
      await this.waitInLine(error, turn);
    } else if (error.reason === 'Unauthorized') {
      await this.logIn(turn);
    } else if (SAME_EVERYWHERE.has(error.reason) || this.kinds.length <= 1) {
      this.settle(error);
    } else {
      this.lastError = error;
      this.queue = null;
      const failed = this.kinds.shift();
      this.notice = t('{method} failed: {reason} Trying {other} instead.', { method: kindText(failed), reason: wordsOf(error).sentence, other: kindText(this.kinds[0]) });
    }
  }

  settle(error) {
    ++this.turn;
    this.error = error;
    this.phase = '';
    this.queue = null;
    this.unwatch();
    this.changed();
  }

  async logIn(turn) {
    try {
      // Any call that needs a login asks for it.
      await get('Library', 'list', {}, '');
    } catch (error) {
      if (turn === this.turn) {
        this.settle(error);
      }
    }
  }

  // Counts down to the next attempt.
  async waitInLine(error, turn) {
    this.unwatch();
    for (let seconds = retrySeconds(error); seconds > 0 && turn === this.turn; --seconds) {
      this.queue = { seconds, error };
      this.changed();
      await new Promise((resolve) => {
        setTimeout(resolve, 1000);
      });
    }
  }

  // A segment waits for a free transcoder; its engine keeps asking.
  setBusy(error) {
    const queue = error && { seconds: 0, error };
    if (Boolean(queue) !== Boolean(this.queue)) {
      this.queue = queue;
      this.changed();
    }
  }

  now() {
    return this.engine?.now() ?? this.place;
  }

  duration() {
    return this.stream?.duration ?? this.film?.info.metadata.duration ?? 0;
  }

  buffered() {
    return this.engine?.buffered() ?? 0;
  }

  seek(second) {
    const place = Math.max(0, Math.min(second, this.duration()));
    if (this.engine && !this.error) {
      this.seekEngine(place);
    } else if (this.queue) {
      this.place = place; // for the next attempt
      this.changed();
    } else if (this.film) {
      this.reopen(place);
    }
  }

  seekEngine(place) {
    this.phase = 'buffering';
    this.engine.seek(place);
    this.changed();
  }

  isPlaying() {
    return !this.video.paused && !this.video.ended && !this.error && Boolean(this.engine);
  }

  // Is the viewer waiting for a picture?
  isWaiting() {
    const { readyState, paused, seeking } = this.video;
    const starved = Boolean(this.engine) && readyState < HTMLMediaElement.HAVE_FUTURE_DATA && (!paused || seeking);
    return !this.error && !this.needsPress && (this.phase === 'opening' || starved);
  }

  toggle() {
    if (this.error) {
      this.seek(this.now());
    } else if (this.video.ended && this.engine) {
      this.seek(0);
      this.start();
    } else if (this.video.paused) {
      this.start();
    } else {
      this.video.pause();
    }
  }

  setMuted(muted) {
    this.wish.muted = muted;
    this.video.muted = muted;
    this.changed();
  }

  setSpeed(speed) {
    this.wish.speed = speed;
    this.video.playbackRate = speed;
  }

  // Changes quality, audio track or playback method at the same position.
  change(changes) {
    return this.play(this.film, { ...this.choice, ...changes }, this.now());
  }

  // Changes the quality or the sound. An engine that plays several in one stream changes within it.
  changeWithin(changes) {
    const choice = { ...this.choice, ...changes };
    if (!this.engine?.showWish || plan(this.film.info, this.can, choice)[0] !== this.kind) {
      return this.change(changes);
    }
    this.choice = choice;
    this.engine.showWish(wishFor(this.film.info, choice, this.kind));
    this.changed();
    return undefined;
  }

  // Changes what is read: { subtitle, second, delay }, the ids of two subtitles ('' for none) and the seconds by which
  // both come later.
  changeSubtitles(changes) {
    this.choice = { ...this.choice, ...changes };
    this.showSubtitles();
    this.moveSubtitles();
  }

  // A track stays while it is the chosen one.
  showSubtitles() {
    const { subtitle = '', second = '' } = this.choice;
    const wanted = this.engine ? [subtitle, second === subtitle ? '' : second] : ['', ''];
    this.subtitles = wanted.map((id, place) => {
      const shown = this.subtitles[place];
      if (shown && shown.id === id) {
        return shown;
      }
      shown?.remove();
      return id === '' ? null : this.makeSubtitle(id, place > 0);
    });
  }

  makeSubtitle(id, isAbove) {
    const form = this.film.info.subtitles.find((subtitle) => String(subtitle.id) === id)?.form;
    const Track = this.trackFor(form, isAbove);
    return new Track(this.video, this.stream.stream_id, id, this.subtitleShift(), isAbove, this.film);
  }

  moveSubtitles() {
    this.subtitles.forEach((track) => track?.move(this.subtitleShift()));
  }

  // From a cue's time to the moment at which it is shown, on the clock of the video element.
  subtitleShift() {
    return (this.choice.delay ?? 0) + (this.engine?.clockShift?.() ?? 0);
  }

  removeSubtitles() {
    this.subtitles.forEach((track) => track?.remove());
    this.subtitles = [null, null];
  }

  // Watches the progress. Explains a wait, and fails after a long one.
  watch() {
    this.unwatch();
    let last = '';
    let still = 0;
    this.watching = setInterval(() => {
      const sign = `${this.phase} ${this.video.currentTime} ${this.buffered()} ${this.video.readyState}`;
      still = sign !== last || !this.isWaiting() || this.queue ? 0 : still + 1;
      last = sign;
      if (still === 0 && this.slow) {
        this.slow = '';
        this.changed();
      } else if (still > 0 && still % SLOW_SECONDS === 0) {
        this.explainSlowness(still);
      }
    }, 1000);
  }

  unwatch() {
    clearInterval(this.watching);
    this.slow = '';
  }

  async explainSlowness(seconds) {
    const turn = this.turn;
    if (seconds >= HOPELESS_SECONDS) {
      this.fail({ reason: 'Stalled' });
      return;
    }
    const state = this.stream && (await this.state().catch(() => null));
    if (turn === this.turn) {
      this.slow = slowWords(this.phase, state);
      this.changed();
    }
  }

  // Fails at once if the server no longer knows the stream.
  async checkStream(turn) {
    try {
      await this.state();
    } catch (error) {
      if (turn === this.turn && SAME_EVERYWHERE.has(error.reason)) {
        this.fail(error);
      }
    }
  }

  // The server's state of the stream.
  state() {
    return get('Streaming', 'state', { format: this.stream.format, stream_id: this.stream.stream_id }, undefined, { quiet: true });
  }

  closeOnServer({ format, stream_id: id }) {
    return post('Streaming', 'close', { format, stream_id: id }, undefined, { quiet: true }).catch(() => {});
  }

  closeStream() {
    const { stream } = this;
    this.unwatch();
    this.removeSubtitles();
    this.engine?.close();
    this.engine = null;
    this.stream = null;
    return stream ? this.closeOnServer(stream) : undefined;
  }

  // Closes the film and cancels running operations.
  stop() {
    ++this.turn;
    const closed = this.closeStream();
    this.clear();
    this.changed();
    return closed;
  }

  // Closes the stream; it can be opened again at the same position.
  park() {
    this.place = this.now();
    this.settle({ reason: 'Parked' });
    return this.closeStream();
  }

  // How the server processes the film: { method, why, key }. A profile that the film's description does not offer has
  // its key alone.
  methodOf() {
    if (this.engine?.method) {
      return this.engine.method();
    }
    const { info } = this.film;
    const key = this.stream?.profile;
    return this.kind === 'direct' ? { method: 'direct', why: info.direct?.why } : (info.profiles.find((profile) => profile.key === key) ?? { key });
  }

  // Closes the stream while the page unloads.
  stopLastly() {
    if (this.stream) {
      postLastly('Streaming', 'close', { format: this.stream.format, stream_id: this.stream.stream_id });
      this.stream = null;
    }
  }

  address() {
    return this.stream && new URL(localAddress(this.stream.url), window.location.href).href;
  }
}
