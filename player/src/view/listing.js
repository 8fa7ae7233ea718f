// The films and folders of one folder, loaded part by part as the viewer scrolls.
import { askEarly, get } from '../api.js';
import { element } from '../dom.js';
import { nameOf } from '../format.js';
import { t } from '../language.js';
import { isSeasonFolder, titleOfEntry } from '../titles.js';
import { seasonText } from './names.js';
import { attempt } from './page.js';
import { filmTile, folderTile } from './tiles.js';

const FIRST = 60; // more than a screen shows
const PART = 200;
const AT_ONCE = 24; // tiles; the others of a part follow after these have been drawn

const listCall = (path, options, offset) => ['Library', 'list', { ...options, offset, limit: offset === 0 ? FIRST : PART }, path];

export const listFolder = (path, options, offset, signal) => get(...listCall(path, options, offset), { signal });
export const askEarlyForFolder = (path, options) => askEarly(...listCall(path, options, 0));

export const tiles = (items, label) => element('ul', { class: 'tiles', 'aria-label': label }, items);

// Adds tiles to a list, and a heading before the first episode of each season.
class Filler {
  constructor(list, sight, marks, hasSeasons) {
    Object.assign(this, { list, sight, marks, hasSeasons, season: '' });
  }

  add({ folders = [], files = [] }) {
    this.list.append(...folders.map((entry) => folderTile(entry, this.sight)), ...files.flatMap((entry) => this.film(entry)));
  }

  // Adds what a screen shows. Returns the rest of the part.
  begin({ folders = [], files = [] }) {
    const room = Math.max(0, AT_ONCE - folders.length);
    this.add({ folders: folders.slice(0, AT_ONCE), files: files.slice(0, room) });
    return { folders: folders.slice(AT_ONCE), files: files.slice(room) };
  }

  film(entry) {
    const about = titleOfEntry(entry);
    const tile = filmTile(entry, this.sight, this.marks.get(entry.encoded_path), about.episode !== undefined);
    const season = this.hasSeasons ? seasonText(about) : '';
    if (season === this.season) {
      return [tile];
    }
    this.season = season;
    return [element('li', { class: 'heading' }, element('h2', {}, season || t('Films'))), tile];
  }
}

// Resolves when the browser has drawn what the page has shown by now.
const drawn = () => new Promise((resolve) => requestAnimationFrame(() => setTimeout(resolve)));

// Adds the `rest` of the first part, and loads the parts from `next` on when the end of the list comes near, until `signal`
// aborts.
function loadOnSight(path, options, { rest, next }, filler, signal) {
  const end = element('p', { class: 'more', role: 'status' }, t('Loading more …'));
  // A busy browser tells several changes at a time.
  const sight = new IntersectionObserver(async (changes) => {
    if (changes.at(-1).isIntersecting) {
      sight.unobserve(end);
      const part = await attempt(() => listFolder(path, options, next, signal));
      if (part && !signal.aborted) {
        filler.add(part);
        ({ next } = part);
        if (next === undefined) {
          end.remove();
        } else {
          sight.observe(end);
        }
      }
    }
  }, { rootMargin: '1500px' });
  signal.addEventListener('abort', () => sight.disconnect());
  drawn().then(() => {
    filler.add(signal.aborted ? {} : rest);
    if (next !== undefined && !signal.aborted) {
      sight.observe(end);
    }
  });
  return next === undefined ? null : end;
}

// The nodes that show a folder. `first`: its first part; `otherwise`: what stands in place of an empty one.
export function listing(path, options, first, { sight, marks, signal, otherwise }) {
  if (!first.folders?.length && !first.files?.length && first.next === undefined) {
    return [element('p', { class: 'empty' }, ...otherwise)];
  }
  const list = tiles([], t('Films and folders'));
  const isByName = !options.sort || options.sort === 'name';
  const filler = new Filler(list, sight, marks, isByName && !isSeasonFolder(nameOf(path ?? '')));
  const rest = filler.begin(first);
  return [list, loadOnSight(path, options, { rest, next: first.next }, filler, signal)];
}
