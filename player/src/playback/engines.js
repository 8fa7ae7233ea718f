// The engines that play each kind of stream in this browser.
import { BrowserFile } from './file.js';
import { Segments } from './hls.js';
import { PictureTrack } from './picture_track.js';
import { Progressive } from './progressive.js';
import { Smooth } from './smooth.js';
import { StyledTrack } from './styled_track.js';
import { SubtitleTrack } from './subtitle_track.js';

// The page loads this engine when it first plays a film with it.
const loadCmaf = async () => (await import('./cmaf/engine.js')).Cmaf;

const ENGINES = { direct: BrowserFile, hls: Segments, http: Progressive, webm: Progressive, ss: Smooth };

const isApple = () => navigator.vendor.startsWith('Apple');

function loadedEngine(kind, can) {
  const isNative = kind === 'hls' && (!can.segments || (can.nativeHls && isApple()));
  return isNative ? BrowserFile : ENGINES[kind];
}

// The class, or a promise of it. `can`: the browser's abilities from abilitiesOf().
export const engineFor = (kind, can) => (kind === 'cmaf' ? loadCmaf() : loadedEngine(kind, can));

// Does this browser play this kind from one address, which another device could fetch?
export const hasAddress = (kind, can) => Boolean(loadedEngine(kind, can)?.hasAddress);

const TRACKS = { picture: PictureTrack, ass: StyledTrack };

// The class that shows subtitles of this form. Over other subtitles a script is shown as text, since its styles name
// places of their own.
export const trackFor = (form, isAbove) => (isAbove && form === 'ass' ? SubtitleTrack : (TRACKS[form] ?? SubtitleTrack));
