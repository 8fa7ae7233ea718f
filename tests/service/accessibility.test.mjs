// axe checks every page, in light and dark mode and on a phone, by all of its rules.
import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { after, before, test } from 'node:test';

import { answerFor, filmPath, launch, Viewer } from './page.mjs';
import { media, Service } from './support.mjs';

const axe = createRequire(import.meta.url).resolve('axe-core/axe.min.js');

const SCREENS = {
  'in light': { colorScheme: 'light', viewport: { width: 1100, height: 800 } },
  'in dark': { colorScheme: 'dark', viewport: { width: 1100, height: 800 } },
  'on a phone': { colorScheme: 'light', viewport: { width: 360, height: 740 }, hasTouch: true, isMobile: true },
};

let service;
let browser;

before(async () => {
  service = await Service.start([media]);
  browser = await launch();
});
after(async () => {
  await browser.close();
  await service.finish();
});

// All findings of axe on the current page.
async function faults(page) {
  return page.evaluate(async () => {
    const { violations } = await window.axe.run(document, { resultTypes: ['violations'] });
    return violations.map(({ id, impact, nodes }) => ({ id, impact, nodes: nodes.map(({ html }) => html.slice(0, 200)) }));
  });
}

const begun = { path: 'x', encoded_path: filmPath('long.mkv'), name: 'long.mkv', position: 100, duration: 300, finished: false, time: 1 };

// The pages: a name, a function that waits for the page, and its address.
const PAGES = [
  ['the library', async ({ page }) => page.getByRole('link', { name: /h264_ac3/ }).waitFor(), ''],
  ['the search', async ({ page }) => page.getByRole('heading', { name: 'Films and folders named' }).waitFor(), '#/search?q=h264'],
  ['a film', async ({ page }) => {
    await page.locator('summary').click();
    await page.getByRole('region', { name: 'Playback methods of this film' }).waitFor();
  }, `#/film${filmPath('two_audio.mkv')}`],
  ['the player', async (viewer) => {
    await viewer.playing();
    await viewer.wake();
    await viewer.page.getByRole('button', { name: 'Settings' }).click();
    await viewer.page.keyboard.press('k');
    await viewer.page.evaluate(() => document.activeElement.blur());
    await viewer.page.keyboard.press('s');
    await viewer.page.getByText('Startup time').waitFor();
  }, `#/play${filmPath('two_audio.mkv')}?t=0`],
  ['the help', async ({ page }) => {
    await page.keyboard.press('?');
    await page.getByRole('dialog', { name: 'Keyboard shortcuts' }).waitFor();
  }, null],
  ['the server', async ({ page }) => page.getByRole('heading', { name: 'Disks' }).waitFor(), '#/status'],
  ['the conversions', async ({ page }) => page.getByRole('heading', { name: 'Conversions' }).waitFor(), '#/conversions'],
  ['the settings', async ({ page }) => page.getByRole('heading', { name: 'At the start of the service' }).waitFor(), '#/settings'],
  ['a dialog of the settings', async ({ page }) => {
    await page.getByRole('button', { name: 'Folders anna' }).click();
    await page.getByRole('dialog', { name: 'What anna sees' }).waitFor();
  }, null],
];

// An account that the settings show; the service itself has none.
const withAnAccount = {
  folders: [{ path: media, added: true, readable: true }],
  accounts: [{ name: 'anna', owner: true, roots: [] }],
  hardware: { enabled: true, engines: [{ encoder: 'h264_vaapi', device: '/dev/dri/renderD128', lines: 1080, speed: 4, reason: '' }] },
  limits: { software: 1, hardware: 1, streams_per_viewer: { value: 200, least: 1, most: 1000 }, cache_megabytes: { value: 256, least: 16, most: 65536 } },
  cache: { bytes: 100000 },
};

for (const [name, options] of Object.entries(SCREENS)) {
  test(`nothing is found ${name}`, async () => {
    const viewer = await Viewer.open(browser, service, { ...options, bypassCSP: true });
    await viewer.page.addInitScript({ path: axe });
    await answerFor(viewer.page, { 'History.list': () => ({ items: [begun] }), 'Settings.get': () => withAnAccount });
    const found = {};
    for (const [title, arrive, place] of PAGES) {
      if (place !== null) await viewer.go(place);
      await arrive(viewer);
      found[title] = await faults(viewer.page);
      const { scroll, width } = await viewer.page.evaluate(() => ({ scroll: document.documentElement.scrollWidth, width: window.innerWidth }));
      assert.ok(scroll <= width, `${title} is ${scroll} wide on a screen of ${width}`);
    }
    assert.deepEqual(Object.entries(found).filter(([, list]) => list.length > 0), []);
    await viewer.close();
  });
}

const STARTS = {
  'in the login dialog': [{ login_required: true, account: null, owner: false, first_start: 'none' }, (page) => page.getByRole('dialog', { name: 'Log in' })],
  'on a first start from elsewhere': [{ login_required: true, account: '', owner: false, first_start: 'word' }, (page) => page.getByRole('form', { name: 'First start' })],
};

for (const [name, [who, shown]] of Object.entries(STARTS)) {
  test(`nothing is found ${name}`, async () => {
    for (const options of Object.values(SCREENS)) {
      const viewer = await Viewer.open(browser, service, { ...options, bypassCSP: true });
      await viewer.page.addInitScript({ path: axe });
      await answerFor(viewer.page, { 'Auth.who': () => who });
      await viewer.go();
      await shown(viewer.page).waitFor();
      assert.deepEqual(await faults(viewer.page), []);
      await viewer.close();
    }
  });
}
