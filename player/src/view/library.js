// The library: folders and films, films to continue, and the search.
import { asText, get } from '../api.js';
import { element } from '../dom.js';
import { hasWords, nameOf, sortedByName } from '../format.js';
import { watched } from '../history.js';
import { folderAddress } from './page.js';
import { begunTile, filmTile, folderTile, observer } from './tiles.js';

const ROW = 12;

const tiles = (items, label) => element('ul', { class: 'tiles', 'aria-label': label }, items);

const NO_FILMS = 'There are no films here.';
const NO_LIBRARY =
  'There are no films in the library yet. Copy films into a folder of the library, or start the service with another one: mirevo serve FOLDER.';

function listing({ folders = [], files = [] }, sight, otherwise = NO_FILMS) {
  const items = [...sortedByName(folders).map(folderTile), ...sortedByName(files).map((entry) => filmTile(entry, sight))];
  return items.length > 0 ? tiles(items, 'Films and folders') : element('p', {}, otherwise);
}

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
  const links = [{ name: 'Library', address: '#/' }, ...crumbs.map((crumb) => ({ name: crumb.name, address: folderAddress(crumb) }))];
  const steps = links.map(({ name, address }, index) => {
    const isHere = last === undefined && index === links.length - 1;
    return element('li', {}, isHere ? element('span', { 'aria-current': 'page' }, name) : element('a', { href: address }, name));
  });
  if (last !== undefined) {
    steps.push(element('li', {}, element('span', { 'aria-current': 'page' }, last)));
  }
  return element('nav', { 'aria-label': 'Position in the library', class: 'crumbs' }, element('ol', {}, steps));
}

async function begunRow(sight) {
  const begun = (await watched()).filter(({ finished, position }) => !finished && position > 0).slice(0, ROW);
  if (begun.length === 0) {
    return [];
  }
  const row = tiles(begun.map((entry) => begunTile(entry, sight)), 'Continue watching');
  row.classList.add('row');
  return [element('h2', {}, 'Continue watching'), row];
}

// The start page: films to continue, and the media folders. A single media folder is opened at once.
export async function homeView(_, signal) {
  const sight = observer(signal);
  const [roots, begun] = await Promise.all([get('Library', 'list', {}, '', { signal }), begunRow(sight)]);
  const only = roots.files.length === 0 && roots.folders.length === 1;
  const shown = only ? await get('Library', 'list', {}, roots.folders[0].encoded_path, { signal }) : roots;
  const heading = element('h1', {}, 'Library');
  const list = begun.length > 0 ? [element('h2', {}, 'Films'), listing(shown, sight, NO_LIBRARY)] : [listing(shown, sight, NO_LIBRARY)];
  return { title: 'Library', nodes: [heading, ...begun, ...list] };
}

export async function folderView({ path }, signal) {
  const [roots, shown] = await Promise.all([get('Library', 'list', {}, '', { signal }), get('Library', 'list', {}, path, { signal })]);
  const name = nameOf(path);
  return {
    title: name,
    nodes: [breadcrumbs(crumbsOf(path, roots.folders)), element('h1', {}, name), listing(shown, observer(signal))],
  };
}

// For a server without a search: searches the media roots and the folders right below them.
async function searchByHand(words, signal) {
  const roots = await get('Library', 'list', {}, '', { signal });
  const below = await Promise.all(roots.folders.map((folder) => get('Library', 'list', {}, folder.encoded_path, { signal })));
  const found = (kind) => [roots, ...below].flatMap((list) => list[kind]).filter(({ name }) => hasWords(name, words));
  return { folders: found('folders'), files: found('files'), truncated: below.some(({ folders }) => folders.length > 0) };
}

async function search(words, signal) {
  try {
    return await get('Library', 'search', { q: asText(words) }, undefined, { signal });
  } catch (error) {
    if (error.reason !== 'BadRequest') {
      throw error;
    }
    return searchByHand(words, signal);
  }
}

const countText = (count, name) => `${count} ${name}${count === 1 ? '' : 's'}`;

// "2 folders and 1 film"
function foundText(folders, files) {
  const texts = [folders.length > 0 && countText(folders.length, 'folder'), (files.length > 0 || folders.length === 0) && countText(files.length, 'film')];
  return texts.filter(Boolean).join(' and ');
}

export async function searchView({ parameters }, signal) {
  const words = parameters.get('q') ?? '';
  const { folders = [], files, truncated } = words ? await search(words, signal) : { files: [], truncated: false };
  const found = foundText(folders, files);
  return {
    title: `Search: ${words}`,
    keepsFocus: true,
    nodes: [
      breadcrumbs([], 'Search'),
      element('h1', {}, `Films and folders named “${words}”`),
      element('p', { role: 'status' }, truncated ? `${found}. There may be more; type more letters.` : `${found}.`),
      folders.length + files.length > 0 ? listing({ folders, files }, observer(signal)) : null,
    ],
  };
}
