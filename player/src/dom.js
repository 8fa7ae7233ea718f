// Creates elements. Every text becomes a text node, because a file's name may contain markup.
import { t } from './language.js';

const OWN = new Set(['hidden', 'disabled', 'checked', 'value', 'open', 'required', 'readOnly', 'muted']);

function apply(node, name, value) {
  if (name === 'on') {
    Object.entries(value).forEach(([type, handler]) => node.addEventListener(type, handler));
  } else if (OWN.has(name)) {
    node[name] = value;
  } else if (value !== undefined && value !== false) {
    node.setAttribute(name, value === true ? '' : String(value));
  }
}

// element('button', { type: 'button', on: { click } }, 'Play'). Children that are null or false are left out.
export function element(name, attributes = {}, ...children) {
  const node = document.createElement(name);
  node.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
  Object.entries(attributes).forEach(([key, value]) => apply(node, key, value));
  return node;
}

// A text field, or another kind of input, with its label around it. It must be filled in, unless the attributes say otherwise.
export const field = (label, attributes) => element('label', {}, `${label} `, element('input', { required: true, ...attributes }));

const SVG = 'http://www.w3.org/2000/svg';

// Outlines in a box of 24 x 24.
const OUTLINES = {
  play: 'M7 4v16l13-8z',
  pause: 'M6 4h4v16H6zM14 4h4v16h-4z',
  previous: 'M6 5v14M19 5 9 12l10 7z',
  next: 'M18 5v14M5 5l10 7-10 7z',
  repeat: 'M4 12V9a3 3 0 0 1 3-3h11l-3-3M20 12v3a3 3 0 0 1-3 3H6l3 3',
  camera: 'M4 7h4l2-2h4l2 2h4v12H4zM12 16a3 3 0 1 0 0-6 3 3 0 0 0 0 6z',
  back: 'M11 5 4 12l7 7v-5h9v-4h-9z',
  sound: 'M4 9v6h4l5 5V4L8 9zM16 8a5 5 0 0 1 0 8M18 5a9 9 0 0 1 0 14',
  silent: 'M4 9v6h4l5 5V4L8 9zM16 9l6 6M22 9l-6 6',
  full: 'M4 9V4h5M15 4h5v5M20 15v5h-5M9 20H4v-5',
  settings: 'M4 7h9M17 7h3M4 12h3M11 12h9M4 17h9M17 17h3M15 5v4M9 10v4M15 15v4',
  inset: 'M3 5h18v14H3zM12 12h7v5h-7z',
  captions: 'M3 5h18v14H3zM7 11h4M13 11h4M7 15h7M16 15h1',
  figures: 'M4 20V10M10 20V4M16 20v-7M21 20H3',
  elsewhere: 'M14 4h6v6M20 4l-9 9M18 14v6H4V6h6',
  remote: 'M3 8V5h18v14h-7M3 12a7 7 0 0 1 7 7M3 16a3 3 0 0 1 3 3M3 19v.5',
  help: 'M9 9a3 3 0 1 1 4 3c-1 .5-1 1-1 2M12 17.5v.5',
  folder: 'M3 6h7l2 3h9v10H3z',
  broken: 'M4 5h16v14H4zM4 5l7 6-2 3 6 5M9 9h.01',
  check: 'M4 12l5 6L20 6',
  close: 'M6 6l12 12M18 6 6 18',
  film: 'M4 5h16v14H4zM8 5v14M16 5v14M4 10h4M4 14h4M16 10h4M16 14h4',
};
const FILLED = new Set(['play', 'pause']);

export function icon(name) {
  const svg = document.createElementNS(SVG, 'svg');
  svg.setAttribute('viewBox', '0 0 24 24');
  svg.setAttribute('aria-hidden', 'true');
  svg.classList.add('icon');
  svg.classList.toggle('filled', FILLED.has(name));
  const outline = document.createElementNS(SVG, 'path');
  outline.setAttribute('d', OUTLINES[name]);
  svg.append(outline);
  return svg;
}

// A button that shows an icon; `label` is its accessible name.
export function signButton(sign, label, click, attributes = {}) {
  return element('button', { type: 'button', class: 'sign', 'aria-label': label, title: label, on: { click }, ...attributes }, icon(sign));
}

export function changeSign(button, sign, label) {
  if (button.getAttribute('aria-label') !== label) {
    button.replaceChildren(icon(sign));
    button.setAttribute('aria-label', label);
    button.title = label;
  }
}

export const find = (id) => document.getElementById(id);

// Shows a dialog and removes it when it is closed.
export function openDialog(title, ...children) {
  const close = element('button', { type: 'button', on: { click: () => dialog.close() } }, t('Close'));
  const heading = element('h2', {}, title);
  const dialog = element('dialog', { 'aria-label': title }, heading, ...children, element('p', { class: 'actions' }, close));
  dialog.addEventListener('close', () => dialog.remove());
  (document.fullscreenElement ?? document.body).append(dialog);
  dialog.showModal();
  return dialog;
}

const MOST_COLUMNS = 4; // that a phone has room for

// A table with a heading row. Cells are texts or nodes. On a phone a wide one becomes a list of cards, whose lines begin
// with the headings; the roles stay.
export function table(caption, headings, rows) {
  const row = (cells) => element('tr', { role: 'row' }, cells);
  const cell = (content, column) => element('td', { role: 'cell', 'data-heading': headings[column] }, content ?? '');
  return element(
    'div',
    { class: 'scroll', tabindex: '0', role: 'region', 'aria-label': caption },
    element(
      'table',
      { role: 'table', class: headings.length > MOST_COLUMNS ? 'wide' : '' },
      element('thead', { role: 'rowgroup' }, row(headings.map((text) => element('th', { scope: 'col', role: 'columnheader' }, text)))),
      element('tbody', { role: 'rowgroup' }, rows.map((cells) => row(cells.map(cell)))),
    ),
  );
}
