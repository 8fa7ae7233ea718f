// The page as viewers use it in Firefox.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { promisify } from 'node:util';

import { whiteBox } from '../service/pgs.mjs';
import { FONT, redWord } from '../service/script.mjs';
import { eventually, media } from '../service/support.mjs';
import { cuesAre, suite } from './suite.mjs';

const run = promisify(execFile);

const srt = (text) => `1\n00:00:01,000 --> 00:00:20,000\n${text}\n\n2\n00:00:28,000 --> 00:00:59,000\n${text} later\n`;

const it = suite(async (folder, link) => {
  // A film of the shared ones with a subtitle track from a file.
  const addTrack = (name, input, ...options) =>
    run('ffmpeg', ['-nostdin', '-v', 'error', '-y', '-i', path.join(media, 'two_audio.mkv'), ...input, '-map', '0:v', '-map', '0:a:0', '-map', '1', '-c', 'copy', '-copyts', ...options, path.join(folder, name)]);
  for (const name of ['h264_aac.mp4', 'h264_ac3.mkv', 'long.mkv', 'vp9_opus.webm']) link(name, name);
  link('two_audio.mkv', 'film.mkv');
  for (const number of [1, 2]) link('h264_aac.mp4', `Season 1/Harbour.S01E0${number}.mp4`);
  fs.writeFileSync(path.join(folder, 'film.eng.srt'), srt('English'));
  fs.writeFileSync(path.join(folder, 'film.fre.srt'), srt('Français'));
  fs.writeFileSync(path.join(folder, 'box.sup'), whiteBox({ width: 640, height: 360 }, { x: 200, y: 300, width: 200, height: 40 }, 1, 50));
  fs.writeFileSync(path.join(folder, 'track.txt'), redWord);
  await addTrack('pictures.mkv', ['-i', path.join(folder, 'box.sup')]);
  await addTrack('styled.mkv', ['-f', 'ass', '-i', path.join(folder, 'track.txt')], '-attach', FONT, '-metadata:s:t', 'mimetype=application/x-truetype-font');
});
const { viewing, watch } = it;

const becomes = (viewer, [x, y], color) =>
  eventually(async () => (JSON.stringify(await viewer.drawnAt(x, y)) === JSON.stringify(color) ? true : undefined), undefined, () => `${x}, ${y} becomes ${color}`);

viewing('a film is found in the library, its page tells how it plays, and it plays', async (viewer) => {
  await viewer.go();
  await viewer.sees('film', '.tile');
  await viewer.page.type('#words', 'LON');
  await viewer.sees('1 film.');
  await viewer.waitFor(() => window.location.hash.endsWith('q=LON'));
  await viewer.press('long', '.tile a, a.tile');
  await viewer.sees('360p, H.264, picture plays as it is');
  await viewer.press('Play', 'a.main');
  await viewer.playing();
  assert.deepEqual(viewer.complaints, []);
});

for (const [kind, name] of Object.entries({ direct: 'vp9_opus.webm', cmaf: 'h264_ac3.mkv', hls: 'h264_ac3.mkv', http: 'h264_ac3.mkv', webm: 'vp9_opus.webm', ss: 'h264_ac3.mkv' })) {
  viewing(`${name} plays by ${kind}, and a seek lands in the middle`, async (viewer, t) => {
    const begun = performance.now();
    await watch(viewer, name, { kind });
    await viewer.playing();
    t.diagnostic(`first pictures after ${Math.round(performance.now() - begun)} ms`);
    const middle = name === 'vp9_opus.webm' ? 15 : 30;
    await viewer.seekTo(middle);
    const landed = await viewer.second();
    assert.ok(landed < middle + 10, `landed at ${landed}`);
    await viewer.isInStep();
    await viewer.waitFor((from) => Number(document.getElementById('position').value) > from, landed);
    assert.equal(await viewer.page.evaluate(() => document.getElementById('message').textContent), '');
  });
}

viewing('a reload, and the back button after another page, return to the place of the film', async (viewer) => {
  await watch(viewer, 'long.mkv');
  await viewer.playing();
  await viewer.seekTo(100);
  await viewer.page.reload();
  await viewer.runsFrom(100);
  assert.ok((await viewer.second()) < 130);
  await viewer.page.evaluate(() => document.querySelector('a.back').click());
  await viewer.sees('Resume at 1:', 'a.main');
  await viewer.page.evaluate(() => window.history.back());
  await viewer.runsFrom(100);
});

viewing('sound, subtitles and quality change at the place of the film', async (viewer) => {
  await watch(viewer, 'film.mkv', { t: 30 });
  await viewer.playing();
  await viewer.set('Audio track', 'French, AAC');
  await viewer.runsFrom(30);
  await viewer.set('Subtitles', 'English, film.eng.srt');
  await cuesAre(viewer, 'English later');
  await viewer.set('Second subtitles', 'French, film.fre.srt');
  await cuesAre(viewer, 'English later', 'Français later');
  await viewer.set('Quality', '240p');
  await viewer.waitFor(() => document.getElementById('video').videoHeight === 240);
  await viewer.runsFrom(30);
  await cuesAre(viewer, 'English later', 'Français later');
  assert.deepEqual(viewer.complaints, []);
});

viewing('subtitles of pictures are drawn over the film', async (viewer) => {
  await watch(viewer, 'pictures.mkv', { t: 10 });
  await viewer.playing();
  await viewer.key('k');
  await viewer.waitFor(() => document.getElementById('video').paused);
  await viewer.key('c');
  await becomes(viewer, [300 / 640, 320 / 360], [235, 235, 235, 255]);
  await becomes(viewer, [100 / 640, 320 / 360], [0, 0, 0, 0]);
});

viewing('subtitles with styles are drawn with the font of the film', async (viewer) => {
  await watch(viewer, 'styled.mkv', { t: 10 });
  await viewer.playing();
  await viewer.key('c');
  await becomes(viewer, [140 / 640, 140 / 360], [255, 0, 0, 255]);
  assert.equal((await viewer.drawnAt(60 / 640, 140 / 360))[3], 0, 'left of the word');
});

viewing('the keyboard controls the film', async (viewer) => {
  await watch(viewer, 'long.mkv');
  await viewer.playing();
  await viewer.key('k');
  await viewer.waitFor(() => document.getElementById('video').paused);
  await viewer.key('5');
  await viewer.runsFrom(150);
  await viewer.key('l');
  await viewer.runsFrom(160);
  await viewer.key('j');
  await viewer.waitFor(() => document.getElementById('video').currentTime < 155);
  await viewer.key('m');
  assert.equal(await viewer.video('muted'), true);
  await viewer.key('>');
  assert.equal(await viewer.video('playbackRate'), 1.25);
  await viewer.key('f');
  await viewer.waitFor(() => document.fullscreenElement !== null);
  await viewer.key('f');
  await viewer.waitFor(() => document.fullscreenElement === null);
  await viewer.key('?');
  await viewer.sees('Keyboard shortcuts', 'dialog');
  await viewer.key('Escape');
  await viewer.waitFor(() => document.querySelector('dialog') === null);
});

viewing('the viewer’s settings hold for the next film', async (viewer) => {
  await watch(viewer, 'film.mkv', { t: 10 });
  await viewer.playing();
  await viewer.set('Subtitles', 'French, film.fre.srt');
  await viewer.set('Subtitle size', 'Large');
  await viewer.page.evaluate(() => {
    const volume = document.getElementById('volume');
    volume.value = '0.4';
    volume.dispatchEvent(new Event('input'));
  });
  await watch(viewer, 'film.mkv', { t: 5 });
  await viewer.page.reload();
  await viewer.playing();
  await cuesAre(viewer, 'Français');
  assert.equal(await viewer.video('volume'), 0.4);
  assert.equal(await viewer.page.evaluate(() => document.getElementById('video').dataset.cueSize), 'large');
});

viewing('after an episode the next one begins by itself', async (viewer) => {
  await watch(viewer, 'Season 1/Harbour.S01E01.mp4', { t: 57 });
  await viewer.waitFor(() => window.location.hash.includes('S01E02'));
  await viewer.playing();
});

viewing('the owner manages the folders on the page', async (viewer) => {
  await viewer.go('#/settings');
  await viewer.sees(it.folder, 'td');
  await viewer.go('#/status');
  await viewer.sees('Disks', 'h2, h3');
  assert.deepEqual(viewer.complaints, []);
});
