// Single pictures of the film: steps from one to the next, and a screenshot.
import { element } from '../dom.js';
import { clockText } from '../format.js';
import { lineFor } from './names.js';

const USUAL_RATE = 25;

const rateOf = (film) => film?.info.metadata.track_info.video[0]?.framerate || USUAL_RATE;

// Shows the next picture (1) or the one before (-1), if the browser has it.
export function stepFrame({ playback, video }, direction) {
  const target = video.currentTime + direction / rateOf(playback.film);
  const isThere = Array.from({ length: video.buffered.length }).some((_, part) => target >= video.buffered.start(part) && target <= video.buffered.end(part));
  video.pause();
  if (isThere) {
    video.currentTime = target;
  }
}

// Saves the picture that is shown as a file.
export function savePicture({ playback, video }) {
  if (!playback.film || !video.videoWidth) {
    return;
  }
  const canvas = element('canvas', { width: video.videoWidth, height: video.videoHeight });
  canvas.getContext('2d').drawImage(video, 0, 0);
  const name = `${lineFor(playback.film.entry)} ${clockText(playback.now())}`.replace(/[/\\:\r\n]/g, '-');
  canvas.toBlob((picture) => {
    const address = URL.createObjectURL(picture);
    element('a', { href: address, download: `${name}.png` }).click();
    setTimeout(() => URL.revokeObjectURL(address), 10000);
  });
}
