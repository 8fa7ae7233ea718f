// Requests for the pieces of a presentation.
import { ApiError, errorOf } from '../../api.js';
import { isBusy, retrySeconds } from '../../words.js';
import { reasonOfStatus } from '../status_codes.js';

const DELAYS = [500, 1000, 2000, 4000]; // milliseconds between the attempts after a failure
const LONGEST_WAIT = 5; // seconds until the next question to a busy server

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

// Calls `use` with each part of an answer as it comes.
export async function readParts(response, use) {
  const reader = response.body.getReader();
  let used;
  for (;;) {
    let part;
    try {
      [part] = await Promise.all([reader.read(), used]);
    } catch (error) {
      reader.cancel().catch(() => {});
      // The browser's error for an answer that stops in the middle.
      throw error instanceof TypeError ? new ApiError({ reason: 'Broken' }) : error;
    }
    if (part.done) {
      return;
    }
    used = use(part.value);
    used.catch(() => {}); // the next turn reports it
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
