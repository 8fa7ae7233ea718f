// What people take for granted around a film, in either browser.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { test } from 'node:test';

import { media, Service } from '../service/support.mjs';
import { cuesAre, suite } from './suite.mjs';
import { isFirefox, Viewer } from './viewer.mjs';

const axe = fs.readFileSync(createRequire(new URL('../service/', import.meta.url)).resolve('axe-core/axe.min.js'), 'utf8');

const ffmpeg = (...options) => execFileSync('ffmpeg', ['-nostdin', '-v', 'error', '-y', ...options]);

const CHAPTERS = `;FFMETADATA1
[CHAPTER]
TIMEBASE=1/1000
START=0
END=8000
title=Departure
[CHAPTER]
TIMEBASE=1/1000
START=8000
END=20000
title=Arrival
`;
const NFO = '<movie><title>The Sea</title><year>1999</year><plot>Someone goes to sea.</plot></movie>';
const srt = (text) => `1\n00:00:00,500 --> 00:00:50,000\n${text}\n`;

const it = suite(async (folder, link) => {
  const at = (name) => path.join(folder, name);
  link('cinema.mkv', 'Films/The.Long.Journey.2019.1080p.x264-GRP.mkv');
  link('tv.mkv', 'Films/Quiet River (2021).mkv');
  link('no_video.mka', 'Films/Ömer song.mka');
  fs.writeFileSync(at('Films/empty.mkv'), '');
  for (const number of [10, 2, 1]) link('cinema.mkv', `Clips/clip ${number}.mkv`);
  for (const code of ['S01E01', 'S01E02', 'S02E01']) link('cinema.mkv', `Series/Harbour.Lights.${code}.Calm.mkv`);
  fs.mkdirSync(at('Nothing'));
  fs.mkdirSync(at('Album'));
  for (const [number, title] of [[1, 'First'], [2, 'Second']]) {
    ffmpeg('-f', 'lavfi', '-i', 'sine=d=4', '-metadata', `title=${title}`, '-metadata', 'artist=The Band', '-c:a', 'flac', at(`Album/0${number}.flac`));
  }
  fs.mkdirSync(at('About'));
  fs.writeFileSync(at('chapters.txt'), CHAPTERS);
  ffmpeg('-i', path.join(media, 'cinema.mkv'), '-i', at('chapters.txt'), '-map', '0', '-map_metadata', '1', '-c', 'copy', at('About/chapters.mkv'));
  link('cinema.mkv', 'About/sea.mkv');
  fs.writeFileSync(at('About/sea.nfo'), NFO);
  ffmpeg('-f', 'lavfi', '-i', 'color=red:s=64x64', '-frames:v', '1', at('About/sea-poster.png'));
  link('long.mkv', 'Long/long.mkv');
  fs.writeFileSync(at('forced.srt'), srt('Forced'));
  fs.mkdirSync(at('Words'));
  ffmpeg('-i', path.join(media, 'tv.mkv'), '-i', at('forced.srt'), '-map', '0:v', '-map', '0:a', '-map', '1', '-c', 'copy', '-metadata:s:a', 'language=eng', '-metadata:s:s', 'language=eng', '-disposition:s', 'forced', at('Words/forced.mkv'));
});
const { place, viewing, watch } = it;

const titleIs = (viewer, text) => viewer.sees(text, '#title');

// --- The library ---

viewing('names become titles, and episodes stand below their season', async (viewer) => {
  await viewer.go(place('folder', 'Films'));
  await viewer.sees('The Long Journey (2019)', '.tile .name');
  await viewer.go(place('folder', 'Series'));
  await viewer.sees('Harbour Lights – Season 2', 'h2');
  await viewer.shows('.tile .name', '1. Calm', '2. Calm', '1. Calm');
  assert.deepEqual(viewer.complaints, []);
});

viewing('names are in the order in which people count', async (viewer) => {
  await viewer.go(place('folder', 'Clips'));
  await viewer.shows('.tile .name', 'clip 1.mkv', 'clip 2.mkv', 'clip 10.mkv');
});

viewing('a search takes words in any order and without accents', async (viewer) => {
  await viewer.go();
  await viewer.page.type('#words', 'song omer');
  await viewer.sees('Ömer song', '.tile .name');
});

viewing('a broken file looks broken, and an empty folder says what to do', async (viewer) => {
  await viewer.go(place('folder', 'Films'));
  await viewer.sees('Cannot be played. The file is empty.', '.tile.broken');
  await viewer.go(place('folder', 'Nothing'));
  await viewer.sees('There are no films here. Copy films into this folder');
});

viewing('the viewer chooses order and films', async (viewer) => {
  await viewer.go(place('folder', 'Films'));
  await viewer.sees('The Long Journey', '.tile .name');
  await viewer.choose('Show', 'Music');
  await viewer.shows('.tile .name', 'Ömer song.mka');
  await viewer.choose('Sort by', 'Recently added');
  await viewer.waitFor(() => window.location.hash.includes('sort=added'));
});

viewing('a watched film has a mark, which can be taken away', async (viewer) => {
  await viewer.go(place('film', 'Clips/clip 2.mkv'));
  await viewer.press('Mark as watched', 'button');
  await viewer.sees('Mark as not watched', 'button');
  await viewer.go(place('folder', 'Clips'));
  await viewer.sees('clip 2', '.tile.watched');
  await viewer.go(place('film', 'Clips/clip 2.mkv'));
  await viewer.press('Mark as not watched', 'button');
  await viewer.sees('Mark as watched', 'button');
});

viewing('a begun film stands at the top, until the viewer removes it', async (viewer) => {
  await watch(viewer, 'Clips/clip 1.mkv', { t: 6 });
  await viewer.playing();
  await viewer.go();
  await viewer.sees('clip 1', 'ul[aria-label="Continue watching"]');
  await viewer.press('Remove clip 1.mkv from this list', 'button');
  await viewer.gone('ul[aria-label="Continue watching"]');
});

// --- A film's page ---

viewing('an NFO file and the poster beside a film describe it', async (viewer) => {
  await viewer.go(place('film', 'About/sea.mkv'));
  await viewer.sees('The Sea (1999)', 'h1');
  await viewer.sees('Someone goes to sea.');
  await viewer.waitFor(() => document.querySelector('img.large')?.naturalWidth > 0);
});

viewing('chapters lead into the film and stand on its bar', async (viewer) => {
  await viewer.go(place('film', 'About/chapters.mkv'));
  await viewer.press('Arrival');
  await viewer.playing();
  assert.ok((await viewer.second()) >= 7.5);
  await viewer.waitFor(() => document.querySelectorAll('.chapter-marks span').length === 1);
});

viewing('jargon stands behind a word', async (viewer) => {
  await viewer.go(place('film', 'Clips/clip 1.mkv'));
  await viewer.sees('H.264');
  assert.ok(!(await viewer.page.evaluate(() => document.body.innerText)).includes('hls_'));
  await viewer.press('Details', 'summary');
  await viewer.sees('All playback methods and qualities', 'h2');
});

viewing('another player gets the address of a film', async (viewer) => {
  await viewer.go(place('film', 'Clips/clip 1.mkv'));
  await viewer.press('Play elsewhere', 'button');
  await viewer.press('HLS', 'dialog button');
  const address = await viewer.page.waitForFunction(() => document.querySelector('dialog input[readonly], dialog textarea, dialog input')?.value);
  const playlist = await address.jsonValue();
  assert.match(await (await fetch(playlist)).text(), /^#EXTM3U/);
  await it.service.call('Streaming', 'close', { format: 'hls', stream_id: new URL(playlist).searchParams.get('stream_id') });
});

// --- What plays next ---

viewing('the countdown to the next episode can be stopped', async (viewer) => {
  await watch(viewer, 'Series/Harbour.Lights.S01E01.Calm.mkv', { t: 17 });
  await viewer.sees('It begins in', '.up-next');
  await viewer.press('Stop', '.up-next button');
  await viewer.gone('.up-next');
  await viewer.key('n');
  await titleIs(viewer, 'S01E02');
});

viewing('a folder plays as a queue', async (viewer) => {
  await viewer.go(place('folder', 'Clips'));
  await viewer.press('Play all', 'button');
  await titleIs(viewer, 'clip 1.mkv');
  await viewer.playing();
  await viewer.key('n');
  await titleIs(viewer, 'clip 2.mkv');
  await viewer.page.evaluate(() => window.location.assign('#/'));
  await viewer.sees('clip 10.mkv', '[aria-label="Queue"]');
  await viewer.press('Clear the queue', 'button');
});

// Mutes the player, and notes when a piece of music ends and when each media element plays. Firefox plays sound alone only
// if the machine has a device for it, or if it is muted.
function watchMusic() {
  if (window.origin === 'null') return;
  localStorage.setItem('mirevo', '{"muted":true}');
  window.played = new Set();
  document.addEventListener('ended', () => (window.over ??= performance.now()), { capture: true });
  const { play } = HTMLMediaElement.prototype;
  HTMLMediaElement.prototype.play = function playNoted() {
    window.played.add(this);
    return play.call(this);
  };
}

viewing(
  'music plays with its tags, tells the media keys what it is, and the next song follows without a gap',
  async (viewer) => {
    await viewer.go(place('film', 'Album/01.flac'));
    await viewer.sees('The Band');
    await viewer.press('Play', 'a.main');
    await viewer.waitFor(() => document.getElementById('video').currentTime > 1);
    assert.equal(await viewer.page.evaluate(() => navigator.mediaSession.metadata.title), 'First');
    await viewer.waitFor(() => navigator.mediaSession.metadata.title === 'Second');
    await viewer.waitFor(() => document.getElementById('video').currentTime > 0.5);
    const gap = await viewer.page.evaluate(() => performance.now() - document.getElementById('video').currentTime * 1000 - window.over);
    assert.equal(await viewer.page.evaluate(() => window.played.size), 2, 'the next song has an element of its own');
    assert.ok(Math.abs(gap) < 100, `the next song begins ${gap} ms after the end`);
    process.stdout.write(`# the next song begins ${Math.round(gap)} ms after the end\n`);
  },
  { begin: watchMusic },
);

// --- The player ---

viewing('a picture of the film is saved', async (viewer) => {
  await watch(viewer, 'Clips/clip 1.mkv');
  await viewer.playing();
  await viewer.page.evaluate(() => {
    const click = HTMLAnchorElement.prototype.click;
    HTMLAnchorElement.prototype.click = function taken() {
      if (!this.download) return click.call(this);
      window.saved = this.download;
    };
  });
  await viewer.key('x');
  await viewer.waitFor(() => /^clip 1\.mkv 0-\d\d\.png$/.test(window.saved));
});

// Moves the pointer to a place in an element, given as shares of its size.
async function pointAt(viewer, selector, x, y) {
  const box = await (await viewer.page.$(selector)).boundingBox();
  await viewer.page.mouse.move(box.x + box.width * x, box.y + box.height * y, { steps: 3 });
}

viewing('the bar shows the picture at the pointer', async (viewer) => {
  await watch(viewer, 'Long/long.mkv');
  await viewer.playing();
  await pointAt(viewer, '#video', 0.5, 0.5); // the controls appear
  await pointAt(viewer, '#position', 0.5, 0.5);
  await viewer.sees('2:', '.preview');
  await viewer.waitFor(() => {
    const [image, piece] = ['.preview img', '.preview .piece'].map((name) => document.querySelector(name));
    return image.naturalWidth > 0 || !piece.hidden; // the controls may have gone by then
  });
});

viewing('a double click changes to full screen, and the wheel changes the volume', async (viewer) => {
  await watch(viewer, 'Clips/clip 1.mkv');
  await viewer.playing();
  await pointAt(viewer, '#video', 0.5, 0.4);
  const { x, y, width, height } = await (await viewer.page.$('#video')).boundingBox();
  await viewer.page.mouse.click(x + width * 0.5, y + height * 0.4, { count: 2 });
  await viewer.waitFor(() => document.fullscreenElement !== null);
  await viewer.key('f');
  await viewer.waitFor(() => document.fullscreenElement === null);
  await pointAt(viewer, '#video', 0.5, 0.4);
  await viewer.page.mouse.wheel({ deltaY: 100 });
  await viewer.waitFor(() => document.getElementById('video').volume < 1);
});

viewing('single pictures can be seen', async (viewer) => {
  await watch(viewer, 'Clips/clip 1.mkv');
  await viewer.playing();
  await viewer.key('.');
  await viewer.waitFor(() => document.getElementById('video').paused && !document.getElementById('video').seeking);
  const time = await viewer.video('currentTime');
  await viewer.waitFor((next) => {
    const { buffered } = document.getElementById('video');
    return buffered.length > 0 && buffered.end(buffered.length - 1) > next;
  }, time + 0.2);
  await viewer.key('.');
  await viewer.waitFor((before) => document.getElementById('video').currentTime > before, time);
  assert.ok((await viewer.video('currentTime')) < time + 0.2, 'one picture further');
});

viewing('a forced subtitle in the language of the sound shows itself', async (viewer) => {
  await watch(viewer, 'Words/forced.mkv', { t: 1 });
  await viewer.playing();
  await cuesAre(viewer, 'Forced');
});

viewing('a phone shows the picture and one row of controls', async (viewer) => {
  await watch(viewer, 'Clips/clip 1.mkv');
  await viewer.playing();
  const look = () =>
    viewer.page.evaluate(() => {
      const box = (node) => node.getBoundingClientRect();
      const buttons = [...document.querySelectorAll('.bar button')].filter((node) => node.checkVisibility());
      return [new Set(buttons.map((node) => Math.round(box(node).top))).size, box(document.getElementById('full')).right <= window.innerWidth, document.documentElement.scrollWidth <= window.innerWidth];
    });
  await viewer.page.mouse.move(100, 100);
  assert.deepEqual(await look(), [1, true, true]);
  await viewer.page.setViewport({ width: 700, height: 360 });
  assert.deepEqual(await look(), [1, true, true]);
}, { width: 400, height: 700 });

// --- The page ---

viewing('a German browser gets a German page', async (viewer) => {
  await viewer.go(place('folder', 'Clips'));
  await viewer.sees('Sortieren nach', 'label');
  assert.equal(await viewer.page.evaluate(() => document.documentElement.lang), 'de');
}, { begin: () => Object.defineProperty(navigator, 'languages', { value: ['de-DE', 'en'] }) });

viewing('the owner sees the streams and stops one', async (viewer) => {
  await watch(viewer, 'Long/long.mkv');
  await viewer.playing();
  const owner = await Viewer.open(it.browser, it.service);
  try {
    await owner.go('#/status');
    await owner.press('Stop long.mkv', 'button');
    await owner.sees('Nobody is watching.');
  } finally {
    await owner.close();
  }
});

viewing('axe finds nothing on any page', async (viewer) => {
  const found = {};
  for (const [address, arrived] of [['', '.tile'], [place('folder', 'Films'), '.tile.broken'], [place('film', 'About/sea.mkv'), 'img.large'], ['#/conversions', 'h1'], ['#/status', 'h2'], ['#/settings', 'h2']]) {
    await viewer.go(address);
    await viewer.waitFor((name) => document.querySelector(name)?.checkVisibility(), arrived);
    // The page's policy holds for scripts of the page, not for those of the test.
    await viewer.page.evaluate(axe);
    const faults = await viewer.page.evaluate(async () => {
      await Promise.all(document.getAnimations().map((one) => one.finished.catch(() => {})));
      const { violations } = await window.axe.run(document, { resultTypes: ['violations'] });
      return violations.map(({ id, nodes }) => `${id}: ${nodes[0].html}`);
    });
    if (faults.length > 0) found[address] = faults;
  }
  assert.deepEqual(found, {});
});

// A test with a service of its own.
const serving = (name, prepare, body, options = {}) =>
  test(name, options, async () => {
    const service = Service.prepare();
    const viewer = await Viewer.open(it.browser, service);
    try {
      await prepare(service);
      await body(viewer, service);
    } finally {
      await viewer.close();
      if (service.process.exitCode === null) await service.stop();
    }
  });

serving(
  'a fresh service asks for a folder and an account',
  (service) => service.serve([]),
  async (viewer) => {
    await viewer.go();
    await viewer.fill('Folder on the server', path.join(it.folder, 'Clips'));
    await viewer.fill('Account', 'anna');
    await viewer.fill('Password', 'right password');
    await viewer.press('Begin', 'button');
    await viewer.sees('clip 1', '.tile');
    await viewer.sees('Log out', 'button');
  },
);

serving(
  'the page asks for a login, and a film goes on after the session has ended',
  async (service) => {
    service.account(['add', 'bob'], 'right password');
    await service.serve([it.folder]);
  },
  async (viewer, service) => {
    const logIn = async (password) => {
      await viewer.fill('Account', 'bob');
      await viewer.fill('Password', password);
      await viewer.key('Enter');
    };
    await viewer.go();
    await logIn('wrong password');
    await viewer.sees('The account or the password is wrong.');
    await logIn('right password');
    await viewer.sees('Clips', '.tile');
    await watch(viewer, 'Long/long.mkv');
    await viewer.playing();
    service.account(['passwd', 'bob'], 'another one');
    await viewer.page.evaluate(() => {
      const position = document.getElementById('position');
      position.value = '200';
      position.dispatchEvent(new Event('change'));
    });
    await logIn('another one');
    await viewer.runsFrom(200);
  },
);

serving(
  'the page can be installed, and starts without the server',
  (service) => service.serve([path.join(it.folder, 'Clips')]),
  async (viewer, service) => {
    await viewer.go();
    await viewer.sees('clip 1');
    const manifest = await viewer.page.evaluate(async () => (await fetch(document.querySelector('link[rel=manifest]').href)).json());
    assert.equal(manifest.display, 'standalone');
    await viewer.page.evaluate(async () => {
      await navigator.serviceWorker.ready;
      if (!navigator.serviceWorker.controller) await new Promise((done) => navigator.serviceWorker.addEventListener('controllerchange', done, { once: true }));
    });
    await viewer.page.reload(); // now everything is stored
    await viewer.sees('clip 1');
    await service.stop();
    await viewer.page.reload();
    await viewer.sees('The server does not answer.');
  },
);

test('the browser is the one that was asked for', async () => {
  const version = await it.browser.version();
  assert.match(version.toLowerCase(), isFirefox ? /firefox/ : /chrom/);
});
