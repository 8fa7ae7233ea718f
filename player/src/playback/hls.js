// HTTP Live Streaming by hls.js, which the page loads when it first needs it.
import workerPath from 'hls.js/dist/hls.worker.js?url';

import { localAddress } from '../api.js';
import { MediaPlayback } from './media_playback.js';
import { reasonOfStatus } from './status_codes.js';
import { subtitleIdOf } from './subtitle_id.js';

// The server makes a segment on request, so its first byte may take a while. The player asks a busy server again
// until the viewer stops it.
const PATIENCE = { maxTimeToFirstByteMs: 60000, maxLoadTimeMs: 120000 };
const RETRIES = { maxNumRetry: 4, retryDelayMs: 1000, maxRetryDelayMs: 4000 };
const segmentPolicy = {
  default: {
    ...PATIENCE,
    timeoutRetry: { ...RETRIES, maxNumRetry: 1 },
    errorRetry: { ...RETRIES, shouldRetry: (_config, _count, _timeout, response, retry) => retry || response?.code === 503 },
  },
};
const playlistPolicy = { default: { ...PATIENCE, timeoutRetry: RETRIES, errorRetry: RETRIES } };

const settings = {
  workerPath,
  maxBufferLength: 30,
  backBufferLength: 60,
  fragLoadPolicy: segmentPolicy,
  manifestLoadPolicy: playlistPolicy,
  playlistLoadPolicy: playlistPolicy,
};

// Errors that repeat, however often the player asks.
const FINAL = new Set(['Unauthorized', 'Forbidden', 'TransSapceNotEnough']);

export class Segments extends MediaPlayback {
  constructor(video, hooks) {
    super(video, hooks);
    this.recovered = false;
    this.knowsSubtitles = false;
  }

  async open(stream, second) {
    this.wanted = second;
    const { default: Hls } = await import('hls.js');
    if (this.listening.signal.aborted) {
      return;
    }
    const hls = new Hls({ ...settings, startPosition: second, cmcd: { sessionId: stream.stream_id, contentId: stream.stream_id, useHeaders: true } });
    this.hls = hls;
    hls.on(Hls.Events.MANIFEST_PARSED, (_, { subtitleTracks }) => {
      this.hooks.mark('manifest');
      if (subtitleTracks.length === 0) {
        this.learnSubtitles();
      }
    });
    // After this event hls.js selects the default subtitle; the viewer's choice comes after that.
    hls.on(Hls.Events.SUBTITLE_TRACKS_UPDATED, () => queueMicrotask(() => this.hls && this.learnSubtitles()));
    hls.on(Hls.Events.FRAG_BUFFERED, () => {
      this.hooks.mark('media');
      this.hooks.busy(null);
    });
    hls.on(Hls.Events.ERROR, (_, data) => this.judge(Hls, data));
    this.video.addEventListener('ended', () => this.hooks.ended(), { signal: this.listening.signal });
    hls.subtitleDisplay = false;
    hls.loadSource(localAddress(stream.url));
    hls.attachMedia(this.video);
    this.video.playbackRate = this.hooks.wish.speed;
    this.hooks.play();
  }

  judge(Hls, { type, details, fatal, frag, response, networkDetails }) {
    const reason = reasonOfStatus(response?.code);
    const isSubtitle = frag?.type === 'subtitle' || details.startsWith('subtitle');
    if (FINAL.has(reason) && !isSubtitle) {
      this.hooks.fail({ reason });
    } else if (!fatal) {
      // A segment that was removed while it was sent exists again for the next request; a closed stream does not.
      if (reason === 'NotFound' && !isSubtitle) {
        this.hooks.missing();
      } else if (reason === 'TransEnable') {
        this.hooks.busy({ reason, retryAfter: Number(networkDetails?.getResponseHeader?.('retry-after')) || undefined });
      }
    } else if (type === Hls.ErrorTypes.MEDIA_ERROR && !this.recovered) {
      this.recovered = true;
      this.hls.recoverMediaError();
    } else {
      this.hooks.fail({ reason: reason ?? (type === Hls.ErrorTypes.NETWORK_ERROR ? 'Broken' : 'Undecodable'), details });
    }
  }

  // { throughput, rate } of the network and of the film, in bit/s; 0 for what is not known.
  rates() {
    const level = this.hls?.levels?.[this.hls.currentLevel];
    return { throughput: this.hls?.bandwidthEstimate ?? 0, rate: level?.bitrate ?? 0 };
  }

  learnSubtitles() {
    this.knowsSubtitles = true;
    this.hooks.subtitles();
  }

  // Shows the subtitle with this id, '' for none. Before the subtitles are known, does nothing and returns true; the
  // caller repeats the call when they are known. False if the presentation has no such subtitle.
  showSubtitle(id) {
    if (!this.knowsSubtitles) {
      return true;
    }
    const track = id === '' ? -1 : this.hls.subtitleTracks.findIndex(({ url }) => subtitleIdOf(url) === id);
    this.hls.subtitleDisplay = track >= 0;
    this.hls.subtitleTrack = track;
    return id === '' || track >= 0;
  }

  release() {
    this.hls?.destroy();
    this.hls = null;
  }
}
