// The position at which the viewer stopped each film. Older servers have no history.
import { askEarly, get, post, postLastly } from './api.js';

const SAVE_SECONDS = 10;

// The newest save. What is read after it contains it.
let saving = Promise.resolve();

export const askEarlyForHistory = () => askEarly('History', 'list');

// The watched films, newest first; [] without a history.
export async function watched() {
  await saving;
  const answer = await get('History', 'list', {}, undefined, { quiet: true }).catch(() => null);
  return answer?.items ?? [];
}

// The second at which a film goes on; 0 for one that is new or finished. `entry`: of the history, if there is one.
export const placeOf = (entry) => (entry && !entry.finished ? entry.position : 0);

// The second at which to resume; 0 for a film that is new or finished.
export async function resumePoint(encodedPath) {
  await saving;
  return placeOf(await get('History', 'get', {}, encodedPath, { quiet: true }).catch(() => null));
}

// The watched and begun films by their encoded paths.
export async function marks() {
  return new Map((await watched()).map((entry) => [entry.encoded_path, entry]));
}

export const forget = (encodedPath) => post('History', 'remove', {}, encodedPath);

// Marks a film of this length as watched to its end. The server counts whole seconds.
export function markWatched(encodedPath, duration) {
  const position = Math.max(1, Math.floor(duration));
  return post('History', 'save', { position, duration: position }, encodedPath);
}

// Saves a film's position: every few seconds, on a pause, and when the page unloads.
export class HistoryKeeper {
  constructor(playback) {
    this.playback = playback;
    this.missing = false; // the server has no history
    this.saved = -1;
    playback.video.addEventListener('pause', () => this.save());
    playback.video.addEventListener('timeupdate', () => Math.abs(playback.now() - this.saved) >= SAVE_SECONDS && this.save());
    playback.addEventListener('ended', () => this.save());
  }

  // The entry to save; null before the first picture.
  entry() {
    const { playback } = this;
    const second = Math.floor(playback.now());
    if (this.missing || !playback.engine || playback.marks.frame === undefined || second === this.saved) {
      return null;
    }
    const duration = Math.floor(playback.duration());
    return { position: playback.video.ended ? duration : Math.min(second, duration), duration };
  }

  async save() {
    const entry = this.entry();
    if (entry) {
      this.saved = entry.position;
      saving = this.send(entry);
      await saving;
    }
  }

  async send(entry) {
    try {
      await post('History', 'save', entry, this.playback.film.entry.encoded_path);
    } catch (error) {
      this.missing = error.reason === 'BadRequest';
    }
  }

  saveLastly() {
    const entry = this.entry();
    if (entry) {
      postLastly('History', 'save', entry, this.playback.film.entry.encoded_path);
    }
  }

  startAnew() {
    this.saved = -1;
  }
}
