// Plays a CMAF presentation by MediaSource: pictures and sound apart, each segment from its first bytes on.
import { get } from '../../api.js';
import { isBusy } from '../../words.js';
import { MediaPlayback } from '../media_playback.js';
import { COPIED_SOUND, mediaType, NIGHT, Presentation, qualityText } from './presentation.js';
import { Quality } from './quality.js';
import { Source } from './source.js';
import { Throughput } from './throughput.js';
import { SILENT, Track } from './track.js';

const GAP = 0.5; // seconds without film that the player leaps over
const SETTLED = 1; // seconds after a seek, after which a lack of film tells something about the server
const SOON = 1.5; // seconds before which a change of quality is too late for a segment

const throughput = new Throughput(); // the network stays the same from one film to the next

const bytesOf = (text) => Uint8Array.from(atob(text.replaceAll('-', '+').replaceAll('_', '/')), (sign) => sign.charCodeAt(0));

// Does a viewer hear the same? A copy and its conversion differ for the browser alone.
const soundsAlike = (one, other) => one?.track === other?.track && (one?.treatment === NIGHT) === (other?.treatment === NIGHT);

export class Cmaf extends MediaPlayback {
  constructor(video, hooks) {
    super(video, hooks);
    this.tracks = {};
    this.first = {}; // the renditions with which the film begins
  }

  // `wish`: { quality, sound, treatment }, the name of a rendition, the number of a track, and NIGHT if its loud places
  // are to be lowered; each may be missing.
  open(stream, second, wish) {
    this.stream = stream;
    this.wanted = second;
    this.presentation = new Presentation(stream.presentation);
    this.media = new MediaSource();
    this.listen();
    this.video.src = URL.createObjectURL(this.media);
    this.hooks.mark('manifest');
    this.makeTracks(stream.headers ?? {}, wish);
    this.begin(second);
  }

  listen() {
    const { signal } = this.listening;
    const on = (type, handler) => this.video.addEventListener(type, handler, { signal });
    on('waiting', () => {
      this.leap();
      this.noteStarvation();
    });
    on('ended', () => this.hooks.ended());
    on('error', () => this.video.error?.code === MediaError.MEDIA_ERR_DECODE && this.hooks.fail({ reason: 'Undecodable', details: this.video.error.message }));
  }

  makeTracks(headers, wish) {
    const { pictures } = this.presentation;
    const known = Object.fromEntries(Object.entries(headers).filter(([, text]) => text).map(([name, text]) => [name, bytesOf(text)]));
    const opened = this.whenOpen();
    opened.catch(() => {}); // the tracks report it
    this.quality = new Quality(pictures, throughput, () => this.mayEncode());
    this.quality.pick(wish.quality);
    this.sound = this.soundOf(wish);
    this.first = { picture: this.quality.picked ?? this.quality.best(), sound: this.sound };
    const choose = {
      picture: (_number, current) => this.quality.next(current, this.buffered()),
      sound: () => this.sound,
    };
    this.checkTypes();
    for (const kind of ['picture', 'sound']) {
      if (this.first[kind]) {
        const source = new Source(opened.then(() => this.media.addSourceBuffer(mediaType(this.first[kind]))));
        this.tracks[kind] = new Track({ ...this.parts(), source }, choose[kind], known);
      }
    }
  }

  checkTypes() {
    const isUnknown = (rendition) => rendition && !MediaSource.isTypeSupported(mediaType(rendition));
    if (Object.values(this.first).some(isUnknown)) {
      throw { reason: 'Undecodable' };
    }
  }

  parts() {
    const { presentation, video } = this;
    const hooks = {
      loaded: () => this.noteLoaded(),
      done: () => this.finish(),
      fail: (error) => this.hooks.fail(error),
      refused: (rendition, error) => this.noteRefusal(rendition, error),
    };
    return { presentation, video, throughput, hooks, now: () => this.now() };
  }

  whenOpen() {
    return new Promise((resolve, reject) => {
      const { signal } = this.listening;
      const open = () => {
        URL.revokeObjectURL(this.video.src);
        this.media.duration = this.presentation.duration;
        resolve();
      };
      this.media.addEventListener('sourceopen', open, { once: true, signal });
      signal.addEventListener('abort', () => reject(signal.reason));
    });
  }

  begin(second) {
    if (second > 0) {
      this.video.currentTime = second;
    }
    this.video.playbackRate = this.hooks.wish.speed;
    Object.values(this.tracks).forEach((track) => track.seek(second));
    this.hooks.play();
  }

  // The sound of the wanted track of the film, or the usual one, as the viewer wants to hear it.
  soundOf({ sound: track, treatment }) {
    const own = this.presentation.sounds.find((sound) => sound.track === track) ?? this.presentation.usualSound();
    return treatment === NIGHT ? this.presentation.nightSound(own) : own;
  }

  noteLoaded() {
    this.hooks.mark('media');
    this.hooks.busy(null);
    this.hooks.changed();
    this.leap();
  }

  // The film has run out although the network is fast enough, so the server's conversion is too slow.
  noteStarvation() {
    const { picture } = this.renditions();
    const isPlaying = !this.video.seeking && this.now() > this.wanted + SETTLED;
    if (isPlaying && picture?.encoded && this.quality.isCarried(picture)) {
      this.quality.leave(picture);
    }
  }

  // Returns whether another rendition can be tried at once.
  noteRefusal(rendition, error) {
    if (rendition.encoded && isBusy(error) && this.quality.leave(rendition)) {
      return true;
    }
    if (error.reason === SILENT) {
      this.sound = this.presentation.convertedSound(rendition);
      return this.sound !== rendition;
    }
    if (isBusy(error)) {
      this.hooks.busy(error);
    } else if (error.reason === 'NotFound') {
      this.hooks.missing();
    }
    return false;
  }

  async mayEncode() {
    const { format, stream_id: id } = this.stream;
    const state = await get('Streaming', 'state', { format, stream_id: id }, undefined, { quiet: true }).catch(() => null);
    return state?.can_encode ?? false;
  }

  // The film has been loaded up to its end.
  finish() {
    const tracks = Object.values(this.tracks);
    if (tracks.every((track) => track.isDone) && this.media.readyState === 'open') {
      this.media.endOfStream();
    }
  }

  // Leaps over a short gap in the film.
  leap() {
    const { buffered, currentTime } = this.video;
    for (let part = 0; part < buffered.length; ++part) {
      const start = buffered.start(part);
      if (start > currentTime && start <= currentTime + GAP && this.buffered() === 0) {
        this.video.currentTime = start;
        return;
      }
    }
  }

  seek(second) {
    super.seek(second);
    Object.values(this.tracks).forEach((track) => track.seek(second));
  }

  // The qualities for the viewer: [{ value, text }], the best one first.
  qualities() {
    return this.presentation.pictures.map((picture) => ({ value: picture.name, text: qualityText(picture) }));
  }

  // Changes quality and sound from one of the next segments on. `wish`: as for open().
  showWish(wish) {
    if ((wish.quality ?? '') !== (this.quality.picked?.name ?? '')) {
      this.showQuality(wish.quality);
    }
    const sound = this.soundOf(wish);
    if (!soundsAlike(sound, this.sound)) {
      this.sound = sound;
      this.tracks.sound.renew(this.presentation.at(this.now()));
    }
  }

  showQuality(name) {
    this.quality.pick(name);
    const { picture } = this.tracks;
    if (this.quality.picked && picture) {
      const { presentation } = this;
      const next = presentation.at(this.now()) + 1;
      picture.renew(next < presentation.count && presentation.start(next) < this.now() + SOON ? next + 1 : next);
    }
  }

  // The renditions that are shown: { picture, sound }.
  renditions() {
    const number = this.presentation?.at(this.now());
    const shown = (kind) => this.tracks[kind]?.shown[number] ?? this.tracks[kind]?.rendition ?? this.first[kind];
    return { picture: shown('picture'), sound: shown('sound') };
  }

  // How the server processes what is shown: { method, key }, as it describes a profile.
  method() {
    const { picture, sound } = this.renditions();
    if (picture?.encoded) {
      return { method: 'transcode', key: `cmaf_${qualityText(picture)}` };
    }
    const isConverted = sound && sound.treatment !== COPIED_SOUND;
    return { method: isConverted ? (picture ? 'remux' : 'transcode') : 'direct' };
  }

  // The quality that is shown, for viewers.
  qualityName() {
    const { picture } = this.renditions();
    return picture && qualityText(picture);
  }

  // { throughput, rate } of the network and of the film, in bit/s; 0 for what is not known.
  rates() {
    const { picture, sound } = this.renditions();
    return { throughput: throughput.rate, rate: (picture?.bandwidth ?? 0) + (sound?.bandwidth ?? 0) };
  }

  release() {
    Object.values(this.tracks).forEach((track) => track.stop());
  }
}
