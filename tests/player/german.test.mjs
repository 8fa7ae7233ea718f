// The page for a viewer whose browser prefers German.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import { test } from 'node:test';

globalThis.document = {};
Object.defineProperty(globalThis, 'navigator', { value: { languages: ['de-DE', 'en'] } });
const { frameRateText, rateText, sizeText, spokenTime } = await import('../../player/src/format.js');
const { kindText, methodText, playsAs } = await import('../../player/src/playback/kinds.js');
const { PLAYERS, REASONS, reasonText } = await import('../../player/src/reasons.js');
const { GERMAN } = await import('../../player/src/strings.js');
const { startText, timesText } = await import('../../player/src/view/statistics.js');
const { slowWords, stutterWords, wordsOf } = await import('../../player/src/words.js');

const film = (range) => ({ metadata: { track_info: { video: [{ codec: 'h264', resolutionx: 1920, resolutiony: 1080, dynamic_range: range }], audio: [{ codec: 'aac' }] } } });

test('the line under a film is German', () => {
  const used = { method: 'transcode', key: 'hls_720p_vb2500_ab128' };
  assert.equal(playsAs(film(), { method: 'direct' }), '1080p, H.264, läuft unverändert');
  assert.equal(playsAs(film(), { method: 'remux' }), '1080p, H.264, Bild läuft unverändert, Ton wird auf diesem Server umgewandelt');
  assert.equal(playsAs(film(), used), '1080p, H.264, wird auf diesem Server in 720p umgewandelt');
  assert.equal(playsAs(film('hdr10'), used), '1080p, H.264, HDR10, wird auf diesem Server in 720p mit gewöhnlichen Farben umgewandelt');
  assert.deepEqual([kindText('direct'), methodText('adaptive'), methodText(undefined)], ['Originaldatei', 'Mehrere Qualitäten', '']);
});

test('numbers have a comma, and times German words', () => {
  assert.equal(sizeText(4.7e9), '4,7 GB');
  assert.equal(sizeText(12), '12 Bytes');
  assert.equal(rateText(2.5e6), '2,5 Mbit/s');
  assert.equal(frameRateText('24000/1001'), '23,98 fps');
  assert.equal(spokenTime(3661), '1 Stunde 1 Minute 1 Sekunde');
  assert.equal(spokenTime(0), '0 Sekunden');
});

test('waits, stutter and figures are German', () => {
  assert.match(slowWords('media', { transcoder: { speed: 0.62 } }), /nur 0,6-mal so schnell/);
  assert.match(stutterWords({ seconds: 1 }), /^Der Film kam zu spät an/);
  assert.equal(startText({ open: 100, frame: 300 }), '300 ms (geöffnet 100 ms, erstes Bild 200 ms)');
  assert.equal(timesText({ sent: 5 }), 'senden 5 ms');
});

test('an English sentence of the server gives way to the page’s German one, unless the page knows it', () => {
  assert.equal(wordsOf({ reason: 'NotFound', message: 'This stream has been closed.' }).sentence, 'Diesen Film oder Stream gibt es nicht mehr.');
  assert.equal(wordsOf({ reason: 'NotFound', message: 'No account has this name.' }).sentence, 'Kein Konto hat diesen Namen.');
});

test('the server’s reasons are German, with the film’s values', () => {
  assert.equal(reasonText('This browser cannot play the audio codec ac3 in the container matroska,webm.'), 'Dieser Browser kann den Audiocodec ac3 im Container matroska,webm nicht abspielen.');
  assert.equal(
    reasonText('The hevc video of 3840x2160 is re-encoded to 720p. Its HDR10 colors become those of a standard screen. This server makes 1080p at 0.7 of the film\'s speed; 720p is chosen.'),
    'Das Bild (hevc, 3840x2160) wird in 720p umgewandelt. Die Farben von HDR10 werden zu denen eines gewöhnlichen Bildschirms. Dieser Server schafft 1080p nur 0.7-mal so schnell, wie der Film läuft; gewählt ist 720p.',
  );
  assert.equal(reasonText('Nobody knows this. This file has no video.'), 'Nobody knows this. This file has no video.');
  assert.equal(reasonText(undefined), '');
});

test('the page knows every reason of the server', () => {
  const known = [...REASONS, ...PLAYERS];
  assert.deepEqual(known.filter((text) => !(text in GERMAN)), []);
  const sources = ['webapi/choice/profiles.cpp', 'webapi/choice/client_support.cpp', 'liborvoqmx/cmaf/renditions.cpp', 'transcoder/engine_proof.cpp'];
  const server = sources.map((name) => fs.readFileSync(new URL(`../../${name}`, import.meta.url), 'utf8').replace(/^ *\/\/.*$/gm, '')).join('\n').replace(/"\s+"/g, '');
  // Beginnings of sentences: what stands in quotes, begins with a capital letter and has two words or more.
  const begun = [...server.matchAll(/"([A-Z][\w.,]* [^"]+)"/g)].map(([, text]) => text).filter((text) => !text.startsWith('Track '));
  assert.ok(begun.length > 30, `${begun.length} sentences`);
  const spelled = known.map((text) => text.replace(/\{\w+\}.*/, ''));
  assert.deepEqual(begun.filter((text) => !known.includes(text) && !spelled.includes(text)), []);
});
