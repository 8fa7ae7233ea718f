// Every path through the encoders, as a viewer meets it. Each machine has the test card for FFmpeg
// (test_card.cpp) or the test engine for GStreamer (tests/gst/test_engine.cpp), which fail on command.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { performance } from 'node:perf_hooks';

import { encode, launch, Viewer } from '../service/page.mjs';
import { build, Service } from '../service/support.mjs';

const SECONDS = 20;
const RATE = 12;
const SEEKS = [3, 15, 1, 9, 17, 5, 12, 0, 14, 7];
const LONG = 300_000;
const MIDDLE = RATE * 7; // a picture in the middle of the second segment

// `proved`: how the engine behaves while it is proved; `fails`: afterwards.
const card = (name, fails, proved = '') => ({ name, platform: 'braswell', engine: 'card', fails, proved });
const wrapper = (name, fails) => ({ name, platform: 'apollolake', engine: 'wrapper', fails, proved: '' });
const PATHS = [
  { name: 'FFmpeg in software', platform: 'avoton', engine: '' },
  card('VA-API', ''),
  card('VA-API, refuses to open', 'open'),
  card('VA-API, refuses its configuration', 'configure'),
  card('VA-API, fails at the third picture', 'picture=3'),
  card('VA-API, fails in the middle', `picture=${MIDDLE}`),
  card('VA-API, hangs in the middle', `hang=${MIDDLE}`),
  card('VA-API, lies in its proof', 'lie', 'lie'),
  card('VA-API, encodes no more than 200 lines', 'lines=200', 'lines=200'),
  wrapper('orvo-gst', ''),
  wrapper('orvo-gst, engine fails at its first picture', 'picture=1'),
  wrapper('orvo-gst, engine fails in the middle', `picture=${MIDDLE}`),
  wrapper('orvo-gst, engine hangs in the middle', `hang=${MIDDLE}`),
];

// The package with an environment of its own for some programs, which become scripts that become them.
function install(service, programs, words) {
  const target = path.join(service.root, 'var/packages/Mirevo/target');
  const own = path.join(build, 'target');
  fs.rmSync(target);
  for (const name of fs.readdirSync(own)) {
    if (!['bin', 'webapi'].includes(name)) {
      fs.mkdirSync(target, { recursive: true });
      fs.symlinkSync(path.join(own, name), path.join(target, name));
    }
  }
  for (const name of ['bin', 'webapi'].flatMap((folder) => fs.readdirSync(path.join(own, folder)).map((file) => path.join(folder, file)))) {
    const place = path.join(target, name);
    fs.mkdirSync(path.dirname(place), { recursive: true });
    if (programs.includes(path.basename(name))) {
      fs.writeFileSync(place, `#!/bin/sh\n${words}\nexec '${own}/${name}' "$@"\n`, { mode: 0o755 });
    } else {
      fs.symlinkSync(path.join(own, name), place);
    }
  }
}

function allow(service, libraries) {
  const folder = path.join(service.root, 'var/packages/Mirevo/etc');
  fs.mkdirSync(folder, { recursive: true });
  fs.writeFileSync(path.join(folder, 'confinement.conf'), `libraries=${libraries}\n`);
}

const wishOf = (service) => path.join(service.root, 'wish');
const readWish = (service, name) => `[ -e '${wishOf(service)}' ] && export ${name}="$(cat '${wishOf(service)}')"`;

const ENGINES = {
  card(service) {
    const folder = path.join(build, 'tests/va/driver');
    const driver = path.join(folder, 'orvotest_drv_video.so');
    // The request program compares the driver with the one that was proved.
    const preload = `case "$0" in *entry.cgi) ;; *) export LD_PRELOAD='${driver}' ;; esac`;
    install(service, ['ffmpeg', 'ffmpeg_vaapi', 'entry.cgi'], `export LIBVA_DRIVERS_PATH='${folder}'\n${preload}\n${readWish(service, 'ORVO_TEST_CARD')}`);
    allow(service, folder);
    fs.writeFileSync(path.join(service.root, 'var/packages/Mirevo/etc/vaapi_ffmpeg'), '{"enable": true}');
  },
  wrapper(service) {
    const folder = path.join(build, 'tests/gst/engine');
    install(service, ['orvo-gst'], `export GST_PLUGIN_PATH='${folder}' GST_REGISTRY='${service.root}/registry.bin'\n${readWish(service, 'ORVO_TEST_ENGINE')}`);
    allow(service, folder);
  },
};

function wish(service, text) {
  fs.rmSync(wishOf(service), { force: true });
  if (text !== '') {
    fs.writeFileSync(wishOf(service), text);
  }
}

function makeFilm(service) {
  const film = path.join(service.root, 'volume1/film.mkv');
  const picture = `color=black:s=320x180:r=${RATE}:d=${SECONDS},format=yuv420p,geq=lum='16+3*T':cb=128:cr=128`;
  const source = ['-f', 'lavfi', '-i', picture, '-f', 'lavfi', '-i', `sine=d=${SECONDS}`];
  execFileSync('ffmpeg', ['-v', 'error', ...source, '-c:v', 'mpeg4', '-q:v', '2', '-c:a', 'aac', film]);
  return film;
}

const PROVED = { card: /^h264_vaapi: 1080 lines/m, wrapper: /^orvo-gst: 1080 lines/m };

// A busy machine may need too long for a proof.
function prove(service, expected) {
  const program = path.join(service.root, 'var/packages/Mirevo/target/bin/ffmpeg');
  for (let attempt = 1; ; ++attempt) {
    const told = execFileSync(program, ['--prove'], { env: service.environment, encoding: 'utf8' });
    if (expected.test(told)) return;
    assert.ok(attempt < 5, told);
  }
}

// A failure in the film before has ended the proof.
function prepare({ engine, proved, fails }, service) {
  if (engine) {
    wish(service, proved);
    prove(service, proved === '' ? PROVED[engine] : /./);
    wish(service, fails);
  }
}

async function machine({ platform, engine }) {
  const service = Service.prepare(platform);
  if (engine) {
    fs.mkdirSync(path.join(service.root, 'dev/dri'), { recursive: true });
    fs.symlinkSync('/dev/null', path.join(service.root, 'dev/dri/renderD128'));
    ENGINES[engine](service);
  }
  const film = makeFilm(service);
  await service.serve([path.dirname(film)]);
  return { service, film };
}

// The kinds of transcoders in the register while `work` goes on.
async function kindsDuring(service, work) {
  const kinds = [];
  const look = () => {
    try {
      service.registry().forEach(({ hardware_transcode: isHardware }) => kinds.push(isHardware ? 'hardware' : 'software'));
    } catch {
      // it is being written
    }
  };
  const timer = setInterval(look, 100);
  try {
    await work();
  } finally {
    clearInterval(timer);
  }
  return kinds.filter((kind, i) => kind !== kinds[i - 1]).slice(0, 2).join(', then ');
}

async function playToTheEnd(viewer) {
  await viewer.runsFrom(0, LONG);
  const hasEnded = (length) => {
    const video = document.getElementById('video');
    return video.ended || video.currentTime > length - 0.5;
  };
  await viewer.page.waitForFunction(hasEnded, SECONDS, { timeout: LONG });
  await viewer.isInStep();
}

async function seekAbout(viewer) {
  for (const second of SEEKS) {
    await viewer.seekTo(second, LONG);
    await viewer.isInStep();
  }
}

async function play(browser, one, { service, film }, kind) {
  prepare(one, service);
  const viewer = await Viewer.open(browser, service);
  viewer.context.setDefaultTimeout(LONG);
  const start = performance.now();
  const used = await kindsDuring(service, async () => {
    await viewer.go(`#/play${encode(film)}?t=0&kind=${kind}`);
    await playToTheEnd(viewer);
  });
  const seconds = ((performance.now() - start) / 1000).toFixed(1);
  await viewer.go(`#/play${encode(film)}?t=0&kind=${kind}`);
  await viewer.page.reload();
  await viewer.runsFrom(0, LONG);
  await seekAbout(viewer);
  assert.deepEqual(viewer.complaints, []);
  await viewer.close();
  await service.isQuiet(LONG);
  return `${used} | to its end in ${seconds} s | ${SEEKS.length} of ${SEEKS.length}`;
}

const words = process.argv.slice(2);
const browser = await launch();
let hasFailed = false;
console.log('| path | stream | transcoders | film of 20 s | seeks |\n|---|---|---|---|---|');
for (const one of PATHS.filter(({ name }) => words.length === 0 || words.some((word) => name.includes(word)))) {
  const place = await machine(one);
  for (const kind of ['hls', 'http']) {
    const row = await play(browser, one, place, kind).catch((error) => {
      hasFailed = true;
      const found = Array.isArray(error.actual) ? JSON.stringify(error.actual) : '';
      return `failed: ${error.message.split('\n')[0]} ${found} | |`;
    });
    console.log(`| ${one.name} | ${kind} | ${row} |`);
  }
  await place.service.stop().catch((error) => console.error(`${one.name}: ${error.message}`));
}
await browser.close();
process.exitCode = hasFailed ? 1 : 0;
