// What the page sends to open a film with a playback method.
import { segmentCodecs } from './client.js';
import { nightNamed } from './cmaf/presentation.js';

const audioTracks = (info) => info.metadata.track_info?.audio ?? [];

// What the viewer has chosen in a presentation: the name of a rendition, the number of a track, and its treatment.
// `choice`: as for Playback.play().
export function wishFor(info, choice, kind) {
  const { audio, profile, treatment } = choice;
  const track = audioTracks(info).find(({ id }) => id === audio)?.track;
  return { quality: kind === choice.kind ? profile : '', sound: track === undefined ? undefined : Number(track), treatment };
}

// Where the track that plays stands in the film's list.
function soundPosition(info, { audio }) {
  return Math.max(0, audioTracks(info).findIndex((track) => (audio ? track.id === audio : track.is_default)));
}

// The server starts these renditions.
function cmafParameters(info, choice) {
  const { quality, treatment } = wishFor(info, choice, 'cmaf');
  const night = treatment ? nightNamed(soundPosition(info, choice)) : '';
  return { codecs: segmentCodecs(), profile: '', renditions: [quality, night].filter(Boolean).join() };
}

// The parameters of `open`. `second`: where the film begins.
export function openParameters(info, choice, kind, second) {
  const { profile, audio, treatment } = choice;
  return {
    ...info.client,
    format: kind,
    // A quality belongs to one playback method.
    profile: kind === choice.kind ? profile : '',
    audio_id: kind === 'direct' ? '' : audio,
    ...(treatment && kind !== 'direct' && { sound: treatment }),
    // The server starts the conversion there before the player asks for the first piece.
    start: String(Math.floor(second)),
    // A viewer does not wait for a conversion that nobody watches.
    force_open_qmx: 'true',
    ...(kind === 'cmaf' && cmafParameters(info, choice)),
  };
}
