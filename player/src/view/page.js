// What all views need: the message line, addresses of views, links to films.
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

// Runs an action of the viewer's and says what went wrong with it.
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
// `second`: where to begin. An address may also say "kind=", the way of playing.
export const playAddress = (entry, second = 0) => `#/play${entry.encoded_path}?t=${Math.floor(second)}`;

// What an address behind "#" names: { view, path, parameters }. The path stays as it is encoded.
export function parseAddress(hash) {
  const [, view = '', path = '', query = ''] = hash.match(/^#\/([a-z]*)(\/[^?]*)?(?:\?(.*))?$/) ?? [];
  return { view, path, parameters: new URLSearchParams(query) };
}
