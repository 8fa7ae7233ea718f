// How the name of a film is shown.
import { element } from '../dom.js';
import { t } from '../language.js';
import { lineOf, titleOfEntry } from '../titles.js';

// A line of text for headings and for the page's title.
export const lineFor = (entry) => lineOf(titleOfEntry(entry), entry.name);

// The name in a tile. A name that tells no more than itself keeps its ending for programs that read it aloud.
export function nameNode(entry, isInSeason = false, about = titleOfEntry(entry)) {
  if (about.plain) {
    const ending = entry.name.slice(about.title.length);
    return element('span', { class: 'name' }, about.title, ending && element('span', { class: 'ending' }, ending));
  }
  const line = isInSeason && about.title ? `${about.episode}. ${about.title}` : lineOf(about, entry.name);
  return element('span', { class: 'name', title: entry.name }, line);
}

// "Harbour Lights – Season 1" for an episode; '' for another film.
export function seasonText({ episode, season, show }) {
  return episode === undefined ? '' : [show, t('Season {season}', { season })].filter(Boolean).join(' – ');
}
