// The playback methods, and the order in which the page tries them.
import { codecText, rangeText, sizeName } from '../format.js';
import { t } from '../language.js';
import { renditionNamed } from './cmaf/presentation.js';

const KINDS = {
  direct: 'Original file',
  cmaf: 'CMAF',
  hls: 'HLS',
  http: 'MP4 stream',
  webm: 'WebM stream',
  ss: 'Smooth Streaming',
};

// The name of a method, as a viewer reads it.
export const kindText = (kind) => t(KINDS[kind] ?? kind ?? '');

const METHODS = { direct: 'Not converted', remux: 'Video copied', transcode: 'Converted', refused: 'Not available', adaptive: 'Several qualities' };

// What the server does with the film, as a viewer reads it.
export const methodText = (method) => t(METHODS[method] ?? method ?? '');

const ORDER = ['direct', 'cmaf', 'hls', 'http', 'webm', 'ss'];
// The server encodes presentations in software, and other streams on its video engine.
const ENGINE_ORDER = ['direct', 'hls', 'cmaf', 'http', 'webm', 'ss'];

// The media type that a browser needs from a progressive stream.
const PROGRESSIVE = { http: 'video/mp4', webm: 'video/webm' };

// The profiles of a film that a browser can play with this method.
export function profilesOf(info, kind) {
  return info.profiles.filter(
    (profile) =>
      profile.format === kind &&
      profile.method !== 'refused' &&
      (!PROGRESSIVE[kind] || (profile.content_type ?? PROGRESSIVE[kind]) === PROGRESSIVE[kind]),
  );
}

// A server that lists only the progressive profiles may still have others.
export const mayHave = (info, kind) => profilesOf(info, kind).length > 0 || info.profiles.every(({ format }) => format === 'http');

// The formats that this browser plays. `video`: any video element.
export function abilitiesOf(video) {
  const source = globalThis.ManagedMediaSource ?? globalThis.MediaSource;
  const plays = (type) => video.canPlayType(type) !== '';
  return {
    plays,
    cmaf: Boolean(globalThis.MediaSource?.isTypeSupported('video/mp4; codecs="avc1.42E01E,mp4a.40.2"')),
    segments: Boolean(source?.isTypeSupported('video/mp4; codecs="avc1.42E01E,mp4a.40.2"')),
    nativeHls: plays('application/vnd.apple.mpegurl'),
    mp4: plays('video/mp4; codecs="avc1.42E01E,mp4a.40.2"'),
    webm: plays('video/webm; codecs="vp8,vorbis"'),
  };
}

const FITS = {
  direct: (info, can) => Boolean(info.direct?.fits) && (!info.direct.content_type || can.plays(info.direct.content_type)),
  cmaf: (info, can) => can.cmaf && info.profiles.length > 0,
  hls: (info, can) => (can.segments || can.nativeHls) && mayHave(info, 'hls'),
  http: (info, can) => can.mp4 && profilesOf(info, 'http').length > 0,
  webm: (info, can) => can.webm && mayHave(info, 'webm'),
  ss: (info, can) => can.segments && mayHave(info, 'ss'),
};

// Must the pictures be encoded, and has the server an engine for that?
const usesEngine = (info) => Boolean(info.not_copied) && profilesOf(info, 'hls').some((profile) => profile.default && profile.hardware);

// The methods that this film and this browser support, best first.
export const kindsFor = (info, can) => (usesEngine(info) ? ENGINE_ORDER : ORDER).filter((kind) => FITS[kind](info, can));

// The methods to try for the viewer's choice { kind, profile, audio, treatment }: the chosen one first, then the others.
// The original file has one quality and plays its first audio track as it is.
export function plan(info, can, choice) {
  const firstAudio = info.metadata?.track_info?.audio?.[0]?.id;
  const otherSound = choice.audio && firstAudio !== undefined && choice.audio !== firstAudio;
  const possible = kindsFor(info, can);
  // A film that has no other method sounds as it is.
  const isTreated = Boolean(choice.treatment) && possible.some((kind) => kind !== 'direct');
  const open = possible.filter((kind) => kind !== 'direct' || (!otherSound && !isTreated && (!choice.profile || choice.kind === 'direct')));
  const chosen = open.filter((kind) => kind === choice.kind);
  return [...chosen, ...open.filter((kind) => kind !== choice.kind)];
}

// The parts of a profile's key besides its size: container, codecs and rates.
const PACKING = /^(mp4|ts|webm|aac|vorbis|opus|x264|vp8|[av][bf]\d+)$/;
const SIZE = /^(?:hd)?(\d{3,4})p?$/;
const RATE = /_vb(\d+)/;

const partsOf = (profile) => profile.key.split('_').slice(1).filter((part) => !PACKING.test(part));
const namedLines = (profile) => Number(partsOf(profile).map((part) => part.match(SIZE)?.[1]).find(Boolean) ?? 0);
// A portrait film's quality has the lines of its shorter side.
const linesOf = (profile) => namedLines(profile) || Math.min(profile.width ?? Infinity, profile.height ?? 0);

// A profile's readable name, the same in every language: "http_mp4_720p_vb2500_ab128" -> "720p", "hls_remux" -> "Original quality".
export function profileText(profile) {
  const parts = partsOf(profile);
  if (parts.includes('remux')) {
    return 'Original quality';
  }
  const lines = linesOf(profile);
  const others = parts.filter((part) => !SIZE.test(part));
  return [lines > 0 ? `${lines}p` : '', ...others].filter(Boolean).join(' ') || profile.key;
}

// The qualities of one playback method: copied video first, then the largest size first. If several have the same
// size, their texts include the rate.
export function qualities(info, kind) {
  const rank = (profile) => (profile.method === 'transcode' ? linesOf(profile) : Infinity);
  const profiles = [...profilesOf(info, kind)].sort((a, b) => (rank(a) === rank(b) ? 0 : rank(b) - rank(a)));
  const texts = profiles.map(profileText);
  const isAlone = (text) => texts.indexOf(text) === texts.lastIndexOf(text);
  return profiles.map((profile, index) => {
    const text = texts[index];
    const rate = isAlone(text) ? undefined : profile.key.match(RATE)?.[1];
    return { value: profile.key, text: rate ? `${text}, ${rate} kbit/s` : text, profile };
  });
}

// How the server would process the film with this method and profile: { method, key, why }. A presentation's renditions
// are known when it is open; before that, it is taken to copy what HLS copies.
export function usualWay(info, kind, profile) {
  if (kind === 'direct') {
    return { method: 'direct', why: info.direct.why };
  }
  if (kind === 'cmaf' && profile.startsWith('h264-')) {
    return { method: 'transcode', key: profile.replace('h264-', 'cmaf_').concat('p') };
  }
  const format = kind === 'cmaf' ? 'hls' : kind;
  const key = kind === 'cmaf' ? '' : profile;
  return info.profiles.find((row) => row.format === format && (key ? row.key === key : row.default));
}

// The quality with this text as { kind, profile }: of the first of these methods that has it. null if none does.
export function qualityNamed(info, kinds, text) {
  for (const kind of kinds.filter((name) => name !== 'direct')) {
    if (kind === 'cmaf') {
      return { kind, profile: renditionNamed(text) };
    }
    const found = qualities(info, kind).find((quality) => quality.text === text);
    if (found) {
      return { kind, profile: found.value };
    }
  }
  return null;
}

// Is the film music, with or without a cover?
export function isMusic(info) {
  const { video = [], audio = [] } = info.metadata?.track_info ?? {};
  return audio.length > 0 && video.every((track) => track.attached_pic);
}

function factsOf(info) {
  const { video: [picture] = [], audio: [sound] = [] } = info.metadata?.track_info ?? {};
  if (isMusic(info)) {
    return [t('Music'), codecText(sound.codec || sound.codec_raw)];
  }
  const size = sizeName(picture?.display_x ?? picture?.resolutionx ?? 0, picture?.display_y ?? picture?.resolutiony ?? 0);
  return [size, codecText(picture?.codec || picture?.codec_raw), rangeText(picture?.dynamic_range)];
}

function conversionOf(info, used) {
  if (isMusic(info)) {
    return t('sound is converted on this server');
  }
  if (!used?.key) {
    return '';
  }
  const quality = t(profileText(used));
  const isHigh = rangeText(info.metadata?.track_info?.video?.[0]?.dynamic_range) !== '';
  return isHigh ? t('converted to {quality} in standard colors on this server', { quality }) : t('converted to {quality} on this server', { quality });
}

// How the film plays, in the viewer's words: "1080p, H.264, plays as it is". `used`: { method, key }, as the server
// describes a profile, or with the method "direct". Profiles that it does not offer convert the picture.
export function playsAs(info, used) {
  const how = {
    direct: t('plays as it is'),
    remux: t('picture plays as it is, sound is converted on this server'),
    transcode: conversionOf(info, used),
  };
  return [...factsOf(info), how[used?.method ?? 'transcode']].filter(Boolean).join(', ');
}
