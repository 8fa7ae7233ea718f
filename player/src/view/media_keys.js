// The device's media keys and its lock screen: what plays, and what the keys do.
import { addressOf } from '../api.js';
import { isMusic } from '../playback/kinds.js';
import { titleOfEntry } from '../titles.js';
import { lineFor } from './names.js';

const ARTWORK_WIDTH = 320;

// Music is known by its tags, a film by its name.
function wordsFor(entry, info) {
  const { title, artist = '', album = '' } = isMusic(info) ? (info.metadata.tags ?? {}) : {};
  return { title: title || (entry.title ?? lineFor(entry)), artist: artist || (titleOfEntry(entry).show ?? ''), album };
}

export class MediaKeys {
  constructor(player, upNext, session = navigator.mediaSession) {
    Object.assign(this, { player, upNext, session });
    if (!session) {
      return;
    }
    this.on('play', () => player.playback.start());
    this.on('pause', () => player.video.pause());
    this.on('seekbackward', ({ seekOffset }) => player.skip(-(seekOffset ?? 10)));
    this.on('seekforward', ({ seekOffset }) => player.skip(seekOffset ?? 10));
    this.on('seekto', ({ seekTime }) => player.seek(seekTime));
    this.on('nexttrack', () => upNext.next());
    this.on('previoustrack', () => upNext.previous());
    player.video.addEventListener('timeupdate', () => this.tellPosition());
  }

  // Browsers know different actions.
  on(action, handler) {
    try {
      this.session.setActionHandler(action, handler);
    } catch {
      // The browser does not know this key.
    }
  }

  announce(entry, info) {
    if (this.session) {
      const src = addressOf('Library', 'poster', { width: ARTWORK_WIDTH }, entry.encoded_path);
      this.session.metadata = new MediaMetadata({ ...wordsFor(entry, info), artwork: [{ src, type: 'image/jpeg' }] });
    }
  }

  tellPosition() {
    const { playback, video } = this.player;
    const [duration, position] = [playback.duration(), playback.now()];
    if (duration > 0 && position <= duration && position >= 0) {
      this.session.setPositionState?.({ duration, position, playbackRate: video.playbackRate || 1 });
    }
  }
}
