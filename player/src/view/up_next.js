// What plays next: the buttons for the film before and after this one, and the countdown at the end of a film.
import { element, signButton } from '../dom.js';
import { t } from '../language.js';
import { isMusic } from '../playback/kinds.js';
import { besideOf } from '../queue.js';
import { lineFor } from './names.js';
import { playAddress } from './page.js';

const COUNTDOWN_SECONDS = 10;

export class UpNext {
  constructor(player) {
    this.player = player;
    this.beside = {};
    this.isGoing = false;
    this.previousButton = signButton('previous', t('Previous film'), () => this.go(this.beside.previous), { class: 'sign minor', hidden: true });
    this.nextButton = signButton('next', t('Next film'), () => this.go(this.beside.next), { class: 'sign', hidden: true });
    this.text = element('p', { class: 'what' });
    this.clock = element('p', { class: 'when', role: 'timer' });
    this.playButton = element('button', { type: 'button', class: 'main', on: { click: () => this.go(this.beside.next) } }, t('Play now'));
    const stop = element('button', { type: 'button', on: { click: () => this.cancel() } }, t('Stop'));
    this.panel = element('div', { class: 'up-next', role: 'group', 'aria-label': t('Next film'), hidden: true }, this.text, this.clock, element('p', { class: 'actions' }, this.playButton, stop));
    player.playback.addEventListener('ended', () => this.offer());
    player.video.addEventListener('seeking', () => this.cancel());
    player.video.addEventListener('play', () => this.cancel());
  }

  // Learns what stands beside the film. The film does not wait for this.
  async prepare(entry, info, signal) {
    this.cancel();
    this.beside = {};
    this.isMusic = isMusic(info);
    this.show();
    const beside = await besideOf(entry, info, signal);
    if (!signal.aborted) {
      this.beside = beside;
      this.show();
    }
  }

  show() {
    const { previous, next } = this.beside;
    this.previousButton.hidden = !previous;
    this.nextButton.hidden = !next;
    this.nextButton.title = next ? t('Next: {name}', { name: lineFor(next) }) : '';
  }

  // At the end of a film: offers the next one, and begins it after a moment if it belongs to this one.
  offer() {
    const { next, isAutomatic } = this.beside;
    if (!next || this.player.isRepeating()) {
      return;
    }
    this.text.textContent = t('Next: {name}', { name: lineFor(next) });
    this.panel.hidden = false;
    this.playButton.focus();
    this.clock.textContent = '';
    if (isAutomatic && this.isMusic) {
      this.go(next);
    } else if (isAutomatic) {
      this.count(COUNTDOWN_SECONDS);
    }
  }

  count(seconds) {
    this.clock.textContent = t('It begins in {count} s.', { count: seconds });
    this.timer = setTimeout(() => (seconds > 1 ? this.count(seconds - 1) : this.go(this.beside.next)), 1000);
  }

  cancel() {
    clearTimeout(this.timer);
    this.panel.hidden = true;
  }

  // Plays another film in the same player, which stays in full screen.
  go(entry) {
    if (entry) {
      this.cancel();
      this.isGoing = true;
      window.location.replace(playAddress(entry));
    }
  }

  // Is the player on its way to another film? Tells it once.
  takeGoing() {
    const { isGoing } = this;
    this.isGoing = false;
    return isGoing;
  }

  next() {
    this.go(this.beside.next);
  }

  previous() {
    this.go(this.beside.previous);
  }
}
