// The player: the picture, its controls and the messages over it.
import { addressOf } from '../api.js';
import { changeSign, element, find, signButton } from '../dom.js';
import { clockText, spokenTime } from '../format.js';
import { HistoryKeeper, resumePoint } from '../history.js';
import { language, t } from '../language.js';
import { recentFilmInfo } from '../playback/client.js';
import { NIGHT } from '../playback/cmaf/presentation.js';
import { engineFor, hasAddress, trackFor } from '../playback/engines.js';
import { isMusic, kindsFor, kindText, playsAs, qualities } from '../playback/kinds.js';
import { Playback } from '../playback/playback.js';
import { Remote } from '../playback/remote.js';
import { warmth } from '../playback/warmth.js';
import { wordsOf } from '../words.js';
import { Album } from './album.js';
import { openElsewhere } from './elsewhere.js';
import { fill, labelled, selectFor } from './fields.js';
import { audioText } from './film.js';
import { Chapters } from './chapters.js';
import { savePicture, stepFrame } from './frames.js';
import { listenToGestures } from './gestures.js';
import { handleKey, showHelp } from './keyboard.js';
import { MediaKeys } from './media_keys.js';
import { lineFor } from './names.js';
import { addressAt, attempt, filmAddress, say } from './page.js';
import { choiceOf, preferences, remember } from './preferences.js';
import { Statistics } from './statistics.js';
import { SubtitleSettings } from './subtitles.js';
import { Thumbnails } from './thumbnails.js';
import { UpNext } from './up_next.js';

const COVER_WIDTH = 640;
const IDLE_MILLISECONDS = 3000;
const SETTLE_MILLISECONDS = 300; // key presses within this time become one seek
const SPEEDS = [0.5, 0.75, 1, 1.25, 1.5, 1.75, 2];
const TOLD_MILLISECONDS = 2500;

export class PlayerView {
  constructor() {
    this.section = find('film');
    this.video = find('video');
    this.playback = new Playback(this.video, engineFor, trackFor);
    this.remote = new Remote(this.playback, hasAddress);
    this.keeper = new HistoryKeeper(this.playback);
    this.statistics = new Statistics(this.playback);
    this.thumbnails = new Thumbnails();
    this.chapters = new Chapters(this);
    this.upNext = new UpNext(this);
    this.album = new Album(this);
    this.mediaKeys = new MediaKeys(this, this.upNext);
    this.subtitles = new SubtitleSettings(this);
    this.makeControls();
    this.makeSettings();
    this.makeOverlay();
    this.assemble();
    this.listen();
    this.restoreVolume();
  }

  makeControls() {
    this.position = element('input', { id: 'position', type: 'range', min: 0, max: 0, step: 1, value: '0', 'aria-label': t('Position') });
    this.clock = element('output', { id: 'clock', for: 'position' }, '0:00');
    this.playButton = signButton('play', t('Play'), () => this.toggle(), { id: 'play' });
    this.muteButton = signButton('sound', t('Mute'), () => this.mute(), { id: 'mute' });
    this.volume = element('input', { id: 'volume', type: 'range', min: 0, max: 1, step: 0.05, value: '1', 'aria-label': t('Volume') });
    this.preview = element('div', { class: 'preview', hidden: true, 'aria-hidden': 'true' }, this.thumbnails.image, this.thumbnails.piece, element('span'));
    this.settingsButton = signButton('settings', t('Settings'), () => this.settings(), { 'aria-expanded': 'false', 'aria-controls': 'settings' });
    this.insetButton = signButton('inset', t('Picture in picture'), () => this.inset(), { class: 'sign minor', hidden: !document.pictureInPictureEnabled });
    this.remoteButton = signButton('remote', t('Play on another device'), () => attempt(() => this.remote.choose()), { hidden: true });
    this.captionsButton = signButton('captions', t('Subtitles'), () => this.subtitles.next());
    this.controls = element(
      'div',
      { id: 'controls' },
      element('div', { class: 'timeline' }, this.preview, this.position, this.chapters.marks),
      element(
        'div',
        { class: 'bar' },
        this.upNext.previousButton,
        this.playButton,
        this.upNext.nextButton,
        this.muteButton,
        this.volume,
        this.clock,
        element('span', { class: 'gap' }),
        this.captionsButton,
        this.settingsButton,
        signButton('camera', t('Save this picture'), () => this.savePicture(), { class: 'sign minor' }),
        signButton('figures', t('Statistics'), () => this.figures(), { class: 'sign minor' }),
        signButton('elsewhere', t('Play elsewhere'), () => this.elsewhere()),
        this.remoteButton,
        signButton('help', t('Keyboard shortcuts'), () => showHelp(), { class: 'sign minor' }),
        this.insetButton,
        signButton('full', t('Full screen'), () => this.fullScreen(), { id: 'full' }),
      ),
    );
  }

  makeSettings() {
    this.quality = selectFor('profile', (value) => this.chooseQuality(value));
    this.audio = selectFor('audio', (value) => this.chooseSound(value));
    this.treatment = selectFor('treatment', (value) => this.chooseTreatment(value));
    this.kind = selectFor('kind', (value) => this.playback.change({ kind: value, profile: '' }));
    this.speed = selectFor('speed', (value) => this.playback.setSpeed(Number(value)));
    this.repeat = element('input', { id: 'repeat', type: 'checkbox' });
    fill(this.speed, SPEEDS.map((speed) => ({ value: String(speed), text: speed === 1 ? t('Normal') : `${speed.toLocaleString(language)} ×` })), '1');
    this.panel = element(
      'div',
      { id: 'settings', role: 'group', 'aria-label': t('Settings'), hidden: true },
      labelled(t('Quality'), this.quality),
      labelled(t('Audio track'), this.audio),
      labelled(t('Sound'), this.treatment),
      this.subtitles.choiceRows(),
      labelled(t('Speed'), this.speed),
      this.chapters.row,
      labelled(t('Repeat the film'), this.repeat),
      labelled(t('Playback method'), this.kind),
      this.subtitles.lookRows(),
      element('button', { type: 'button', on: { click: () => this.figures() } }, t('Show or hide statistics')),
    );
  }

  makeOverlay() {
    this.sentence = element('p');
    this.next = element('p', { class: 'next' });
    this.actions = element('p', { class: 'actions' });
    this.spinner = element('div', { class: 'spinner', 'aria-hidden': 'true' });
    this.told = element('p', { class: 'told', role: 'status' });
    this.overlay = element('div', { class: 'overlay', role: 'status' }, this.spinner, this.sentence, this.next, this.actions);
  }

  assemble() {
    this.back = element('a', { href: '#/', class: 'back' }, t('Back'));
    this.title = element('h1', { id: 'title', tabindex: '-1' });
    this.why = element('p', { id: 'why' });
    const top = element('div', { class: 'top' }, this.back, this.title);
    this.stage = element('div', { class: 'stage' });
    this.section.prepend(this.stage);
    this.stage.append(this.video, this.overlay, this.told, top, this.statistics.panel, this.panel, this.upNext.panel, this.controls);
    this.section.append(this.why);
  }

  listen() {
    const { video, playback, position } = this;
    playback.addEventListener('change', () => this.refresh());
    playback.addEventListener('ended', () => this.atEnd());
    this.remote.addEventListener('change', () => this.showRemote());
    video.addEventListener('timeupdate', () => this.showClock());
    video.addEventListener('progress', () => this.showClock());
    video.addEventListener('playing', () => this.thumbnails.load());
    video.addEventListener('unread', () => this.tell(t('The subtitles cannot be read.')));
    video.addEventListener('volumechange', () => this.showVolume());
    listenToGestures(this);
    position.addEventListener('change', () => this.seek(Number(position.value)));
    position.addEventListener('input', () => this.showPreview(Number(position.value)));
    position.addEventListener('pointermove', (event) => this.showPreview(this.secondAt(event)));
    for (const type of ['pointerleave', 'blur', 'change']) {
      position.addEventListener(type, () => this.hidePreview());
    }
    this.volume.addEventListener('input', () => this.setVolume(Number(this.volume.value)));
    for (const type of ['pointermove', 'pointerdown', 'keydown', 'focusin']) {
      this.section.addEventListener(type, () => this.wake());
    }
    document.addEventListener('keydown', (event) => !this.section.hidden && handleKey(event, this));
    window.addEventListener('pagehide', () => this.leaveLastly());
    // A browser discards hidden pages without telling them.
    document.addEventListener('visibilitychange', () => document.hidden && this.keeper.saveLastly());
    window.addEventListener('pageshow', ({ persisted }) => persisted && playback.film && playback.reopen(playback.place));
  }

  leaveLastly() {
    const { playback } = this;
    this.keeper.saveLastly();
    playback.place = playback.now();
    playback.stopLastly();
  }

  restoreVolume() {
    const { volume, muted } = preferences();
    this.video.volume = volume;
    this.playback.setMuted(muted);
    this.showVolume();
  }

  // Shows a film and plays it. `second`: where to begin, NaN for the position at which the viewer stopped; `kind`: the
  // playback method, '' for the default.
  async open(entry, second, kind, signal) {
    this.section.hidden = false;
    this.title.textContent = lineFor(entry);
    this.back.href = filmAddress(entry);
    this.why.textContent = '';
    const info = await recentFilmInfo(entry.encoded_path, { signal });
    const start = Number.isNaN(second) ? await resumePoint(entry.encoded_path) : second;
    if (signal.aborted) {
      return;
    }
    this.album.enter(entry.encoded_path);
    // The previous stream may use the only free transcoder.
    await this.closing;
    this.keeper.startAnew();
    this.thumbnails.forFilm(entry.encoded_path, info.previews);
    const choice = choiceOf(info, kindsFor(info, this.playback.can), kind);
    this.fillTracks(info, choice);
    this.mediaKeys.announce(entry, info);
    this.chapters.show(info);
    this.upNext.prepare(entry, info, signal);
    this.showCover(entry, info);
    await this.playback.play({ entry, info }, choice, start);
  }

  // Shows the cover while music plays.
  showCover({ encoded_path: path }, info) {
    this.video.poster = isMusic(info) ? addressOf('Library', 'poster', { width: COVER_WIDTH }, path) : '';
  }

  close() {
    const saved = this.keeper.save();
    const isGoing = this.upNext.takeGoing();
    if (!isGoing) {
      this.section.hidden = true;
      this.leaveFullScreen();
      this.album.drop();
    }
    this.upNext.cancel();
    this.thumbnails.forFilm(null);
    this.closing = Promise.all([saved, this.playback.stop(), isGoing ? undefined : warmth.drop()]);
    return this.closing;
  }

  leaveFullScreen() {
    if (document.fullscreenElement) {
      document.exitFullscreen();
    }
  }

  fillTracks(info, choice) {
    const { audio } = info.metadata.track_info;
    fill(this.audio, audio.map((track, index) => ({ value: track.id, text: audioText(track, index) })), choice.audio || audio[0]?.id);
    this.fillTreatments(audio.length > 0, choice.treatment);
    this.captionsButton.hidden = !this.subtitles.show(info, choice);
  }

  fillTreatments(hasSound, chosen) {
    const night = hasSound ? [{ value: NIGHT, text: t('Night: loud places lowered') }] : [];
    fill(this.treatment, [{ value: '', text: t('As in the film') }, ...night], chosen);
  }

  // Lists the qualities of the method in use. A method without a list of its own gets that of the progressive streams.
  fillQualities() {
    const { film, kind, choice, can, engine } = this.playback;
    const list = (format) => (engine?.qualities?.() ?? qualities(film.info, format)).map(({ value, text }) => ({ value: `${format} ${value}`, text: t(text), name: text }));
    const own = list(kind === 'direct' ? 'hls' : kind);
    const others = own.length > 0 ? own : list('http');
    const automatic = { value: `${choice.profile ? '' : choice.kind} `, text: t('Automatic') };
    const isChosen = choice.profile && kind === choice.kind;
    this.qualityNames = new Map(others.map(({ value, name }) => [value, name]));
    fill(this.quality, [automatic, ...others], isChosen ? `${kind} ${choice.profile}` : automatic.value);
    const ways = kindsFor(film.info, can).map((way) => ({ value: way, text: kindText(way) }));
    fill(this.kind, [{ value: '', text: t('Automatic') }, ...ways], choice.kind);
  }

  atEnd() {
    this.refresh();
    if (this.isRepeating()) {
      this.seek(0);
      this.playback.start();
    }
  }

  isRepeating() {
    return this.repeat.checked;
  }

  refresh() {
    const { playback } = this;
    if (!playback.film) {
      return;
    }
    const shown = `${playback.kind} ${JSON.stringify(playback.choice)} ${playback.film.entry.encoded_path}`;
    if (playback.engine && shown !== this.shown) {
      this.shown = shown;
      this.fillQualities();
    }
    const isOver = this.video.ended && Boolean(playback.engine);
    changeSign(this.playButton, playback.isPlaying() ? 'pause' : 'play', isOver ? t('Play again') : playback.isPlaying() ? t('Pause') : t('Play'));
    say(playback.notice);
    this.why.textContent = playback.stream ? playsAs(playback.film.info, playback.methodOf()) : '';
    this.refreshOverlay();
    this.showClock();
  }

  refreshOverlay() {
    const { playback } = this;
    const [sentence, next, actions] = this.overlayText();
    this.sentence.textContent = sentence;
    this.next.textContent = next;
    const wanted = actions.map(([text]) => text).join();
    if (wanted !== this.actions.dataset.shown) {
      this.actions.dataset.shown = wanted;
      this.actions.replaceChildren(...actions.map(([text, click]) => element('button', { type: 'button', on: { click } }, text)));
    }
    this.spinner.hidden = !playback.isWaiting() || Boolean(playback.queue);
    this.overlay.classList.toggle('said', sentence !== '');
    this.stage.classList.toggle('still', sentence !== '' || !playback.isPlaying());
  }

  // The sentence over the picture, the next step below it, and the buttons.
  overlayText() {
    const { playback } = this;
    const leave = [t('Back'), () => window.location.assign(this.back.href)];
    if (playback.error) {
      const { sentence, next } = wordsOf(playback.error);
      return [sentence, next, [[t('Try again'), () => playback.reopen(playback.place)], leave]];
    }
    if (playback.queue) {
      const { seconds, error } = playback.queue;
      const when = seconds > 0 ? t('The next attempt is in {count} s.', { count: seconds }) : t('Trying again now.');
      return [`${wordsOf(error).sentence} ${t('You are waiting in line.')}`, `${when} ${wordsOf({ reason: error.reason }).next}`, [[t('Stop waiting'), leave[1]]]];
    }
    if (playback.needsPress) {
      return [t('Press Play to start.'), '', [[t('Play'), () => playback.start()]]];
    }
    return [playback.slow, '', []];
  }

  // Says for a moment over the picture what a key has changed.
  tell(text) {
    this.told.textContent = text;
    clearTimeout(this.telling);
    this.telling = setTimeout(() => {
      this.told.textContent = '';
    }, TOLD_MILLISECONDS);
  }

  showClock() {
    const { playback, position } = this;
    const duration = playback.duration();
    const now = Math.min(playback.now(), duration);
    position.max = String(Math.floor(duration));
    if (!position.matches(':active')) {
      position.value = String(now);
    }
    const share = (second) => `${duration > 0 ? (100 * Math.min(second, duration)) / duration : 0}%`;
    position.style.setProperty('--played', share(now));
    position.style.setProperty('--buffered', share(now + playback.buffered()));
    position.setAttribute('aria-valuetext', t('{time} of {duration}', { time: spokenTime(now), duration: spokenTime(duration) }));
    this.clock.textContent = `${clockText(now)} / ${clockText(duration)}`;
    this.followPlace(now);
  }

  // Keeps the place in the address, so that a reload and the back button return to it.
  followPlace(second) {
    const { film, choice } = this.playback;
    const address = film ? addressAt(window.location.hash, film.entry, second, choice.kind) : '';
    if (address && address !== window.location.hash) {
      window.history.replaceState(window.history.state, '', address);
    }
  }

  showVolume() {
    const { muted } = this.playback.wish;
    this.volume.value = String(muted ? 0 : this.video.volume);
    changeSign(this.muteButton, muted ? 'silent' : 'sound', muted ? t('Unmute') : t('Mute'));
  }

  showRemote() {
    this.remoteButton.hidden = !this.remote.isOffered();
    this.remoteButton.setAttribute('aria-pressed', String(this.remote.isConnected()));
  }

  secondAt({ clientX }) {
    const { left, width } = this.position.getBoundingClientRect();
    return Math.max(0, Math.min(1, (clientX - left) / width)) * this.playback.duration();
  }

  showPreview(second) {
    const duration = this.playback.duration();
    this.preview.hidden = false;
    this.preview.style.setProperty('--place', String(duration > 0 ? second / duration : 0));
    this.preview.lastChild.textContent = [this.chapters.titleAt(second), clockText(second)].filter(Boolean).join(' · ');
    this.thumbnails.show(second);
  }

  hidePreview() {
    this.preview.hidden = true;
  }

  // Shows the controls. While the film runs, they disappear again after a moment.
  wake() {
    this.stage.classList.remove('idle');
    clearTimeout(this.idle);
    this.idle = setTimeout(() => this.stage.classList.toggle('idle', this.playback.isPlaying() && this.panel.hidden), IDLE_MILLISECONDS);
  }

  // The first touch only shows the controls.
  touch(event) {
    const wasIdle = this.stage.classList.contains('idle');
    this.wake();
    if (event.pointerType !== 'touch' || !wasIdle) {
      this.toggle();
    }
  }

  // Actions of the keys and buttons.

  toggle() {
    this.playback.toggle();
  }

  seek(second) {
    this.target = undefined;
    this.playback.seek(second);
    this.showClock();
  }

  seekTenth(tenth) {
    this.seek((this.playback.duration() * tenth) / 10);
  }

  // Combines several steps into one seek.
  skip(seconds) {
    const from = this.target ?? this.playback.now();
    this.target = Math.max(0, Math.min(from + seconds, this.playback.duration()));
    this.clock.textContent = `${clockText(this.target)} / ${clockText(this.playback.duration())}`;
    clearTimeout(this.settling);
    this.settling = setTimeout(() => this.target !== undefined && this.seek(this.target), SETTLE_MILLISECONDS);
  }

  mute() {
    this.setMuted(!this.playback.wish.muted);
  }

  louder(step) {
    this.setVolume(Math.max(0, Math.min(1, this.video.volume + step)));
  }

  setVolume(volume) {
    this.video.volume = volume;
    remember('volume', volume);
    this.setMuted(false);
  }

  setMuted(muted) {
    this.playback.setMuted(muted);
    remember('muted', muted);
    this.showVolume();
  }

  faster(step) {
    const index = SPEEDS.indexOf(this.playback.wish.speed) + step;
    const speed = SPEEDS[Math.max(0, Math.min(index, SPEEDS.length - 1))];
    this.playback.setSpeed(speed);
    this.speed.value = String(speed);
  }

  async fullScreen() {
    if (document.fullscreenElement) {
      await document.exitFullscreen();
    } else if (this.stage.requestFullscreen) {
      await this.stage.requestFullscreen().catch(() => {});
    } else {
      this.video.webkitEnterFullscreen?.(); // the only full screen on an iPhone
    }
  }

  inset() {
    return attempt(() => (document.pictureInPictureElement ? document.exitPictureInPicture() : this.video.requestPictureInPicture()));
  }

  stepFrame(direction) {
    stepFrame(this, direction);
  }

  savePicture() {
    savePicture(this);
  }

  toggleRepeat() {
    this.repeat.checked = !this.repeat.checked;
  }

  // `value`: the method and the key of a profile.
  chooseQuality(value) {
    const [kind, profile] = value.split(' ');
    remember('quality', profile ? this.qualityNames.get(value) : '');
    return this.playback.changeWithin({ kind, profile });
  }

  chooseSound(id) {
    const { audio } = this.playback.film.info.metadata.track_info;
    remember('soundLanguage', audio.find((track) => track.id === id)?.language ?? '');
    return this.playback.changeWithin({ audio: id });
  }

  chooseTreatment(treatment) {
    remember('treatment', treatment);
    return this.playback.changeWithin({ treatment });
  }

  settings() {
    this.panel.hidden = !this.panel.hidden;
    this.settingsButton.setAttribute('aria-expanded', String(!this.panel.hidden));
    (this.panel.hidden ? this.settingsButton : this.quality).focus();
  }

  figures() {
    this.statistics.toggle();
  }

  // Continues the film in another player, which needs the transcoder that this one uses.
  elsewhere() {
    const { film } = this.playback;
    if (film) {
      this.video.pause();
      openElsewhere(film.entry, film.info, () => this.playback.park());
    }
  }
}
