// Saves several films as a playlist for another player. Each film gets an address that needs no login.
import { post } from '../api.js';
import { element, openDialog } from '../dom.js';
import { counted, t } from '../language.js';
import { FORMS } from '../playlist.js';
import { errorText } from '../words.js';
import { ANY_DEVICE } from './download.js';
import { lineFor } from './names.js';

// The server keeps a limited number of open streams for each viewer.
const MOST_FILMS = 100;

const KEPT_MILLISECONDS = 10000; // for which the browser needs the saved file

const addressIn = (opened) => opened.network_url || opened.url;

// Lets the browser save these films. `form`: a key of FORMS.
export function savePlaylist(items, name, form) {
  const { type, write } = FORMS[form];
  const file = URL.createObjectURL(new Blob([write(items, name)], { type }));
  element('a', { href: file, download: `${name.replace(/[/\\\p{Cc}]/gu, '_')}.${form}` }).click();
  setTimeout(() => URL.revokeObjectURL(file), KEPT_MILLISECONDS);
}

// Opens the films one after the other: { items, isPublic }. Leaves out those that the server refuses.
async function openAll(entries, told, signal) {
  const items = [];
  let isPublic = true;
  for (const [index, entry] of entries.entries()) {
    told.textContent = t('Opening film {number} of {count} …', { number: index + 1, count: entries.length });
    const opened = await post('Streaming', 'open', { format: 'direct', device: ANY_DEVICE }, entry.encoded_path, { signal }).catch((error) => {
      if (signal.aborted || error.code !== 415) {
        throw error;
      }
    });
    if (opened) {
      items.push({ title: lineFor(entry), seconds: opened.duration, address: addressIn(opened) });
      isPublic &&= Boolean(opened.network_url);
    }
  }
  return { items, isPublic };
}

function resultText(all, items, isPublic) {
  if (items.length === 0) {
    return t('None of these films can be played.');
  }
  return [
    counted(items.length, 'The browser saves a playlist of {count} film.', 'The browser saves a playlist of {count} films.'),
    all.length > MOST_FILMS && t('It has the first {count} films only.', { count: MOST_FILMS }),
    !isPublic && t('Only players on this computer can play it, because the service listens to this computer alone.'),
    t('Anybody who has the playlist can play its films. An address ends when nobody has used it for a day.'),
  ]
    .filter(Boolean)
    .join(' ');
}

// `loadEntries`: gives a promise of the films.
export function openSavePlaylist(name, loadEntries) {
  const leaving = new AbortController();
  const told = element('p', { role: 'status' });
  const save = async (form) => {
    buttons.forEach((button) => { button.disabled = true; });
    try {
      const all = await loadEntries();
      const { items, isPublic } = await openAll(all.slice(0, MOST_FILMS), told, leaving.signal);
      if (items.length > 0) {
        savePlaylist(items, name, form);
      }
      told.textContent = resultText(all, items, isPublic);
    } catch (error) {
      told.textContent = errorText(error);
    }
    buttons.forEach((button) => { button.disabled = false; });
  };
  const buttons = Object.keys(FORMS).map((form) => element('button', { type: 'button', on: { click: () => save(form) } }, form.toUpperCase()));
  const dialog = openDialog(
    t('Save as playlist'),
    element('p', {}, t('Other players, such as VLC, play the original files of a playlist one after the other. Most of them read both forms.')),
    element('p', { class: 'actions' }, buttons),
    told,
  );
  dialog.addEventListener('close', () => leaving.abort());
  return dialog;
}
