// The viewer's preferences, stored by the browser. Nothing about sessions or films is stored.

const USUAL = { cueSize: 'normal', cueLook: 'box', subtitleLanguage: '' };
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

// The first choice for a film: the subtitle in the language that the viewer chose last.
export function choiceOf(info) {
  const { subtitleLanguage } = preferences();
  const subtitle = subtitleLanguage && info.subtitles.find(({ language }) => language === subtitleLanguage);
  return { kind: '', profile: '', audio: '', subtitle: subtitle ? String(subtitle.id) : '' };
}
