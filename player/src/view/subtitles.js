// The subtitles' part of the player's settings: which ones, when they come, and how they look.
import { element } from '../dom.js';
import { language, t } from '../language.js';
import { subtitleText } from './film.js';
import { fill, labelled, selectFor } from './fields.js';
import { preferences, remember } from './preferences.js';

const SIZES = { small: 'Small', normal: 'Normal', large: 'Large', huge: 'Very large' };
const LOOKS = { box: 'White on a dark box', shadow: 'White with a shadow', yellow: 'Yellow on a dark box' };
const MOST_SECONDS = 600;
const STEP = 0.1;

const optionsOf = (names) => Object.entries(names).map(([value, text]) => ({ value, text: t(text) }));
const rounded = (seconds) => Math.round(seconds * 10) / 10;

export function delayText(seconds) {
  if (seconds === 0) {
    return t('Subtitles come on time.');
  }
  const time = Math.abs(seconds).toLocaleString(language, { minimumFractionDigits: 1 });
  return seconds > 0 ? t('Subtitles come {time} s later.', { time }) : t('Subtitles come {time} s earlier.', { time });
}

export class SubtitleSettings {
  constructor(player) {
    this.player = player;
    this.first = selectFor('subtitle', (id) => this.choose(id));
    this.second = selectFor('second-subtitle', (id) => this.chooseSecond(id));
    this.delay = element('input', { id: 'subtitle-delay', type: 'number', min: -MOST_SECONDS, max: MOST_SECONDS, step: STEP, value: '0', on: { change: () => this.setDelay(Number(this.delay.value) || 0) } });
    this.size = selectFor('cue-size', (value) => this.prefer('cueSize', value));
    this.look = selectFor('cue-look', (value) => this.prefer('cueLook', value));
    this.secondRow = labelled(t('Second subtitles'), this.second);
    this.delayRow = labelled(t('Subtitle delay (s)'), this.delay);
    this.applyPreferences();
  }

  // Which subtitles, and when.
  choiceRows() {
    return [labelled(t('Subtitles'), this.first), this.secondRow, this.delayRow];
  }

  lookRows() {
    return [labelled(t('Subtitle size'), this.size), labelled(t('Subtitle style'), this.look)];
  }

  // Lists the subtitles of a film. Returns whether it has any.
  show({ subtitles }, { subtitle, second, delay = 0 }) {
    const all = subtitles.map((one, index) => ({ value: String(one.id), text: subtitleText(one, index) }));
    const none = { value: '', text: t('None') };
    fill(this.first, [none, ...all], subtitle);
    fill(this.second, [none, ...all], second);
    this.secondRow.hidden = all.length < 2;
    this.delayRow.hidden = all.length === 0;
    this.delay.value = String(delay);
    return all.length > 0;
  }

  change(changes) {
    this.player.playback.changeSubtitles(changes);
  }

  languageOf(id) {
    const { info } = this.player.playback.film;
    return info.subtitles.find((subtitle) => String(subtitle.id) === id)?.language ?? '';
  }

  choose(id) {
    this.first.value = id;
    remember('subtitleLanguage', this.languageOf(id));
    this.change({ subtitle: id });
  }

  chooseSecond(id) {
    remember('secondLanguage', this.languageOf(id));
    this.change({ second: id });
  }

  // The next one, or none after the last.
  next() {
    const options = [...this.first.options];
    const next = options[(options.indexOf(this.first.selectedOptions[0]) + 1) % options.length];
    if (next && next.value !== this.first.value) {
      this.choose(next.value);
    }
  }

  setDelay(seconds) {
    const delay = rounded(Math.max(-MOST_SECONDS, Math.min(seconds, MOST_SECONDS)));
    this.delay.value = String(delay);
    this.change({ delay });
    this.player.tell(delayText(delay));
  }

  // Lets the subtitles come later by one step (1), or earlier (-1).
  shift(direction) {
    if (!this.delayRow.hidden) {
      this.setDelay(Number(this.delay.value) + direction * STEP);
    }
  }

  prefer(name, value) {
    remember(name, value);
    this.applyPreferences();
  }

  applyPreferences() {
    const { cueSize, cueLook } = preferences();
    const { dataset } = this.player.video;
    fill(this.size, optionsOf(SIZES), cueSize);
    fill(this.look, optionsOf(LOOKS), cueLook);
    dataset.cueSize = cueSize;
    dataset.cueLook = cueLook;
  }
}
