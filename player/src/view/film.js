// The page of a film: its tracks, how it would be played, and the buttons that start it.
import { addressOf, get } from '../api.js';
import { element, table } from '../dom.js';
import { clockText, codecText, frameRateText, languageText, nameOf, rangeText, rateText, sizeText } from '../format.js';
import { forget, markWatched, marks, placeOf } from '../history.js';
import { counted, t } from '../language.js';
import { filmInfo } from '../playback/client.js';
import { abilitiesOf, kindsFor, kindText, methodText, plan, playsAs, usualWay } from '../playback/kinds.js';
import { openParameters } from '../playback/opening.js';
import { warmth } from '../playback/warmth.js';
import { reasonText } from '../reasons.js';
import { episodeCode, lineOf, titleOfEntry, withCard } from '../titles.js';
import { isBroken, wordsOf } from '../words.js';
import { openElsewhere } from './elsewhere.js';
import { breadcrumbs, crumbsOf } from './library.js';
import { openDownload } from './download.js';
import { attempt, parseAddress, playAddress } from './page.js';
import { choiceOf } from './preferences.js';
import { queueButton } from './queue_view.js';

const POSTER_WIDTH = 640;
const BACKDROP_WIDTH = 1280;

const list = (...facts) => facts.filter(Boolean).join(', ');
const codecOf = (track) => codecText(track.codec || track.codec_raw) || t('unknown');

const TRACKS = {
  video: (track) =>
    list(
      codecOf(track),
      rangeText(track.dynamic_range),
      track.profile,
      track.resolutionx && `${track.resolutionx} × ${track.resolutiony}`,
      frameRateText(track.framerate),
      track.pix_fmt,
      track.bitrate > 0 && rateText(track.bitrate),
    ),
  audio: (track) =>
    list(codecOf(track), languageText(track.language), track.title, track.channel_layout || (track.channel && counted(track.channel, '{count} channel', '{count} channels')), track.bitrate > 0 && rateText(track.bitrate)),
};

export const audioText = (track, index) => list(languageText(track.language), track.title, codecOf(track)) || t('Track {number}', { number: index + 1 });

// A subtitle file's title is its name.
export const subtitleText = (subtitle, index) => list(languageText(subtitle.language), subtitle.title, subtitle.forced && t('forced')) || t('Subtitle {number}', { number: index + 1 });

function tracksTable({ metadata, subtitles }) {
  const { video = [], audio = [] } = metadata.track_info;
  const rows = [
    ...video.map((track) => [track.attached_pic ? t('Cover') : t('Video'), TRACKS.video(track)]),
    ...audio.map((track) => [t('Audio'), TRACKS.audio(track)]),
    ...subtitles.map((subtitle, index) => [t('Subtitle'), subtitleText(subtitle, index)]),
  ];
  return table(t('Tracks of this film'), [t('Track'), t('Details')], rows);
}

// How the film plays if the viewer chooses nothing: { kind, choice, used }, `used` as for playsAs.
function wayOf(info, kinds) {
  const choice = choiceOf(info, kinds);
  const [kind] = plan(info, abilitiesOf(document.createElement('video')), choice);
  return { kind, choice, used: usualWay(info, kind, kind === choice.kind ? choice.profile : '') };
}

// Prepares what the viewer will probably do next: loads the player, and lets the server make the first pieces of a film
// that it has to cut. They wait for the player if the viewer goes there, and are given up otherwise.
function prepare(path, info, kinds, second, signal) {
  import('./player.js').catch(() => {}); // it is loaded again when it is needed
  const { kind, choice } = wayOf(info, kinds);
  if (kind !== 'cmaf') {
    return;
  }
  import('../playback/cmaf/engine.js').catch(() => {});
  warmth.warm(path, openParameters(info, choice, kind, second));
  signal.addEventListener('abort', () => {
    const next = parseAddress(window.location.hash);
    if (next.view !== 'play' || next.path !== path) {
      warmth.drop();
    }
  });
}

const summary = (info, kinds) => (kinds.length > 0 ? playsAs(info, wayOf(info, kinds).used) : t('This browser cannot play this film.'));

function profilesTable(info) {
  const direct = info.direct ? [[kindText('direct'), '', methodText(info.direct.fits ? 'direct' : 'refused'), reasonText(info.direct.why)]] : [];
  const rows = info.profiles.map((profile) => [
    kindText(profile.format),
    profile.default ? element('strong', {}, t('{key} (default)', { key: profile.key })) : profile.key,
    methodText(profile.method),
    reasonText(profile.why),
  ]);
  return table(t('Playback methods of this film'), [t('Method'), t('Quality'), t('Conversion'), t('Reason')], [...direct, ...rows]);
}

// What only the curious read.
function details(info, kinds) {
  const { kind, used } = kinds.length > 0 ? wayOf(info, kinds) : {};
  return element(
    'details',
    {},
    element('summary', {}, t('Details')),
    used ? element('p', {}, `${kindText(kind)}: ${reasonText(used.why)}`) : null,
    element('h2', {}, t('Tracks')),
    tracksTable(info),
    element('h2', {}, t('All playback methods and qualities')),
    profilesTable(info),
  );
}

function startButtons(entry, second, info) {
  const from = (where, text, isMain) => element('a', { href: playAddress(entry, where), class: isMain ? 'button main' : 'button' }, text);
  const start = second > 0 ? [from(second, t('Resume at {time}', { time: clockText(second) }), true), from(0, t('Play from the beginning'))] : [from(0, t('Play'), true)];
  return [...start, element('button', { type: 'button', on: { click: () => openElsewhere(entry, info) } }, t('Play elsewhere'))];
}

// Marks the film as watched to its end, or as not watched.
function markButton(entry, isWatched, duration) {
  let watched = isWatched;
  const button = element('button', { type: 'button', 'aria-pressed': watched });
  const show = () => {
    button.textContent = watched ? t('Mark as not watched') : t('Mark as watched');
    button.setAttribute('aria-pressed', watched);
  };
  button.addEventListener('click', () =>
    attempt(async () => {
      await (watched ? forget(entry.encoded_path) : markWatched(entry.encoded_path, duration));
      watched = !watched;
      show();
    }),
  );
  show();
  return button;
}

function actions(entry, mark, info, canPlay) {
  const second = placeOf(mark);
  return element(
    'p',
    { class: 'actions' },
    canPlay ? startButtons(entry, second, info) : null,
    canPlay ? queueButton(entry) : null,
    markButton(entry, Boolean(mark?.finished), info.metadata.duration),
    element('button', { type: 'button', on: { click: () => openDownload(entry, info) } }, t('Download')),
  );
}

// The picture that lies behind the film's name: the one beside the film, else its poster.
function hero(entry) {
  const poster = element('img', { class: 'large', alt: '', src: addressOf('Library', 'poster', { width: POSTER_WIDTH }, entry.encoded_path) });
  poster.addEventListener('error', () => poster.remove());
  const backdrop = element('img', { class: 'backdrop', alt: '', src: addressOf('Library', 'poster', { width: BACKDROP_WIDTH, art: 'backdrop' }, entry.encoded_path) });
  backdrop.addEventListener('error', () => backdrop.remove());
  return [backdrop, poster];
}

function factsOf(about, { music, artist, album }, { duration, filesize }) {
  const series = about.episode !== undefined && [about.show, episodeCode(about)].filter(Boolean).join(' ');
  return list(series, about.year && String(about.year), music && artist, music && album, clockText(duration), filesize && sizeText(Number(filesize)));
}

function chaptersOf(entry, chapters = []) {
  const items = chapters.map(({ start, title }, index) =>
    element('li', {}, element('a', { href: playAddress(entry, start) }, element('span', { class: 'when' }, clockText(start)), ` ${title || t('Chapter {number}', { number: index + 1 })}`)),
  );
  return items.length > 1 ? [element('h2', {}, t('Chapters')), element('ol', { class: 'chapters' }, items)] : [];
}

const NO_CARD = { title: '', notes: {} };

// The media folders and files, which only the first steps to a film name.
const rootsOf = ({ folders, files }) => [...folders, ...files];

// The path from its media folder on, as it is on the disk.
const pathText = (path, roots) => crumbsOf(path, roots).map(({ name }) => name).join('/');

// What is left of the page if the film cannot be played: which one it is, and why.
async function brokenView(entry, error, signal) {
  const roots = rootsOf(await get('Library', 'list', {}, '', { signal }));
  const name = lineOf(titleOfEntry(entry), entry.name);
  const { sentence, next } = wordsOf(error);
  return {
    title: name,
    nodes: [
      breadcrumbs(crumbsOf(entry.encoded_path, roots).slice(0, -1), name),
      element('h1', {}, name),
      element('p', { class: 'facts' }, pathText(entry.encoded_path, roots)),
      element('p', { role: 'status' }, `${sentence} ${next}`),
    ],
  };
}

// The page of a film, or of one that cannot be played.
export async function filmView({ path }, signal) {
  const entry = { name: nameOf(path), encoded_path: path };
  try {
    return await wholeView(entry, signal);
  } catch (error) {
    if (!isBroken(error)) {
      throw error;
    }
    return brokenView(entry, error, signal);
  }
}

async function wholeView(entry, signal) {
  const { encoded_path: path } = entry;
  const [roots, info, seen, card] = await Promise.all([
    get('Library', 'list', {}, '', { signal }),
    filmInfo(path, { signal }),
    marks(),
    get('Library', 'card', {}, path, { signal, quiet: true }).catch(() => NO_CARD),
  ]);
  const about = withCard(titleOfEntry(entry), card);
  const name = lineOf(about, entry.name);
  const kinds = kindsFor(info, abilitiesOf(document.createElement('video')));
  if (kinds.length > 0 && !signal.aborted) {
    prepare(path, info, kinds, placeOf(seen.get(path)), signal);
  }
  const crumbs = crumbsOf(path, rootsOf(roots)).slice(0, -1);
  return {
    title: name,
    nodes: [
      breadcrumbs(crumbs, name),
      element(
        'div',
        { class: 'hero' },
        hero(entry),
        element(
          'div',
          { class: 'about' },
          element('h1', { title: entry.name }, name),
          element('p', { class: 'facts' }, factsOf(about, card, info.metadata)),
          about.plot ? element('p', { class: 'plot' }, about.plot) : null,
          actions(entry, seen.get(path), info, kinds.length > 0),
          element('p', {}, summary(info, kinds)),
        ),
      ),
      ...chaptersOf(entry, info.metadata.chapters),
      details(info, kinds),
    ],
  };
}
