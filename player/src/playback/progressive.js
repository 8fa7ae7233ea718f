// One endless response from a requested second on: MP4 or WebM, played by the browser itself.
//
// A seek is a new request with another start. The stream keeps the film's clock. Copied pictures begin early: the page
// plays them fast, dimmed and silent up to the requested second. Firefox counts from the beginning of each response; the
// page takes that as the requested second.
import { errorOf, localAddress } from '../api.js';
import { catchUpRate, isEarly } from './catch_up.js';

const NEAR_END = 3; // seconds by which a film may be shorter than its stated duration

const countsFromZero = () => globalThis.navigator?.userAgent.includes('Firefox/') ?? false;

export class Progressive {
  static hasAddress = true; // that another device could fetch

  constructor(video, hooks) {
    this.video = video;
    this.hooks = hooks;
    this.start = 0; // the second of the film that the running request asked for
    this.offset = 0; // the second of the film at 0 on the clock of the video element
    this.listening = new AbortController();
    this.asking = new AbortController(); // ends the question why a response failed
    this.again = false; // has the response stopped early since the film last played?
  }

  open(stream, second) {
    this.stream = stream;
    const { signal } = this.listening;
    const on = (type, handler) => this.video.addEventListener(type, handler, { signal });
    on('loadstart', () => this.hooks.mark('manifest'));
    on('loadedmetadata', () => this.hooks.mark('media'));
    on('playing', () => this.catchUp(this.start));
    on('error', () => (this.isCutOff() ? this.goOn() : this.diagnose()));
    on('ended', () => this.checkEnd());
    this.seek(second);
  }

  // The second of the film that is shown.
  now() {
    return this.video.readyState < HTMLMediaElement.HAVE_CURRENT_DATA ? this.start : Math.max(this.start, this.offset + this.video.currentTime);
  }

  // Seconds of the film that are buffered and not yet shown.
  buffered() {
    const { buffered, currentTime } = this.video;
    return buffered.length > 0 ? Math.max(0, buffered.end(buffered.length - 1) - Math.max(currentTime, this.start - this.offset)) : 0;
  }

  // By how much subtitles come later on the clock of the video element than in the film.
  clockShift() {
    return -this.offset;
  }

  seek(second) {
    this.again = false;
    this.request(second);
  }

  request(second) {
    this.asking.abort(); // it would take the stream from this request, and its answer is about another one
    this.start = Math.floor(Math.max(0, Math.min(second, this.stream.duration - 1)));
    this.offset = countsFromZero() ? this.start : 0;
    this.hooks.clock();
    this.video.src = `${localAddress(this.stream.url)}&start=${this.start}`;
    this.hooks.play();
  }

  isEarly() {
    return isEarly(this.offset + this.video.currentTime, this.start);
  }

  // Plays fast up to the requested second.
  catchUp(start) {
    if (this.listening.signal.aborted || this.start !== start) {
      return;
    }
    const { video } = this;
    const early = this.isEarly();
    video.muted = early || this.hooks.wish.muted;
    video.playbackRate = early ? catchUpRate(start - this.offset - video.currentTime) : this.hooks.wish.speed;
    video.classList.toggle('early', early);
    if (early && !video.paused) {
      requestAnimationFrame(() => this.catchUp(start));
    } else if (!early) {
      this.again = false;
    }
  }

  // A response that stops early looks like the end of the film, or like a lost connection if its sender says so.
  checkEnd() {
    if (this.now() >= this.stream.duration - NEAR_END) {
      this.hooks.ended();
    } else {
      this.goOn();
    }
  }

  isCutOff() {
    return this.video.error?.code === MediaError.MEDIA_ERR_NETWORK && !this.again;
  }

  // The page requests the rest once more.
  goOn() {
    if (this.again) {
      this.hooks.fail({ reason: 'Broken' });
    } else {
      this.again = true;
      this.request(this.now());
    }
  }

  // The browser does not reveal the server's answer, so the page asks the server again. A server that answers now has
  // refused or ended the response before for a reason that is gone: the page plays the new one.
  async diagnose() {
    if (!this.video.hasAttribute('src')) {
      return;
    }
    const undecodable = this.video.error?.code === MediaError.MEDIA_ERR_DECODE;
    this.asking = new AbortController();
    const { signal } = this.asking;
    try {
      const response = await fetch(this.video.src, { signal });
      const error = response.ok ? { reason: undecodable ? 'Undecodable' : 'Broken' } : await errorOf(response);
      if (signal.aborted) {
        return; // the viewer has gone elsewhere meanwhile
      }
      this.asking.abort();
      if (error.reason === 'Broken') {
        this.goOn();
      } else {
        this.hooks.fail(error);
      }
    } catch {
      if (!signal.aborted) {
        this.hooks.fail({ reason: 'Unreachable' });
      }
    }
  }

  close() {
    this.listening.abort();
    this.asking.abort();
    this.video.classList.remove('early');
    this.video.playbackRate = this.hooks.wish.speed;
    this.video.muted = this.hooks.wish.muted;
    this.video.removeAttribute('src');
    this.video.load();
  }
}
