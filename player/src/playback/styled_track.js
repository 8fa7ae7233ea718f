// One subtitle with styles (ASS) over the film, drawn with the fonts attached to the film. jassub draws it; the page
// loads that when it first needs it. A browser that cannot draw shows the text.
import { addressOf } from '../api.js';
import { element } from '../dom.js';
import { SubtitleTrack } from './subtitle_track.js';

// Of fonts; those that are loaded are all in memory.
const MOST_NAMED = 256 << 20;
const MOST_BYTES = 64 << 20;

const canDraw = (video) => Boolean(window.WebAssembly && video.requestVideoFrameCallback && HTMLCanvasElement.prototype.transferControlToOffscreen);

const plain = (name) => name.trim().replace(/^@/, '').toLowerCase();

// The names of fonts in a script: of its styles, and within its lines.
export function namedFonts(script) {
  const format = /^Format:(.*\bFontname\b.*)$/im.exec(script)?.[1].split(',').map(plain) ?? [];
  const column = format.indexOf('fontname');
  const styles = column < 0 ? [] : [...script.matchAll(/^Style:(.*)$/gim)].map(([, fields]) => fields.split(',')[column] ?? '');
  const changes = [...script.matchAll(/\\fn([^\\}]+)/g)].map(([, name]) => name);
  return new Set([...styles, ...changes].map(plain));
}

function firstThatFit(fonts, most) {
  let used = 0;
  return fonts.filter(({ size }) => {
    const fits = used + size <= most;
    used += fits ? size : 0;
    return fits;
  });
}

// The fonts that the page loads: those that the script names or whose names are unknown, then the others, from which single
// characters may come, as long as all are few.
export function chosenFonts(fonts, script) {
  const named = namedFonts(script);
  const isWanted = ({ families }) => families.length === 0 || families.some((name) => named.has(plain(name)));
  const wanted = firstThatFit(fonts.filter(isWanted), MOST_NAMED);
  const size = wanted.reduce((sum, font) => sum + font.size, 0);
  return [...wanted, ...firstThatFit(fonts.filter((font) => !isWanted(font)), MOST_BYTES - size)];
}

export class StyledTrack {
  // `seconds`: by how much the subtitles come later than they say.
  constructor(video, streamId, subtitleId, seconds, isAbove, { entry, info }) {
    this.id = subtitleId;
    this.video = video;
    this.wanted = seconds;
    this.isRemoved = false;
    this.showText = () => {
      this.text ??= new SubtitleTrack(video, streamId, subtitleId, this.wanted);
    };
    if (canDraw(video)) {
      const script = addressOf('Subtitle', 'get', { id: streamId, subtitle_id: JSON.stringify(subtitleId), output: 'ass' });
      const fontsFor = (text) => chosenFonts(info.fonts, text).map(({ id }) => addressOf('Library', 'font', { id }, entry.encoded_path));
      this.draw(script, fontsFor).catch(() => !this.isRemoved && this.giveUp());
    } else {
      this.showText();
    }
  }

  async draw(script, fontsFor) {
    const [{ default: Drawer }, answer] = await Promise.all([import('jassub'), fetch(script)]);
    if (!answer.ok) {
      throw new Error(`the script cannot be read: ${answer.status}`);
    }
    const subContent = await answer.text();
    if (this.isRemoved) {
      return;
    }
    this.canvas = element('canvas', { class: 'pictures', 'aria-hidden': 'true' });
    this.video.after(this.canvas);
    const here = (address) => new URL(address, window.location.href).href;
    // The page asks no other server for fonts.
    this.drawer = new Drawer({ video: this.video, canvas: this.canvas, subContent, fonts: fontsFor(subContent).map(here), queryFonts: false, timeOffset: -this.wanted });
    await this.drawer.ready;
    this.refresh();
  }

  giveUp() {
    this.stopDrawing();
    this.showText();
  }

  // A paused film shows no new picture that would draw the subtitle.
  refresh() {
    const { drawer, video } = this;
    if (video.videoWidth > 0) {
      drawer.manualRender({ mediaTime: video.currentTime, width: video.videoWidth, height: video.videoHeight }, true);
    }
  }

  move(seconds) {
    this.wanted = seconds;
    this.text?.move(seconds);
    if (this.drawer?.renderer) {
      this.drawer.timeOffset = -seconds;
      this.refresh();
    }
  }

  stopDrawing() {
    this.drawer?.destroy().catch(() => {});
    this.canvas?.remove();
  }

  remove() {
    this.isRemoved = true;
    this.stopDrawing();
    this.text?.remove();
  }
}
