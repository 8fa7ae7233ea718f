// One track of the film, pictures or sound: loads its segments in order and appends them as they come.
import { isBusy } from '../../words.js';
import { COPIED_SOUND, mediaType } from './presentation.js';
import { ask, delayAfter, readParts, until, wait } from './request.js';
import { codingOf, Thinner } from './thinner.js';
import { PairMeter, waitOf } from './throughput.js';

const AHEAD = 30; // seconds that are loaded before they are shown
const AHEAD_OF_SEEK = 1; // the same until the wanted picture is shown: more would only take the machine's time from it
const BEHIND = 60; // seconds that are kept after they were shown
const NARROW_BEHIND = 2; // the same where the browser has no more room
const SLACK = 0.05; // where a buffered part ends, compared with the plan
const MISSING = 0.3; // by which a segment may end early
const LONG_LEAD = 0.3; // seconds of pictures before the place of a seek that are worth thinning

// The reason for leaving a copied sound that ends before the film.
export const SILENT = 'Silent';

export class Track {
  // `parts`: { presentation, source, throughput, video, now, hooks }. `now`: the second of the film that is shown or
  // wanted. `choose`: gives, or promises, the rendition for a segment; it gets the rendition in use, undefined at first.
  // `headers`: those that are known, by the names of the renditions.
  constructor(parts, choose, headers = {}) {
    Object.assign(this, parts);
    this.choose = choose;
    this.headers = { ...headers };
    this.rendition = undefined; // the one whose header was appended last
    this.shown = []; // the rendition of each loaded segment
    this.thinned = new Map(); // segments without all of their pictures, and the seconds from which on they have all
    this.loading = new AbortController();
    this.isDone = false;
  }

  // Loads from the segment at this second on. Does nothing if it is being loaded or buffered.
  seek(second) {
    this.loadMissing(second);
    const { loading } = this;
    const lookAgain = () => loading === this.loading && !this.isStopped() && this.loadMissing(second);
    this.source.removal?.then(lookAgain, () => {}); // the removal may take what is buffered at this second
  }

  loadMissing(second) {
    const number = this.firstMissing(second);
    if (this.number !== number || this.isStopped() || this.isThinnedAt(second)) {
      this.load(number, second);
    }
  }

  isThinnedAt(second) {
    return second < (this.thinned.get(this.presentation.at(second)) ?? 0);
  }

  // Loads what is ahead again, from this segment on, because the choice has changed.
  renew(number) {
    this.load(Math.min(number, this.presentation.count - 1));
  }

  isStopped() {
    return this.loading.signal.aborted;
  }

  // The first segment from this second on that is not buffered; the number of segments if there is none.
  firstMissing(second) {
    const { presentation, source } = this;
    if (this.isThinnedAt(second)) {
      return presentation.at(second);
    }
    const end = source.endAround(second) ?? second;
    return end >= presentation.duration - MISSING && end > second ? presentation.count : presentation.at(end + SLACK);
  }

  // `second`: the place of a seek to which the first segment leads.
  async load(from, second = 0) {
    this.stop();
    this.place = second;
    const loading = new AbortController();
    this.loading = loading;
    this.isDone = false;
    try {
      await this.loadFrom(from, loading.signal);
    } catch (error) {
      if (!loading.signal.aborted) {
        loading.abort();
        this.hooks.fail(error);
      }
    }
  }

  async loadFrom(from, signal) {
    const { presentation, source, video } = this;
    for (this.number = from; this.number < presentation.count; this.number = this.numberAfter(this.number)) {
      const { number } = this;
      await until(() => this.isNear(number), video, ['timeupdate', 'seeking', 'seeked', 'loadeddata', 'ended'], signal);
      await this.loadSegment(number, signal);
      await source.removeUpTo(() => this.now() - BEHIND);
      signal.throwIfAborted();
    }
    this.isDone = true;
    this.hooks.done();
  }

  isNear(number) {
    const { seeking, readyState } = this.video;
    const isShown = !seeking && readyState >= HTMLMediaElement.HAVE_CURRENT_DATA;
    return this.presentation.start(number) < this.now() + (isShown ? AHEAD : AHEAD_OF_SEEK);
  }

  // The next segment; segments that have been shown by now are left out.
  numberAfter(number) {
    return Math.max(number + 1, this.presentation.at(this.now()));
  }

  // Loads a segment, and tries again after a failure that may pass.
  async loadSegment(number, signal) {
    for (let failures = 0; ; ++failures) {
      const rendition = await this.choose(number, this.rendition);
      signal.throwIfAborted();
      try {
        await this.fetchSegment(rendition, number, signal);
        this.shown[number] = rendition;
        this.hooks.loaded();
        return;
      } catch (error) {
        signal.throwIfAborted();
        await this.source.forgetRest();
        const delay = this.hooks.refused(rendition, error) ? 0 : delayAfter(error, failures);
        if (delay === undefined) {
          throw error;
        }
        failures = isBusy(error) ? -1 : failures;
        await wait(delay, signal);
      }
    }
  }

  async fetchSegment(rendition, number, signal) {
    const begun = performance.now();
    const answered = ask(rendition.segments + number, signal);
    answered.catch(() => {}); // the header may fail first
    await this.useHeader(rendition, signal);
    const answer = await answered;
    const isWhole = answer.headers.has('content-length');
    const meter = new PairMeter((bytes, milliseconds) => this.throughput.add(bytes, milliseconds));
    let size = 0;
    const held = [];
    const isShown = this.source.endAround(this.presentation.start(number) + MISSING) !== undefined;
    this.thinned.delete(number);
    const thinner = isShown ? null : this.thinnerFor(rendition, number);
    await readParts(answer, async (bytes) => {
      size += bytes.length;
      if (!isWhole) {
        meter.add(bytes, performance.now());
      }
      // What replaces something else comes at once, so that nothing is missing in between.
      await (isShown ? held.push(bytes) : this.append(thinner?.add(bytes) ?? bytes, signal));
    });
    if (thinner) {
      held.push(thinner.finish());
    }
    for (const bytes of held) {
      await this.append(bytes, signal);
    }
    if (isWhole) {
      this.throughput.add(size, performance.now() - begun - waitOf(answer.headers));
    }
    this.checkEnd(rendition, number, isWhole);
  }

  // Leaves out pictures of the segment to which a seek leads; null if all are to be kept.
  thinnerFor({ kind, name }, number) {
    const { place, presentation } = this;
    const start = presentation.start(number);
    const coding = kind === 'picture' ? codingOf(this.headers[name]) : undefined;
    if (!coding || place < start + LONG_LEAD || place >= presentation.end(number)) {
      return null;
    }
    this.thinned.set(number, place);
    return new Thinner(coding, start, place);
  }

  // A segment whose run has gone elsewhere ends in the middle. Copied sound may end before the film.
  checkEnd({ kind, treatment }, number, isWhole) {
    const { presentation, source } = this;
    const end = source.endAround(presentation.start(number) + MISSING) ?? 0;
    if (end >= presentation.end(number) - MISSING) {
      return;
    }
    if (kind === 'picture' && !isWhole) {
      throw { reason: 'Broken' };
    }
    if (treatment === COPIED_SOUND && isWhole) {
      throw { reason: SILENT };
    }
  }

  async useHeader(rendition, signal) {
    if (rendition === this.rendition) {
      return;
    }
    const header = (this.headers[rendition.name] ??= await this.fetchHeader(rendition, signal));
    if (this.rendition && this.rendition.codec !== rendition.codec) {
      await this.source.changeType(mediaType(rendition));
    }
    signal.throwIfAborted();
    this.rendition = undefined; // unless it is appended
    await this.append(header, signal);
    this.rendition = rendition;
  }

  async fetchHeader({ header }, signal) {
    const answer = await ask(header, signal);
    return new Uint8Array(await answer.arrayBuffer());
  }

  // Appends bytes. Makes room if the browser has none: removes what was shown, or waits until more was shown.
  async append(bytes, signal) {
    while (bytes.length > 0) {
      signal.throwIfAborted();
      try {
        await this.source.append(bytes);
        return;
      } catch (error) {
        if (error.name !== 'QuotaExceededError') {
          throw error.name === 'EncodingError' ? { reason: 'Undecodable' } : error;
        }
      }
      await this.makeRoom(signal);
    }
  }

  async makeRoom(signal) {
    const { source, video } = this;
    const start = () => source.ranges()[0]?.[0] ?? 0;
    await until(() => start() < this.now() - 2 * NARROW_BEHIND, video, ['timeupdate', 'seeking'], signal);
    await source.removeUpTo(() => this.now() - NARROW_BEHIND);
  }

  stop() {
    if (!this.loading.signal.aborted) {
      this.loading.abort();
      this.source.forgetRest();
    }
  }
}
