// What the name of a file tells about its film: title and year, or series, season and episode.
import { nameOf } from './format.js';

const ENDING = /\.[A-Za-z0-9]{2,4}$/;
const GAP = '[\\s._-]*';
const YEAR = /^(.*?[^\s._([-])[\s._-]*[\s._([](18[89]\d|19\d\d|20\d\d)(?=$|[\s._)\]-])(.*)$/;
const NUMBERED = [
  new RegExp(`^(.*?)${GAP}\\bs(\\d{1,2})${GAP}e(\\d{1,3})(?:-?e\\d{1,3})*(?=$|[\\s._\\])-])${GAP}(.*)$`, 'i'),
  new RegExp(`^(.*?)${GAP}\\b(\\d{1,2})x(\\d{2,3})(?=$|[\\s._\\])-])${GAP}(.*)$`, 'i'),
];
const SEASON_FOLDER = /^(?:season|series|staffel|saison|s)[\s._-]*(\d{1,2})$/i;
export const isSeasonFolder = (name) => SEASON_FOLDER.test(name);

const LEADING_NUMBER = /^(?:e|ep|episode|folge)?[\s._-]*(\d{1,3})(?:[\s._-]+(.*))?$/i;
const LINES = /[\s._[(-](?:4320|2160|1440|1080|720|576|480)[pi](?=$|[\s._\])-])/i;
// Words with which people describe a copy of a film. What follows them is not part of its title.
const COPY = /[\s._-]*[\s._[(-](?:\d{3,4}[pi]|4k|uhd|hdr(?:10)?|blu-?ray|b[dr]rip|web(?:-?dl|-?rip)?|hdtv|dvd(?:rip)?|remux|[xh]\.?26[45]|hevc|av1|xvid|10bit|proper|extended|unrated)(?=$|[\s._\])-]).*$/i;

const withoutCopy = (text) => text.replace(COPY, '');

// Dots and underscores stand for spaces in a name that has none.
const spaced = (text) => (text.includes(' ') ? text : text.replace(/[._]+/g, ' ')).replace(/^[\s.-]+|[\s-]+$/g, '');

// `rest` has lost the gap before it, which a word for the copy needs.
const restTitle = (rest) => spaced(withoutCopy(`.${rest}`));

const stemOf = (name) => name.replace(ENDING, '') || name;

function numbered(stem) {
  for (const pattern of NUMBERED) {
    const [found, show, season, episode, rest] = stem.match(pattern) ?? [];
    if (found !== undefined) {
      return { show: spaced(show.replace(/[\s._]*\(?(?:19|20)\d\d\)?$/, '') || show), season: Number(season), episode: Number(episode), title: restTitle(rest) };
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
