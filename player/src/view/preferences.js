// The viewer's preferences, stored by the browser. Nothing about sessions or films is stored.

import { qualityNamed } from '../playback/kinds.js';

// `quality`: its text, for example "720p"; '' for the default.
const USUAL = { sort: 'name', cueSize: 'normal', cueLook: 'box', subtitleLanguage: '', secondLanguage: '', soundLanguage: '', quality: '', volume: 1, muted: false };
const NAME = 'mirevo';

export function preferences() {
  try {
    return { ...USUAL, ...JSON.parse(localStorage.getItem(NAME)) };
  } catch {
    return { ...USUAL };
  }
}

export function remember(name, value) {
  try {
    localStorage.setItem(NAME, JSON.stringify({ ...preferences(), [name]: value }));
  } catch {
    // A browser that stores nothing still plays.
  }
}

// The first choice for a film: sound, subtitles and quality as the viewer chose them last. `kinds`: the methods that the
// page may use; `kind`: the one that the address names, or ''.
export function choiceOf(info, kinds = [], kind = '') {
  const { subtitleLanguage, secondLanguage, soundLanguage, quality } = preferences();
  const subtitleIn = (wanted) => String((wanted && info.subtitles.find(({ language }) => language === wanted)?.id) ?? '');
  const sound = soundLanguage && info.metadata.track_info.audio.find(({ language }) => language === soundLanguage);
  const named = quality && qualityNamed(info, kind ? [kind] : kinds, quality);
  return { kind, profile: '', ...named, audio: sound ? sound.id : '', subtitle: subtitleIn(subtitleLanguage), second: subtitleIn(secondLanguage) };
}
