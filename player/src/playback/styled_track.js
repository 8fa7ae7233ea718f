// One subtitle with styles (ASS) over the film, drawn with the fonts attached to the film. jassub draws it; the page
// loads that when it first needs it. A browser that cannot draw shows the text.
import { addressOf } from '../api.js';
import { element } from '../dom.js';
import { SubtitleTrack } from './subtitle_track.js';

const MOST_BYTES = 64 << 20; // of fonts; they are all in memory

const canDraw = (video) => Boolean(window.WebAssembly && video.requestVideoFrameCallback && HTMLCanvasElement.prototype.transferControlToOffscreen);

// The fonts that the page loads: the first ones, as many as fit.
export function chosenFonts(fonts, most = MOST_BYTES) {
  let left = most;
  return fonts.filter(({ size }) => {
    left -= size;
    return left >= 0;
  });
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
      const fonts = chosenFonts(info.fonts).map(({ id }) => addressOf('Library', 'font', { id }, entry.encoded_path));
      this.draw(script, fonts).catch(() => !this.isRemoved && this.giveUp());
    } else {
      this.showText();
    }
  }

  async draw(script, fonts) {
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
    this.drawer = new Drawer({ video: this.video, canvas: this.canvas, subContent, fonts: fonts.map(here), queryFonts: false, timeOffset: -this.wanted });
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
