// hls.js plays films that several boxes encode by turns: from the start, with 20 seeks, to the end.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { observe, players } from '../conformance/players.mjs';
import { playback, shownSecond, withBarePage } from '../service/bare_page.mjs';
import { Cluster } from './cluster.mjs';

const seconds = 70; // the picture of a later second would be white
const places = [31, 2, 17, 58, 38, 0, 9, 64.3, 24.9, 12, 45, 5, 52, 21, 67, 36.6, 1, 27, 60, 7];
// The luma of the picture tells its second (shownSecond).
const film = [
  ...['-f', 'lavfi', '-i', `color=black:s=640x360:d=${seconds}:r=25,geq=lum='16+3*T':cb=128:cr=128`],
  ...['-f', 'lavfi', '-i', `sine=f=440:beep_factor=2:r=48000:d=${seconds}`],
  ...['-c:v', 'libx264', '-preset', 'ultrafast', '-pix_fmt', 'yuv420p', '-bf', '2', '-g', '50', '-sc_threshold', '0'],
  ...['-c:a', 'ac3'],
];
const kinds = {
  'HLS, encoded': { format: 'hls', profile: 'hls_240p_vb300_ab96' },
  'HLS, copied': { format: 'hls', profile: 'hls_remux' },
  'CMAF, encoded': { format: 'cmaf', codecs: 'avc1,mp4a', max_height: 240 },
  'CMAF, copied': { format: 'cmaf', codecs: 'avc1,mp4a' },
};
let films;
let cluster;

before(async () => {
  films = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-films-'));
  fs.chmodSync(films, 0o755);
  execFileSync('ffmpeg', ['-nostdin', '-v', 'error', ...film, path.join(films, 'film.mkv')]);
  cluster = await Cluster.start({ films });
});
after(async () => {
  await cluster?.stop();
  fs.rmSync(films, { recursive: true });
});

// The film goes on from this second, with its own picture.
async function plays(page, second, deed) {
  const goesOn = (from) => {
    const video = document.getElementById('video');
    return window.errors.length > 0 || (video.currentTime > from + 0.2 && video.readyState >= 3 && !video.seeking);
  };
  await page.waitForFunction(goesOn, Math.min(second, seconds - 1)).catch(async () => {
    assert.fail(`${deed}: stands still, ${await page.describe()}`);
  });
  assert.deepEqual(await page.evaluate(() => window.errors), [], deed);
  // A busy browser may show the next pictures before its script runs.
  const shown = [await shownSecond(page), await shownSecond(page), await shownSecond(page)];
  assert.ok(shown.some(({ picture, clock }) => Math.abs(picture - clock) < 0.7), `${deed}: ${JSON.stringify(shown)}`);
}

async function seek(page, place) {
  await page.evaluate((to) => {
    document.getElementById('video').currentTime = to;
  }, place);
  await plays(page, place, `seek to ${place}`);
}

for (const [name, kind] of Object.entries(kinds)) {
  test(`${name}: hls.js plays over 20 seeks, to the end`, { timeout: 600_000 }, async (t) => {
    const stream = await cluster.open('film.mkv', kind);
    t.after(() => cluster.close(stream));
    const { script, start } = players['hls.js'];
    await withBarePage({ address: `http://${cluster.authority}` }, [script], async (page) => {
      page.describe = observe(page);
      await page.evaluate(() => {
        window.errors = [];
      });
      await page.evaluate(start, stream.url);
      await page.evaluate(() => document.getElementById('video').play());
      await plays(page, 0, 'start');
      for (const place of places) await seek(page, place);
      await seek(page, seconds - 3);
      await page.waitForFunction(() => document.getElementById('video').ended).catch(async () => {
        assert.fail(`does not end: ${await page.describe()}`);
      });
      const { dropped, frames } = await playback(page);
      t.diagnostic(`${dropped} of ${frames} pictures dropped`);
    });
  });
}
