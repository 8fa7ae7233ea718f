// Calls of the web API.
//
// A path goes out as the server has encoded it ("encoded_path"): a file's name need not be text.

const ENTRY = '/webapi/entry.cgi';
const FORM = 'application/x-www-form-urlencoded';

export class ApiError extends Error {
  // `error`: what a failed answer says of itself. Reasons of the page's own: "Unreachable", "Unreadable".
  constructor({ code = 0, reason = 'Internal', message = '', retry_after: retryAfter } = {}) {
    super(message);
    this.code = code;
    this.reason = reason;
    this.retryAfter = retryAfter; // seconds; undefined where waiting does not help
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

// A text parameter that the server does not take for quoted when it happens to begin and end so.
export const asText = (text) => JSON.stringify(text);

// An address of the server's, as this page reaches it.
export function localAddress(address) {
  const url = new URL(address, window.location.href);
  return url.pathname + url.search;
}

// The error that a failed answer stands for.
export async function errorOf(response) {
  const retryAfter = Number(response.headers.get('retry-after')) || undefined;
  const answer = await response.json().catch(() => null);
  const error = answer?.error ?? { reason: response.status === 401 ? 'Unauthorized' : 'Unreadable' };
  return new ApiError({ retry_after: retryAfter, code: response.status, ...error });
}

async function send(address, options) {
  let response;
  try {
    response = await fetch(address, options);
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

// `handler` is called when a call lacks a login; the call is made again when its promise is kept.
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

// Reads. Options: `signal`; `quiet`, not to ask for a login.
export function get(api, method, parameters, path, { signal, quiet } = {}) {
  return withLogin(() => send(addressOf(api, method, parameters, path), { signal }), quiet);
}

// Changes something.
export function post(api, method, parameters, path, { signal, quiet } = {}) {
  const options = { method: 'POST', body: queryOf(api, method, parameters, path), headers: { 'Content-Type': FORM } };
  return withLogin(() => send(ENTRY, { ...options, signal }), quiet);
}

// Changes something while the page goes away; nobody is there to hear the answer.
export function postLastly(api, method, parameters, path) {
  navigator.sendBeacon(ENTRY, new Blob([queryOf(api, method, parameters, path)], { type: FORM }));
}
