// The preview picture at the pointer. Loads one picture at a time; the newest position replaces waiting ones.
import { addressOf } from '../api.js';
import { element } from '../dom.js';

const STEP = 10; // seconds; the server stores one picture for each step
const FAILURES = 2; // in a row, after which this film gets no previews

export class Thumbnails {
  constructor() {
    this.image = element('img', { alt: '', hidden: true });
    this.image.addEventListener('load', () => this.arrived(true));
    this.image.addEventListener('error', () => this.arrived(false));
    this.forFilm(null);
  }

  forFilm(encodedPath) {
    this.path = encodedPath;
    this.wanted = -1;
    this.shown = -1;
    this.busy = false;
    this.failures = 0;
    this.image.hidden = true;
    this.image.removeAttribute('src');
  }

  show(second) {
    this.wanted = Math.floor(second / STEP) * STEP;
    this.next();
  }

  next() {
    if (this.busy || this.path === null || this.wanted === this.shown || this.failures >= FAILURES) {
      return;
    }
    this.busy = true;
    this.shown = this.wanted;
    this.image.src = addressOf('Library', 'thumbnail', { time: this.wanted }, this.path);
  }

  arrived(isThere) {
    this.busy = false;
    this.failures = isThere ? 0 : this.failures + 1;
    this.image.hidden = !isThere;
    this.next();
  }
}
