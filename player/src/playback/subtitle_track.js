// One subtitle over the picture: a WebVTT track of the whole film. The video element gets the event "unread" if the
// track cannot be loaded.
import { addressOf } from '../api.js';
import { element } from '../dom.js';

const UPPER_LINE = -4; // counted from below: leaves room for two lines of the first subtitle

export class SubtitleTrack {
  // `seconds`: by how much the cues come later than they say. `isAbove`: above the place of the first subtitle.
  constructor(video, streamId, subtitleId, seconds, isAbove = false) {
    const parameters = { id: streamId, subtitle_id: JSON.stringify(subtitleId), output_webvtt: true };
    this.id = subtitleId;
    this.wanted = seconds;
    this.moved = 0; // by how much the loaded cues have been moved
    this.isAbove = isAbove;
    this.track = element('track', { kind: 'subtitles', label: subtitleId, src: addressOf('Subtitle', 'get', parameters), on: { load: () => this.arrange(), error: () => video.dispatchEvent(new Event('unread')) } });
    video.append(this.track);
    this.track.track.mode = 'showing';
  }

  cues() {
    return [...(this.track.track.cues ?? [])];
  }

  arrange() {
    if (this.isAbove) {
      this.cues()
        .filter(({ line }) => line === 'auto')
        .forEach((cue) => {
          cue.line = UPPER_LINE;
        });
    }
    this.move(this.wanted);
  }

  // Before the cues are there, only notes it.
  move(seconds) {
    this.wanted = seconds;
    const cues = this.cues();
    const step = seconds - this.moved;
    if (cues.length === 0 || step === 0) {
      return;
    }
    this.moved = seconds;
    cues.forEach((cue) => {
      cue.startTime += step;
      cue.endTime += step;
    });
  }

  remove() {
    this.track.track.mode = 'disabled';
    this.track.remove();
  }
}
