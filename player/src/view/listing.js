// The films and folders of one folder, loaded part by part as the viewer scrolls.
import { get } from '../api.js';
import { element } from '../dom.js';
import { nameOf } from '../format.js';
import { t } from '../language.js';
import { isSeasonFolder, titleOfEntry } from '../titles.js';
import { seasonText } from './names.js';
import { attempt } from './page.js';
import { filmTile, folderTile } from './tiles.js';

const FIRST = 60; // more than a screen shows
const PART = 200;

export const listFolder = (path, options, offset, signal) =>
  get('Library', 'list', { ...options, offset, limit: offset === 0 ? FIRST : PART }, path, { signal });

export const tiles = (items, label) => element('ul', { class: 'tiles', 'aria-label': label }, items);

// Adds tiles to a list, and a heading before the first episode of each season.
class Filler {
  constructor(list, sight, marks, hasSeasons) {
    Object.assign(this, { list, sight, marks, hasSeasons, season: '' });
  }

  add({ folders = [], files = [] }) {
    this.list.append(...folders.map((entry) => folderTile(entry, this.sight)), ...files.flatMap((entry) => this.film(entry)));
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

// Loads the parts after `first` when the end of the list comes near, until `signal` aborts.
function loadOnSight(list, path, options, first, filler, signal) {
  let { next } = first;
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
  if (next !== undefined) {
    sight.observe(end);
  }
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
  filler.add(first);
  return [list, loadOnSight(list, path, options, first, filler, signal)];
}
