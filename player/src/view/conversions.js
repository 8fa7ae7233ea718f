// The films that the server converts in advance: how far they are, their results, and why one has failed.
import { addressOf, get, post } from '../api.js';
import { element, table } from '../dom.js';
import { t } from '../language.js';
import { session } from '../session.js';
import { titleOf } from '../titles.js';
import { attempt, filmAddress, keepFresh, replaceContent } from './page.js';

const STATES = { waiting: 'Waits', converting: 'In work', paused: 'Paused', ready: 'Ready', failed: 'Failed' };

const nameOf = ({ name }) => (titleOf(name).plain ? titleOf(name).title : name);

function stateOf({ state, progress, reason }) {
  const words = element('span', {}, t(STATES[state] ?? state));
  const isBegun = state === 'converting' || state === 'paused';
  const bar = isBegun && element('progress', { value: progress, 'aria-label': t('Part that is converted') });
  return element('span', {}, words, bar, reason && element('p', {}, reason));
}

function actionsOf(item, refresh) {
  const remove = () => attempt(() => post('Conversion', 'remove', { id: item.id })).then(refresh);
  const result = addressOf('Conversion', 'get', { id: item.id });
  return element(
    'span',
    { class: 'actions' },
    item.state === 'ready' && element('a', { class: 'button', href: result, download: `${nameOf(item)}.mp4`, 'aria-label': `${t('Download')} ${item.name}` }, t('Download')),
    element('button', { type: 'button', 'aria-label': `${t('Remove')} ${item.name}`, on: { click: remove } }, t('Remove')),
  );
}

function body({ items, paused }, refresh) {
  const rows = items.map((item) => [element('a', { href: filmAddress(item) }, nameOf(item)), item.profile, stateOf(item), actionsOf(item, refresh)]);
  return [
    paused && element('p', {}, t('All conversions are paused.')),
    rows.length > 0
      ? table(t('Conversions'), [t('Film'), t('Quality'), t('State'), t('Action')], rows)
      : element('p', {}, t('No film is converted in advance. Open a film and choose “Download”.')),
  ];
}

export async function conversionsView(_, signal) {
  const place = element('div');
  const refresh = async () => {
    const list = await get('Conversion', 'list', {}, undefined, { signal });
    if (!signal.aborted) {
      replaceContent(place, body(list, refresh));
    }
  };
  await keepFresh(refresh, signal);
  const about = t('The server converts these films to files that play on every device. It works on them while nobody watches a film.');
  const rules = session.owner ? [await (await import('./conversion_rules.js')).rulesSection(refresh)] : [];
  return { title: t('Conversions'), nodes: [element('h1', {}, t('Conversions')), element('p', {}, about), place, ...rules] };
}

// Puts the film into the queue. Returns what to tell the viewer.
export async function convertInAdvance(entry) {
  await post('Conversion', 'add', {}, entry.encoded_path);
  return [t('The server converts the film while nobody watches one.'), ' ', element('a', { href: '#/conversions' }, t('Conversions'))];
}
