// The ways in which a film can be played, and which to try in which order.

export const KINDS = {
  direct: 'The file itself',
  hls: 'Segments (HLS)',
  http: 'One stream (MP4)',
  webm: 'One stream (WebM)',
  ss: 'Smooth Streaming',
};

const ORDER = ['direct', 'hls', 'http', 'webm', 'ss'];

// What a progressive stream has to be for a browser.
const PROGRESSIVE = { http: 'video/mp4', webm: 'video/webm' };

// The profiles of a film that a browser could play in this way.
export function profilesOf(info, kind) {
  return info.profiles.filter(
    (profile) =>
      profile.format === kind &&
      profile.method !== 'refused' &&
      (!PROGRESSIVE[kind] || (profile.content_type ?? PROGRESSIVE[kind]) === PROGRESSIVE[kind]),
  );
}

// Does the server tell of profiles other than the progressive ones? One that does not can segment all the same.
const tellsAll = (info) => info.profiles.some(({ format }) => format !== 'http');

// What this browser plays. `video`: any video element.
export function abilitiesOf(video) {
  const source = globalThis.ManagedMediaSource ?? globalThis.MediaSource;
  const plays = (type) => video.canPlayType(type) !== '';
  return {
    plays,
    segments: Boolean(source?.isTypeSupported('video/mp4; codecs="avc1.42E01E,mp4a.40.2"')),
    nativeHls: plays('application/vnd.apple.mpegurl'),
    mp4: plays('video/mp4; codecs="avc1.42E01E,mp4a.40.2"'),
    webm: plays('video/webm; codecs="vp8,vorbis"'),
  };
}

const FITS = {
  direct: (info, can) => Boolean(info.direct?.fits) && (!info.direct.content_type || can.plays(info.direct.content_type)),
  hls: (info, can) => (can.segments || can.nativeHls) && (!tellsAll(info) || profilesOf(info, 'hls').length > 0),
  http: (info, can) => can.mp4 && profilesOf(info, 'http').length > 0,
  webm: (info, can) => can.webm && profilesOf(info, 'webm').length > 0,
  ss: (info, can) => can.segments && profilesOf(info, 'ss').length > 0,
};

// The ways that are open to this film in this browser, best first.
export const kindsFor = (info, can) => ORDER.filter((kind) => FITS[kind](info, can));

// What to try for the viewer's choice { kind, profile, audio }: the way that was chosen first, then the others.
// The file itself has no other quality than its own and plays its first sound track.
export function plan(info, can, choice) {
  const firstAudio = info.metadata?.track_info?.audio?.[0]?.id;
  const otherSound = choice.audio && firstAudio !== undefined && choice.audio !== firstAudio;
  const open = kindsFor(info, can).filter((kind) => kind !== 'direct' || (!otherSound && (!choice.profile || choice.kind === 'direct')));
  const chosen = open.filter((kind) => kind === choice.kind);
  return [...chosen, ...open.filter((kind) => kind !== choice.kind)];
}

// A profile's name for people: "http_mp4_720p_vb2500_ab128" -> "720p", "hls_remux" -> "Original picture".
export function profileText(profile) {
  const words = profile.key.replace(/_v[bq]\d+.*$/, '').split('_').slice(1);
  const named = words.filter((word) => !['mp4', 'ts', 'webm'].includes(word));
  if (named.includes('remux')) {
    return 'Original picture';
  }
  return named.join(' ') || (profile.height ? `${profile.height}p` : profile.key);
}

const HEIGHT = /(\d+)p/;
const heightOf = (profile) => profile.height || Number(profile.key.match(HEIGHT)?.[1] ?? 0);

// The qualities of one way of playing, the largest first, a copied picture before all.
export function qualities(info, kind) {
  const rank = (profile) => (profile.method === 'transcode' ? heightOf(profile) : Infinity);
  return [...profilesOf(info, kind)]
    .sort((a, b) => (rank(a) === rank(b) ? 0 : rank(b) - rank(a)))
    .map((profile) => ({ value: profile.key, text: profileText(profile), profile }));
}
