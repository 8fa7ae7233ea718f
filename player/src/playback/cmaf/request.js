// Requests for the pieces of a presentation.
import { ApiError, errorOf } from '../../api.js';
import { isBusy, retrySeconds } from '../../words.js';
import { reasonOfStatus } from '../status_codes.js';
import { joined } from './thinner.js';

const DELAYS = [500, 1000, 2000, 4000]; // milliseconds between the attempts after a failure
// Seconds until the next question to a busy server. A film that was just left frees its place within one.
const LONGEST_WAIT = 1;

// Failures after which another attempt may succeed. All others repeat.
const PASSING = new Set(['Unreachable', 'Broken', 'NotReady', 'NotFound', 'Internal', 'Busy']);

const isAborted = (error) => error.name === 'AbortError';

// The answer to a request. Throws an ApiError for a refusal.
export async function ask(address, signal) {
  let response;
  try {
    response = await fetch(address, { signal });
  } catch (error) {
    throw isAborted(error) ? error : new ApiError({ reason: 'Unreachable' });
  }
  if (!response.ok) {
    const error = await errorOf(response);
    error.reason = error.reason === 'Unreadable' ? (reasonOfStatus(response.status) ?? error.reason) : error.reason;
    throw error;
  }
  return response;
}

const MOST_WAITING = 1 << 19; // bytes that are read while `use` works

// Calls `use` with the parts of an answer as they come. What comes while it works is one part the next time.
export async function readParts(response, use) {
  const reader = response.body.getReader();
  let waiting = [];
  let size = 0;
  let working = null;
  const work = async () => {
    while (waiting.length > 0) {
      const bytes = joined(waiting);
      [waiting, size] = [[], 0];
      await use(bytes);
    }
    working = null;
  };
  let fail;
  const failed = new Promise((_, reject) => {
    fail = reject;
  });
  failed.catch(() => {}); // whoever waits for it reports it
  for (;;) {
    let part;
    try {
      await (size > MOST_WAITING && Promise.race([working, failed]));
      part = await Promise.race([reader.read(), failed]);
    } catch (error) {
      reader.cancel().catch(() => {});
      // The browser's error for an answer that stops in the middle.
      throw error instanceof TypeError ? new ApiError({ reason: 'Broken' }) : error;
    }
    if (part.done) {
      await Promise.race([working, failed]);
      return;
    }
    waiting.push(part.value);
    size += part.value.length;
    working ??= work().catch(fail);
  }
}

// Milliseconds until the next attempt after this many failures; undefined if it is of no use.
export function delayAfter(error, failures) {
  if (isBusy(error)) {
    return Math.min(retrySeconds(error), LONGEST_WAIT) * 1000;
  }
  return PASSING.has(error.reason) ? DELAYS[failures] : undefined;
}

// Waits. Rejects at once when `signal` is aborted.
export const wait = (milliseconds, signal) =>
  new Promise((resolve, reject) => {
    signal.throwIfAborted();
    const timer = setTimeout(resolve, milliseconds);
    signal.addEventListener('abort', () => {
      clearTimeout(timer);
      reject(signal.reason);
    });
  });

// Waits until `condition` is true. Looks again after each of these events of `target`.
export const until = (condition, target, types, signal) =>
  new Promise((resolve, reject) => {
    signal.throwIfAborted();
    const listening = new AbortController();
    const end = (settle, value) => {
      listening.abort();
      settle(value);
    };
    const look = () => condition() && end(resolve);
    types.forEach((type) => target.addEventListener(type, look, { signal: listening.signal }));
    signal.addEventListener('abort', () => end(reject, signal.reason), { signal: listening.signal });
    look();
  });
