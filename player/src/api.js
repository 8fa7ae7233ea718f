// Calls of the web API.
//
// The page sends a path as the server has encoded it ("encoded_path"), because a file's name need not be valid text.

// Relative to the page, which may lie below a path of a reverse proxy.
const ENTRY = 'webapi/entry.cgi';
const FORM = 'application/x-www-form-urlencoded';

export class ApiError extends Error {
  // `error`: the error object of a failed answer. The page itself sets the reasons "Unreachable" and "Unreadable".
  constructor({ code = 0, reason = 'Internal', message = '', retry_after: retryAfter } = {}) {
    super(message);
    this.code = code;
    this.reason = reason;
    this.retryAfter = retryAfter; // seconds; undefined if waiting does not help
  }
}

export function queryOf(api, method, parameters = {}, path = undefined) {
  const query = new URLSearchParams({ api: `ORVO.Mirevo2.${api}`, version: 1, method });
  for (const [name, value] of Object.entries(parameters)) {
    if (value !== undefined && value !== '') {
      query.set(name, value);
    }
  }
  return path === undefined ? `${query}` : `${query}&path=${path}`;
}

export const addressOf = (...call) => `${ENTRY}?${queryOf(...call)}`;

// Encodes a text parameter as JSON: the server would take a plain text in quotes for JSON.
export const asText = (text) => JSON.stringify(text);

// The path and query of one of the server's addresses, for requests from this page.
export function localAddress(address) {
  const url = new URL(address, window.location.href);
  return url.pathname + url.search;
}

// The error in a failed answer.
export async function errorOf(response) {
  const retryAfter = Number(response.headers.get('retry-after')) || undefined;
  const answer = await response.json().catch(() => null);
  const error = answer?.error ?? { reason: response.status === 401 ? 'Unauthorized' : 'Unreadable' };
  return new ApiError({ retry_after: retryAfter, code: response.status, ...error });
}

// Requests that the page has sent before the view that reads their answers runs, by their addresses.
const early = new Map();

// Sends a request that a view is about to make, so that it does not wait for what the page does first.
export function askEarly(api, method, parameters, path) {
  const address = addressOf(api, method, parameters, path);
  early.set(address, fetch(address).catch(() => null));
}

// Forgets the answers that nobody has read: they would be old for a view that comes later.
export const dropEarly = () => early.clear();

// The answer of an early request, once; null if it failed, because a login or a second try may help.
async function takeEarly(address, signal) {
  const answer = early.get(address);
  early.delete(address);
  const response = await answer;
  signal?.throwIfAborted();
  return response?.ok ? response : null;
}

async function send(address, options) {
  let response;
  try {
    response = (early.has(address) && (await takeEarly(address, options.signal))) || (await fetch(address, options));
  } catch (error) {
    if (error.name === 'AbortError') {
      throw error;
    }
    throw new ApiError({ reason: 'Unreachable' });
  }
  if (!response.ok) {
    throw await errorOf(response);
  }
  const answer = await response.json().catch(() => null);
  if (!answer?.success) {
    throw new ApiError(answer?.error ?? { reason: 'Unreadable' });
  }
  return answer.data;
}

let logIn = null;

// Sets the handler for calls that need a login. When its promise resolves, the call is repeated.
export function whenUnauthorized(handler) {
  logIn = handler;
}

async function withLogin(request, quiet) {
  try {
    return await request();
  } catch (error) {
    if (error.reason !== 'Unauthorized' || quiet || !logIn) {
      throw error;
    }
    await logIn();
    return request();
  }
}

// Makes a call that reads. Options: `signal`; `quiet`: do not ask for a login.
export function get(api, method, parameters, path, { signal, quiet } = {}) {
  return withLogin(() => send(addressOf(api, method, parameters, path), { signal }), quiet);
}

// Makes a call that changes something.
export function post(api, method, parameters, path, { signal, quiet } = {}) {
  const options = { method: 'POST', body: queryOf(api, method, parameters, path), headers: { 'Content-Type': FORM } };
  return withLogin(() => send(ENTRY, { ...options, signal }), quiet);
}

// Makes a call that changes something while the page unloads. The answer is lost.
export function postLastly(api, method, parameters, path) {
  navigator.sendBeacon(ENTRY, new Blob([queryOf(api, method, parameters, path)], { type: FORM }));
}
