// What this browser and its screen can show, in the words of the web API.
import { get } from '../api.js';

// The codecs that decide whether a film plays as it is, each with the media type that the browser is asked about.
// `high`: the transfer function of films of a high dynamic range that are coded like that.
const CODECS = [
  { name: 'avc1.640028', type: 'video/mp4; codecs="avc1.640028"' },
  { name: 'hvc1.1.6.L120.90', type: 'video/mp4; codecs="hvc1.1.6.L120.90"' },
  { name: 'hvc1.2.4.L120.90', type: 'video/mp4; codecs="hvc1.2.4.L120.90"', high: 'pq' },
  { name: 'vp09.00.40.08', type: 'video/webm; codecs="vp09.00.40.08"' },
  { name: 'vp09.02.40.10', type: 'video/webm; codecs="vp09.02.40.10"', high: 'pq' },
  { name: 'av01.0.08M.08', type: 'video/mp4; codecs="av01.0.08M.08"' },
  { name: 'av01.0.08M.10', type: 'video/mp4; codecs="av01.0.08M.10"', high: 'pq' },
  { name: 'mp4a.40.2', type: 'audio/mp4; codecs="mp4a.40.2"' },
  { name: 'opus', type: 'audio/mp4; codecs="opus"' },
  { name: 'flac', type: 'audio/mp4; codecs="flac"' },
  { name: 'ac-3', type: 'audio/mp4; codecs="ac-3"' },
  { name: 'ec-3', type: 'audio/mp4; codecs="ec-3"' },
];

// A film of this codec, as the question about it describes one.
const FILM = { width: 1920, height: 1080, bitrate: 8000000, framerate: 24 };
const question = ({ type, high }) => ({ type: 'file', video: { contentType: type, ...FILM, ...(high && { colorGamut: 'rec2020', transferFunction: high }) } });

const isShown = (codec, capabilities) =>
  capabilities.decodingInfo(question(codec)).then(
    ({ supported, smooth }) => supported && smooth,
    () => false,
  );

// Does the browser decode a high dynamic range in any of its codecs without dropping pictures?
async function decodesHighRange(codecs, capabilities) {
  const answers = await Promise.all(codecs.filter(({ high }) => high).map((codec) => isShown(codec, capabilities)));
  return answers.includes(true);
}

// { codecs, dynamic_range } for requests about films. `plays`: does a video element play this media type?
export async function describeClient(plays, showsHighRange, capabilities = globalThis.navigator?.mediaCapabilities) {
  const codecs = CODECS.filter(({ type }) => plays(type));
  const isHigh = showsHighRange && capabilities !== undefined && (await decodesHighRange(codecs, capabilities));
  return { codecs: codecs.map(({ name }) => name).join(','), dynamic_range: isHigh ? 'hdr' : '' };
}

// The codecs that a segmented stream may have. The server takes a full name as the highest profile and level.
const SEGMENT_CODECS = [
  'avc1.640028',
  'avc1.640034',
  'hvc1.1.6.L120.90',
  'hvc1.1.6.L153.90',
  'hvc1.2.4.L153.90',
  'vp09.00.40.08',
  'vp09.02.40.10',
  'av01.0.08M.08',
  'av01.0.08M.10',
  'mp4a.40.2',
  'mp4a.6B',
  'opus',
  'flac',
  'ac-3',
  'ec-3',
];
const SOUND = /^(?:mp4a|opus|flac|ac-3|ec-3)/;

// Those of them that this browser's MediaSource plays, for `open`.
export const segmentCodecs = (isSupported = (type) => MediaSource.isTypeSupported(type)) =>
  SEGMENT_CODECS.filter((name) => isSupported(`${SOUND.test(name) ? 'audio' : 'video'}/mp4; codecs="${name}"`)).join(',');

let described = null;

function thisClient() {
  const video = document.createElement('video');
  const isHigh = window.matchMedia('(dynamic-range: high)').matches;
  described ??= describeClient((type) => video.canPlayType(type) === 'probably', isHigh);
  return described;
}

const RECENT_MILLISECONDS = 60000;
let recent = { path: '', info: null, until: 0 };

// The description of a film for this browser. Its member `client` holds what the server was told.
export async function filmInfo(path, options) {
  const client = await thisClient();
  const info = { ...(await get('Library', 'info', client, path, options)), client };
  recent = { path, info, until: performance.now() + RECENT_MILLISECONDS };
  return info;
}

// The same; the one that the film's page has just shown costs no request.
export const recentFilmInfo = async (path, options) => (recent.path === path && performance.now() < recent.until ? recent.info : filmInfo(path, options));
