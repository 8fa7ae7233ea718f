// Plays a film in Chromium through nginx with the configuration in docs/proxy.md, also below a path. Not part of ./test, since it needs nginx:
//
//   ORVO_TEST_BUILD=$PWD/build/ci ORVO_TEST_MEDIA=$PWD/build/ci/media node tests/service/nginx.mjs
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';

import { chromium } from 'playwright-core';

import { encode, Viewer } from './page.mjs';
import { browserArguments, eventually, freePort, media, Service } from './support.mjs';

const NAME = 'films.example';

// The documented server, on this port of this machine, in front of the service.
function configuration(folder, port, { location, target }) {
  const [, documented] = fs.readFileSync(new URL('../../docs/proxy.md', import.meta.url), 'utf8').match(/```nginx\n(.*?)```/s);
  const server = documented
    .replace('listen 443', `listen 127.0.0.1:${port}`)
    .replaceAll('/etc/ssl', folder)
    .replace('location / {', `location ${location} {`)
    .replace('http://127.0.0.1:8096', target);
  const scratch = ['client_body', 'proxy', 'fastcgi', 'uwsgi', 'scgi'].map((name) => `${name}_temp_path ${folder}/${name};`);
  return `daemon off;\npid ${folder}/pid;\nevents {}\nhttp {\naccess_log off;\n${scratch.join('\n')}\n${server}}\n`;
}

async function startNginx(folder, place) {
  const port = await freePort();
  const key = ['-keyout', `${folder}/${NAME}.key`, '-out', `${folder}/${NAME}.pem`];
  execFileSync('openssl', ['req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-days', '1', '-subj', `/CN=${NAME}`, ...key], { stdio: 'ignore' });
  fs.writeFileSync(`${folder}/nginx.conf`, configuration(folder, port, place));
  const nginx = spawn('/usr/sbin/nginx', ['-p', folder, '-e', `${folder}/error.log`, '-c', `${folder}/nginx.conf`], { stdio: 'inherit' });
  const answers = () => new Promise((resolve) => {
    const socket = net.connect(port, '127.0.0.1', () => { socket.destroy(); resolve(true); }).on('error', () => resolve(undefined));
  });
  await eventually(answers, 30_000);
  return { nginx, port };
}

async function play(browser, address, kind) {
  const viewer = await Viewer.open(browser, { address }, { ignoreHTTPSErrors: true });
  try {
    await viewer.go(`#/play${encode(path.join(media, 'two_audio.mkv'))}?t=30&kind=${kind}`);
    await viewer.playing();
    await viewer.runsFrom(30);
    const protocols = await viewer.page.evaluate(() => [...new Set(performance.getEntriesByType('resource').map(({ nextHopProtocol }) => nextHopProtocol))]);
    assert.ok(protocols.includes('h2'), `protocols ${protocols}`);
    assert.deepEqual(viewer.complaints, []);
    console.log(`${kind}: plays through nginx`);
  } finally {
    await viewer.close();
  }
}

// Plays each kind through an nginx that serves this place.
async function playBehind(place, prefix, browser) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-nginx-'));
  const { nginx, port } = await startNginx(folder, place);
  try {
    console.log(`at ${prefix}/ by ${place.target}`);
    for (const kind of ['cmaf', 'hls', 'http', 'direct']) await play(browser, `https://${NAME}:${port}${prefix}`, kind);
  } finally {
    nginx.kill();
    await once(nginx, 'exit');
    fs.rmSync(folder, { recursive: true });
  }
}

async function playAt(prefix, placesOf) {
  const service = Service.prepare();
  await service.serve([media], ['--host', NAME, '--proxy', '127.0.0.1', ...(prefix ? ['--prefix', prefix] : [])]);
  const browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: [...browserArguments, `--host-resolver-rules=MAP ${NAME} 127.0.0.1`] });
  try {
    for (const place of placesOf(service.address.replace(prefix, ''))) await playBehind(place, prefix, browser);
  } finally {
    await browser.close();
    await service.stop();
  }
}

await playAt('', (target) => [{ location: '/', target }]);
await playAt('/films', (target) => [
  { location: '/films/', target },
  { location: '/films/', target: `${target}/` }, // takes the prefix away
]);
