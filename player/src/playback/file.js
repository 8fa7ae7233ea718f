// Streams that the browser plays and seeks by itself: the original file, and HLS in browsers that support it.
import { errorOf, localAddress } from '../api.js';
import { MediaPlayback } from './media_playback.js';

export class BrowserFile extends MediaPlayback {
  static hasAddress = true; // that another device could fetch

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
}
