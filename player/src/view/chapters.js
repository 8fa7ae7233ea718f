// The chapters of the film: marks on the bar, and a list in the settings.
import { element } from '../dom.js';
import { clockText } from '../format.js';
import { t } from '../language.js';

const SOON_SECONDS = 3; // into a chapter, within which "previous" means the one before

const nameOf = ({ title }, index) => title || t('Chapter {number}', { number: index + 1 });

export class Chapters {
  constructor(player) {
    this.player = player;
    this.list = [];
    this.marks = element('div', { class: 'chapter-marks', 'aria-hidden': 'true' });
    this.select = element('select', { id: 'chapter', on: { change: () => player.seek(this.list[Number(this.select.value)].start) } });
    this.row = element('div', { hidden: true }, element('label', { for: 'chapter' }, t('Chapter')), this.select);
    player.video.addEventListener('timeupdate', () => this.follow());
  }

  show({ metadata }) {
    this.list = metadata.chapters ?? [];
    const { duration } = metadata;
    const share = ({ start }) => (duration > 0 ? Math.min(1, start / duration) : 0);
    this.row.hidden = this.list.length < 2;
    this.select.replaceChildren(...this.list.map((chapter, index) => new Option(`${clockText(chapter.start)} ${nameOf(chapter, index)}`, index)));
    this.marks.replaceChildren(...this.list.filter(({ start }) => start > 0).map((chapter) => {
      const mark = element('span');
      mark.style.setProperty('--place', share(chapter));
      return mark;
    }));
  }

  at(second) {
    return this.list.findLastIndex(({ start }) => start <= second + 0.1);
  }

  follow() {
    const index = this.at(this.player.playback.now());
    if (index >= 0 && document.activeElement !== this.select) {
      this.select.value = String(index);
    }
  }

  // The name of the chapter at this second; '' without chapters.
  titleAt(second) {
    const index = this.at(second);
    return this.list.length > 1 && index >= 0 ? nameOf(this.list[index], index) : '';
  }

  // Goes to the next chapter (1), or to the beginning of this one or the one before (-1).
  skip(direction) {
    const now = this.player.playback.now();
    const index = this.at(now);
    const isEarly = index >= 0 && now - this.list[index].start < SOON_SECONDS;
    const target = this.list[direction > 0 ? index + 1 : Math.max(0, isEarly ? index - 1 : index)];
    if (target) {
      this.player.seek(target.start);
    }
  }
}
