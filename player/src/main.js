// The page: finds the view that the address names and shows it.
import { askEarly, dropEarly } from './api.js';
import { element, find } from './dom.js';
import { nameOf } from './format.js';
import { language, t } from './language.js';
import { warmth } from './playback/warmth.js';
import { learnWho, logIn, logOut, session, whenSessionChanges } from './session.js';
import { filmView } from './view/film.js';
import { askEarlyForLibrary, folderView, homeView, searchView } from './view/library.js';
import { attempt, parseAddress, say, sayError } from './view/page.js';
import { showSkeletonSoon } from './view/skeleton.js';

const TYPING_MILLISECONDS = 300;

// A view that few visits need: its code is loaded when it is first shown.
const later =
  (load, name) =>
  async (...given) =>
    (await load())[name](...given);
const firstStartView = later(() => import('./view/first_start.js'), 'firstStartView');
const VIEWS = {
  '': homeView,
  folder: folderView,
  search: searchView,
  film: filmView,
  play: playView,
  status: later(() => import('./view/status.js'), 'statusView'),
  conversions: later(() => import('./view/conversions.js'), 'conversionsView'),
  settings: later(() => import('./view/settings.js'), 'settingsView'),
};

askFirst();
document.documentElement.lang = language;
let player = null; // loaded with the first film
let leaving = new AbortController();

async function playView({ path, parameters }, signal) {
  const entry = { name: nameOf(path), encoded_path: path };
  show({ title: entry.name, nodes: [] });
  const { PlayerView } = await import('./view/player.js');
  if (signal.aborted) {
    return null;
  }
  player ??= new PlayerView();
  signal.addEventListener('abort', () => player.close());
  const second = parameters.has('t') ? Number(parameters.get('t')) : NaN;
  await player.open(entry, second, parameters.get('kind') ?? '', signal);
  return null;
}

function show({ title, nodes, keepsFocus }) {
  document.title = `${title} – Mirevo`;
  find('view').replaceChildren(...nodes.filter(Boolean));
  if (!keepsFocus && document.activeElement !== document.body) {
    find('content').focus({ preventScroll: true });
  }
  window.scrollTo(0, 0);
}

async function go() {
  clearTimeout(typing);
  leaving.abort();
  leaving = new AbortController();
  document.querySelectorAll('dialog:not(#login)').forEach((dialog) => dialog.close());
  const { signal } = leaving;
  const address = parseAddress(window.location.hash || '#/');
  say('');
  const cancelSkeleton = ['play', 'search'].includes(address.view) ? () => {} : showSkeletonSoon(find('view'));
  try {
    const shown = session.firstStart === 'none' ? await (VIEWS[address.view] ?? homeView)(address, signal) : await firstStartView(go);
    if (shown && !signal.aborted) {
      show(shown);
    }
  } catch (error) {
    if (!signal.aborted) {
      find('view').replaceChildren();
      sayError(error);
    }
  } finally {
    cancelSkeleton();
  }
}

function showPlaces() {
  if (session.firstStart !== 'none') {
    find('places').replaceChildren();
    return;
  }
  const links = [element('a', { href: '#/' }, t('Library')), element('a', { href: '#/conversions' }, t('Conversions'))];
  if (session.owner) {
    links.push(element('a', { href: '#/status' }, t('Server')), element('a', { href: '#/settings' }, t('Settings')));
  }
  if (session.loginRequired) {
    const [text, action] = session.account ? [t('Log out {name}', { name: session.account }), leave] : [t('Log in'), enter];
    links.push(element('button', { type: 'button', on: { click: () => attempt(action) } }, text));
  }
  find('places').replaceChildren(...links);
}

async function enter() {
  await logIn();
  await go();
}

async function leave() {
  leaving.abort();
  await player?.close();
  await logOut();
  find('view').replaceChildren();
  window.location.hash = '#/';
  await enter();
}

let typing; // the timer that starts a search after the viewer stops typing

function listenToSearch() {
  const words = find('words');
  const search = () => {
    const address = words.value.trim() ? `#/search?${new URLSearchParams({ q: words.value.trim() })}` : '#/';
    // All letters of one search share one entry in the browser's history.
    const isSearching = parseAddress(window.location.hash).view === 'search';
    window.location[isSearching ? 'replace' : 'assign'](address);
  };
  words.addEventListener('input', () => {
    clearTimeout(typing);
    typing = setTimeout(search, TYPING_MILLISECONDS);
  });
  find('search').addEventListener('submit', (event) => {
    event.preventDefault();
    clearTimeout(typing);
    search();
  });
}

find('skip').textContent = t('Skip to the content');
find('words').placeholder = t('Search');
find('words').setAttribute('aria-label', t('Search films'));
find('places').setAttribute('aria-label', t('Pages'));
find('film').setAttribute('aria-label', t('Player'));
find('skip').addEventListener('click', (event) => {
  event.preventDefault();
  find('content').focus();
});
// A browser without this, or a page that is not secure, has no shell.
navigator.serviceWorker?.register('offline.js').catch(() => {});
whenSessionChanges(showPlaces);
window.addEventListener('hashchange', go);
window.addEventListener('pagehide', () => warmth.dropLastly());
showPlaces();
listenToSearch();

// The first view's requests wait neither for the account nor for each other.
function askFirst() {
  const address = parseAddress(window.location.hash || '#/');
  askEarly('Auth', 'who');
  if (['', 'folder'].includes(address.view)) {
    askEarlyForLibrary(address);
  }
}

async function begin() {
  try {
    await learnWho();
    await go();
  } catch (error) {
    sayError(error);
  } finally {
    dropEarly();
  }
}

// This module does not wait for it: modules that are loaded later import this one, and wait until it has run.
begin();
