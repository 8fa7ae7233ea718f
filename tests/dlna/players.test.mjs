// Open players find the films in a network of two machines and play them: "box" has the service, "room" the players.
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { build, eventually, media, Service } from '../service/support.mjs';
import { ControlPoint } from '../service/upnp.mjs';

const [boxAddress, roomAddress] = ['192.168.77.1', '192.168.77.2'];
const transport = 'urn:schemas-upnp-org:service:AVTransport:1';
const SECONDS = 8;

let base;
let box; // a process that holds the box's network
let service;
const run = (program, ...words) => execFileSync(program, words, { encoding: 'utf8' });

// This process is in the room.
async function connect() {
  box = spawn('unshare', ['--net', 'sh', '-c', 'echo; exec sleep infinity'], { stdio: ['ignore', 'pipe', 'inherit'] });
  await once(box.stdout, 'data'); // it has its network now
  const inBox = (...words) => run('nsenter', '--net', '--target', `${box.pid}`, 'ip', ...words);
  run('ip', 'link', 'add', 'room', 'type', 'veth', 'peer', 'name', 'box', 'netns', `${box.pid}`);
  for (const [ip, name, address] of [[(...words) => run('ip', ...words), 'room', roomAddress], [inBox, 'box', boxAddress]]) {
    ip('address', 'add', `${address}/24`, 'dev', name);
    for (const one of ['lo', name]) ip('link', 'set', one, 'up');
    ip('route', 'add', '224.0.0.0/4', 'dev', name);
  }
}

before(async () => {
  base = fs.mkdtempSync(path.join(media, '../players-'));
  const films = path.join(base, 'films');
  fs.mkdirSync(films);
  run('ffmpeg', '-nostdin', '-v', 'error', '-i', path.join(media, 'h264_aac.mp4'), '-t', `${SECONDS}`, '-c', 'copy', path.join(films, 'Harbour.Lights.S01E02.The.Storm.mp4'));
  await connect();
  service = Service.prepare();
  service.account(['add', 'telly', '--root', films], 'a password');
  await service.serve([films], ['--listen', boxAddress], { through: ['nsenter', '--net', '--target', `${box.pid}`] });
  run('nsenter', '--net', '--target', `${box.pid}`, 'env', `ORVO_SYSROOT=${service.root}`, path.join(build, 'target/bin/mirevo'), 'dlna', 'on', '--account', 'telly');
});

after(async () => {
  await service?.finish();
  box?.kill('SIGKILL');
  fs.rmSync(base, { recursive: true });
});

async function film() {
  const settings = path.join(service.root, 'var/packages/Mirevo/etc/televisions');
  const server = await ControlPoint.open(JSON.parse(fs.readFileSync(settings, 'utf8')).device, { from: roomAddress });
  return eventually(async () => {
    const [object] = (await server.browse('0')).objects;
    return object.forms[0].duration === '' ? undefined : object;
  });
}

// A renderer without a screen. `said`: what it logs.
async function withRenderer(t) {
  const device = '5f9ec1b3-ed59-4907-8ed3-d5a3b0fdd0a1';
  const words = ['-I', 'room', '-u', device, '-o', 'gst', '--gstout-audiosink', 'fakesink', '--gstout-videosink', 'fakesink', '--logfile', 'stdout'];
  const renderer = spawn('gmediarender', words, { stdio: ['ignore', 'pipe', 'inherit'] });
  const said = [];
  renderer.stdout.setEncoding('utf8').on('data', (text) => said.push(text));
  t.after(async () => {
    renderer.kill();
    if (renderer.exitCode === null && renderer.signalCode === null) await once(renderer, 'exit');
  });
  return { said, point: await ControlPoint.open(device, { from: roomAddress, type: 'MediaRenderer' }) };
}

const metadata = ({ title, forms }, form) =>
  '<DIDL-Lite xmlns="urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/" xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:upnp="urn:schemas-upnp-org:metadata-1-0/upnp/">' +
  `<item id="1" parentID="0" restricted="1"><dc:title>${title}</dc:title><upnp:class>object.item.videoItem</upnp:class><res protocolInfo="${forms[form].protocol}">${forms[form].address.replaceAll('&', '&amp;')}</res></item></DIDL-Lite>`;

for (const [form, name] of ['the file itself', 'the conversion'].entries()) {
  test(`gmediarender plays ${name} to its end, told by a control point`, async (t) => {
    const chosen = await film();
    const { said, point } = await withRenderer(t);
    const call = async (action, inputs = {}) => {
      const answer = await point.call(transport, action, { InstanceID: 0, ...inputs });
      assert.equal(answer.status, 200, `${action}: error ${answer.error}`);
      return answer;
    };
    await call('SetAVTransportURI', { CurrentURI: chosen.forms[form].address, CurrentURIMetaData: metadata(chosen, form) });
    await call('Play', { Speed: 1 });
    let furthest = '';
    await eventually(async () => {
      const { RelTime } = await call('GetPositionInfo');
      if (RelTime > furthest) furthest = RelTime;
      return (await call('GetTransportInfo')).CurrentTransportState === 'STOPPED' && said.join('').includes('End-of-stream') ? true : undefined;
    }, undefined, () => said.join('').split('\n').slice(-15).join('\n'));
    assert.doesNotMatch(said.join(''), /ERROR/);
    t.diagnostic(`last place seen: ${furthest}`);
  });
}

test('VLC finds the film by itself and plays it to its end', async (t) => {
  const { title } = await film();
  assert.equal(title, 'Harbour Lights S01E02 – The Storm');
  const script = new URL('vlc.py', import.meta.url).pathname;
  const vlc = spawn('python3', [script, 'room', 'Mirevo', title], { stdio: ['ignore', 'pipe', 'pipe'] });
  const [said, failed] = await Promise.all([vlc.stdout.toArray(), vlc.stderr.toArray()]).then((all) => all.map((parts) => Buffer.concat(parts).toString()));
  if (vlc.exitCode === null) await once(vlc, 'exit');
  assert.equal(vlc.exitCode, 0, failed);
  const [milliseconds, pictures] = said.trim().split(' ').map(Number);
  t.diagnostic(`played ${milliseconds} ms, ${pictures} pictures`);
  assert.ok(milliseconds > SECONDS * 1000 - 1500, `it stopped after ${milliseconds} ms`);
  assert.ok(pictures > 0);
});
