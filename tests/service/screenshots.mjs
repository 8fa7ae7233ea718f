// Takes the screenshots of every page in light, dark and on a phone, with films made for this purpose:
//
//   ORVO_TEST_BUILD=$PWD/build/ci node tests/service/screenshots.mjs
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { encode, launch, Viewer } from './page.mjs';
import { Service } from './support.mjs';

const run = promisify(execFile);
const docs = fileURLToPath(new URL('../../docs', import.meta.url));
const WIDE = { viewport: { width: 1000, height: 640 } };
const DARK = { ...WIDE, colorScheme: 'dark' };
const PHONE = { viewport: { width: 390, height: 700 }, isMobile: true, hasTouch: true, colorScheme: 'dark' };

const FILMS = {
  'Into the Set (2021).mkv': 'mandelbrot=s=640x360:r=24:start_scale=2:end_scale=0.4:end_pts=400,hue=h=200:s=2',
  'Evening colours.mp4': 'gradients=s=640x360:r=24:c0=navy:c1=orangered:c2=gold:n=3:speed=0.02:seed=7',
  'Life.mkv': 'life=s=160x90:r=24:mold=10:ratio=0.2:death_color=#204060:life_color=#f0c040:seed=5,scale=640:360:flags=neighbor',
  'Rule 110.mkv': 'cellauto=s=160x90:r=24:rule=110:scroll=1:seed=3,scale=640:360:flags=neighbor,negate',
  'Test card.mkv': 'smptehdbars=s=640x360:r=24',
  'Harbour Lights/Harbour.Lights.S01E01.Calm.mkv': 'gradients=s=640x360:r=24:c0=teal:c1=navy:n=2:seed=5',
  'Harbour Lights/Harbour.Lights.S01E02.Wind.mkv': 'gradients=s=640x360:r=24:c0=slategray:c1=darkslateblue:n=2:seed=6',
  'Holidays/Clouds.mp4': 'gradients=s=640x360:r=24:c0=skyblue:c1=white:n=2:seed=3',
};

async function makeFilm(file, picture) {
  fs.mkdirSync(path.dirname(file), { recursive: true });
  await run('ffmpeg', [
    ...['-nostdin', '-v', 'error', '-f', 'lavfi', '-i', picture, '-f', 'lavfi', '-i', 'sine=f=220:r=48000', '-t', '90'],
    ...['-c:v', 'libx264', '-preset', 'ultrafast', '-crf', '30', '-pix_fmt', 'yuv420p', '-g', '48', '-c:a', 'ac3', '-metadata:s:a:0', 'language=eng', file],
  ]);
}

async function shoot(page, name, parts = {}) {
  const file = path.join(docs, `${name}.png`);
  await page.screenshot({ path: `${file}.full.png`, ...parts });
  // Few colours keep the file small.
  const palette = 'split[a][b];[a]palettegen=max_colors=128[p];[b][p]paletteuse=dither=none';
  await run('ffmpeg', ['-nostdin', '-v', 'error', '-y', '-i', `${file}.full.png`, '-vf', palette, file]);
  fs.unlinkSync(`${file}.full.png`);
}

// Waits until every visible film has its picture.
async function postersAreThere({ page }) {
  await page.waitForFunction(() => {
    const tiles = [...document.querySelectorAll('.tile')].filter((tile) => tile.getBoundingClientRect().top < innerHeight);
    return tiles.length > 0 && tiles.every((tile) => tile.querySelector('img') || tile.querySelector('.facts')?.textContent === '0 films');
  });
}

const folder = path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-pictures-')), 'films');
const place = (view, name, query = '') => `#/${view}${encode(path.join(folder, name))}${query}`;

// Each page: its name, its address, and a function that waits until it is complete.
const PAGES = [
  ['library', () => '', postersAreThere],
  ['film', () => place('film', 'Into the Set (2021).mkv'), async ({ page }) => {
    await page.locator('summary').waitFor();
    await page.waitForFunction(() => document.querySelector('img.large')?.complete ?? true);
  }],
  ['server', () => '#/status', ({ page }) => page.getByRole('heading', { name: 'Disks' }).waitFor()],
  ['settings', () => '#/settings', ({ page }) => page.getByRole('heading', { name: 'Accounts' }).waitFor()],
  ['conversions', () => '#/conversions', ({ page }) => page.getByRole('heading', { name: 'Conversions' }).waitFor()],
];

async function shootPlayer(viewer, name, hasFigures) {
  const { page } = viewer;
  await viewer.go(place('play', 'Into the Set (2021).mkv', '?t=0'));
  await viewer.playing();
  await viewer.seekTo(8);
  if (hasFigures) {
    await page.keyboard.press('s');
    await page.getByText('Startup time').waitFor();
  }
  await page.keyboard.press('k');
  await shoot(page, name);
}

// One screen: all pages, named "page-NAME" and the ending.
async function shootScreen(browser, service, options, ending) {
  const viewer = await Viewer.open(browser, service, options);
  try {
    await shootPlayer(viewer, `player${ending}`, ending === '');
    for (const [name, address, isComplete] of PAGES) {
      await viewer.go(address());
      await isComplete(viewer);
      await shoot(viewer.page, `page-${name}${ending}`);
    }
  } finally {
    await viewer.close();
  }
}

async function shootAll(browser, service) {
  await shootScreen(browser, service, WIDE, '');
  await shootScreen(browser, service, DARK, '-dark');
  await shootScreen(browser, service, PHONE, '-phone');
}

try {
  await Promise.all(Object.entries(FILMS).map(([name, picture]) => makeFilm(path.join(folder, name), picture)));
  fs.writeFileSync(path.join(folder, 'Into the Set (2021).eng.srt'), '1\n00:00:01,000 --> 00:01:00,000\nIt never ends.\n');
  const service = await Service.start([folder]);
  const browser = await launch();
  try {
    await shootAll(browser, service);
  } finally {
    await browser.close();
    await service.stop();
  }
} finally {
  fs.rmSync(path.dirname(folder), { recursive: true });
}
