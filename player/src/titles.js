// What the name of a file tells about its film: title and year, or series, season and episode. Televisions get the same
// from webapi/library/film_title.cpp; tests/player/titles.json has names for both.
import { nameOf } from './format.js';
import { PATTERNS } from './title_patterns.js';

const matching = (pattern) => new RegExp(pattern, 'i');
const ENDING = matching(PATTERNS.ending);
const EPISODES = PATTERNS.numbered.map(matching);
const SEASON_FOLDER = matching(PATTERNS.seasonFolder);
const LEADING_NUMBER = matching(PATTERNS.leadingNumber);
const YEAR_OF_SHOW = matching(PATTERNS.yearOfShow);
const YEAR = matching(PATTERNS.year);
const LINES = matching(PATTERNS.lines);
const COPY = matching(PATTERNS.copy);

export const isSeasonFolder = (name) => SEASON_FOLDER.test(name);

const withoutCopy = (text) => text.replace(COPY, '');

// Dots and underscores stand for spaces in a name that has none.
const spaced = (text) => (text.includes(' ') ? text : text.replace(/[._]+/g, ' ')).replace(/^[\s.-]+|[\s-]+$/g, '');

// `rest` has lost the gap before it, which a word for the copy needs.
const restTitle = (rest) => spaced(withoutCopy(`.${rest}`));

const stemOf = (name) => name.replace(ENDING, '') || name;

function numbered(stem) {
  for (const pattern of EPISODES) {
    const [found, show, season, episode, rest] = stem.match(pattern) ?? [];
    if (found !== undefined) {
      return { show: spaced(show.replace(YEAR_OF_SHOW, '') || show), season: Number(season), episode: Number(episode), title: restTitle(rest) };
    }
  }
  return null;
}

// In a folder like "Season 2", a leading number is the episode's.
function inSeason(stem, folders) {
  const [, season] = folders.at(-1)?.match(SEASON_FOLDER) ?? [];
  const [, episode, rest = ''] = (season && stem.match(LEADING_NUMBER)) || [];
  return episode && { show: folders.at(-2) ?? '', season: Number(season), episode: Number(episode), title: restTitle(rest) };
}

function dated(stem) {
  const [, before, year] = stem.match(YEAR) ?? [];
  return year && { title: spaced(withoutCopy(before)), year: Number(year) };
}

const copied = (stem) => LINES.test(stem) && { title: spaced(withoutCopy(stem)) };

// { title, year, show, season, episode } of the film with this name in these folders; `plain` if the name tells no more
// than itself, and then `title` is the name without its ending. Members that are not known are missing.
export function titleOf(name, folders = []) {
  const stem = stemOf(name);
  const found = numbered(stem) || inSeason(stem, folders) || dated(stem) || copied(stem);
  return found && (found.title || found.episode !== undefined) ? { ...found, plain: false } : { title: stem, plain: true };
}

const foldersOf = (encodedPath) => encodedPath.split('/').slice(-3, -1).map(nameOf);

export const titleOfEntry = (entry) => titleOf(entry.name ?? nameOf(entry.encoded_path), foldersOf(entry.encoded_path));

// What is known of a film when its card has come: the notes beside it count first, then its name, then its tags.
export function withCard(about, { title = '', notes = {} }) {
  if (notes.title) {
    return { ...about, ...notes, plain: false };
  }
  return about.plain && title ? { title, plain: false } : about;
}

const two = (number) => String(number).padStart(2, '0');

// "S01E02"
export const episodeCode = ({ season, episode }) => `S${two(season)}E${two(episode)}`;

// One line that tells a film from all others: "The Long Journey (2019)", "Harbour Lights S01E02 – The Storm".
export function lineOf(about, name) {
  if (about.episode !== undefined) {
    const place = [about.show, episodeCode(about)].filter(Boolean).join(' ');
    return about.title ? `${place} – ${about.title}` : place;
  }
  if (about.plain) {
    return name;
  }
  return about.year ? `${about.title} (${about.year})` : about.title;
}
