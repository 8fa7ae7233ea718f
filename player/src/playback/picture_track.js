// One subtitle of pictures (Blu-ray) over the film. libpgs draws it; the page loads that when it first needs it.
import workerPath from 'libpgs/dist/libpgs.worker.js?url';

import { addressOf } from '../api.js';
import { element } from '../dom.js';

export class PictureTrack {
  // `seconds`: by how much the pictures come later than they say.
  constructor(video, streamId, subtitleId, seconds) {
    this.id = subtitleId;
    this.video = video;
    this.wanted = seconds;
    this.isRemoved = false;
    this.canvas = element('canvas', { class: 'pictures', 'aria-hidden': 'true' });
    this.fitting = new ResizeObserver(() => this.fit());
    this.fitting.observe(video);
    video.after(this.canvas);
    this.load(addressOf('Subtitle', 'get', { id: streamId, subtitle_id: JSON.stringify(subtitleId), output: 'sup' }));
  }

  async load(address) {
    const { PgsRenderer } = await import('libpgs');
    if (!this.isRemoved) {
      const { video, canvas } = this;
      const subUrl = new URL(address, window.location.href).href;
      this.renderer = new PgsRenderer({ video, canvas, subUrl, workerUrl: workerPath, timeOffset: -this.wanted });
    }
  }

  // The pictures cover the video element and nothing else of the stage.
  fit() {
    const { offsetLeft, offsetTop, offsetWidth, offsetHeight } = this.video;
    Object.assign(this.canvas.style, { left: `${offsetLeft}px`, top: `${offsetTop}px`, width: `${offsetWidth}px`, height: `${offsetHeight}px` });
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
    this.renderer?.dispose();
    this.canvas.remove();
  }
}
