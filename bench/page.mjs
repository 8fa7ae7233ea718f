// For bench/run: the time from a click, or a seek, to the first picture on the page. Prints medians as JSON.
import { encode, launch } from '../tests/service/page.mjs';

const { address, rounds, films } = JSON.parse(process.argv[2]);
const LOOK_MILLISECONDS = 3000;
const LEAVE_MILLISECONDS = 400;
const SEEK_PART = 0.6; // of the film; far from what is loaded

const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

// Follows a link to the player, as a click does, and waits for the first picture that the browser shows.
const click = (page, target) =>
  page.evaluate(
    (hash) =>
      new Promise((resolve) => {
        const video = document.getElementById('video');
        const begun = performance.now();
        video.requestVideoFrameCallback((now) => resolve(now - begun));
        window.location.hash = hash;
      }),
    target,
  );

const seek = (page, part) =>
  page.evaluate(
    (to) =>
      new Promise((resolve) => {
        const video = document.getElementById('video');
        const position = document.getElementById('position');
        const second = Math.floor(Number(position.max) * to);
        const begun = performance.now();
        const look = (now, { mediaTime }) => {
          // A picture may be shown before the element says that it has arrived. Key frames are two seconds apart.
          if (mediaTime >= second - 2 && mediaTime <= second + 10) resolve(now - begun);
          else video.requestVideoFrameCallback(look);
        };
        video.requestVideoFrameCallback(look);
        position.value = String(second);
        position.dispatchEvent(new Event('change'));
      }),
    part,
  );

// The page of a film that the server cuts opens the film itself. Its viewer looks at it for a moment.
async function prepared(page, show) {
  const warmed = page.waitForResponse((response) => response.request().postData()?.includes('warm=true'));
  await show();
  await warmed;
  await page.waitForTimeout(LOOK_MILLISECONDS);
}

async function measure(browser, [film, kind, isPrepared = false]) {
  const context = await browser.newContext();
  const page = await context.newPage();
  page.setDefaultTimeout(60_000);
  const show = () => page.goto(`${address}/#/film${encode(film)}`);
  await (isPrepared ? prepared(page, show) : show());
  await page.locator('a[href^="#/play"]').first().waitFor();
  const result = { click: await click(page, `#/play${encode(film)}?t=0&kind=${kind}`) };
  result.seek = await seek(page, SEEK_PART);
  await page.goto('about:blank');
  // The browser sends the stream's closing in the background. A context that ends at once takes it along, and the next film
  // waits for the place.
  await page.waitForTimeout(LEAVE_MILLISECONDS);
  await context.close();
  return result;
}

const browser = await launch();
const cases = {
  direct: [films.copy, 'direct'],
  copy: [films.copy, 'hls'],
  transcode: [films.transcode, 'hls'],
  'cmaf copy': [films.copy, 'cmaf'],
  'cmaf transcode': [films.transcode, 'cmaf'],
  'prepared copy': [films.remux, '', true],
  'prepared transcode': [films.transcode, '', true],
};
const samples = Object.fromEntries(Object.keys(cases).map((name) => [name, []]));
for (let round = -1; round < rounds; ++round) {
  for (const [name, what] of Object.entries(cases)) {
    const sample = await measure(browser, what);
    if (round >= 0) samples[name].push(sample); // the first round warms up
  }
}
await browser.close();
const medians = Object.entries(samples).map(([name, list]) => [
  name,
  { click: median(list.map((sample) => sample.click)), seek: median(list.map((sample) => sample.seek)) },
]);
process.stdout.write(JSON.stringify(Object.fromEntries(medians)));
