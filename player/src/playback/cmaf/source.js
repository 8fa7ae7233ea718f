// A SourceBuffer with its operations in order. Each one returns a promise.

export class Source {
  // `ready`: a promise of the SourceBuffer.
  constructor(ready) {
    this.last = ready.then((buffer) => {
      this.buffer = buffer;
    });
    this.last.catch(() => {}); // the first operation reports it
  }

  // Runs `action` after the operations before, and waits for its end.
  then(action) {
    const done = this.last.then(() => this.finish(action));
    this.last = done.catch(() => {});
    return done;
  }

  finish(action) {
    const { buffer } = this;
    if (!buffer) {
      return Promise.reject(new DOMException('The media source has closed.', 'InvalidStateError'));
    }
    return new Promise((resolve, reject) => {
      const listening = new AbortController();
      const on = (type, handler) => buffer.addEventListener(type, handler, { signal: listening.signal });
      const end = (settle, value) => {
        listening.abort();
        settle(value);
      };
      on('error', () => end(reject, new DOMException('The browser cannot decode this.', 'EncodingError')));
      on('updateend', () => end(resolve));
      try {
        action(buffer);
        if (!buffer.updating) {
          end(resolve);
        }
      } catch (error) {
        end(reject, error);
      }
    });
  }

  append(bytes) {
    return this.then((buffer) => buffer.appendBuffer(bytes));
  }

  // Removes what lies before the second that `upTo` gives when it is the removal's turn. What is being removed still
  // looks buffered; `removal` is the promise of its end meanwhile.
  removeUpTo(upTo) {
    const removal = this.then((buffer) => {
      const second = upTo();
      return second > 0 && buffer.buffered.length > 0 && buffer.buffered.start(0) < second && buffer.remove(0, second);
    });
    const forget = () => {
      this.removal = this.removal === removal ? undefined : this.removal;
    };
    this.removal = removal;
    removal.then(forget, forget);
    return removal;
  }

  // Forgets a segment that did not come to its end.
  forgetRest() {
    return this.then((buffer) => buffer.abort()).catch(() => {}); // a source that has ended has nothing to forget
  }

  changeType(type) {
    return this.then((buffer) => buffer.changeType(type));
  }

  // The end of the buffered part around this second; undefined if nothing is buffered there.
  endAround(second) {
    const ranges = this.ranges();
    const found = ranges.find(([start, end]) => start <= second + SLACK && end > second);
    return found?.[1];
  }

  ranges() {
    try {
      const { buffered } = this.buffer;
      return Array.from({ length: buffered.length }, (_, part) => [buffered.start(part), buffered.end(part)]);
    } catch {
      return []; // there is no buffer yet, or the source has closed
    }
  }
}

const SLACK = 0.1; // a frame of sound may begin later than its segment
