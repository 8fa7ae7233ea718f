// Tiles of films and folders. The page requests a tile's picture and details when it becomes visible, a few at a time:
// the server makes each picture from the film, and other requests must not wait behind them.
import { addressOf, get } from '../api.js';
import { element, icon, signButton } from '../dom.js';
import { clockText, sizeName, sizeText } from '../format.js';
import { counted, t } from '../language.js';
import { titleOfEntry, withCard } from '../titles.js';
import { isBroken, wordsOf } from '../words.js';
import { nameNode } from './names.js';
import { filmAddress, folderAddress, playAddress } from './page.js';

const AT_ONCE = 2;
const POSTER_WIDTH = 320;

const waiting = [];
let running = 0;

async function work() {
  while (running < AT_ONCE && waiting.length > 0) {
    const task = waiting.shift();
    ++running;
    await task().catch(() => {});
    --running;
  }
}

function loadImage(image, address, signal) {
  return new Promise((resolve) => {
    image.addEventListener('load', resolve, { once: true });
    image.addEventListener('error', resolve, { once: true });
    signal.addEventListener('abort', () => {
      image.removeAttribute('src');
      resolve();
    });
    image.src = address;
  });
}

async function loadPoster(tile, entry, signal) {
  const image = element('img', { alt: '', decoding: 'async' });
  await loadImage(image, addressOf('Library', 'poster', { width: POSTER_WIDTH }, entry.encoded_path), signal);
  if (image.naturalWidth > 0) {
    image.classList.toggle('upright', image.naturalHeight > image.naturalWidth);
    tile.querySelector('.poster .icon')?.replaceWith(image);
  }
}

const setFacts = (tile, facts) => {
  tile.querySelector('.facts').textContent = facts.filter(Boolean).join(' · ');
};

function showBroken(tile, error) {
  tile.classList.add('broken');
  tile.querySelector('.poster').replaceChildren(icon('broken'));
  setFacts(tile, [`${t('Cannot be played.')} ${wordsOf(error).sentence}`]);
}

// Returns false if the film has no picture to ask for.
// The card knows more than the name of the file.
function showName(tile, entry, card, isInSeason) {
  const about = titleOfEntry(entry);
  const better = withCard(about, card);
  if (better !== about) {
    tile.querySelector('.name').replaceWith(nameNode(entry, isInSeason, better));
  }
}

async function loadCard(tile, entry, signal) {
  try {
    const card = await get('Library', 'card', {}, entry.encoded_path, { signal, quiet: true });
    const { duration, width, height, music, artist } = card;
    showName(tile, entry, card, tile.dataset.isEpisode !== undefined);
    setFacts(tile, [duration && clockText(duration), music ? artist || t('Music') : sizeName(width, height), entry.size && sizeText(entry.size)]);
  } catch (error) {
    if (isBroken(error)) {
      showBroken(tile, error);
      return false;
    }
  }
  return true;
}

async function loadFolderCard(tile, entry, signal) {
  const { films, watched, is_all: isAll } = await get('Library', 'card', {}, entry.encoded_path, { signal, quiet: true });
  const seen = watched > 0 && t('{count} watched', { count: watched });
  setFacts(tile, [isAll ? counted(films, '{count} film', '{count} films') : t('more than {count} films', { count: films }), seen]);
  if (isAll && films > 0 && watched > 0) {
    showProgress(tile, watched, films, t('Watched films'));
  }
  return films > 0;
}

// Watches for tiles that become visible, until `signal` aborts.
export function observer(signal) {
  const entries = new WeakMap();
  const sight = new IntersectionObserver((changes) => {
    for (const { isIntersecting, target } of changes) {
      if (isIntersecting) {
        sight.unobserve(target);
        const [entry, load] = entries.get(target);
        waiting.push(async () => {
          if (!signal.aborted && (await load(target, entry, signal))) {
            await loadPoster(target, entry, signal);
          }
        });
      }
    }
    for (let worker = running; worker < AT_ONCE; ++worker) {
      work();
    }
  }, { rootMargin: '100px' });
  signal.addEventListener('abort', () => {
    sight.disconnect();
    waiting.length = 0;
  });
  return {
    watch(tile, entry, load) {
      entries.set(tile, [entry, load]);
      sight.observe(tile);
    },
  };
}

function makeTile(address, sign, name, facts) {
  return element(
    'li',
    { class: 'tile' },
    element(
      'a',
      { href: address },
      element('span', { class: 'poster', 'aria-hidden': true }, icon(sign)),
      name,
      element('span', { class: 'facts' }, facts),
    ),
  );
}

function showProgress(tile, value, max, label) {
  tile.querySelector('progress')?.remove();
  tile.querySelector('.facts').before(element('progress', { max, value, 'aria-label': label }));
}

// Shows how far the viewer has come: a mark for a watched film, a bar for a begun one.
export function showMark(tile, mark) {
  tile.classList.toggle('watched', Boolean(mark?.finished));
  tile.querySelector('.seen')?.remove();
  if (mark?.finished) {
    tile.querySelector('.facts').before(element('span', { class: 'seen' }, icon('check'), t('Watched')));
  } else if (mark?.position > 0) {
    showProgress(tile, mark.position, mark.duration || 1, t('Watched part'));
  }
}

export function folderTile(entry, sight) {
  const item = makeTile(folderAddress(entry), 'folder', element('span', { class: 'name' }, entry.name), t('Folder'));
  item.classList.add('folder');
  sight.watch(item, entry, loadFolderCard);
  return item;
}

// `mark`: the film's entry of the history, if there is one.
export function filmTile(entry, sight, mark, isInSeason) {
  const item = makeTile(filmAddress(entry), 'film', nameNode(entry, isInSeason), entry.size ? sizeText(entry.size) : '');
  if (isInSeason) {
    item.dataset.isEpisode = '';
  }
  showMark(item, mark);
  sight.watch(item, entry, loadCard);
  return item;
}

// A film to continue; a click resumes it. `remove` takes it off the list.
export function begunTile(entry, sight, remove) {
  const left = Math.max(0, entry.duration - entry.position);
  const item = makeTile(playAddress(entry, entry.position), 'film', nameNode(entry), t('{time} left', { time: clockText(left) }));
  showMark(item, entry);
  const button = signButton('close', t('Remove {name} from this list', { name: entry.name }), () => remove(item, entry));
  button.classList.add('remove');
  item.append(button);
  sight.watch(item, entry, async () => true); // its details are known
  return item;
}
