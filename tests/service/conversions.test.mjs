// Films that are converted in advance, by the running service.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { answerFor, encode, launch, Viewer } from './page.mjs';
import { build, eventually, processesWith, Service } from './support.mjs';

let service;
let film;
const make = (method, parameters = {}) => service.call('Conversion', method, parameters);
const items = async () => (await make('list')).data.items;
const mirevo = (...words) =>
  execFileSync(path.join(build, 'target/bin/mirevo'), ['convert', ...words], {
    env: service.environment,
    encoding: 'utf8',
  });

before(async () => {
  service = Service.prepare('x86');
  film = path.join(service.root, 'volume1/film.mkv');
  const source = ['-f', 'lavfi', '-i', 'testsrc2=s=160x90:r=12:d=12', '-f', 'lavfi', '-i', 'sine=d=12'];
  execFileSync('ffmpeg', ['-v', 'error', ...source, '-c:v', 'libx264', '-preset', 'ultrafast', '-c:a', 'ac3', film]);
  await service.serve([path.dirname(film)]);
});
after(() => service?.stop());

test('a film is converted and downloaded, whole and in parts', async () => {
  mirevo('pause');
  const { data } = await make('add', { path: film });
  assert.deepEqual((await make('add', { path: film })).data, data, 'a film is there once');
  assert.equal((await make('get', { id: data.id })).status, 409);
  mirevo('pause', '--off');
  await eventually(async () => ((await items())[0].state === 'ready' ? true : undefined), 120000);
  assert.equal((await items())[0].progress, 1);

  const address = service.query('Conversion', 'get', { id: data.id });
  const whole = Buffer.from(await (await fetch(address)).arrayBuffer());
  assert.equal(whole.subarray(4, 8).toString(), 'ftyp');
  const part = await fetch(address, { headers: { range: 'bytes=1000-' } });
  assert.equal(part.status, 206);
  assert.ok(whole.subarray(1000).equals(Buffer.from(await part.arrayBuffer())));

  assert.equal((await make('remove', { id: data.id })).status, 200);
  assert.deepEqual(await items(), []);
  assert.equal((await make('get', { id: data.id })).status, 404);
  const folder = path.join(service.root, 'volume1/@conversions', String(data.id));
  await eventually(() => (fs.existsSync(folder) ? undefined : true));
});

test('a viewer does not wait for a conversion', async (t) => {
  const { data } = await make('add', { path: film });
  t.after(() => make('remove', { id: data.id }));
  await eventually(() => (service.registry().some((entry) => entry.offline_conversion) ? true : undefined), 30000);
  const stream = await service.open(film, { force_open_qmx: true });
  t.after(() => service.close(stream));
  assert.deepEqual(service.registry(), []);
});

test('only films that the caller may see are converted and listed', async () => {
  assert.equal((await make('add', { path: '/etc/passwd' })).status, 403);
  assert.equal((await make('add', { path: film, profile: '../mp4' })).status, 400);
  const outside = path.join(service.root, 'outside.mkv');
  fs.copyFileSync(film, outside);
  const id = mirevo('add', outside).trim();
  assert.deepEqual(await items(), []);
  assert.equal((await make('get', { id })).status, 404);
  mirevo('remove', id);
});

test('a file that is no film is refused', async () => {
  const text = path.join(path.dirname(film), 'text.mkv');
  fs.writeFileSync(text, 'no film');
  const { status, error } = await make('add', { path: text });
  assert.deepEqual([status, error.reason], [415, 'TransVideoNotSupported']);
  assert.throws(() => mirevo('add', film, text), /not a film/);
  assert.equal(mirevo('list', '--json').includes('text.mkv'), false);
  assert.deepEqual(await items(), [], 'none of several films is added');
});

const change = async (method, parameters) => {
  const body = new URLSearchParams(parameters);
  const response = await fetch(service.query('Conversion', method), { method: 'POST', body });
  return { status: response.status, ...(await response.json()) };
};

test('a rule is for a visible folder with films', async () => {
  const folder = path.dirname(film);
  fs.mkdirSync(path.join(folder, '@conversions'), { recursive: true });
  for (const [wrong, status] of [['/etc', 403], [film, 400], [path.join(folder, '@conversions'), 400], [path.join(folder, 'none'), 404]]) {
    assert.equal((await change('add_rule', { path: wrong })).status, status, wrong);
  }
  assert.equal((await change('add_rule', { path: folder, profile: '../mp4' })).status, 400);
  assert.equal((await make('add_rule', { path: folder })).status, 405, 'not by an address');
  const { data } = await change('add_rule', { path: folder });
  assert.deepEqual((await change('add_rule', { path: folder, profile: 'mp4' })).data, data, 'a rule is there once');
  const { rules, measured } = (await make('list_rules')).data;
  assert.deepEqual(rules.map(({ id, path: name, profile }) => ({ id, name, profile })), [{ id: data.id, name: folder, profile: 'mp4' }]);
  assert.equal(measured, false);
  const searches = () => processesWith(service.root).some(({ command }) => command.includes('convert follow-rules'));
  await eventually(() => searches() || undefined);
  assert.equal((await change('remove_rule', { id: data.id })).status, 200);
  await eventually(() => !searches() || undefined);
});

test('the page adds rules and removes them', async (t) => {
  const browser = await launch();
  t.after(() => browser.close());
  const viewer = await Viewer.open(browser, service);
  const { page } = viewer;
  await viewer.go('#/conversions');
  const form = page.getByRole('form', { name: 'Add a rule' });
  const folder = path.dirname(film);
  await form.getByRole('textbox').fill(film);
  await form.getByRole('combobox', { name: 'Quality' }).selectOption('720p');
  await form.getByRole('button').click();
  await form.getByRole('alert').filter({ hasText: 'A rule needs a folder with films.' }).waitFor();
  await form.getByRole('textbox').fill(folder);
  await form.getByRole('button').click();
  const remove = page.getByRole('button', { name: `Remove ${folder}` });
  await remove.waitFor();
  assert.equal((await make('list_rules')).data.rules[0].profile, 'mp4-720p');
  await page.getByText('The server does not know its speed yet.').waitFor();
  await remove.click();
  await remove.waitFor({ state: 'detached' });
  assert.deepEqual((await make('list_rules')).data.rules, []);
  await viewer.leave();
});

test('the page shows the conversions, adds one and removes it', async (t) => {
  mirevo('pause');
  t.after(() => mirevo('pause', '--off'));
  const browser = await launch();
  t.after(() => browser.close());
  const viewer = await Viewer.open(browser, service);
  const { page } = viewer;
  const row = (name) => page.getByRole('row', { name });

  await viewer.go(`#/film${encode(film)}`);
  await page.getByRole('button', { name: 'Download', exact: true }).click();
  await page.getByRole('button', { name: 'Convert in advance' }).click();
  await page.getByRole('dialog').getByRole('link', { name: 'Conversions' }).click();
  await row('film.mkv').getByText('Waits').waitFor();
  await page.getByText('All conversions are paused.').waitFor();
  await row('film.mkv').getByRole('button', { name: 'Remove film.mkv' }).click();
  await page.getByText('No film is converted in advance.').waitFor();
  assert.deepEqual(await items(), []);

  const item = (id, state, more) => ({ id, state, name: `${state}.mkv`, encoded_path: `/${state}.mkv`, profile: 'mp4', progress: 0.5, reason: '', ...more });
  const list = [item(1, 'ready'), item(2, 'failed', { reason: 'The film has no picture.' }), item(3, 'converting')];
  await answerFor(page, { 'Conversion.list': () => ({ paused: false, items: list }) });
  await row('ready.mkv').waitFor();
  const link = row('ready.mkv').getByRole('link', { name: 'Download ready.mkv' });
  assert.match(await link.getAttribute('href'), /method=get&id=1$/);
  await row('failed.mkv').getByText('The film has no picture.').waitFor();
  assert.equal(await row('failed.mkv').getByRole('link', { name: /Download/ }).count(), 0);
  assert.equal(await row('converting.mkv').getByRole('progressbar').getAttribute('value'), '0.5');
  await viewer.close();
});
