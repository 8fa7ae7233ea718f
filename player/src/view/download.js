// Saves a film on the viewer's device: the original file, or one that the server converts.
import { localAddress, post } from '../api.js';
import { element, openDialog } from '../dom.js';
import { sizeText } from '../format.js';
import { t } from '../language.js';
import { profilesOf } from '../playback/kinds.js';
import { refusalText } from '../refusals.js';
import { titleOf } from '../titles.js';
import { errorText } from '../words.js';
import { convertInAdvance } from './conversions.js';

const stemOf = (name) => titleOf(name).plain ? titleOf(name).title : name.replace(/\.[^.]*$/, '');

// A device that plays every file: what is saved or played elsewhere need not play in this browser.
export const ANY_DEVICE = 'VLC';

// Opens the film in this form and lets the browser save what the server sends.
async function save(entry, format, name, told) {
  told.textContent = t('Opening the film …');
  try {
    const { url } = await post('Streaming', 'open', { format, device: ANY_DEVICE }, entry.encoded_path);
    element('a', { href: localAddress(url), download: name }).click();
    told.textContent = t('The browser saves the film.');
  } catch (error) {
    told.textContent = errorText(error);
  }
}

async function convertLater(entry, told) {
  try {
    told.replaceChildren(...(await convertInAdvance(entry)));
  } catch (error) {
    told.textContent = refusalText(error);
  }
}

export function openDownload(entry, info) {
  const told = element('p', { role: 'status' });
  const button = (text, format, name) => element('button', { type: 'button', on: { click: () => save(entry, format, name, told) } }, text);
  const size = sizeText(Number(info.metadata.filesize));
  return openDialog(
    t('Download'),
    element('p', {}, t('The original file has the film’s own quality. A converted film plays on more devices, and the server makes it while it is saved.')),
    element(
      'p',
      { class: 'actions' },
      button(t('Original file ({size})', { size }), 'direct', entry.name),
      profilesOf(info, 'http').length > 0 && button(t('Converted (MP4)'), 'http', `${stemOf(entry.name)}.mp4`),
      element('button', { type: 'button', on: { click: () => convertLater(entry, told) } }, t('Convert in advance')),
    ),
    told,
  );
}
