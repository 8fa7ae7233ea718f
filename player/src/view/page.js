// Shared code of the views: the message line, addresses of views, links to films.
import { find } from '../dom.js';
import { wordsOf } from '../words.js';

export function say(text) {
  find('message').textContent = text;
}

export function sayError(error) {
  if (error.name !== 'AbortError') {
    const { sentence, next } = wordsOf(error);
    say(`${sentence} ${next}`);
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

export const folderAddress = (entry) => `#/folder${entry.encoded_path}`;
export const filmAddress = (entry) => `#/film${entry.encoded_path}`;
// `second`: where to begin. An address may also contain "kind=", the playback method.
export const playAddress = (entry, second = 0) => `#/play${entry.encoded_path}?t=${Math.floor(second)}`;

// The parts of an address after "#": { view, path, parameters }. The path stays encoded.
export function parseAddress(hash) {
  const [, view = '', path = '', query = ''] = hash.match(/^#\/([a-z]*)(\/[^?]*)?(?:\?(.*))?$/) ?? [];
  return { view, path, parameters: new URLSearchParams(query) };
}
