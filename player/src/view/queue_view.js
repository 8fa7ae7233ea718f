// The queue on the start page, and the button that adds a film to it.
import { element } from '../dom.js';
import { nameOf } from '../format.js';
import { t } from '../language.js';
import { enqueue, queued, setQueue } from '../queue.js';
import { playAddress } from './page.js';
import { openSavePlaylist } from './save_playlist.js';
import { filmTile } from './tiles.js';

const SHOWN = 50;

export function queueButton(entry) {
  const button = element('button', { type: 'button' }, t('Add to the queue'));
  button.addEventListener('click', () => {
    enqueue(entry.encoded_path);
    button.textContent = t('In the queue');
    button.disabled = true;
  });
  return button;
}

// The films that are waiting; null if there are none.
export function queueRow(sight) {
  const entries = queued().map((path) => ({ encoded_path: path, name: nameOf(path) }));
  if (entries.length === 0) {
    return null;
  }
  const clear = () => {
    setQueue([]);
    section.remove();
    document.getElementById('content').focus();
  };
  const section = element(
    'section',
    {},
    element('h2', {}, t('Queue')),
    element('ul', { class: 'tiles row', 'aria-label': t('Queue') }, entries.slice(0, SHOWN).map((entry) => filmTile(entry, sight))),
    element(
      'p',
      { class: 'actions' },
      element('a', { class: 'button main', href: playAddress(entries[0]) }, t('Play the queue')),
      element('button', { type: 'button', on: { click: () => openSavePlaylist(t('Queue'), async () => entries) } }, t('Save as playlist')),
      element('button', { type: 'button', on: { click: clear } }, t('Clear the queue')),
    ),
  );
  return section;
}
