// One subtitle of pictures (of a Blu-ray or a DVD) over the film. libpgs draws it; the page loads that when it first needs
// it. The server sends those of DVDs in the form of Blu-rays.
import workerPath from 'libpgs/dist/libpgs.worker.js?url';

import { addressOf } from '../api.js';
import { element } from '../dom.js';

export class PictureTrack {
  // `seconds`: by how much the pictures come later than they say.
  constructor(video, streamId, subtitleId, seconds, isAbove, { info }) {
    this.id = subtitleId;
    // Those of a DVD have its pixels, which are not square: they cover the whole picture, whatever its shape.
    this.isStretched = info.subtitles.some(({ id, codec }) => String(id) === subtitleId && codec === 'dvd_subtitle');
    this.video = video;
    this.wanted = seconds;
    this.isRemoved = false;
    this.canvas = element('canvas', { class: 'pictures', 'aria-hidden': 'true' });
    this.fitting = new ResizeObserver(() => this.fit());
    this.fitting.observe(video);
    this.sizing = new AbortController();
    video.addEventListener('resize', () => this.fit(), { signal: this.sizing.signal });
    video.after(this.canvas);
    this.load(addressOf('Subtitle', 'get', { id: streamId, subtitle_id: JSON.stringify(subtitleId), output: 'sup' }));
  }

  async load(address) {
    const { PgsRenderer } = await import('libpgs');
    if (!this.isRemoved) {
      const { video, canvas } = this;
      const subUrl = new URL(address, window.location.href).href;
      this.renderer = new PgsRenderer({ video, canvas, subUrl, workerUrl: workerPath, timeOffset: -this.wanted, aspectRatio: this.isStretched ? 'fill' : 'contain' });
      // libpgs takes the first picture for one that is already drawn until the clock has passed a place without any.
      this.renderer.renderAtTimestamp(-1);
    }
  }

  // The pictures cover the video element, or the film's picture in it, and nothing else of the stage.
  fit() {
    const { offsetLeft, offsetTop, offsetWidth, offsetHeight, videoWidth, videoHeight } = this.video;
    const scale = this.isStretched && videoWidth > 0 ? Math.min(offsetWidth / videoWidth, offsetHeight / videoHeight) : 0;
    const [width, height] = scale > 0 ? [videoWidth * scale, videoHeight * scale] : [offsetWidth, offsetHeight];
    const [left, top] = [offsetLeft + (offsetWidth - width) / 2, offsetTop + (offsetHeight - height) / 2];
    Object.assign(this.canvas.style, { left: `${left}px`, top: `${top}px`, width: `${width}px`, height: `${height}px` });
  }

  move(seconds) {
    this.wanted = seconds;
    if (this.renderer) {
      this.renderer.timeOffset = -seconds;
    }
  }

  remove() {
    this.isRemoved = true;
    this.fitting.disconnect();
    this.sizing.abort();
    this.renderer?.dispose();
    this.canvas.remove();
  }
}
