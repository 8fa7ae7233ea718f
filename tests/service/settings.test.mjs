// The owner's settings and the first start: by the API, and on the page.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { launch, Viewer } from './page.mjs';
import { eventually, media, processesWith, Service } from './support.mjs';

let browser;
let folder; // with one folder of films and several empty ones
let open; // a service without accounts, for tests that leave its folders and accounts alone

const within = (name) => path.join(folder, name);

before(async () => {
  folder = fs.realpathSync(fs.mkdtempSync(path.join(media, 'settings-')));
  for (const name of ['films', 'music', 'more']) fs.mkdirSync(within(name));
  fs.linkSync(path.join(media, 'h264_aac.mp4'), within('films/First (2020).mp4'));
  open = await Service.start([within('music'), within('films')]);
  browser = await launch();
});
after(async () => {
  await browser.close();
  await open.stop();
  fs.rmSync(folder, { recursive: true });
});

// Runs `body` with a service, and stops the service whatever happens.
async function withService(roots, options, body) {
  const service = Service.prepare();
  await service.serve(roots, ...options);
  try {
    await body(service);
  } finally {
    await service.stop();
  }
}

// A POST with exactly these headers.
async function post(service, api, method, parameters = {}, headers = {}) {
  const body = `${new URLSearchParams({ api: `ORVO.Mirevo2.${api}`, version: 1, method, ...parameters })}`;
  const type = { 'Content-Type': 'application/x-www-form-urlencoded', 'Content-Length': body.length };
  const request = http.request(`${service.address}/webapi/entry.cgi`, { method: 'POST', headers: { ...type, ...headers } });
  request.end(body);
  const [response] = await once(request, 'response');
  const answer = JSON.parse(Buffer.concat(await response.toArray()).toString());
  return { status: response.statusCode, cookie: response.headers['set-cookie']?.[0].split(';')[0], ...answer };
}

const set = (service, method, parameters, cookie) => post(service, 'Settings', method, parameters, cookie ? { Cookie: cookie } : {});

async function begin(service, parameters = {}) {
  return post(service, 'Auth', 'begin', { account: 'anna', passwd: 'right password', ...parameters });
}

test('a folder that is added is shown at once, stays at the next start, and can be removed', async () => {
  const service = Service.prepare();
  await service.serve([within('music')]);
  const shown = async () => (await service.call('Library', 'list')).data.folders.map(({ path: name }) => name);
  try {
    const { data } = await set(service, 'add_folder', { path: within('films') });
    assert.deepEqual(data.folders, [
      { path: within('music'), added: false, readable: true },
      { path: within('films'), added: true, readable: true },
    ]);
    assert.deepEqual((await shown()).sort(), [within('films'), within('music')]);
    service.process.kill('SIGINT');
    assert.equal(await service.ended(), 0);
    await service.serve([within('more')]);
    assert.deepEqual((await shown()).sort(), [within('films'), within('more')]);
    assert.equal((await set(service, 'remove_folder', { path: within('more') })).status, 400, 'it is named at the start');
    assert.equal((await set(service, 'remove_folder', { path: within('films') })).status, 200);
    assert.deepEqual(await shown(), [within('more')]);
  } finally {
    await service.stop();
  }
});

test('the analysis goes on with the folders that are shown', async () => {
  await withService([], [[], { analysis: true }], async (service) => {
    await set(service, 'add_folder', { path: within('films') });
    const analyzes = () => processesWith(service.root).some(({ command }) => command.includes('mirevo-analyze') && command.includes(within('films')));
    await eventually(() => (analyzes() ? true : undefined));
    await set(service, 'remove_folder', { path: within('films') });
    await eventually(() => (analyzes() ? undefined : true));
  });
});

test('hostile values are refused with a sentence and change nothing', async () => {
  const { data: whole } = await open.call('Settings', 'get');
  const state = path.join(open.root, 'var/packages/Mirevo/etc');
  const link = within('link');
  fs.symlinkSync(state, link);
  const folders = ['', '/', 'films', '../films', '/etc', '/proc/self/root', state, link, open.root, path.join(open.root, 'var'), `${within('films')}\n`, '/\u0001', '/x'.repeat(4000), '{"a":1}', '/no/such/folder', '$(id)', within('films/First (2020).mp4')];
  const calls = [
    ...folders.map((value) => ['add_folder', { path: value }]),
    ['add_account', { account: '../x', passwd: 'right password' }],
    ['add_account', { account: 'x', passwd: 'short' }],
    ['add_account', { account: 'x', passwd: 'right password', owner: 'yes' }],
    ['add_account', { account: 'x', passwd: 'right password', roots: '{}' }],
    ['add_account', { account: 'x', passwd: 'right password', roots: '["films"]' }],
    ['add_account', { account: 'x', passwd: 'right password', roots: '[1]' }],
    ['set_hardware', { enabled: '1' }],
    ...['0', '1001', '-1', '1e2', '2.5', 'many', ''].map((value) => ['set_limit', { name: 'streams_per_viewer', value }]),
    ['set_limit', { name: '../limits', value: '5' }],
  ];
  for (const [method, parameters] of calls) {
    const { status, error } = await set(open, method, parameters);
    assert.equal(status, 400, `${method} ${JSON.stringify(parameters)}`);
    assert.match(error.message, /^[A-Z].*\.$/);
  }
  fs.unlinkSync(link);
  assert.deepEqual((await open.call('Settings', 'get')).data, whole);
});

test('pages of other servers, and clients behind a proxy without accounts, change nothing', async () => {
  const headers = [
    { Origin: 'https://evil.example' },
    { Origin: 'null' },
    { 'Sec-Fetch-Site': 'cross-site' },
    { Host: 'evil.example' },
    { 'X-Forwarded-For': '192.0.2.7' },
    { 'X-Forwarded-For': '127.0.0.1' },
    { Forwarded: 'for=192.0.2.7' },
    { Via: '1.1 proxy' },
  ];
  for (const header of headers) {
    const call = post(open, 'Settings', 'add_folder', { path: within('more') }, header);
    assert.equal((await call).status, 403, JSON.stringify(header));
  }
  // A stranger behind a proxy does not become the owner either.
  const stranger = await post(open, 'Auth', 'begin', { account: 'eve', passwd: 'right password' }, { 'X-Forwarded-For': '192.0.2.7' });
  assert.equal(stranger.status, 401);
  const { data } = await open.call('Settings', 'get');
  assert.deepEqual([data.folders.length, data.accounts], [2, []]);
  for (const method of ['add_folder', 'clear_cache']) assert.equal((await open.call('Settings', method)).status, 405);
});

test('only owners see and change the settings', async () => {
  await withService([within('music')], [], async (service) => {
    const { cookie: anna } = await begin(service);
    assert.equal((await set(service, 'add_account', { account: 'bob', passwd: 'right password', roots: JSON.stringify([within('music')]) }, anna)).status, 200);
    const { cookie: bob } = await post(service, 'Auth', 'login', { account: 'bob', passwd: 'right password' });
    for (const [who, status] of [['', 401], [bob, 403]]) {
      assert.equal((await set(service, 'set_password', { account: 'anna', passwd: 'another password' }, who)).status, status);
      assert.equal((await set(service, 'add_folder', { path: within('films') }, who)).status, status);
    }
    assert.equal((await set(service, 'remove_account', { account: 'anna' }, anna)).status, 400, 'the last owner stays');
    assert.equal((await set(service, 'remove_account', { account: 'carl' }, anna)).status, 404);
    const { data } = await set(service, 'set_roots', { account: 'bob', roots: '[]' }, anna);
    assert.deepEqual(data.accounts, [{ name: 'anna', owner: true, roots: [] }, { name: 'bob', owner: false, roots: [] }]);
    assert.equal((await set(service, 'set_password', { account: 'anna', passwd: 'another password' }, anna)).status, 200);
    assert.equal((await set(service, 'clear_cache', {}, anna)).status, 401, 'a new password ends the sessions');
  });
});

test('owners who change at the same time lose nothing', async () => {
  await withService([], [], async (service) => {
    const { cookie } = await begin(service);
    const names = ['films', 'music', 'more'];
    await Promise.all(names.flatMap((name) => [
      set(service, 'add_folder', { path: within(name) }, cookie),
      set(service, 'add_account', { account: name, passwd: 'right password' }, cookie),
    ]));
    const { data } = await set(service, 'set_limit', { name: 'cache_megabytes', value: '64' }, cookie);
    assert.deepEqual(data.folders.map(({ path: name }) => path.basename(name)).sort(), [...names].sort());
    assert.deepEqual(data.accounts.map(({ name }) => name), ['anna', ...[...names].sort()]);
  });
});

test('limits, the hardware switch and the cache take effect at once', async () => {
  const film = within('films/First (2020).mp4');
  await set(open, 'set_limit', { name: 'streams_per_viewer', value: '1' });
  await open.open(film, { format: 'direct' });
  const second = await open.call('Streaming', 'open', { format: 'direct', path: film });
  assert.equal(second.status, 429, JSON.stringify(second));
  await open.call('Library', 'card', { path: film });
  assert.ok((await open.call('Settings', 'get')).data.cache.bytes > 0);
  assert.equal((await set(open, 'clear_cache')).data.cache.bytes, 0);
  assert.equal((await set(open, 'set_hardware', { enabled: 'false' })).data.hardware.enabled, false);
  assert.equal((await open.call('Status', 'get')).data.platform.hardware_enabled, false);
});

test('from elsewhere the first account takes the word that only the owner can read', async () => {
  const service = Service.prepare();
  await service.serve([], ['--listen', '0.0.0.0']);
  const file = path.join(service.root, 'var/packages/Mirevo/etc/first_word');
  try {
    assert.equal(fs.statSync(file).mode & 0o777, 0o600);
    const word = fs.readFileSync(file, 'utf8');
    assert.equal((await service.call('Auth', 'who')).data.first_start, 'word');
    assert.equal((await service.call('Settings', 'get')).status, 401);
    for (const wrong of ['', word.slice(1), `${word} `, word.toLowerCase().toUpperCase(), '[]']) {
      assert.equal((await begin(service, { word: wrong })).status, 401);
    }
    assert.equal((await begin(service, { word, passwd: 'short' })).status, 400, 'the word stays');
    const guesses = [];
    while (guesses.length < 30 && !guesses.includes(429)) guesses.push((await begin(service, { word: `guess ${guesses.length}` })).status);
    assert.equal(guesses.at(-1), 429, 'who guesses has to wait');
    fs.rmSync(path.join(service.root, 'run/mirevo/attempts'), { recursive: true });
    const { cookie } = await begin(service, { word });
    assert.match(cookie, /^_sid=/);
    assert.ok(!fs.existsSync(file));
    assert.equal((await begin(service, { word, account: 'eve' })).status, 403);
    assert.deepEqual((await set(service, 'add_folder', { path: within('films') }, cookie)).data.accounts.map(({ name }) => name), ['anna']);
  } finally {
    await service.stop();
  }
});

// The page in the viewer's hands. `complaints` of the browser are errors of the page; refusals are expected.
async function onPage(service, body) {
  const viewer = await Viewer.open(browser, service);
  try {
    await body(viewer.page, viewer);
    assert.deepEqual(viewer.complaints.filter((text) => !/status of (400|401|403)/.test(text)), []);
  } finally {
    await viewer.close();
  }
}

test('a fresh service asks on the page for a folder and an account', async () => {
  await withService([], [], async (service) => {
    await onPage(service, async (page, viewer) => {
      await viewer.go();
      const form = page.getByRole('form', { name: 'First start' });
      await form.getByLabel('Folder on the server').fill('/');
      await form.getByLabel('Account').fill('anna');
      await form.getByLabel('Password').fill('right password');
      await form.getByRole('button', { name: 'Begin' }).click();
      await form.getByText('The whole disk cannot be a media folder.').waitFor();
      await form.getByLabel('Folder on the server').fill(within('films'));
      await form.getByRole('button', { name: 'Begin' }).click();
      await page.getByRole('link', { name: /First/ }).waitFor();
      await page.getByRole('button', { name: 'Log out anna' }).waitFor();
    });
  });
});

test('from elsewhere the page asks for the word, too', async () => {
  await withService([], [['--listen', '0.0.0.0']], async (service) => {
    const word = fs.readFileSync(path.join(service.root, 'var/packages/Mirevo/etc/first_word'), 'utf8');
    await onPage(service, async (page, viewer) => {
      await viewer.go();
      const form = page.getByRole('form', { name: 'First start' });
      await form.getByLabel('Word', { exact: true }).fill('guess');
      await form.getByLabel('Account').fill('anna');
      await form.getByLabel('Password').fill('right password');
      await form.getByLabel('Folder on the server').fill(within('films'));
      await form.getByRole('button', { name: 'Begin' }).click();
      await form.getByText('The word is wrong.').waitFor();
      await form.getByLabel('Word', { exact: true }).fill(word);
      await form.getByRole('button', { name: 'Begin' }).click();
      await page.getByRole('link', { name: /First/ }).waitFor();
    });
  });
});

test('an owner manages folders, accounts, limits and the cache on the page', async () => {
  await withService([within('music')], [], async (service) => {
    await onPage(service, async (page, viewer) => {
      await viewer.go();
      await page.getByText('There are no films').getByRole('link', { name: 'Settings' }).click();
      await page.getByLabel('Folder on the server').fill(within('films'));
      await page.getByRole('button', { name: 'Add the folder' }).click();
      await page.getByRole('button', { name: `Remove ${within('films')}` }).waitFor();
      await page.getByRole('form', { name: 'Add an account' }).getByLabel('Account').fill('anna');
      await page.getByRole('form', { name: 'Add an account' }).getByLabel('Password').fill('right password');
      await page.getByRole('button', { name: 'Add the account' }).click();
      await page.getByRole('button', { name: 'Log out anna' }).waitFor();
      const add = page.getByRole('form', { name: 'Add an account' });
      await add.getByLabel('Is an owner too').waitFor();
      await add.getByLabel('Account').fill('bob');
      await add.getByLabel('Password').fill('right password');
      await add.getByLabel(within('films')).check();
      await add.getByRole('button', { name: 'Add the account' }).click();
      await page.getByRole('button', { name: 'Folders bob' }).click();
      const dialog = page.getByRole('dialog', { name: 'What bob sees' });
      assert.equal(await dialog.getByLabel(within('films')).isChecked(), true);
      await dialog.getByLabel(within('films')).uncheck();
      await dialog.getByRole('button', { name: 'Save' }).click();
      await dialog.waitFor({ state: 'detached' });
      await page.getByRole('button', { name: 'Remove bob' }).click();
      await page.getByRole('button', { name: 'Remove bob' }).waitFor({ state: 'detached' });
      await page.getByRole('button', { name: 'Remove anna' }).click();
      await page.getByText('The last owner cannot be removed.').waitFor();
      await page.getByRole('spinbutton', { name: 'Open streams of one viewer' }).fill('7');
      await page.getByRole('form', { name: 'Open streams of one viewer' }).getByRole('button', { name: 'Save' }).click();
      await page.getByText('Saved.').waitFor();
      await page.getByLabel('Use the video engines').uncheck();
      await page.getByRole('button', { name: 'Empty the cache' }).click();
    });
    const limits = JSON.parse(fs.readFileSync(path.join(service.root, 'var/packages/Mirevo/etc/limits'), 'utf8'));
    assert.deepEqual(limits, { streams_per_viewer: 7 });
  });
});
