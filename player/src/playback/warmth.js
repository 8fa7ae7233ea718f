// The stream of the film whose page is shown. It is opened before its viewer asks for it, so that the server has made the
// first pieces by then.
import { post, postLastly } from '../api.js';

const KEPT_MILLISECONDS = 600000; // afterwards the server may have forgotten the stream

// The place where a film begins is no part of what the stream is.
const sameStream = ({ start: _one, ...wanted }, { start: _other, ...found }) => JSON.stringify(wanted) === JSON.stringify(found);

const idOf = ({ format, stream_id: id }) => ({ format, stream_id: id });

export class Warmth {
  constructor() {
    this.held = null; // { path, parameters, stream, until }; `stream`: a promise
    this.turn = 0; // increases when a stream that is about to be opened is not wanted any more
  }

  // Opens a stream in place of the one before. A server without room for it refuses, and nothing is lost.
  async warm(path, parameters) {
    const closed = this.drop();
    const { turn } = this;
    await closed;
    if (turn === this.turn) {
      await this.open(path, parameters);
    }
  }

  async open(path, parameters) {
    const stream = post('Streaming', 'open', { ...parameters, warm: 'true' }, path, { quiet: true });
    const held = { path, parameters, stream, until: performance.now() + KEPT_MILLISECONDS };
    this.held = held;
    try {
      held.opened = await stream;
    } catch {
      this.held = this.held === held ? null : this.held;
    }
  }

  // The stream of this film if it is open; undefined if there is none.
  opened(path) {
    return this.held?.path === path ? this.held.opened : undefined;
  }

  // The stream if it is what `parameters` ask for, as a promise; null if there is none. It belongs to the caller then.
  take(path, parameters) {
    ++this.turn;
    const { held } = this;
    if (held?.path !== path || !sameStream(parameters, held.parameters) || performance.now() > held.until) {
      return null;
    }
    this.held = null;
    return held.stream;
  }

  // Closes the stream.
  async drop() {
    ++this.turn;
    const { held } = this;
    this.held = null;
    const stream = await held?.stream.catch(() => null);
    if (stream) {
      await post('Streaming', 'close', idOf(stream), undefined, { quiet: true }).catch(() => {});
    }
  }

  // Closes the stream while the page unloads.
  dropLastly() {
    if (this.held?.opened) {
      postLastly('Streaming', 'close', idOf(this.held.opened));
    }
    this.held = null;
  }
}

// The page's one warmed stream.
export const warmth = new Warmth();
