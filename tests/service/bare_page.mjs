// A page of the service's origin that contains only a video element, for players with scripts of their
// own.
import { fileURLToPath } from 'node:url';

import { launch } from './page.mjs';

const html = '<!doctype html><title>Bare page</title><video id="video" style="width: 100%"></video>';

// Opens the page, loads the scripts (files below node_modules) and calls `use` with it.
export async function withBarePage(service, scripts, use) {
  const browser = await launch();
  try {
    const context = await browser.newContext({ bypassCSP: true });
    // A seek starts a transcoder, which takes its time beside other tests.
    context.setDefaultTimeout(90_000);
    const page = await context.newPage();
    // The server's own answer, "not found", gives the page its place in the network: a page from anywhere else must not
    // request addresses of a local one.
    await page.goto(`${service.address}/bare`);
    await page.setContent(html);
    for (const script of scripts) {
      const path = fileURLToPath(new URL(`node_modules/${script}`, import.meta.url));
      await page.addScriptTag({ path });
    }
    return await use(page);
  } finally {
    await browser.close();
  }
}

// Returns when the film has played for half a second after `second`.
export const plays = (page, second) =>
  page.waitForFunction((from) => document.getElementById('video').currentTime > from + 0.5, second);

// The second of the film in the picture itself, and on the player's clock at that moment. The luma of the
// picture's upper edge is 16 + 3 per second.
export const shownSecond = (page) =>
  page.evaluate(
    () =>
      new Promise((resolve) => {
        const video = document.getElementById('video');
        video.requestVideoFrameCallback((_, { mediaTime }) => {
          const canvas = document.createElement('canvas');
          canvas.width = video.videoWidth;
          canvas.height = video.videoHeight;
          const context = canvas.getContext('2d');
          context.drawImage(video, 0, 0);
          const [red] = context.getImageData(canvas.width / 2, Math.round(canvas.height / 36), 1, 1).data;
          resolve({ picture: (red * 219) / 255 / 3, clock: mediaTime });
        });
      }),
  );

// Statistics of the playback so far.
export const playback = (page) =>
  page.evaluate(() => {
    const video = document.getElementById('video');
    const quality = video.getVideoPlaybackQuality();
    return {
      dropped: quality.droppedVideoFrames,
      duration: video.duration,
      frames: quality.totalVideoFrames,
      sound: video.webkitAudioDecodedByteCount,
      time: video.currentTime,
    };
  });
