// Smooth Streaming by dash.js and its module for it, which the page loads when it first needs them.
import { localAddress } from '../api.js';
import { MediaPlayback } from './media_playback.js';
import { reasonOfStatus } from './status_codes.js';

const SETTINGS = {
  debug: { logLevel: 0 },
  streaming: {
    // The server makes a fragment on request.
    fragmentRequestTimeout: 60000,
    buffer: { fastSwitchEnabled: false },
    retryAttempts: { MediaSegment: 6 },
    retryIntervals: { MediaSegment: 2000 },
  },
};

export class Smooth extends MediaPlayback {
  async open(stream, second) {
    this.wanted = second;
    const { MediaPlayer } = await import('dashjs');
    await import('dashjs/mss');
    if (this.listening.signal.aborted) {
      return;
    }
    const player = MediaPlayer().create();
    this.player = player;
    player.updateSettings(SETTINGS);
    player.initialize(this.video, new URL(localAddress(stream.url), window.location.href).href, false, second);
    const { events } = MediaPlayer;
    player.on(events.MANIFEST_LOADED, () => this.hooks.mark('manifest'));
    player.on(events.BUFFER_LOADED, () => {
      this.hooks.mark('media');
      this.hooks.busy(null);
    });
    player.on(events.ERROR, ({ error }) => this.judge(error));
    this.video.addEventListener('ended', () => this.hooks.ended(), { signal: this.listening.signal });
    this.video.playbackRate = this.hooks.wish.speed;
    this.hooks.play();
  }

  judge(error) {
    const status = error?.data?.response?.status;
    this.hooks.fail({ reason: reasonOfStatus(status) ?? (status === undefined ? 'Undecodable' : 'Broken'), details: error?.message });
  }

  release() {
    this.player?.destroy();
  }
}
