// Plays every film of films.py in Chromium, by every kind that the page offers for it, and prints a table.
//
// Usage: ORVO_TEST_BUILD=BUILD ORVO_TEST_MEDIA=BUILD/films node tests/films/play_all.mjs [NAME...]
//
// Exits with 1 if a film does not play.
import { launch, Viewer } from '../service/page.mjs';
import { media, Service } from '../service/support.mjs';
import { films, plays } from './films.mjs';

const kinds = ['direct', 'http', 'hls', 'webm', 'ss'];
const wanted = process.argv.slice(2);

const fits = (info, kind) => (kind === 'direct' ? info.direct.fits : info.profiles.some((profile) => profile.format === kind && profile.default));

async function tryToPlay(browser, service, film, kind) {
  const viewer = await Viewer.open(browser, service);
  try {
    await plays(viewer, film, kind);
    return 'plays';
  } catch (error) {
    return error.message.split('\n')[0];
  } finally {
    await viewer.close();
    await service.isQuiet(60000);
  }
}

async function rowOf(browser, service, film) {
  const { data } = await service.call('Library', 'info', { path: `${media}/${film.name}`, device: 'chrome' });
  const row = {};
  for (const kind of kinds) {
    row[kind] = fits(data, kind) ? await tryToPlay(browser, service, film, kind) : '';
  }
  return row;
}

const service = await Service.start([media]);
const browser = await launch();
let hasFailed = false;
try {
  console.log(`| film | ${kinds.join(' | ')} |\n|---|${'---|'.repeat(kinds.length)}`);
  for (const film of films.filter(({ name }) => wanted.length === 0 || wanted.includes(name))) {
    const row = await rowOf(browser, service, film);
    console.log(`| ${film.name} | ${kinds.map((kind) => row[kind]).join(' | ')} |`);
    hasFailed ||= Object.values(row).some((text) => text !== '' && text !== 'plays');
  }
} finally {
  await browser.close();
  await service.stop();
}
process.exitCode = hasFailed ? 1 : 0;
