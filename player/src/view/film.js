// The page of a film: its tracks, how it would be played, and the buttons that start it.
import { addressOf, get } from '../api.js';
import { element, table } from '../dom.js';
import { clockText, codecText, frameRateText, languageText, nameOf, rangeText, rateText, sizeText } from '../format.js';
import { forget, markWatched, marks } from '../history.js';
import { t } from '../language.js';
import { filmInfo } from '../playback/client.js';
import { abilitiesOf, KINDS, kindsFor, plan, playsAs } from '../playback/kinds.js';
import { openElsewhere } from './elsewhere.js';
import { breadcrumbs, crumbsOf } from './library.js';
import { lineFor } from './names.js';
import { openDownload } from './download.js';
import { attempt, playAddress } from './page.js';
import { choiceOf } from './preferences.js';
import { queueButton } from './queue_view.js';

const POSTER_WIDTH = 640;

const list = (...facts) => facts.filter(Boolean).join(', ');
const codecOf = (track) => codecText(track.codec || track.codec_raw) || 'unknown';

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
    list(codecOf(track), languageText(track.language), track.title, track.channel_layout || (track.channel && `${track.channel} channels`), track.bitrate > 0 && rateText(track.bitrate)),
};

export const audioText = (track, index) => list(languageText(track.language), track.title, codecOf(track)) || `Track ${index + 1}`;

// A subtitle file's title is its name.
export const subtitleText = (subtitle, index) => list(languageText(subtitle.language), subtitle.title) || `Subtitle ${index + 1}`;

function tracksTable({ metadata, subtitles }) {
  const { video = [], audio = [] } = metadata.track_info;
  const rows = [
    ...video.map((track) => [track.attached_pic ? 'Cover' : 'Video', TRACKS.video(track)]),
    ...audio.map((track) => ['Audio', TRACKS.audio(track)]),
    ...subtitles.map((subtitle, index) => ['Subtitle', subtitleText(subtitle, index)]),
  ];
  return table('Tracks of this film', ['Track', 'Details'], rows);
}

const METHODS = { direct: 'Not converted', remux: 'Video copied', transcode: 'Converted', refused: 'Not available' };
const methodText = ({ method }) => METHODS[method] ?? method;

// How the film plays if the viewer chooses nothing: { kind, used }, `used` as for playsAs.
function usualWay(info, kinds) {
  const choice = choiceOf(info, kinds);
  const [kind] = plan(info, abilitiesOf(document.createElement('video')), choice);
  const isUsed = ({ format, key, default: isDefault }) => format === kind && (choice.profile ? key === choice.profile : isDefault);
  return { kind, used: kind === 'direct' ? { method: 'direct', why: info.direct.why } : info.profiles.find(isUsed) };
}

const summary = (info, kinds) => (kinds.length > 0 ? playsAs(info, usualWay(info, kinds).used) : 'This browser cannot play this film.');

function profilesTable(info) {
  const direct = info.direct ? [[KINDS.direct, '', METHODS[info.direct.fits ? 'direct' : 'refused'], info.direct.why]] : [];
  const rows = info.profiles.map((profile) => [
    KINDS[profile.format] ?? profile.format,
    profile.default ? element('strong', {}, `${profile.key} (default)`) : profile.key,
    methodText(profile),
    profile.why,
  ]);
  return table('Playback methods of this film', ['Method', 'Quality', 'Conversion', 'Reason'], [...direct, ...rows]);
}

// What only the curious read.
function details(info, kinds) {
  const { kind, used } = kinds.length > 0 ? usualWay(info, kinds) : {};
  return element(
    'details',
    {},
    element('summary', {}, 'Details'),
    used ? element('p', {}, `${KINDS[kind]}: ${used.why ?? ''}`) : null,
    element('h2', {}, 'Tracks'),
    tracksTable(info),
    element('h2', {}, 'All playback methods and qualities'),
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
  const second = mark && !mark.finished ? mark.position : 0;
  return element(
    'p',
    { class: 'actions' },
    canPlay ? startButtons(entry, second, info) : null,
    canPlay ? queueButton(entry) : null,
    markButton(entry, Boolean(mark?.finished), info.metadata.duration),
    element('button', { type: 'button', on: { click: () => openDownload(entry, info) } }, t('Download')),
  );
}

function poster(entry) {
  const image = element('img', { class: 'large', alt: '', src: addressOf('Library', 'poster', { width: POSTER_WIDTH }, entry.encoded_path) });
  image.addEventListener('error', () => image.remove());
  return image;
}

export async function filmView({ path }, signal) {
  const entry = { name: nameOf(path), encoded_path: path };
  const name = lineFor(entry);
  const [roots, info, seen] = await Promise.all([
    get('Library', 'list', {}, '', { signal }),
    filmInfo(path, { signal }),
    marks(),
  ]);
  const kinds = kindsFor(info, abilitiesOf(document.createElement('video')));
  const { duration, filesize } = info.metadata;
  const crumbs = crumbsOf(path, [...roots.folders, ...roots.files]).slice(0, -1);
  return {
    title: name,
    nodes: [
      breadcrumbs(crumbs, name),
      element('h1', { title: entry.name }, name),
      poster(entry),
      element('p', {}, list(clockText(duration), filesize && sizeText(Number(filesize)))),
      actions(entry, seen.get(path), info, kinds.length > 0),
      element('p', {}, summary(info, kinds)),
      details(info, kinds),
    ],
  };
}
