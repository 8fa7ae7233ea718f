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
    on('error', () => this.diagnose());
    on('ended', () => this.hooks.ended());
    this.standIn = this.hooks.running?.(stream);
    if (this.standIn) {
      this.goOn();
      return;
    }
    on('loadstart', () => this.hooks.mark('manifest'));
    on('loadedmetadata', () => {
      this.hooks.mark('media');
      video.playbackRate = this.hooks.wish.speed;
      if (this.wanted > 0) {
        video.currentTime = this.wanted;
      }
    });
    video.src = localAddress(stream.url);
    this.hooks.play();
  }

  // The stream plays already, in an element for which the page's own stands in.
  goOn() {
    ['manifest', 'media'].forEach((step) => this.hooks.mark(step));
    ['loadeddata', 'volumechange', 'playing'].forEach((type) => this.video.dispatchEvent(new Event(type)));
  }

  close() {
    super.close();
    this.standIn?.();
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
