// Shared code of the views: the message line, addresses of views, links to films.
import { find } from '../dom.js';
import { errorText } from '../words.js';

export function say(text) {
  find('message').textContent = text;
}

export function sayError(error) {
  if (error.name !== 'AbortError') {
    say(errorText(error));
  }
}

// Runs an action and shows its error, if there is one.
export async function attempt(action) {
  try {
    return await action();
  } catch (error) {
    sayError(error);
    return undefined;
  }
}

const FRESH_MILLISECONDS = 2000;

// Calls `refresh` now, and from then on again and again while the page is visible, until `signal` aborts.
export async function keepFresh(refresh, signal) {
  await refresh();
  const timer = setInterval(() => !document.hidden && refresh().catch(sayError), FRESH_MILLISECONDS);
  signal.addEventListener('abort', () => clearInterval(timer));
}

// Replaces the content. If the keyboard focus was in it, moves the focus to the new button of the same name.
export function replaceContent(place, nodes) {
  const name = place.contains(document.activeElement) ? document.activeElement.getAttribute('aria-label') : null;
  place.replaceChildren(...nodes.filter(Boolean));
  if (name) {
    [...place.querySelectorAll('[aria-label]')].find((node) => node.getAttribute('aria-label') === name)?.focus();
  }
}

export const folderAddress = (entry) => `#/folder${entry.encoded_path}`;
export const filmAddress = (entry) => `#/film${entry.encoded_path}`;
// `second`: where to begin; `kind`: the playback method, '' for the default.
export const playAddress = (entry, second = 0, kind = '') => `#/play${entry.encoded_path}?t=${Math.floor(second)}${kind && `&kind=${kind}`}`;

// The parts of an address after "#": { view, path, parameters }. The path stays encoded.
export function parseAddress(hash) {
  const [, view = '', path = '', query = ''] = hash.match(/^#\/([a-z]*)(\/[^?]*)?(?:\?(.*))?$/) ?? [];
  return { view, path, parameters: new URLSearchParams(query) };
}

// The address of the film that plays, with the second that it has reached. '' if `hash` names something else: the
// browser changes the address before the page learns that the viewer has gone back.
export function addressAt(hash, entry, second, kind) {
  const { view, path } = parseAddress(hash);
  return view === 'play' && path === entry.encoded_path ? playAddress(entry, second, kind) : '';
}
