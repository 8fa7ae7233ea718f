// The keys of the player, and the dialog that tells of them.
import { element, openDialog } from '../dom.js';

// Keys, what they do for people, and what to call. The digits go to as many tenths of the film.
export const KEYS = [
  [['k', ' '], 'Space or K', 'Play or pause', (player) => player.toggle()],
  [['j'], 'J', '10 seconds back', (player) => player.skip(-10)],
  [['l'], 'L', '10 seconds on', (player) => player.skip(10)],
  [['ArrowLeft'], '←', '5 seconds back', (player) => player.skip(-5)],
  [['ArrowRight'], '→', '5 seconds on', (player) => player.skip(5)],
  [['ArrowUp'], '↑', 'Louder', (player) => player.louder(0.1)],
  [['ArrowDown'], '↓', 'Softer', (player) => player.louder(-0.1)],
  [['m'], 'M', 'Sound off or on', (player) => player.mute()],
  [['f'], 'F', 'Full screen', (player) => player.fullScreen()],
  [['i'], 'I', 'Small picture over other windows', (player) => player.inset()],
  [['c'], 'C', 'Next subtitle, or none', (player) => player.nextSubtitle()],
  [['<', ','], '<', 'Slower', (player) => player.faster(-1)],
  [['>', '.'], '>', 'Faster', (player) => player.faster(1)],
  [['s'], 'S', 'Statistics', (player) => player.figures()],
  [['o'], 'O', 'Settings', (player) => player.settings()],
  [['Home'], 'Home', 'To the beginning', (player) => player.seek(0)],
  [['End'], 'End', 'Near the end', (player) => player.seekTenth(9.9)],
  [['0', '1', '2', '3', '4', '5', '6', '7', '8', '9'], '0 … 9', 'To as many tenths of the film', (player, key) => player.seekTenth(Number(key))],
  [['?'], '?', 'This help', () => showHelp()],
];

export function showHelp() {
  const rows = KEYS.flatMap(([, sign, text]) => [element('dt', {}, element('kbd', {}, sign)), element('dd', {}, text)]);
  openDialog('Keys', element('dl', { class: 'keys' }, rows));
}

// Does the element use this key itself?
function takes(target, key) {
  if (target.closest('dialog, select, textarea') || (target.matches('input') && target.type !== 'range')) {
    return true;
  }
  return key === ' ' && target.closest('button, a, summary') !== null;
}

export function handleKey(event, player) {
  const { key, target } = event;
  if (event.ctrlKey || event.altKey || event.metaKey || event.defaultPrevented || takes(target, key)) {
    return;
  }
  const wanted = key.length === 1 ? key.toLowerCase() : key;
  const row = KEYS.find(([keys]) => keys.includes(wanted));
  if (row && !(target.matches('#volume') && key.startsWith('Arrow'))) {
    event.preventDefault();
    row[3](player, wanted);
  }
}
