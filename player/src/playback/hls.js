// HTTP Live Streaming by hls.js, which the page loads when it first needs it.
import workerPath from 'hls.js/dist/hls.worker.js?url';

import { localAddress } from '../api.js';
import { MediaPlayback } from './media_playback.js';
import { reasonOfStatus } from './status_codes.js';

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

// Seconds from the film's clock to the segments' clock: the multiplexer delays all time stamps by that.
const SEGMENT_CLOCK_OFFSET = 1.4;

// Errors that repeat, however often the player asks.
const FINAL = new Set(['Unauthorized', 'Forbidden', 'TransSapceNotEnough']);

export class Segments extends MediaPlayback {
  constructor(video, hooks) {
    super(video, hooks);
    this.recovered = false;
    this.shift = 0;
  }

  async open(stream, second) {
    this.wanted = second;
    const { default: Hls } = await import('hls.js');
    if (this.listening.signal.aborted) {
      return;
    }
    const hls = new Hls({ ...settings, startPosition: second, cmcd: { sessionId: stream.stream_id, contentId: stream.stream_id, useHeaders: true } });
    this.hls = hls;
    hls.on(Hls.Events.MANIFEST_PARSED, () => this.hooks.mark('manifest'));
    hls.on(Hls.Events.INIT_PTS_FOUND, (_, found) => this.learnClock(found));
    hls.on(Hls.Events.FRAG_BUFFERED, () => {
      this.hooks.mark('media');
      this.hooks.busy(null);
    });
    hls.on(Hls.Events.ERROR, (_, data) => this.judge(Hls, data));
    this.video.addEventListener('ended', () => this.hooks.ended(), { signal: this.listening.signal });
    hls.loadSource(localAddress(stream.url));
    hls.attachMedia(this.video);
    this.video.playbackRate = this.hooks.wish.speed;
    this.hooks.play();
  }

  judge(Hls, { type, details, fatal, response, networkDetails }) {
    const reason = reasonOfStatus(response?.code);
    if (FINAL.has(reason)) {
      this.hooks.fail({ reason });
    } else if (!fatal) {
      // A segment that was removed while it was sent exists again for the next request; a closed stream does not.
      if (reason === 'NotFound') {
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

  // hls.js lets the first segment begin where the playlist says, although it may begin at a key frame beside that.
  learnClock({ id, initPTS: start, timescale }) {
    if (id === 'main') {
      this.shift = SEGMENT_CLOCK_OFFSET - start / timescale;
      this.hooks.clock();
    }
  }

  // Seconds from the film's clock to that of the video element.
  clockShift() {
    return this.shift;
  }

  release() {
    this.hls?.destroy();
    this.hls = null;
  }
}
