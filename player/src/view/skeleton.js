// What stands in place of a view while the server has not answered yet.
import { element } from '../dom.js';

const TILES = 12;
const PATIENCE_MILLISECONDS = 200;

const tile = () => element('li', { class: 'tile' }, element('span', { class: 'poster' }), element('span', { class: 'line' }));

// Shows empty tiles in `place` if the view takes longer than a moment. Call the result when it has come.
export function showSkeletonSoon(place) {
  const timer = setTimeout(() => {
    place.replaceChildren(element('ul', { class: 'tiles skeleton', 'aria-hidden': 'true' }, Array.from({ length: TILES }, tile)));
  }, PATIENCE_MILLISECONDS);
  return () => clearTimeout(timer);
}
