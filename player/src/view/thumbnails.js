// The preview picture at the pointer. A film whose previews have been made shows them from one picture, which is loaded
// while the film plays. Until it is there, and for other films, single pictures are loaded, one at a time; the newest
// position replaces waiting ones.
import { addressOf } from '../api.js';
import { element } from '../dom.js';

const STEP = 10; // seconds; the server stores one picture for each step
const FAILURES = 2; // in a row, after which this film gets no previews

export class Thumbnails {
  constructor() {
    this.image = element('img', { alt: '', hidden: true });
    this.image.addEventListener('load', () => this.arrived(true));
    this.image.addEventListener('error', () => this.arrived(false));
    this.piece = element('div', { class: 'piece', hidden: true });
    this.forFilm(null);
  }

  // `previews`: the layout of the film's previews, null if there are none.
  forFilm(encodedPath, previews = null) {
    this.path = encodedPath;
    this.previews = previews;
    this.sheet = null;
    this.wanted = -1;
    this.shown = -1;
    this.busy = false;
    this.failures = 0;
    this.image.hidden = true;
    this.image.removeAttribute('src');
    this.piece.hidden = true;
    this.piece.removeAttribute('style');
  }

  // Loads the previews. Before the film plays, they would only delay it.
  load() {
    if (this.previews && !this.sheet) {
      this.sheet = element('img', { fetchpriority: 'low', src: addressOf('Library', 'previews', {}, this.path) });
    }
  }

  show(second) {
    if (this.sheet?.complete && this.sheet.naturalWidth > 0) {
      this.showPiece(second);
      return;
    }
    this.wanted = Math.floor(second / STEP) * STEP;
    this.next();
  }

  showPiece(second) {
    const { width, height, columns, count, seconds } = this.previews;
    const number = Math.max(0, Math.min(Math.floor(second / seconds), count - 1));
    const [left, top] = [(number % columns) * width, Math.floor(number / columns) * height];
    this.image.hidden = true;
    this.piece.hidden = false;
    Object.assign(this.piece.style, { width: `${width}px`, height: `${height}px`, backgroundImage: `url("${this.sheet.src}")`, backgroundPosition: `-${left}px -${top}px` });
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
    this.image.hidden = !isThere || !this.piece.hidden;
    this.next();
  }
}
