// Tiles of films and folders. The page requests a tile's picture and details when it becomes visible, a few at a time:
// the server makes each picture from the film, and other requests must not wait behind them.
import { addressOf, get } from '../api.js';
import { element, icon } from '../dom.js';
import { clockText, sizeText } from '../format.js';
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
    tile.querySelector('.poster').replaceChildren(image);
  }
}

let cards = true; // does the server support cards?

async function loadCard(tile, entry, signal) {
  if (!cards) {
    return;
  }
  try {
    const { duration, width, height } = await get('Library', 'card', {}, entry.encoded_path, { signal, quiet: true });
    const facts = [duration && clockText(duration), width && `${width} × ${height}`, entry.size && sizeText(entry.size)];
    tile.querySelector('.facts').textContent = facts.filter(Boolean).join(' · ');
  } catch (error) {
    cards = error.reason !== 'BadRequest';
  }
}

// Watches for tiles that become visible, until `signal` aborts.
export function observer(signal) {
  const entries = new WeakMap();
  const sight = new IntersectionObserver((changes) => {
    for (const { isIntersecting, target } of changes) {
      if (isIntersecting) {
        sight.unobserve(target);
        const entry = entries.get(target);
        waiting.push(async () => {
          if (!signal.aborted) {
            if (entry.size !== undefined) {
              await loadCard(target, entry, signal);
            }
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
    watch(tile, entry) {
      entries.set(tile, entry);
      sight.observe(tile);
    },
  };
}

function makeTile(entry, address, sign, facts) {
  return element(
    'li',
    { class: 'tile' },
    element(
      'a',
      { href: address },
      element('span', { class: 'poster', 'aria-hidden': true }, icon(sign)),
      element('span', { class: 'name' }, entry.name),
      element('span', { class: 'facts' }, facts),
    ),
  );
}

export const folderTile = (entry) => makeTile(entry, folderAddress(entry), 'folder', 'Folder');

export function filmTile(entry, sight) {
  const item = makeTile(entry, filmAddress(entry), 'film', entry.size ? sizeText(entry.size) : '');
  sight.watch(item, entry);
  return item;
}

// A film to continue; a click resumes it.
export function begunTile(entry, sight) {
  const left = Math.max(0, entry.duration - entry.position);
  const item = makeTile(entry, playAddress(entry, entry.position), 'film', `${clockText(left)} left`);
  item.querySelector('.facts').before(element('progress', { max: entry.duration || 1, value: entry.position, 'aria-label': 'Watched part' }));
  sight.watch(item, { encoded_path: entry.encoded_path }); // its details are known
  return item;
}
