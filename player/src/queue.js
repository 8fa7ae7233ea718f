// What plays after a film: the viewer's queue, or the next file of its folder. The queue lives as long as the tab.
import { get } from './api.js';
import { nameOf } from './format.js';
import { isMusic } from './playback/kinds.js';
import { isSeasonFolder, titleOfEntry } from './titles.js';

const NAME = 'mirevo-queue';
const PART = 1000;

// The encoded paths in the queue.
export function queued() {
  try {
    const paths = JSON.parse(sessionStorage.getItem(NAME));
    return Array.isArray(paths) ? paths.filter((path) => typeof path === 'string') : [];
  } catch {
    return [];
  }
}

export function setQueue(paths) {
  try {
    sessionStorage.setItem(NAME, JSON.stringify(paths));
  } catch {
    // A browser that stores nothing plays the films of a folder one after the other.
  }
}

// Puts a film at the end of the queue.
export const enqueue = (path) => setQueue([...queued().filter((other) => other !== path), path]);

const entryOf = (path) => ({ encoded_path: path, name: nameOf(path) });
const folderOf = (path) => path.slice(0, path.lastIndexOf('/'));

// The films of a folder, part by part, until `isEnough` holds.
async function filmsOf(folder, signal, isEnough = () => false) {
  const films = [];
  for (let offset = 0; offset !== undefined; ) {
    const part = await get('Library', 'list', { offset, limit: PART }, folder, { signal, quiet: true });
    films.push(...part.files);
    offset = isEnough(films) ? undefined : part.next;
  }
  return films;
}

export const allFilmsOf = (folder, signal) => filmsOf(folder, signal);

// The first film of the season after this one.
async function inNextSeason(folder, signal) {
  if (!isSeasonFolder(nameOf(folder))) {
    return undefined;
  }
  const { folders } = await get('Library', 'list', {}, folderOf(folder), { signal, quiet: true });
  const next = folders[folders.findIndex(({ encoded_path: path }) => path === folder) + 1];
  return next && isSeasonFolder(next.name) ? (await filmsOf(next.encoded_path, signal, (films) => films.length > 0))[0] : undefined;
}

async function besideInFolder(path, signal) {
  const folder = folderOf(path);
  const at = (films) => films.findIndex(({ encoded_path: one }) => one === path);
  const films = await filmsOf(folder, signal, (some) => at(some) >= 0 && at(some) < some.length - 1);
  const index = at(films);
  const next = index >= 0 ? (films[index + 1] ?? (await inNextSeason(folder, signal))) : undefined;
  return { previous: films[index - 1], next };
}

// Does the next film belong to the same series or album, so that it may begin by itself?
function follows(entry, next, info) {
  const [one, other] = [titleOfEntry(entry), titleOfEntry(next)];
  return isMusic(info) || (one.episode !== undefined && other.episode !== undefined && one.show === other.show);
}

// { previous, next, isAutomatic } of a film; `previous` and `next` are entries or undefined.
export async function besideOf(entry, info, signal) {
  const paths = queued();
  const index = paths.indexOf(entry.encoded_path);
  if (paths.length > 0) {
    const at = (place) => paths[place] && entryOf(paths[place]);
    return { previous: at(index - 1), next: at(index + 1), isAutomatic: true };
  }
  const beside = await besideInFolder(entry.encoded_path, signal).catch(() => ({}));
  return { ...beside, isAutomatic: Boolean(beside.next) && follows(entry, beside.next, info) };
}
