// What the viewer likes, kept by the browser. Nothing of a session or a film is.

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
    // A browser that keeps nothing plays all the same.
  }
}

// What to play a film with at first: the subtitle in the language that was chosen last.
export function choiceOf(info) {
  const { subtitleLanguage } = preferences();
  const subtitle = subtitleLanguage && info.subtitles.find(({ language }) => language === subtitleLanguage);
  return { kind: '', profile: '', audio: '', subtitle: subtitle ? String(subtitle.id) : '' };
}
