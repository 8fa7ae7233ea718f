// A presentation as the server describes it when a stream is opened: the spans of the segments, and the renditions.

// The last index whose value is not above `value`, in ascending values; 0 if there is none.
function lastAtMost(values, value) {
  let [low, high] = [0, values.length];
  while (high - low > 1) {
    const middle = (low + high) >> 1;
    [low, high] = values[middle] <= value ? [middle, high] : [low, middle];
  }
  return low;
}

export class Presentation {
  constructor({ timescale, durations, renditions }) {
    let ticks = 0;
    this.cuts = [0, ...durations.map((duration) => (ticks += duration))].map((cut) => cut / timescale);
    this.pictures = renditions.filter(({ kind }) => kind === 'picture');
    this.sounds = renditions.filter(({ kind }) => kind === 'sound');
  }

  get count() {
    return this.cuts.length - 1;
  }

  // Seconds.
  get duration() {
    return this.cuts.at(-1);
  }

  start(number) {
    return this.cuts[number];
  }

  end(number) {
    return this.cuts[number + 1];
  }

  // The segment that contains a second of the film; the first or the last one for a second outside it.
  at(second) {
    return lastAtMost(this.cuts.slice(0, -1), second);
  }

  // The same track of sound, made by the server; `sound` itself if there is none.
  convertedSound(sound) {
    return this.sounds.find(({ track, treatment }) => track === sound.track && treatment === 'stereo') ?? sound;
  }

  // The same track with its loud places lowered; `sound` itself if there is none.
  nightSound(sound) {
    return this.sounds.find(({ track, treatment }) => track === sound?.track && treatment === NIGHT) ?? sound;
  }

  // The sound with which a film begins.
  usualSound() {
    return this.sounds.find((sound) => sound.default) ?? this.sounds[0];
  }
}

// The treatment of sound that is the film's own.
export const COPIED_SOUND = 'sound';

// The sound with loud places lowered. The viewer's choice and the treatment have the same name.
export const NIGHT = 'night';

// The name of such a rendition of the track at this position of the film's list.
export const nightNamed = (position) => `${NIGHT}-${position}`;

// The type of a rendition, as a SourceBuffer is told.
export const mediaType = ({ kind, codec }) => `${kind === 'picture' ? 'video' : 'audio'}/mp4; codecs="${codec}"`;

// A picture's name for viewers. `encoded`: the server makes it; otherwise it is the film's own.
export const qualityText = ({ encoded, width, height }) => (encoded ? `${Math.min(width, height)}p` : 'Original quality');

// The rendition that a quality's text stands for, as far as the name alone tells it.
export const renditionNamed = (text) => (text === 'Original quality' ? 'copy-video' : text.replace(/^(\d+)p.*$/, 'h264-$1'));
