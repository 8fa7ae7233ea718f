// Pieces of music that follow each other without a gap: opens and loads the next one before the one that plays ends.
import { filmInfo } from '../playback/client.js';
import { isMusic, kindsFor, plan } from '../playback/kinds.js';
import { openParameters } from '../playback/opening.js';
import { Relay } from '../playback/relay.js';
import { warmth } from '../playback/warmth.js';
import { choiceOf } from './preferences.js';

const AHEAD_SECONDS = 20;

export class Album {
  constructor(player) {
    this.player = player;
    this.path = ''; // of the piece that is loaded
    this.relay = new Relay(player.video, () => this.isNext(this.path) && !player.isRepeating());
    player.playback.relay = this.relay;
    player.video.addEventListener('timeupdate', () => this.look());
  }

  isNext(path) {
    const { beside, isMusic: playsMusic } = this.player.upNext;
    return playsMusic && Boolean(beside.isAutomatic) && beside.next?.encoded_path === path;
  }

  // Only original files: the server converts one film at a time.
  look() {
    const { playback, upNext } = this.player;
    const path = upNext.beside.next?.encoded_path;
    const left = playback.duration() - playback.now();
    if (path && path !== this.path && this.isNext(path) && playback.kind === 'direct' && playback.stream && left < AHEAD_SECONDS) {
      this.path = path;
      this.prepare(path).catch(() => {}); // the piece is then opened like any other
    }
  }

  async prepare(path) {
    const { can } = this.player.playback;
    const info = await filmInfo(path, { quiet: true });
    const choice = choiceOf(info, kindsFor(info, can));
    // Subtitles are bound to the page's own element.
    if (this.path !== path || !isMusic(info) || info.subtitles.length > 0 || plan(info, can, choice)[0] !== 'direct') {
      return;
    }
    await warmth.warm(path, openParameters(info, choice, 'direct', 0));
    const stream = warmth.opened(path);
    if (stream && this.path === path) {
      this.relay.prepare(stream);
    }
  }

  // The viewer has come to this piece.
  enter(path) {
    if (path !== this.path) {
      this.drop();
    }
    this.path = '';
  }

  drop() {
    this.path = '';
    this.relay.drop();
  }
}
