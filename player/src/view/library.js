// The library: folders and films, films to continue, and the search.
import { asText, askEarly, get } from '../api.js';
import { element } from '../dom.js';
import { nameOf } from '../format.js';
import { askEarlyForHistory, forget, marks, watched } from '../history.js';
import { counted, t } from '../language.js';
import { askEarlyForFolder, listFolder, listing, tiles } from './listing.js';
import { session } from '../session.js';
import { attempt, folderAddress } from './page.js';
import { queueRow } from './queue_view.js';
import { begunTile, filmTile, folderTile, observer } from './tiles.js';
import { optionsOf, tools } from './tools.js';

const ROW = 12;

// Sends the requests of the view that the page begins with.
export function askEarlyForLibrary({ view, path, parameters }) {
  askEarly('Library', 'list', {}, '');
  askEarlyForHistory();
  if (view === 'folder') {
    askEarlyForFolder(path, optionsOf(parameters));
  }
}

// What to do about an empty library.
function noLibrary() {
  return session.owner
    ? [t('There are no films in the library yet. Copy films into one of its folders, or name another folder:'), ' ', element('a', { href: '#/settings' }, t('Settings'))]
    : [t('There are no films in the library yet. The owner of the server can add some.')];
}

const NO_FILMS = 'There are no films here. Copy films into this folder; they appear when you open it again.';
const NO_MATCH = 'No film here matches. Choose “All films” to see the others.';

// Library / root / folder / ... The part of a path above its root is hidden.
export function crumbsOf(path, roots) {
  const root = roots.find(({ encoded_path: top }) => path === top || path.startsWith(`${top}/`));
  if (!root) {
    return [];
  }
  const steps = path.slice(root.encoded_path.length).split('/').filter(Boolean);
  let place = root.encoded_path;
  const below = steps.map((step) => {
    place += `/${step}`;
    return { name: nameOf(place), encoded_path: place };
  });
  return [{ name: root.name, encoded_path: root.encoded_path }, ...below];
}

export function breadcrumbs(crumbs, last) {
  const links = [{ name: t('Library'), address: '#/' }, ...crumbs.map((crumb) => ({ name: crumb.name, address: folderAddress(crumb) }))];
  const steps = links.map(({ name, address }, index) => {
    const isHere = last === undefined && index === links.length - 1;
    return element('li', {}, isHere ? element('span', { 'aria-current': 'page' }, name) : element('a', { href: address }, name));
  });
  if (last !== undefined) {
    steps.push(element('li', {}, element('span', { 'aria-current': 'page' }, last)));
  }
  return element('nav', { 'aria-label': t('Position in the library'), class: 'crumbs' }, element('ol', {}, steps));
}

// Takes a film off the list of begun films, and the whole row when it was the last one.
async function removeBegun(tile, entry) {
  const row = tile.closest('section');
  const next = tile.nextElementSibling ?? tile.previousElementSibling;
  await forget(entry.encoded_path);
  tile.remove();
  (next?.querySelector('button') ?? document.getElementById('content')).focus();
  if (!next) {
    row.remove();
  }
}

async function begunRow(sight) {
  const begun = (await watched()).filter(({ finished, position }) => !finished && position > 0).slice(0, ROW);
  if (begun.length === 0) {
    return null;
  }
  const row = tiles(begun.map((entry) => begunTile(entry, sight, (...which) => attempt(() => removeBegun(...which)))), t('Continue watching'));
  row.classList.add('row');
  return element('section', {}, element('h2', {}, t('Continue watching')), row);
}

// The folder at `path` with its tools. `address`: that of the view, which keeps the viewer's choice.
async function folderNodes(path, parameters, { signal, sight, otherwise }) {
  const options = optionsOf(parameters);
  const [first, seen] = await Promise.all([listFolder(path, options, 0, signal), marks()]);
  const text = options.show ? [t(NO_MATCH)] : otherwise;
  return [tools(path, options, first), ...listing(path, options, first, { sight, marks: seen, signal, otherwise: text })];
}

// The start page: films to continue, and the media folders. A single media folder is opened at once.
export async function homeView({ parameters }, signal) {
  const sight = observer(signal);
  const roots = await get('Library', 'list', {}, '', { signal });
  const only = roots.files.length === 0 && roots.folders.length === 1;
  const path = only ? roots.folders[0].encoded_path : '';
  const [begun, nodes] = await Promise.all([begunRow(sight), folderNodes(path, parameters, { signal, sight, otherwise: noLibrary() })]);
  return { title: t('Library'), nodes: [element('h1', {}, t('Library')), queueRow(sight), begun, begun && element('h2', {}, t('Films')), ...nodes] };
}

export async function folderView({ path, parameters }, signal) {
  const sight = observer(signal);
  const [roots, nodes] = await Promise.all([get('Library', 'list', {}, '', { signal }), folderNodes(path, parameters, { signal, sight, otherwise: [t(NO_FILMS)] })]);
  const name = nameOf(path);
  return { title: name, nodes: [breadcrumbs(crumbsOf(path, roots.folders)), element('h1', {}, name), ...nodes] };
}

// "2 folders and 1 film"
function foundText(folders, files) {
  const found = [
    folders.length > 0 && counted(folders.length, '{count} folder', '{count} folders'),
    (files.length > 0 || folders.length === 0) && counted(files.length, '{count} film', '{count} films'),
  ].filter(Boolean);
  return found.length === 2 ? t('{one} and {other}', { one: found[0], other: found[1] }) : found[0];
}

function foundTiles({ folders, files }, sight, seen) {
  const items = [...folders.map((entry) => folderTile(entry, sight)), ...files.map((entry) => filmTile(entry, sight, seen.get(entry.encoded_path)))];
  return items.length > 0 ? tiles(items, t('Films and folders')) : null;
}

export async function searchView({ parameters }, signal) {
  const words = parameters.get('q') ?? '';
  const [found, seen] = await Promise.all([words ? get('Library', 'search', { q: asText(words) }, undefined, { signal }) : {}, marks()]);
  const { folders = [], files = [], truncated = false } = found;
  const text = foundText(folders, files);
  return {
    title: t('Search: {words}', { words }),
    keepsFocus: true,
    nodes: [
      breadcrumbs([], t('Search')),
      element('h1', {}, t('Films and folders named “{words}”', { words })),
      element('p', { role: 'status' }, truncated ? t('{found}. There may be more; type more letters.', { found: text }) : `${text}.`),
      foundTiles({ folders, files }, observer(signal), seen),
    ],
  };
}
