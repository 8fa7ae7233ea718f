// Driving the page in headless Firefox, or in Chromium if ORVO_TEST_BROWSER names it, by the same commands.
import assert from 'node:assert/strict';

import puppeteer from 'puppeteer-core';

import { browserArguments, eventually, patience } from '../service/support.mjs';

const SLOW = 2 * patience; // a film that has to be converted, on a busy machine

// Films begin without a press on a key, as in the other browser's tests.
const preferences = { 'media.autoplay.default': 0, 'media.autoplay.blocking_policy': 0 };

export const isFirefox = (process.env.ORVO_TEST_BROWSER ?? 'firefox') === 'firefox';

export const launch = () =>
  isFirefox
    ? puppeteer.launch({ browser: 'firefox', executablePath: '/usr/bin/firefox-esr', headless: true, extraPrefsFirefox: preferences })
    : puppeteer.launch({ browser: 'chrome', executablePath: '/usr/bin/chromium', headless: true, args: browserArguments });

// A page of the service with cookies and storage of its own. `complaints` collects what scripts of the page throw, and
// the errors that they log.
export class Viewer {
  // `begin`: runs in each page before the page's own scripts.
  static async open(browser, service, { width = 1000, height = 700, begin = null } = {}) {
    const viewer = new Viewer();
    viewer.service = service;
    viewer.context = await browser.createBrowserContext();
    viewer.page = await viewer.context.newPage();
    viewer.page.setDefaultTimeout(SLOW);
    await viewer.page.setViewport({ width, height });
    if (begin) await viewer.page.evaluateOnNewDocument(begin);
    viewer.complaints = [];
    // Chromium logs answers such as 404 of a film without a backdrop.
    viewer.page.on('console', (message) => message.type() === 'error' && !message.text().startsWith('Failed to load resource') && viewer.complaints.push(message.text()));
    viewer.page.on('pageerror', (error) => viewer.complaints.push(error.message));
    return viewer;
  }

  go(place = '') {
    return this.page.goto(`${this.service.address}/${place}`);
  }

  // Leaves the page first, so that it closes its stream. A context that is closed takes the page's last request with it.
  async close() {
    await this.page.goto('about:blank');
    if (this.service.process.exitCode === null) await this.service.isQuiet();
    await this.context.close();
  }

  // Waits until `look` returns something true in the page.
  waitFor(look, ...values) {
    return this.page.waitForFunction(look, {}, ...values).catch(async (error) => assert.fail(`${error.message}: ${await this.describe()}`));
  }

  describe() {
    return this.page.evaluate(() => {
      const { currentTime, readyState, seeking, paused, error } = document.getElementById('video') ?? {};
      return JSON.stringify({ address: window.location.href, currentTime, readyState, seeking, paused, error: error?.message, said: document.body.innerText.slice(0, 500) });
    });
  }

  // Waits for an element that matches `selector` and contains `text`.
  sees(text, selector = 'body') {
    return this.waitFor((name, part) => [...document.querySelectorAll(name)].some((one) => one.checkVisibility() && (one.textContent.includes(part) || one.ariaLabel === part)), selector, text);
  }

  // The page may replace an element while it is pressed.
  press(text, selector = 'a, button') {
    return eventually(async () => {
      await this.sees(text, selector);
      const handle = await this.page.evaluateHandle(
        (name, part) => [...document.querySelectorAll(name)].find((one) => one.checkVisibility() && (one.textContent.includes(part) || one.ariaLabel === part)),
        selector,
        text,
      );
      return handle.click().then(
        () => true,
        () => undefined,
      );
    }, SLOW, () => `${text} cannot be pressed`);
  }

  // Sees the texts of these elements, in this order.
  shows(selector, ...texts) {
    return this.waitFor((name, wanted) => [...document.querySelectorAll(name)].map((one) => one.textContent.trim()).join('|') === wanted, selector, texts.join('|'));
  }

  gone(selector) {
    return this.waitFor((name) => ![...document.querySelectorAll(name)].some((one) => one.checkVisibility()), selector);
  }

  // Chooses in a list of the page, by its label.
  async choose(label, option) {
    await this.sees(label, 'label');
    await this.page.evaluate(
      (name, text) => {
        const { control } = [...document.querySelectorAll('label')].find((one) => one.checkVisibility() && one.textContent.includes(name));
        control.value = [...control.options].find((one) => one.text === text).value;
        control.dispatchEvent(new Event('change', { bubbles: true }));
      },
      label,
      option,
    );
  }

  // Fills a field of a form, by its label.
  async fill(label, text) {
    const field = await this.page.waitForFunction((name) => [...document.querySelectorAll('label')].find((one) => one.checkVisibility() && one.textContent.trim().startsWith(name))?.control, {}, label);
    await this.page.evaluate((node) => (node.value = ''), field);
    await field.type(text);
  }

  key(name) {
    return this.page.keyboard.press(name);
  }

  playing(frames = 5) {
    return this.waitFor((least) => {
      const video = document.getElementById('video');
      return !video.paused && video.readyState >= 3 && video.getVideoPlaybackQuality().totalVideoFrames > least;
    }, frames);
  }

  // Waits until the film plays at this second or shortly after it.
  runsFrom(second) {
    return this.waitFor((value) => {
      const video = document.getElementById('video');
      return video.readyState >= 3 && !video.seeking && video.playbackRate === 1 && Number(document.getElementById('position').value) >= value - 1;
    }, second);
  }

  async seekTo(second) {
    await this.page.evaluate((value) => {
      const position = document.getElementById('position');
      position.value = String(value);
      position.dispatchEvent(new Event('change'));
    }, second);
    await this.runsFrom(second);
  }

  video(name) {
    return this.page.evaluate((key) => document.getElementById('video')[key], name);
  }

  // The second of the film on the seek bar.
  second() {
    return this.page.evaluate(() => Number(document.getElementById('position').value));
  }

  // Chooses in one of the player's settings, by its label.
  async set(label, option) {
    await this.page.evaluate(
      (name, text) => {
        const { control } = [...document.querySelectorAll('#settings label')].find(({ textContent }) => textContent.trim() === name);
        control.value = [...control.options].find((one) => one.text === text).value;
        control.dispatchEvent(new Event('change'));
      },
      label,
      option,
    );
  }

  // The colour at a place of what is drawn over the picture, as shares of its size: [red, green, blue, opacity].
  drawnAt(x, y) {
    return this.page.evaluate(
      (left, top) => {
        const drawn = document.querySelector('canvas.pictures');
        if (!drawn || drawn.width === 0) return [0, 0, 0, 0];
        const copy = document.createElement('canvas');
        Object.assign(copy, { width: drawn.width, height: drawn.height });
        const context = copy.getContext('2d');
        context.drawImage(drawn, 0, 0);
        return [...context.getImageData(left * drawn.width, top * drawn.height, 1, 1).data];
      },
      x,
      y,
    );
  }

  // Checks that the picture shows the second on the clock. The luma of the film's upper edge is 16 + 3 per second.
  async isInStep() {
    const [time, second] = await this.page.evaluate(() => {
      const video = document.getElementById('video');
      const canvas = document.createElement('canvas');
      Object.assign(canvas, { width: video.videoWidth, height: video.videoHeight });
      const context = canvas.getContext('2d');
      video.dispatchEvent(new Event('timeupdate'));
      const now = Number(document.getElementById('position').value);
      context.drawImage(video, 0, 0);
      const [red] = context.getImageData(canvas.width / 2, Math.round(canvas.height / 36), 1, 1).data;
      return [now, (red * 219) / 255 / 3];
    });
    assert.ok(Math.abs(second - time) < 2, `the picture shows ${second} at ${time}`);
  }
}
