// The page as viewers use it: they find a film, play it, resume it, and wait for a free transcoder.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, afterEach, before, beforeEach, test } from 'node:test';
import { promisify } from 'node:util';

import { answerFor, encode, launch, Viewer } from './page.mjs';
import { whiteBox } from './pgs.mjs';
import { eventually, media, readSome, Service } from './support.mjs';

const HOSTILE = '<img src=x onerror="document.title=\'taken\'">&amp;.mkv';

const run = promisify(execFile);

let service;
let browser;
let folder;
let viewers;

const srt = (text) => `1\n00:00:01,000 --> 00:00:20,000\n${text}\n\n2\n00:00:28,000 --> 00:00:59,000\n${text} later\n`;

// A film with subtitles of pictures: a white box at the lower edge.
async function makePictures() {
  const sup = path.join(folder, 'box.sup');
  fs.writeFileSync(sup, whiteBox({ width: 640, height: 360 }, { x: 200, y: 300, width: 200, height: 40 }, 1, 50));
  const film = ['-i', path.join(media, 'two_audio.mkv'), '-i', sup, '-map', '0:v', '-map', '0:a:0', '-map', '1', '-c', 'copy', '-copyts', '-metadata:s:s', 'language=ger'];
  await run('ffmpeg', ['-nostdin', '-v', 'error', '-y', ...film, path.join(folder, 'pictures.mkv')]);
}

// A separate folder with subtitles and unusual names.
function makeFilms() {
  folder = fs.mkdtempSync(path.join(media, 'player-'));
  fs.mkdirSync(path.join(folder, 'below'));
  fs.linkSync(path.join(media, 'two_audio.mkv'), path.join(folder, 'film.mkv'));
  fs.linkSync(path.join(media, 'long.mkv'), path.join(folder, 'long.mkv'));
  fs.linkSync(path.join(media, 'h264_aac.mp4'), path.join(folder, 'below', HOSTILE));
  fs.linkSync(path.join(media, 'h264_aac.mp4'), Buffer.concat([Buffer.from(`${folder}/below/Stra`), Buffer.from([0xdf]), Buffer.from('e.mp4')]));
  fs.writeFileSync(path.join(folder, 'film.eng.srt'), srt('English'));
  fs.writeFileSync(path.join(folder, 'film.fre.srt'), srt('Français'));
}

before(async () => {
  makeFilms();
  await makePictures();
  service = await Service.start([folder]);
  browser = await launch();
});
after(async () => {
  await browser.close();
  fs.rmSync(folder, { recursive: true });
  await service.finish();
});
beforeEach(() => {
  viewers = [];
});
afterEach(async () => {
  await Promise.all(viewers.map((viewer) => viewer.close()));
  await forgetAll();
  await service.isQuiet();
});

// Clears the history, so that no test sees the films of another.
async function forgetAll() {
  const body = new URLSearchParams({ api: 'ORVO.Mirevo2.History', version: 1, method: 'remove' });
  await fetch(`${service.address}/webapi/entry.cgi`, { method: 'POST', body });
}

// A new viewer. `answers` replace the server's answers.
async function enter(answers = {}, options = {}) {
  const viewer = await Viewer.open(browser, service, options);
  viewers.push(viewer);
  await answerFor(viewer.page, answers);
  return viewer;
}

const filmPlace = (name) => `#/film${encode(path.join(folder, name))}`;
const watch = (viewer, name, parameters = {}) =>
  viewer.go(`#/play${encode(path.join(folder, name))}?${new URLSearchParams({ t: 0, ...parameters })}`);
const refuse = (status, reason, more = {}) => () => {
  throw { status, error: { reason, message: '', ...more } };
};
const shownCues = (viewer) =>
  viewer.page.evaluate(() =>
    [...document.getElementById('video').textTracks]
      .filter(({ mode }) => mode === 'showing')
      .flatMap(({ activeCues }) => [...(activeCues ?? [])].map(({ text }) => text)),
  );
const cueIs = (viewer, text) =>
  eventually(async () => ((await shownCues(viewer)).join() === text ? true : undefined));

test('a film is found by a part of its name and plays', async () => {
  const viewer = await enter();
  await viewer.go();
  await viewer.page.getByRole('searchbox', { name: 'Search films' }).fill('LON');
  await viewer.page.getByText('1 film.').waitFor();
  await viewer.page.getByRole('link', { name: /long\.mkv/ }).click();
  await viewer.page.getByRole('heading', { name: 'long.mkv' }).waitFor();
  await viewer.page.getByRole('link', { name: 'Play', exact: true }).click();
  await viewer.playing();
  assert.deepEqual(viewer.complaints, []);
});

test('an empty library says what to do', async () => {
  const viewer = await enter({ 'Library.list': () => ({ path: '', folders: [], files: [] }) });
  await viewer.go();
  await viewer.page.getByText('There are no films in the library yet. Copy films into').waitFor();
});

test('any name is shown unchanged, and its film plays', async () => {
  const viewer = await enter();
  await viewer.go();
  await viewer.page.getByRole('link', { name: /below/ }).click();
  await viewer.page.getByRole('link', { name: HOSTILE }).click();
  await viewer.page.getByRole('heading', { name: HOSTILE }).waitFor();
  await viewer.page.getByRole('link', { name: 'Play', exact: true }).click();
  await viewer.playing();
  assert.ok((await viewer.page.title()).startsWith(HOSTILE));
  await viewer.page.goBack();
  await viewer.page.getByRole('link', { name: 'below' }).click();
  await viewer.page.getByRole('link', { name: /Stra.*\.mp4/ }).click();
  await viewer.page.getByRole('heading', { name: 'Stra�e.mp4' }).waitFor();
  await viewer.page.locator('#view').getByText('360p, H.264, plays as it is').waitFor();
});

test('ten seeks reach their positions', async () => {
  const viewer = await enter();
  await watch(viewer, 'long.mkv');
  await viewer.playing();
  for (let step = 1, second = 0; step <= 10; ++step) {
    second = (second + step * 97) % 290;
    await viewer.seekTo(second);
    const { time } = await viewer.state();
    assert.ok(time < second + 5, `${time} instead of ${second}`);
  }
  // A segment may be late or removed while the transcoder restarts; the page requests it again.
  assert.deepEqual(viewer.complaints.filter((text) => !/status of (404|503|504)/.test(text)), []);
});

test('a segment that is missing once is requested again', async () => {
  const viewer = await enter();
  let missing = true;
  await viewer.page.route(/&segment=0/, (route) => {
    if (!missing) return route.fallback();
    missing = false;
    return route.fulfill({ status: 404, body: '' });
  });
  await watch(viewer, 'film.mkv');
  await viewer.playing();
  assert.equal(missing, false);
  assert.equal((await viewer.state()).message, '');
});

test('a progressive film whose transcoder dies goes on at its place', async () => {
  const viewer = await enter();
  await watch(viewer, 'long.mkv', { kind: 'http', t: 30 });
  await viewer.playing();
  await viewer.set('Quality', '240p');
  await viewer.page.waitForFunction(() => document.getElementById('video').videoHeight === 240);
  await viewer.playing();
  const [lost] = await eventually(() => (service.transcoders().length > 0 ? service.transcoders() : undefined));
  process.kill(lost.pid, 'SIGKILL');
  await eventually(() => service.transcoders().some(({ pid }) => pid !== lost.pid) || undefined);
  const { time } = await viewer.state();
  await viewer.page.waitForFunction((place) => document.getElementById('video').currentTime > place + 1, time);
  assert.ok(time >= 30, `${time}`);
  assert.equal((await viewer.state()).message, '');
});

for (const kind of ['cmaf', 'hls', 'http']) {
  test(`sound, subtitle and quality change by ${kind} at the place of the film`, async () => {
    const viewer = await enter();
    await watch(viewer, 'film.mkv', { kind, t: 30 });
    await viewer.playing();
    await viewer.set('Audio track', 'French, AAC');
    await viewer.runsFrom(30);
    await viewer.set('Subtitles', 'English, film.eng.srt');
    await cueIs(viewer, 'English later');
    await viewer.set('Quality', '240p');
    await viewer.page.waitForFunction(() => document.getElementById('video').videoHeight === 240);
    await viewer.runsFrom(30);
    assert.ok((await viewer.state()).time < 58);
    await cueIs(viewer, 'English later');
    await viewer.page.keyboard.press('c');
    await cueIs(viewer, 'Français later');
    await viewer.page.keyboard.press('c');
    await cueIs(viewer, '');
    assert.deepEqual(viewer.complaints, []);
  });
}

test('two subtitles are shown at once, and both come later by the viewer’s delay', async () => {
  const viewer = await enter();
  const { page } = viewer;
  await watch(viewer, 'film.mkv', { t: 30 });
  await viewer.playing();
  await page.keyboard.press('k');
  await viewer.set('Subtitles', 'English, film.eng.srt');
  await viewer.set('Second subtitles', 'French, film.fre.srt');
  const both = async () => ((await shownCues(viewer)).sort().join() === 'English later,Français later' ? true : undefined);
  await eventually(both, 60_000);
  assert.deepEqual(await page.evaluate(() => [...document.getElementById('video').textTracks].map(({ activeCues }) => activeCues[0].line)), ['auto', -4]);
  await page.keyboard.press('h');
  await page.getByText('Subtitles come 0.1 s later.').waitFor();
  await viewer.wake();
  await page.getByRole('button', { name: 'Settings' }).click();
  const delay = page.getByRole('spinbutton', { name: 'Subtitle delay (s)' });
  assert.equal(await delay.inputValue(), '0.1');
  await delay.fill('25');
  await delay.press('Enter');
  await page.getByText('Subtitles come 25.0 s later.').waitFor();
  await cueIs(viewer, 'English,Français');
  await delay.fill('0');
  await delay.press('Enter');
  await eventually(both, 60_000);
  assert.deepEqual(viewer.complaints, []);
});

test('subtitles of pictures are drawn over the film', async () => {
  const viewer = await enter();
  const { page } = viewer;
  await watch(viewer, 'pictures.mkv', { t: 10 });
  await viewer.playing();
  await page.keyboard.press('c');
  await page.locator('canvas.pictures').waitFor();
  const isDrawn = (x, y, opacity) => eventually(async () => ((await viewer.drawnAt(x, y))[3] === opacity ? true : undefined), 60_000);
  await isDrawn(300, 320, 255);
  await isDrawn(100, 320, 0);
  assert.deepEqual(await viewer.drawnAt(300, 320), [235, 235, 235, 255]);
  const boxOf = ({ left, top, width, height }) => [left, top, width, height].map(Math.round);
  const boxes = await page.evaluate(() => ['video', 'canvas.pictures'].map((name) => document.querySelector(name).getBoundingClientRect().toJSON()));
  assert.deepEqual(boxOf(boxes[1]), boxOf(boxes[0]));
  await page.keyboard.press('c');
  await page.locator('canvas.pictures').waitFor({ state: 'detached' });
  assert.deepEqual(viewer.complaints, []);
});

test('a film resumes where the viewer stopped', async () => {
  const viewer = await enter();
  await watch(viewer, 'long.mkv');
  await viewer.playing();
  await viewer.seekTo(100);
  await viewer.page.keyboard.press('k');
  const saved = await eventually(async () => (await service.call('History', 'list')).data.items.find(({ position }) => position >= 100));
  await viewer.go(filmPlace('long.mkv'));
  await viewer.page.getByRole('link', { name: 'Resume at 1:4' }).click();
  await viewer.runsFrom(saved.position);
  assert.ok((await viewer.state()).time < saved.position + 10);
  await viewer.go();
  await viewer.page.getByRole('list', { name: 'Continue watching' }).getByRole('link', { name: 'long.mkv' }).click();
  await viewer.runsFrom(saved.position);
});

test('a reload, and the back button after another page, return to the place of the film', async () => {
  const viewer = await enter();
  const { page } = viewer;
  const isBack = async () => {
    await viewer.runsFrom(100);
    assert.ok((await viewer.state()).time < 115);
  };
  await watch(viewer, 'long.mkv');
  await viewer.playing();
  await viewer.seekTo(100);
  await page.reload();
  await isBack();
  await viewer.wake();
  await page.getByRole('link', { name: 'Back' }).click();
  await page.getByRole('link', { name: /^Resume at 1:[45]/ }).waitFor();
  assert.equal(await page.evaluate(() => window.location.hash), filmPlace('long.mkv'));
  await page.goBack();
  await isBack();
  assert.deepEqual(viewer.complaints, []);
});

test('a page that is hidden has saved the place of its film', async () => {
  const viewer = await enter();
  await watch(viewer, 'long.mkv', { t: 50 });
  await viewer.runsFrom(50);
  await viewer.page.evaluate(() => {
    Object.defineProperty(document, 'hidden', { value: true });
    document.dispatchEvent(new Event('visibilitychange'));
  });
  await eventually(async () => (await service.call('History', 'list')).data.items.find(({ position }) => position >= 50));
});

test('the preview shows the position at the pointer', async () => {
  const viewer = await enter();
  await watch(viewer, 'long.mkv');
  await viewer.playing();
  await viewer.wake();
  await viewer.page.locator('#position').hover();
  await viewer.page.locator('.preview').getByText('2:30').waitFor();
  await viewer.page.waitForFunction(() => document.querySelector('.preview img').naturalWidth > 0);
  assert.deepEqual(viewer.complaints, []);
});

test('the keyboard controls everything', async () => {
  const viewer = await enter();
  const { page } = viewer;
  await viewer.go(filmPlace('long.mkv'));
  // The film has a link more if an earlier test has left a place in it.
  await page.getByRole('link', { name: /^(Play|Resume)/ }).first().focus();
  await page.keyboard.press('Enter');
  await viewer.playing();
  await page.keyboard.press(' ');
  await eventually(async () => ((await viewer.state()).paused ? true : undefined));
  await page.keyboard.press('k');
  await page.keyboard.press('5');
  await viewer.runsFrom(150);
  await page.keyboard.press('l');
  await page.keyboard.press('l');
  await viewer.runsFrom(165);
  await page.keyboard.press('ArrowLeft');
  await page.keyboard.press('j');
  await page.waitForFunction(() => document.getElementById('video').currentTime < 164);
  await page.keyboard.press('m');
  assert.equal(await page.evaluate(() => document.getElementById('video').muted), true);
  await page.keyboard.press('>');
  assert.equal(await page.evaluate(() => document.getElementById('video').playbackRate), 1.25);
  await page.keyboard.press('f');
  await page.waitForFunction(() => document.fullscreenElement !== null);
  await page.keyboard.press('f');
  await page.waitForFunction(() => document.fullscreenElement === null);
  await page.keyboard.press('?');
  await page.getByRole('dialog', { name: 'Keyboard shortcuts' }).waitFor();
  await page.keyboard.press('Escape');
  // A closed dialog keeps the focus, and with it the keys, until it is removed.
  await page.waitForFunction(() => document.querySelector('dialog[aria-label="Keyboard shortcuts"]') === null);
  await page.keyboard.press('s');
  await page.getByText(/^\d+ ms \(opened \d+ ms, manifest \d+ ms, first \w+ \d+ ms, first \w+ \d+ ms\)$/).waitFor();
});

test('while another player has the only transcoder, a viewer waits in line', async () => {
  const [first, second] = [await enter(), await enter()];
  await watch(first, 'long.mkv');
  await first.playing();
  const stream = await service.open(path.join(folder, 'long.mkv'), { profile: 'http_mp4_1080p_vb5000_ab192' });
  const other = await fetch(stream.url);
  await readSome(other, 10000);
  await watch(second, 'film.mkv', { kind: 'http' });
  await second.says('You are waiting in line.');
  await second.says('The next attempt is in');
  await other.body.cancel();
  await service.close(stream);
  await second.playing();
  await first.playing();
  assert.equal((await second.state()).message, '');
});

test('a viewer can stop waiting in line', async () => {
  const viewer = await enter({ 'Streaming.open': refuse(503, 'TransEnableOfflineConverting', { retry_after: 30 }) });
  await watch(viewer, 'film.mkv');
  await viewer.says('The server is busy with a conversion. You are waiting in line.');
  await viewer.page.getByRole('button', { name: 'Stop waiting' }).click();
  await viewer.page.getByRole('heading', { name: 'film.mkv' }).waitFor();
});

test('after a failure the page names it and tries the next method', async () => {
  const viewer = await enter();
  await answerFor(viewer.page, {});
  await viewer.page.route(/format=hls/, (route) => route.fulfill({ body: 'nonsense' }));
  await watch(viewer, 'film.mkv', { kind: 'hls' });
  await viewer.playing();
  assert.match((await viewer.state()).message, /^HLS failed: .* Trying CMAF instead\.$/);
});

test('a final failure has a next step and can be tried again', async () => {
  let full = true;
  const viewer = await enter();
  await viewer.page.route(
    (url) => url.pathname === '/webapi/entry.cgi',
    (route) =>
      full && route.request().postData()?.includes('method=open')
        ? route.fulfill({ status: 507, json: { success: false, error: { code: 507, reason: 'TransSapceNotEnough', message: '' } } })
        : route.fallback(),
  );
  await watch(viewer, 'film.mkv');
  await viewer.says('The server’s disk is full.');
  await viewer.says('Free some space');
  full = false;
  await viewer.page.getByRole('button', { name: 'Try again' }).click();
  await viewer.playing();
});

test('volume, sound, subtitle and quality are remembered for the next film', async () => {
  const viewer = await enter();
  const { page } = viewer;
  await watch(viewer, 'film.mkv');
  await viewer.playing();
  await viewer.set('Audio track', 'French, AAC');
  await viewer.set('Subtitles', 'French, film.fre.srt');
  await viewer.set('Quality', '240p');
  await page.keyboard.press('ArrowDown');
  await page.keyboard.press('m');
  await viewer.go(filmPlace('film.mkv'));
  await page.locator('#view').getByText('360p, H.264, converted to 240p on this server').waitFor();
  await page.locator('summary').click();
  await page.getByRole('cell', { name: 'H.264, Constrained Baseline' }).waitFor();
  await page.reload();
  await watch(viewer, 'film.mkv', { t: 3 });
  await page.waitForFunction(() => document.getElementById('video').videoHeight === 240);
  await cueIs(viewer, 'Français');
  const kept = await page.evaluate(() => {
    const { volume, muted } = document.getElementById('video');
    return [volume, muted, document.getElementById('audio').selectedOptions[0].text, document.getElementById('profile').selectedOptions[0].text];
  });
  assert.deepEqual(kept, [0.9, true, 'French, AAC', '240p']);
  assert.deepEqual(viewer.complaints, []);
});

test('a phone shows the picture and one row of controls, whichever way it is held', async () => {
  const viewer = await enter({}, { viewport: { width: 360, height: 700 }, isMobile: true, hasTouch: true });
  const { page } = viewer;
  await watch(viewer, 'film.mkv');
  await viewer.playing();
  const look = () =>
    page.evaluate(() => {
      const box = (node) => node.getBoundingClientRect();
      const buttons = [...document.querySelectorAll('.bar button')].filter((node) => node.checkVisibility());
      const { top, bottom } = box(document.getElementById('video'));
      return {
        rows: new Set(buttons.map((node) => Math.round(box(node).top))).size,
        full: buttons.some(({ id }) => id === 'full') && box(document.getElementById('full')).right <= window.innerWidth,
        isPictureSeen: top >= 0 && bottom <= window.innerHeight + 1,
        isTooWide: document.documentElement.scrollWidth > window.innerWidth,
      };
    });
  const good = { rows: 1, full: true, isPictureSeen: true, isTooWide: false };
  assert.deepEqual(await look(), good);
  await page.setViewportSize({ width: 700, height: 360 });
  assert.deepEqual(await look(), good);
});

test('another player gets the address of a film', async () => {
  const viewer = await enter();
  await watch(viewer, 'film.mkv');
  await viewer.playing();
  await viewer.wake();
  await viewer.page.getByRole('button', { name: 'Play elsewhere' }).click();
  const dialog = viewer.page.getByRole('dialog', { name: 'Play elsewhere' });
  await dialog.getByRole('button', { name: 'HLS' }).click();
  const address = await dialog.getByRole('textbox', { name: 'Address of the film' }).inputValue();
  assert.match(await (await fetch(address)).text(), /^#EXTM3U/);
  const download = viewer.page.waitForEvent('download');
  await dialog.getByRole('button', { name: 'Save as playlist (.m3u)' }).click();
  const file = await download;
  assert.equal(file.suggestedFilename(), 'film.mkv.m3u');
  assert.match(fs.readFileSync(await file.path(), 'utf8'), new RegExp(`^#EXTM3U\n#EXTINF:-1,film.mkv\n${address.replace(/[?]/g, '\\?')}\n$`));
  await service.call('Streaming', 'close', { format: 'hls', stream_id: new URL(address).searchParams.get('stream_id') });
});

test('the owner sees the streams and stops one', async () => {
  const [viewer, owner] = [await enter(), await enter()];
  await watch(viewer, 'long.mkv');
  await viewer.playing();
  await owner.go('#/status');
  await owner.page.getByRole('button', { name: 'Stop long.mkv' }).click();
  await owner.page.getByText('Nobody is watching.').waitFor();
  await viewer.page.evaluate(() => {
    document.getElementById('video').currentTime = 250;
  });
  await viewer.says('Open the film again from the library.');
});

// A service with accounts: ann is an owner, bob is not.
const PASSWORD = '"with quotes"';
async function withAccounts(use) {
  const guarded = Service.prepare();
  guarded.account(['add', 'ann'], PASSWORD);
  guarded.account(['add', 'bob'], PASSWORD);
  await guarded.serve([folder]);
  const viewer = await Viewer.open(browser, guarded);
  try {
    await use(viewer, guarded);
  } finally {
    await viewer.close();
    await guarded.stop();
  }
}

async function logIn({ page }, name, password) {
  const dialog = page.getByRole('dialog', { name: 'Log in' });
  await dialog.getByLabel('Account').fill(name);
  await dialog.getByLabel('Password').fill(password);
  await page.keyboard.press('Enter');
  return dialog;
}

test('the page asks for a login if it is needed, and offers a logout', () =>
  withAccounts(async (viewer) => {
    const { page } = viewer;
    await viewer.go();
    const dialog = await logIn(viewer, 'bob', 'wrong');
    await dialog.getByText('The account or the password is wrong.').waitFor();
    await logIn(viewer, 'bob', PASSWORD);
    await page.getByRole('link', { name: /film\.mkv/ }).waitFor();
    assert.equal(await page.getByRole('link', { name: 'Server' }).count(), 0, 'the page of the owner');
    assert.equal(await page.evaluate(() => document.cookie + JSON.stringify({ ...localStorage })), '{}');
    await page.getByRole('button', { name: 'Log out bob' }).click();
    await logIn(viewer, 'ann', PASSWORD);
    await page.getByRole('link', { name: 'Server' }).waitFor();
    await page.getByRole('link', { name: /film\.mkv/ }).waitFor();
  }));

test('after a session ends during a film, the viewer logs in and the film continues', () =>
  withAccounts(async (viewer, guarded) => {
    await viewer.go();
    await logIn(viewer, 'bob', PASSWORD);
    await viewer.page.getByRole('link', { name: /film\.mkv/ }).waitFor();
    await viewer.go(`#/play${encode(path.join(folder, 'long.mkv'))}?t=0`);
    await viewer.playing();
    guarded.account(['passwd', 'bob'], 'another one');
    await viewer.page.evaluate(() => {
      const position = document.getElementById('position');
      position.value = '200';
      position.dispatchEvent(new Event('change'));
    });
    await logIn(viewer, 'bob', 'another one');
    await viewer.runsFrom(200);
    assert.ok((await viewer.state()).time < 220);
  }));
