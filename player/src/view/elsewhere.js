// Plays a film in another player: makes an address that needs no login, to copy, to open or to save as a playlist.
import { post } from '../api.js';
import { element, openDialog } from '../dom.js';
import { t } from '../language.js';
import { kindText, mayHave, profilesOf } from '../playback/kinds.js';
import { errorText } from '../words.js';
import { lineFor } from './names.js';
import { savePlaylist } from './save_playlist.js';

const FOR_ALL = 'Any player or cast device on this network can play this address.';
const FOR_THIS_COMPUTER =
  'Only players on this computer can play this address, because the service listens to this computer alone. Start it with --listen 0.0.0.0 to let other devices in.';

// The methods for other players, whatever this browser supports.
function waysFor(info) {
  const has = { direct: Boolean(info.direct), http: profilesOf(info, 'http').length > 0, hls: mayHave(info, 'hls') };
  return ['hls', 'http', 'direct'].filter((kind) => has[kind]);
}

async function copy(input, told) {
  input.select();
  try {
    await navigator.clipboard.writeText(input.value);
    told.textContent = t('Copied.');
  } catch {
    told.textContent = t('The browser does not let this page copy. Copy the address from the field.');
  }
}

function links(entry, address, told) {
  const input = element('input', { readOnly: true, value: address, 'aria-label': t('Address of the film') });
  return [
    input,
    element(
      'p',
      { class: 'actions' },
      element('button', { type: 'button', on: { click: () => copy(input, told) } }, t('Copy address')),
      element('a', { class: 'button', href: `vlc://${address}` }, t('Open in VLC')),
      element('button', { type: 'button', on: { click: () => savePlaylist([{ title: lineFor(entry), address }], entry.name, 'm3u') } }, t('Save as playlist (.m3u)')),
    ),
  ];
}

// `before`: called before the address is made, for example to free the transcoder for the other player.
export function openElsewhere(entry, info, before = () => {}) {
  const told = element('p', { role: 'status' });
  const place = element('div');
  const make = async (format) => {
    told.textContent = t('Opening the film …');
    place.replaceChildren();
    try {
      await before();
      const opened = await post('Streaming', 'open', { format }, entry.encoded_path);
      told.textContent = t(opened.network_url ? FOR_ALL : FOR_THIS_COMPUTER);
      place.replaceChildren(...links(entry, opened.network_url || opened.url, told));
    } catch (error) {
      told.textContent = errorText(error);
    }
  };
  const buttons = waysFor(info).map((kind) => element('button', { type: 'button', on: { click: () => make(kind) } }, kindText(kind)));
  return openDialog(t('Play elsewhere'), element('p', {}, t('Choose the kind of stream that the other player supports.')), element('p', { class: 'actions' }, buttons), told, place);
}
