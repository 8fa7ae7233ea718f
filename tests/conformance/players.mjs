// The players of CMAF presentations: programs, and scripts in a browser.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

const run = promisify(execFile);

// --- Programs ---

export async function program(name, words, options = {}) {
  const { stdout, stderr } = await run(name, words, { timeout: 120000, ...options });
  return stdout + stderr;
}

export const nowhere = ['-f', 'null', '-'];
export const mpv = (address, ...words) =>
  program('mpv', [
    ...['--no-config', '--vo=null', '--ao=null', '--ao-null-untimed=yes', '--untimed', '--msg-level=all=warn'],
    ...['--term-status-msg=', ...words, address],
  ]);
// VLC does not run as root.
export function vlc(address, ...words) {
  const sinks = ['-I', 'dummy', '--vout=dummy', '--aout=dummy', '--rate=8', '--play-and-exit'];
  const command = ['cvlc', ...sinks, '--adaptive-logic=highest', ...words, address];
  const isRoot = process.getuid() === 0;
  return isRoot
    ? program('runuser', ['-u', 'nobody', '--', 'env', 'HOME=/tmp', ...command])
    : program(command[0], command.slice(1));
}
export const gstreamer = (address, ...words) =>
  program('gst-play-1.0', [
    ...['-q', '--use-playbin3', '--videosink=fakesink sync=false', '--audiosink=fakesink sync=false', ...words, address],
  ]);
// mpv beside other work says that it is too slow to show all pictures in time.
export const isClean = (output, complaint = /error|fail|invalid|corrupt|missing|discontinu/i) => assert.doesNotMatch(output, complaint);

// --- Players in a browser ---

// Each one puts `errors`, `renditions`, `show(i)`, `sounds` and `hear(i)` on the page. They run there.
export const players = {
  'hls.js': {
    script: 'hls.js/dist/hls.min.js',
    kind: 'url',
    start: async (address) => {
      const hls = new window.Hls();
      window.hls = hls;
      hls.on(window.Hls.Events.ERROR, (_, data) => data.fatal && window.errors.push(data.details));
      const parsed = new Promise((resolve) => {
        hls.once(window.Hls.Events.MANIFEST_PARSED, resolve);
      });
      hls.loadSource(address);
      hls.attachMedia(document.getElementById('video'));
      await parsed;
      window.renditions = hls.levels.length;
      window.show = (i) => {
        hls.nextLevel = i;
      };
      Object.defineProperty(window, 'sounds', { get: () => hls.audioTracks.length });
      window.hear = (i) => {
        hls.audioTrack = i;
      };
    },
  },
  'dash.js': {
    script: 'dashjs/dist/modern/umd/dash.all.min.js',
    kind: 'dash',
    start: async (address) => {
      const player = window.dashjs.MediaPlayer().create();
      player.updateSettings({ streaming: { abr: { autoSwitchBitrate: { video: false } } } });
      player.on('error', ({ error }) => window.errors.push(error.message));
      const ready = new Promise((resolve) => {
        player.on('streamInitialized', resolve);
      });
      player.initialize(document.getElementById('video'), address, true);
      await ready;
      window.renditions = player.getRepresentationsByType('video').length;
      window.show = (i) => player.setRepresentationForTypeByIndex('video', i, true);
      window.sounds = player.getTracksFor('audio').length;
      window.hear = (i) => player.setCurrentTrack(player.getTracksFor('audio')[i]);
    },
  },
  Shaka: {
    script: 'shaka-player/dist/shaka-player.compiled.js',
    kind: 'dash',
    start: async (address) => {
      const player = new window.shaka.Player();
      await player.attach(document.getElementById('video'));
      player.configure({ abr: { enabled: false } });
      player.addEventListener('error', ({ detail }) => window.errors.push(`${detail.code} ${detail.data}`));
      await player.load(address);
      const tracks = () => player.getVariantTracks();
      const heights = [...new Set(tracks().map(({ videoBandwidth }) => videoBandwidth))];
      const sounds = [...new Set(tracks().map(({ audioId }) => audioId))];
      const choose = (isWanted) => player.selectVariantTrack(tracks().find(isWanted), true);
      const active = () => tracks().find((track) => track.active);
      window.renditions = heights.length;
      window.show = (i) => choose((track) => track.videoBandwidth === heights[i] && track.audioId === active().audioId);
      window.sounds = sounds.length;
      window.hear = (i) => choose((track) => track.audioId === sounds[i] && track.videoId === active().videoId);
    },
  },
};

// What a player that stands still was doing.
export function observe(page) {
  const waiting = new Set();
  const ended = [];
  const name = (request) => request.url().replace(/.*(?=(rendition|playlist_type|fragment_id)=)/, '');
  const end = (request, how) => {
    waiting.delete(request);
    ended.push(`${name(request)} ${how}`);
  };
  page.on('request', (request) => waiting.add(request));
  page.on('requestfinished', (request) => end(request, 'came'));
  page.on('requestfailed', (request) => end(request, request.failure()?.errorText));
  return async () => {
    const video = await page.evaluate(() => {
      const { currentTime, readyState, seeking, paused, error, buffered } = document.getElementById('video');
      const parts = Array.from({ length: buffered.length }, (_, i) => [buffered.start(i), buffered.end(i)]);
      return { currentTime, readyState, seeking, paused, error: error?.message, parts, errors: window.errors };
    });
    return JSON.stringify({ ...video, waiting: [...waiting].map(name), ended: ended.slice(-8) });
  };
}
