// The playback methods of a film, and their order.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { choiceOf } from '../../player/src/view/preferences.js';
import { catchUpRate, isEarly } from '../../player/src/playback/catch_up.js';
import { kindsFor, plan, playsAs, profileText, qualities, qualityNamed, usualWay } from '../../player/src/playback/kinds.js';

const profile = (key, method, more = {}) => ({ key, format: key.split('_')[0], method, ...more });
const info = {
  direct: { fits: true, content_type: 'video/mp4' },
  metadata: { track_info: { audio: [{ id: '1' }, { id: '2' }] } },
  profiles: [
    profile('hls_remux', 'remux'),
    profile('hls_240p_vb300_ab96', 'transcode'),
    profile('hls_1080p_vb5000_ab192', 'transcode'),
    profile('hls_720p_vb2500_ab128', 'refused'),
    profile('http_mp4_480p_vb1200_ab128', 'transcode', { content_type: 'video/mp4' }),
    profile('http_ts_480p_vb1200_ab128', 'transcode', { content_type: 'video/mp2t' }),
    profile('webm_480p_vb1200_ab128', 'transcode', { content_type: 'video/webm' }),
  ],
};
const can = { plays: () => true, segments: true, nativeHls: false, mp4: true, webm: true };
const choice = { kind: '', profile: '', audio: '', subtitle: '' };

test('the original file comes first, then HLS, then one stream', () => {
  assert.deepEqual(kindsFor(info, can), ['direct', 'hls', 'http', 'webm']);
  assert.deepEqual(kindsFor(info, { ...can, plays: () => false }), ['hls', 'http', 'webm']);
  assert.deepEqual(kindsFor(info, { ...can, segments: false }), ['direct', 'http', 'webm']);
  assert.deepEqual(kindsFor({ ...info, direct: { fits: false } }, { ...can, mp4: false, segments: false }), ['webm']);
});

test('a browser with MediaSource plays a presentation where the original file does not fit', () => {
  assert.deepEqual(kindsFor(info, { ...can, cmaf: true }), ['direct', 'cmaf', 'hls', 'http', 'webm']);
  assert.equal(plan(info, { ...can, cmaf: true }, { ...choice, audio: '2' })[0], 'cmaf');
});

test('pictures that must be encoded come from the video engine of the server', () => {
  const engine = profile('hls_720p_vaapi_vb2500_ab128', 'transcode', { default: true, hardware: true });
  const found = { ...info, not_copied: 'The browser cannot play them.', profiles: [engine, ...info.profiles] };
  const everything = { ...can, cmaf: true };
  assert.deepEqual(kindsFor(found, everything), ['direct', 'hls', 'cmaf', 'http', 'webm']);
  assert.equal(kindsFor({ ...found, not_copied: '' }, everything)[1], 'cmaf', 'where the pictures are copied');
  assert.equal(kindsFor({ ...found, profiles: info.profiles }, everything)[1], 'cmaf', 'without an engine');
});

test('a presentation is taken to copy what HLS copies, until its renditions are known', () => {
  const found = { ...info, profiles: [{ ...info.profiles[0], default: true }] };
  assert.equal(usualWay(found, 'cmaf', '').method, 'remux');
  assert.deepEqual(usualWay(found, 'cmaf', 'h264-480'), { method: 'transcode', key: 'cmaf_480p' });
  assert.equal(usualWay(found, 'direct', '').method, 'direct');
});

test('a server that lists only progressive profiles may still have others', () => {
  const old = { profiles: info.profiles.filter(({ format }) => format === 'http') };
  assert.deepEqual(kindsFor(old, can), ['hls', 'http', 'webm', 'ss']);
});

test('a chosen method comes first, and the others follow', () => {
  assert.deepEqual(plan(info, can, { ...choice, kind: 'http' }), ['http', 'direct', 'hls', 'webm']);
  assert.deepEqual(plan(info, can, { ...choice, kind: 'ss' }), ['direct', 'hls', 'http', 'webm']);
});

test('another audio track or quality rules out the original file', () => {
  assert.equal(plan(info, can, { ...choice, audio: '1' })[0], 'direct');
  assert.equal(plan(info, can, { ...choice, audio: '2' })[0], 'hls');
  assert.equal(plan(info, can, { ...choice, kind: 'hls', profile: 'hls_remux' })[0], 'hls');
});

test('night sound rules out the original file, unless nothing else plays the film', () => {
  const night = { ...choice, kind: 'direct', treatment: 'night' };
  assert.deepEqual(plan(info, can, night), ['hls', 'http', 'webm']);
  assert.deepEqual(plan({ ...info, profiles: [profile('hls_remux', 'refused')] }, can, night), ['direct']);
});

test('qualities go from the original down, without refused ones and those for other players', () => {
  assert.deepEqual(qualities(info, 'hls').map(({ text }) => text), ['Original quality', '1080p', '240p']);
  assert.deepEqual(qualities(info, 'http').map(({ text }) => text), ['480p']);
});

test('qualities of the same size show their rates', () => {
  const keys = ['smoothstreaming_240p_x264_vb200_vf15_aac_ab40', 'smoothstreaming_hd480_x264_vb1000_vf15_aac_ab96', 'smoothstreaming_240p_x264_vb320_vf15_aac_ab40'];
  const profiles = keys.map((key) => profile(key, 'transcode', { format: 'ss' }));
  assert.deepEqual(qualities({ profiles }, 'ss').map(({ text }) => text), ['480p', '240p, 200 kbit/s', '240p, 320 kbit/s']);
});

test('a profile has a readable name', () => {
  const names = ['http_mp4_remux', 'hls_720p_vaapi_vb2500_ab128', 'webm_vp9_360p_vb700_ab96', 'smoothstreaming_240p_x264_vb200_vf15_aac_ab40'];
  assert.deepEqual(names.map((key) => profileText({ key })), ['Original quality', '720p vaapi', '360p vp9', '240p']);
});

test('a portrait film’s quality has the lines of its shorter side', () => {
  assert.equal(profileText({ key: 'hls_1080p_vb5000', width: 1080, height: 1920 }), '1080p');
  assert.equal(profileText({ key: 'hls_vb5000', width: 720, height: 1280 }), '720p');
  assert.equal(profileText({ key: 'smoothstreaming_hd720_x264_vb1500', width: 1270, height: 720 }), '720p');
});

test('a quality is found by its text in the first method that has it', () => {
  assert.deepEqual(qualityNamed(info, ['direct', 'hls', 'http'], '1080p'), { kind: 'hls', profile: 'hls_1080p_vb5000_ab192' });
  assert.deepEqual(qualityNamed(info, ['direct', 'hls', 'http'], '480p'), { kind: 'http', profile: 'http_mp4_480p_vb1200_ab128' });
  assert.equal(qualityNamed(info, ['direct', 'hls'], '2160p'), null);
  assert.deepEqual(qualityNamed(info, ['direct', 'cmaf', 'hls'], '480p, 1200 kbit/s'), { kind: 'cmaf', profile: 'h264-480' });
});

test('a viewer reads the size, the codec and what the server does', () => {
  const film = { metadata: { track_info: { video: [{ display_x: 1920, display_y: 800, codec: 'h264' }] } } };
  assert.equal(playsAs(film, { method: 'direct' }), '1080p, H.264, plays as it is');
  assert.equal(playsAs(film, { method: 'remux', key: 'hls_remux' }), '1080p, H.264, picture plays as it is, sound is converted on this server');
  assert.equal(playsAs(film, { method: 'transcode', key: 'hls_720p_vb2500_ab128' }), '1080p, H.264, converted to 720p on this server');
  assert.equal(playsAs(film, { key: 'hls_2160p_vb2500_ab128' }), '1080p, H.264, converted to 2160p on this server');
  assert.equal(playsAs({}, undefined), '');
});

test('a viewer reads the dynamic range and what becomes of it', () => {
  const film = { metadata: { track_info: { video: [{ display_x: 3840, display_y: 2160, codec: 'hevc', dynamic_range: 'hdr10' }] } } };
  assert.equal(playsAs(film, { method: 'direct' }), '2160p, HEVC, HDR10, plays as it is');
  assert.equal(playsAs(film, { method: 'transcode', key: 'hls_720p_vb2500_ab128' }), '2160p, HEVC, HDR10, converted to 720p in standard colors on this server');
});

test('a viewer reads that a film with a cover is music', () => {
  const music = { metadata: { track_info: { video: [{ codec: 'mjpeg', attached_pic: true }], audio: [{ codec: 'flac' }] } } };
  assert.equal(playsAs(music, { method: 'direct' }), 'Music, FLAC, plays as it is');
  assert.equal(playsAs(music, { method: 'transcode', key: 'http_mp4_480p_vb1200_ab128' }), 'Music, FLAC, sound is converted on this server');
});

test('a catch-up is slower near its end', () => {
  assert.ok(isEarly(10, 12) && !isEarly(12, 12) && !isEarly(11.95, 12));
  assert.deepEqual([0.1, 2, 30].map(catchUpRate), [2, 6, 16]);
});

test('a forced subtitle in the language of the sound shows itself, unless the viewer wants another one', () => {
  const track = (id, language, more) => ({ id, language, form: 'text', ...more });
  const foreign = {
    metadata: { track_info: { audio: [{ id: 'a', language: 'ger' }] } },
    subtitles: [track('1', 'ger'), track('2', 'fre', { forced: true }), track('3', 'ger', { forced: true })],
    profiles: [],
  };
  assert.equal(choiceOf(foreign).subtitle, '3');
  globalThis.localStorage = { getItem: () => JSON.stringify({ subtitleLanguage: 'ger', secondLanguage: 'fre' }) };
  assert.deepEqual([choiceOf(foreign).subtitle, choiceOf(foreign).second], ['1', '2']);
  delete globalThis.localStorage;
});

test('forced pictures show themselves, those of a DVD and those of a Blu-ray', () => {
  const pictures = (codec) => ({ id: '1', language: 'ger', forced: true, form: 'picture', codec });
  const dubbed = (codec) => ({ metadata: { track_info: { audio: [{ id: 'a', language: 'ger' }] } }, subtitles: [pictures(codec)], profiles: [] });
  assert.equal(choiceOf(dubbed('dvd_subtitle')).subtitle, '1');
  assert.equal(choiceOf(dubbed('hdmv_pgs_subtitle')).subtitle, '1');
});
