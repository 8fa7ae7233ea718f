// The viewer's preferences, stored by the browser. Nothing about sessions or films is stored.

import { qualityNamed } from '../playback/kinds.js';

// `quality`: its text, for example "720p"; '' for the default. `treatment` of the sound: '' or 'night'.
const USUAL = { sort: 'name', cueSize: 'normal', cueLook: 'box', subtitleLanguage: '', secondLanguage: '', soundLanguage: '', treatment: '', quality: '', volume: 1, muted: false };
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

// The subtitle in the viewer's language. Without one, a forced subtitle in the language of the sound shows itself: it
// translates what the film itself leaves in another language.
function subtitleFor({ subtitles }, wanted, spoken) {
  const fitting = wanted ? subtitles.filter(({ language }) => language === wanted) : [];
  return fitting.find(({ forced }) => !forced) ?? fitting[0] ?? subtitles.find(({ forced, language }) => forced && language === spoken);
}

const idOf = (subtitle) => String(subtitle?.id ?? '');

// The first choice for a film: sound, subtitles and quality as the viewer chose them last. `kinds`: the methods that the
// page may use; `kind`: the one that the address names, or ''.
export function choiceOf(info, kinds = [], kind = '') {
  const { subtitleLanguage, secondLanguage, soundLanguage, treatment, quality } = preferences();
  const { audio = [] } = info.metadata.track_info;
  const sound = soundLanguage && audio.find(({ language }) => language === soundLanguage);
  const spoken = (sound || audio[0])?.language;
  const second = secondLanguage && info.subtitles.find(({ language }) => language === secondLanguage);
  const named = quality && qualityNamed(info, kind ? [kind] : kinds, quality);
  return { kind, profile: '', ...named, audio: sound ? sound.id : '', treatment, subtitle: idOf(subtitleFor(info, subtitleLanguage, spoken)), second: idOf(second || null) };
}
