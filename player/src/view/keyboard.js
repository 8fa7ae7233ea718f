// The keyboard shortcuts of the player, and the dialog that lists them.
import { element, openDialog } from '../dom.js';
import { t } from '../language.js';

// Each row: the keys, their readable name, what they do, and the function to call.
export const KEYS = [
  [['k', ' '], 'Space or K', 'Play or pause', (player) => player.toggle()],
  [['j'], 'J', '10 seconds back', (player) => player.skip(-10)],
  [['l'], 'L', '10 seconds forward', (player) => player.skip(10)],
  [['ArrowLeft'], '←', '5 seconds back', (player) => player.skip(-5)],
  [['ArrowRight'], '→', '5 seconds forward', (player) => player.skip(5)],
  [['ArrowUp'], '↑', 'Louder', (player) => player.louder(0.1)],
  [['ArrowDown'], '↓', 'Softer', (player) => player.louder(-0.1)],
  [['m'], 'M', 'Mute or unmute', (player) => player.mute()],
  [['f'], 'F', 'Full screen', (player) => player.fullScreen()],
  [['i'], 'I', 'Picture in picture', (player) => player.inset()],
  [['c'], 'C', 'Next subtitle, or none', (player) => player.subtitles.next()],
  [['g'], 'G', 'Subtitles 0.1 s earlier', (player) => player.subtitles.shift(-1)],
  [['h'], 'H', 'Subtitles 0.1 s later', (player) => player.subtitles.shift(1)],
  [['<'], '<', 'Slower', (player) => player.faster(-1)],
  [['>'], '>', 'Faster', (player) => player.faster(1)],
  [[','], ',', 'One picture back', (player) => player.stepFrame(-1)],
  [['.'], '.', 'One picture forward', (player) => player.stepFrame(1)],
  [['n'], 'N', 'Next film', (player) => player.upNext.next()],
  [['p'], 'P', 'Previous film', (player) => player.upNext.previous()],
  [['r'], 'R', 'Repeat the film, or stop that', (player) => player.toggleRepeat()],
  [['x'], 'X', 'Save this picture', (player) => player.savePicture()],
  [['s'], 'S', 'Statistics', (player) => player.figures()],
  [['o'], 'O', 'Settings', (player) => player.settings()],
  [['PageUp'], 'Page Up', 'Previous chapter', (player) => player.chapters.skip(-1)],
  [['PageDown'], 'Page Down', 'Next chapter', (player) => player.chapters.skip(1)],
  [['Home'], 'Home', 'Go to the beginning', (player) => player.seek(0)],
  [['End'], 'End', 'Go to the end', (player) => player.seekTenth(9.9)],
  [['0', '1', '2', '3', '4', '5', '6', '7', '8', '9'], '0 … 9', 'Go to 0 % … 90 % of the film', (player, key) => player.seekTenth(Number(key))],
  [['?'], '?', 'Show this list', () => showHelp()],
];

export function showHelp() {
  const rows = KEYS.flatMap(([, sign, text]) => [element('dt', {}, element('kbd', {}, t(sign))), element('dd', {}, t(text))]);
  openDialog(t('Keyboard shortcuts'), element('dl', { class: 'keys' }, rows));
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
