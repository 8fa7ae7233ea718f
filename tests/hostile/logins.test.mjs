// Attacks on accounts: credentials in addresses, guessed passwords, crowds of logins.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { media, Service } from '../service/support.mjs';

const password = 'correct horse battery';
let service;

before(async () => {
  service = Service.prepare();
  for (const name of ['anna', 'bob', 'carl']) service.account(['add', name], password);
  await service.serve([media]);
});
after(() => service.stop());

// Sends a form with `form` in its body and `query` in its address.
async function post(form, query = {}) {
  const response = await fetch(service.query('Auth', 'login', query), { method: 'POST', body: new URLSearchParams(form) });
  return { status: response.status, headers: response.headers, ...(await response.json()) };
}

test('a password or a name in the address is refused, even beside a right one in the body', async () => {
  const credentials = { account: 'bob', passwd: password };
  for (const query of [credentials, { passwd: password }, { account: 'bob' }, { passwd: JSON.stringify(password) }]) {
    const { status, error } = await post(credentials, query);
    assert.equal(status, 400);
    assert.match(error.message, /body, not in the address/);
  }
  assert.equal((await post(credentials)).status, 200);
});

test('a position in the address is refused', async () => {
  const { data } = await post({ account: 'bob', passwd: password });
  const place = { path: path.join(media, 'h264_ac3.mkv'), position: 3, duration: 60 };
  const save = (query, body) =>
    fetch(service.query('History', 'save', { _sid: data._sid, ...query }), { method: 'POST', body: new URLSearchParams(body) });
  assert.equal((await save(place, {})).status, 400);
  assert.equal((await save({}, place)).status, 200);
});

test('no file of the service holds a password', () => {
  const holds = (folder) =>
    fs.readdirSync(folder, { withFileTypes: true }).some((entry) => {
      const file = path.join(folder, entry.name);
      return entry.isDirectory() ? holds(file) : entry.isFile() && fs.readFileSync(file, 'latin1').includes(password);
    });
  assert.ok(!holds(service.root));
});
