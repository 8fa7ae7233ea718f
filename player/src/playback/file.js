// What the browser plays and seeks in by itself: the film's own file, and HLS where the browser knows it.
import { errorOf, localAddress } from '../api.js';

export class BrowserFile {
  constructor(video, hooks) {
    this.video = video;
    this.hooks = hooks;
    this.listening = new AbortController();
    this.wanted = 0;
  }

  open(stream, second) {
    this.stream = stream;
    this.wanted = second;
    const { video } = this;
    const { signal } = this.listening;
    const on = (type, handler) => video.addEventListener(type, handler, { signal });
    on('loadstart', () => this.hooks.mark('manifest'));
    on('loadedmetadata', () => {
      this.hooks.mark('media');
      video.playbackRate = this.hooks.wish.speed;
      if (this.wanted > 0) {
        video.currentTime = this.wanted;
      }
    });
    on('error', () => this.diagnose());
    on('ended', () => this.hooks.ended());
    video.src = localAddress(stream.url);
    this.hooks.play();
  }

  now() {
    return this.video.readyState < HTMLMediaElement.HAVE_METADATA ? this.wanted : this.video.currentTime;
  }

  buffered() {
    return bufferedAhead(this.video);
  }

  seek(second) {
    this.wanted = second;
    if (this.video.readyState >= HTMLMediaElement.HAVE_METADATA) {
      this.video.currentTime = second;
    }
  }

  async diagnose() {
    const code = this.video.error?.code;
    if (!this.video.hasAttribute('src') || this.listening.signal.aborted) {
      return;
    }
    const { signal } = this.listening;
    const answer = await fetch(this.video.src, { headers: { Range: 'bytes=0-1' }, signal }).catch(() => null);
    const broken = { reason: code === MediaError.MEDIA_ERR_NETWORK ? 'Broken' : 'Undecodable' };
    const error = answer === null ? { reason: 'Unreachable' } : answer.ok ? broken : await errorOf(answer);
    if (!signal.aborted) {
      this.hooks.fail(error);
    }
  }

  close() {
    this.listening.abort();
    this.video.removeAttribute('src');
    this.video.load();
  }
}

// Seconds that are there after the one that is shown, without a hole.
export function bufferedAhead({ buffered, currentTime }) {
  for (let part = 0; part < buffered.length; ++part) {
    if (buffered.start(part) <= currentTime + 0.2 && buffered.end(part) > currentTime) {
      return buffered.end(part) - currentTime;
    }
  }
  return 0;
}
