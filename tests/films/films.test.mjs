// Music, films without sound and other films that players find difficult, by the whole service.
import assert from 'node:assert/strict';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';

import { launch, Viewer } from '../service/page.mjs';
import { eventually, media, readSome, Service } from '../service/support.mjs';
import { films, isMusic, plays } from './films.mjs';

const chrome = 'Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/140.0.0.0 Safari/537.36';
const film = (name) => path.join(media, name);
const covers = ['cover.flac', 'cover.mp3', 'cover.m4a'];
const songs = ['song.flac', 'song.mp3', 'song.m4a', 'song.opus', 'song.ogg'];
let service;

before(async () => {
  service = await Service.start([media]);
});
after(() => service.finish());

const withAgent = async (method, parameters, agent = chrome) => {
  const response = await fetch(service.query('Streaming', method, parameters), { headers: { 'User-Agent': agent } });
  return { status: response.status, ...(await response.json()) };
};

const close = ({ format, stream_id: id }) => service.call('Streaming', 'close', { format, stream_id: id });

// Opens a stream, and returns the first bytes of what is behind its address.
async function begins(name, parameters) {
  const { data, error } = await withAgent('open', { path: film(name), ...parameters });
  assert.ok(data, `${name}: ${JSON.stringify(error)}`);
  const response = await fetch(data.url, { headers: { 'User-Agent': chrome } });
  const bytes = await readSome(response, 100);
  await response.body.cancel();
  await close(data);
  return { status: response.status, type: response.headers.get('content-type'), bytes, data };
}

describe('music', () => {
  for (const name of [...covers, ...songs]) {
    test(`${name} plays as it is for a browser that names no kind`, async () => {
      const { status, type, data } = await begins(name, {});
      assert.deepEqual([status, data.format], [200, 'direct']);
      assert.match(type, /^audio\//);
    });
  }

  for (const name of covers) {
    for (const profile of ['http_mp4_480p_vb1200_ab128', 'http_ts_480p_vb1200_ab128', 'http_wmv_480p_vb1200_ab128', 'webm_480p_vb1200_ab128']) {
      test(`${name} is sound in ${profile}`, async () => {
        const { status, bytes } = await begins(name, { format: profile.split('_')[0], profile });
        assert.equal(status, 200);
        assert.equal(bytes.length >= 100, true);
      });
    }

    test(`${name} has its cover as its poster, and the card says that it is music`, async () => {
      const poster = await fetch(service.query('Library', 'poster', { path: film(name) }));
      assert.deepEqual([poster.status, poster.headers.get('content-type')], [200, 'image/jpeg']);
      await poster.body.cancel();
      assert.equal((await service.call('Library', 'card', { path: film(name) })).data.music, true);
    });
  }

  test('a kind that needs pictures refuses music with a reason', async () => {
    for (const name of ['cover.flac', 'song.flac']) {
      for (const format of ['hls', 'ss']) {
        const { status, error } = await withAgent('open', { path: film(name), format });
        assert.deepEqual([status, error.reason], [415, 'TransVideoNotSupported'], `${name} ${format}`);
      }
    }
    const { status } = await withAgent('open', { path: film('song.flac'), format: 'http' });
    assert.equal(status, 415, 'no picture at all');
  });

  test('a client that does not play the file gets another kind', async () => {
    const { data } = await withAgent('open', { path: film('cover.flac') }, 'curl/8.0');
    assert.equal(data.format, 'http');
    await close(data);
  });

  test('the library lists music beside films', async () => {
    const { files } = (await service.call('Library', 'list', { path: media })).data;
    const names = files.map(({ name }) => name);
    assert.ok(['cover.flac', 'song.opus', 'plain.mp4'].every((name) => names.includes(name)), names.join());
  });
});

describe('a film without sound', () => {
  for (const format of ['direct', 'http', 'webm']) {
    test(`plays as ${format}`, async () => {
      const { status, bytes } = await begins('silent.mp4', { format });
      assert.equal(status, 200);
      assert.ok(bytes.length >= 100);
    });
  }

  test('plays as Smooth Streaming', async () => {
    const { data } = await begins('silent.mp4', { format: 'ss' });
    const again = (await withAgent('open', { path: film('silent.mp4'), format: 'ss' })).data;
    const rate = data.profile.match(/vb(\d+)/)[1];
    const fragment = await fetch(`${again.url}&fragment_id=QualityLevels(${rate}000)/Fragments(video=0)`);
    assert.equal(fragment.status, 200);
    await fragment.body.cancel();
    await close(again);
  });

  test('is refused by HLS with a reason, and opens by another kind without a format', async () => {
    const { status, error } = await withAgent('open', { path: film('silent.webm'), format: 'hls' });
    assert.equal(status, 415);
    assert.ok(error.message.length > 0);
    const { data } = await withAgent('open', { path: film('silent.webm') }, 'curl/8.0');
    assert.equal(data.format, 'http');
    await close(data);
  });
});

describe('a film of a high dynamic range', () => {
  const direct = async (parameters) => (await service.call('Library', 'info', { path: film('pq.mp4'), device: 'chrome', ...parameters })).data.direct;

  test('is copied for a client that decodes and shows it', async () => {
    assert.equal((await direct({ codecs: 'avc1,hvc1', dynamic_range: 'hdr' })).fits, true);
    const { data } = await withAgent('open', { path: film('pq.mp4'), codecs: 'hvc1,mp4a', dynamic_range: 'hdr' });
    assert.equal(data.format, 'direct');
    await close(data);
  });

  test('is explained to a client that decodes it and does not show it', async () => {
    const { fits, why } = await direct({ codecs: 'hvc1.2.4.L120.B0' });
    assert.equal(fits, false);
    assert.match(why, /HDR10/);
    const { data } = await withAgent('open', { path: film('pq.mp4'), codecs: 'hvc1.2.4.L120.B0' });
    assert.equal(data.format, 'hls');
    const { data: state } = await service.call('Streaming', 'state', { format: 'hls', stream_id: data.stream_id });
    assert.match(state.why, /HDR10 colors/);
    await close(data);
  });
});

describe('where the time went', () => {
  // The steps are remembered after the first bytes were sent.
  const timesOf = (stream) =>
    eventually(async () => {
      const { times } = await statusOf(stream);
      return times.sent === undefined ? undefined : times;
    });
  const statusOf = async ({ stream_id: id }) => (await service.call('Status', 'get')).data.streams.find((stream) => stream.stream_id === id);

  test('each step of a start is told, and a starving player is remembered', async (t) => {
    const { data } = await withAgent('open', { path: film('ten_bit.mkv'), format: 'hls' });
    t.after(() => close(data));
    const playlist = await (await fetch(data.url)).text();
    const [segment] = playlist.split('\n').filter((line) => line.startsWith('/') || line.startsWith('http'));
    const address = new URL(segment, data.url);
    const begun = performance.now();
    await (await fetch(address)).arrayBuffer();
    const waited = performance.now() - begun;
    const times = await timesOf(data);
    const { client } = await statusOf(data);
    const steps = ['probe', 'admission', 'prepare', 'start', 'first_bytes', 'sent'];
    assert.ok(steps.every((step) => times[step] >= 0), JSON.stringify(times));
    assert.ok(times.start + (times.first_key ?? 0) + times.first_bytes + times.sent <= waited + 50, JSON.stringify({ times, waited }));
    assert.equal(client, null);
    await (await fetch(address, { headers: { 'CMCD-Request': 'bl=300,mtp=1200', 'CMCD-Status': 'bs' } })).arrayBuffer();
    const later = await statusOf(data);
    assert.deepEqual([later.client.buffer, later.client.throughput], [300, 1200]);
    assert.deepEqual(later.times, times, 'a ready segment is no start');
  });

  test('a byte stream tells its steps too', async (t) => {
    const { data } = await withAgent('open', { path: film('plain.mp4'), format: 'http' });
    t.after(() => close(data));
    const response = await fetch(data.url);
    await readSome(response, 100);
    const times = await timesOf(data);
    assert.ok(['start', 'first_bytes', 'sent'].every((step) => times[step] >= 0), JSON.stringify(times));
    await response.body.cancel();
  });
});

describe('in Chromium', () => {
  let browser;
  before(async () => {
    browser = await launch();
  });
  after(() => browser.close());

  // The page chooses the kind. All kinds of all films are played by play_all.mjs.
  const chosen = ['plain.mp4', 'pq.mp4', 'top_first.ts', 'silent.webm', 'surround.mkv', 'cover.flac', 'song.opus'];
  for (const wanted of films.filter(({ name }) => chosen.includes(name))) {
    test(`${wanted.name} plays`, async () => {
      const viewer = await Viewer.open(browser, service);
      try {
        const { kind } = await plays(viewer, wanted);
        assert.equal(/^Music/.test(kind), isMusic(wanted), kind);
      } finally {
        await viewer.close();
      }
      await service.isQuiet();
    });
  }
});
