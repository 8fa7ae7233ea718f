// A WebVTT track for a stream without subtitles of its own.
import { addressOf } from '../api.js';
import { element } from '../dom.js';

export class SubtitleTrack {
  constructor(video, streamId, subtitleId) {
    const parameters = { id: streamId, subtitle_id: JSON.stringify(subtitleId), output_webvtt: true };
    this.track = element('track', { kind: 'subtitles', label: subtitleId, src: addressOf('Subtitle', 'get', parameters) });
    video.append(this.track);
    this.track.track.mode = 'showing';
  }

  remove() {
    this.track.track.mode = 'disabled';
    this.track.remove();
  }
}
