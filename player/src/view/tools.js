// The row of tools over a folder: order, and which films are shown. The address keeps the choice; the browser
// remembers the order.
import { element } from '../dom.js';
import { nameOf } from '../format.js';
import { marks } from '../history.js';
import { t } from '../language.js';
import { allFilmsOf, setQueue } from '../queue.js';
import { attempt, playAddress } from './page.js';
import { preferences, remember } from './preferences.js';
import { openSavePlaylist } from './save_playlist.js';

const SORTS = { name: 'Name', added: 'Recently added', length: 'Length' };
const SHOWN = { '': 'All films', unwatched: 'Not watched', films: 'Films', music: 'Music' };

// { sort, show } for the request; what the server does not know counts as the usual.
export function optionsOf(parameters) {
  const sort = parameters.get('sort') ?? preferences().sort;
  const show = parameters.get('show') ?? '';
  return { sort: sort in SORTS ? sort : 'name', show: show in SHOWN ? show : '' };
}

function choose(options) {
  const [place] = window.location.hash.split('?');
  window.location.replace(`${place || '#/'}?${new URLSearchParams(options)}`);
}

function select(label, names, chosen, change) {
  const options = Object.entries(names).map(([value, text]) => new Option(t(text), value, value === chosen, value === chosen));
  return element('label', {}, `${t(label)} `, element('select', { on: { change: ({ target }) => change(target.value) } }, options));
}

// Plays all films of a folder one after the other, beginning with the first one that is not watched.
async function playFolder(path) {
  const [films, seen] = await Promise.all([allFilmsOf(path), marks()]);
  const first = films.find((film) => !seen.get(film.encoded_path)?.finished) ?? films[0];
  setQueue(films.map((film) => film.encoded_path));
  window.location.assign(playAddress(first, seen.get(first.encoded_path)?.finished ? 0 : (seen.get(first.encoded_path)?.position ?? 0)));
}

// Nothing for a folder with little in it.
export function tools(path, options, { folders = [], files = [] }) {
  if (!path || (folders.length + files.length < 2 && !options.show)) {
    return null;
  }
  return element(
    'div',
    { class: 'tools' },
    select('Sort by', SORTS, options.sort, (sort) => {
      remember('sort', sort);
      choose({ ...options, sort });
    }),
    select('Show', SHOWN, options.show, (show) => choose({ ...options, show })),
    files.length > 0 && element('button', { type: 'button', on: { click: () => attempt(() => playFolder(path)) } }, t('Play all')),
    files.length > 0 && element('button', { type: 'button', on: { click: () => openSavePlaylist(nameOf(path), () => allFilmsOf(path)) } }, t('Save as playlist')),
  );
}
