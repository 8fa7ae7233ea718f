// Driving the page in headless Chromium.
import assert from 'node:assert/strict';
import path from 'node:path';

import { chromium } from 'playwright-core';

import { browserArguments, media, patience } from './support.mjs';

export const launch = () => chromium.launch({ executablePath: '/usr/bin/chromium', args: browserArguments });

export const encode = (name) => name.split('/').map(encodeURIComponent).join('/');
export const filmPath = (name) => encode(path.join(media, name));

// Answers that a test gives in place of the server: { 'History.list': (parameters, route) => data }. A handler may also
// throw { status, error }.
export async function answerFor(page, answers) {
  await page.route(
    (url) => url.pathname === '/webapi/entry.cgi',
    async (route) => {
      const request = route.request();
      const parameters = new URLSearchParams(new URL(request.url()).search || request.postData() || '');
      const name = `${parameters.get('api').replace('ORVO.Mirevo2.', '')}.${parameters.get('method')}`;
      if (!(name in answers)) {
        await route.fallback();
        return;
      }
      try {
        await route.fulfill({ json: { success: true, data: answers[name](parameters) } });
      } catch ({ status, error, headers }) {
        await route.fulfill({ status, headers, json: { success: false, error: { code: status, ...error } } });
      }
    },
  );
}

// The state of the video, for the message of a failed test.
function describe() {
  const { buffered, currentTime, readyState, seeking, paused, playbackRate } = document.getElementById('video');
  const parts = Array.from({ length: buffered.length }, (_, part) => [buffered.start(part), buffered.end(part)]);
  const said = document.querySelector('.overlay').innerText;
  return JSON.stringify({ currentTime, readyState, seeking, paused, playbackRate, parts, said });
}

// A page of the service. `complaints` collects the errors that the browser reports, except for pictures: some files have
// none.
export class Viewer {
  static async open(browser, service, options = {}) {
    const viewer = new Viewer();
    viewer.service = service;
    // Answers that a test gives do not reach requests that a worker of the page makes.
    viewer.context = await browser.newContext({ serviceWorkers: 'block', ...options });
    viewer.context.setDefaultTimeout(patience);
    viewer.page = await viewer.context.newPage();
    viewer.complaints = [];
    viewer.page.on('console', (message) => {
      const { url } = message.location();
      const isPicture = /method=(poster|card|thumbnail)/.test(url);
      // After a seek the server breaks off the pieces that nobody waits for any more.
      const isLeft = url.includes('segment=') && message.text().includes('ERR_INCOMPLETE_CHUNKED_ENCODING');
      if (message.type() === 'error' && !isPicture && !isLeft) viewer.complaints.push(`${message.text()} ${url}`);
    });
    viewer.page.on('pageerror', (error) => viewer.complaints.push(error.message));
    return viewer;
  }

  go(place = '') {
    return this.page.goto(`${this.service.address}/${place}`);
  }

  // Opens a film in the player by its address.
  watch(name, parameters = {}) {
    return this.go(`#/play${filmPath(name)}?${new URLSearchParams({ t: 0, ...parameters })}`);
  }

  // Leaves the page as a viewer does. Requests that the page sends while it unloads do not wait for a test's answer.
  async leave() {
    await this.page.unrouteAll({ behavior: 'ignoreErrors' });
    await this.page.goto('about:blank');
  }

  async close() {
    await this.leave();
    await this.context.close();
  }

  playing(frames = 5) {
    return this.page.waitForFunction((least) => {
      const video = document.getElementById('video');
      return !video.paused && video.readyState >= 3 && video.getVideoPlaybackQuality().totalVideoFrames > least;
    }, frames);
  }

  // The second of the film in the picture itself: the luma of its upper edge is 16 + 3 per second.
  shownSecond() {
    return this.page.evaluate(() => {
      const video = document.getElementById('video');
      const canvas = document.createElement('canvas');
      canvas.width = video.videoWidth;
      canvas.height = video.videoHeight;
      const context = canvas.getContext('2d');
      context.drawImage(video, 0, 0);
      const [red] = context.getImageData(canvas.width / 2, Math.round(canvas.height / 36), 1, 1).data;
      return ((red * 219) / 255) / 3;
    });
  }

  // The colour of the drawn subtitles at a place of the film's picture of 640 x 360, [red, green, blue, opacity].
  drawnAt(x, y) {
    return this.page.evaluate(([left, top]) => {
      const drawn = document.querySelector('canvas.pictures');
      const copy = document.createElement('canvas');
      Object.assign(copy, { width: drawn.width, height: drawn.height });
      copy.getContext('2d').drawImage(drawn, 0, 0);
      return [...copy.getContext('2d').getImageData((left * drawn.width) / 640, (top * drawn.height) / 360, 1, 1).data];
    }, [x, y]);
  }

  state() {
    return this.page.evaluate(() => {
      const video = document.getElementById('video');
      return {
        time: video.currentTime,
        height: video.videoHeight,
        paused: video.paused,
        sound: video.webkitAudioDecodedByteCount,
        frames: video.getVideoPlaybackQuality().totalVideoFrames,
        clock: document.getElementById('clock')?.textContent,
        message: document.getElementById('message').textContent,
      };
    });
  }

  // Waits until the film plays at this second or shortly after it.
  async runsFrom(second, timeout = patience) {
    const runs = (value) => {
      const video = document.getElementById('video');
      return video.readyState >= 3 && !video.seeking && video.playbackRate === 1 && video.currentTime >= value - 0.2;
    };
    await this.page.waitForFunction(runs, second, { timeout }).catch(async () => {
      assert.fail(`does not run from ${second}: ${await this.page.evaluate(describe)}`);
    });
  }

  async seekTo(second, timeout) {
    await this.page.evaluate((value) => {
      const position = document.getElementById('position');
      position.value = String(value);
      position.dispatchEvent(new Event('change'));
    }, second);
    await this.runsFrom(second, timeout);
  }

  // Shows the controls, which hide while a film plays. They stay, because on a busy machine seconds may pass before the
  // next step.
  wake() {
    return this.page.locator('.stage').evaluate((stage) => {
      const move = () => stage.dispatchEvent(new Event('pointermove', { bubbles: true }));
      move();
      window.moving ??= setInterval(move, 500);
    });
  }

  // Opens the settings if necessary, and chooses an option.
  async set(label, option) {
    await this.wake();
    const settings = this.page.getByRole('button', { name: 'Settings' });
    if ((await settings.getAttribute('aria-expanded')) === 'false') await settings.click();
    await this.page.getByRole('combobox', { name: label, exact: true }).selectOption(option);
    await settings.click();
  }

  // Waits for this sentence over the picture.
  says(text) {
    return this.page.locator('.overlay', { hasText: text }).waitFor();
  }

  // Checks that the picture shows the second on the clock.
  async isInStep() {
    const [{ time }, second] = [await this.state(), await this.shownSecond()];
    assert.ok(Math.abs(second - time) < 2, `the picture shows ${second} at ${time}`);
  }
}
