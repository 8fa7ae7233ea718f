// Attacks on accounts: credentials in addresses, guessed passwords, crowds of logins.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { aboutProcess, media, Service } from '../service/support.mjs';

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

// Sends a login from an address of this machine.
async function loginFrom(from, account, passwd, headers = {}) {
  const body = new URLSearchParams({ api: 'ORVO.Mirevo2.Auth', version: 1, method: 'login', account, passwd }).toString();
  const options = {
    method: 'POST',
    localAddress: from,
    agent: false,
    headers: { 'Content-Type': 'application/x-www-form-urlencoded', 'Content-Length': body.length, ...headers },
  };
  const request = http.request(`${service.address}/webapi/entry.cgi`, options).end(body);
  const [response] = await once(request, 'response');
  await response.toArray();
  return response;
}

// Guesses until the tries of strangers are used up.
async function exhaust(account) {
  for (let i = 0; i < 20; ++i) {
    const { statusCode } = await loginFrom(`127.0.3.${i}`, account, 'a wrong guess');
    if (statusCode === 429) return;
  }
  assert.fail('guesses have no limit');
}

test("strangers' guesses lock out neither an account's known addresses nor its sessions", async () => {
  const home = '127.0.2.1';
  assert.equal((await loginFrom(home, 'anna', password)).statusCode, 200);
  const { headers } = await loginFrom('127.0.2.2', 'anna', password);
  await exhaust('anna');
  assert.equal((await loginFrom('127.0.2.9', 'anna', password)).statusCode, 429, 'a new address');
  assert.equal((await loginFrom(home, 'anna', password)).statusCode, 200, 'a known address');
  const Cookie = headers['set-cookie'][0].split(';')[0];
  assert.equal((await loginFrom('127.0.2.8', 'anna', password, { Cookie })).statusCode, 200, 'a session');
  const who = await fetch(service.query('Auth', 'who'), { headers: { Cookie } });
  assert.equal((await who.json()).data.account, 'anna');
});

test('a known address has a limit of its own, and uses up no tries of strangers', async () => {
  const home = '127.0.2.3';
  assert.equal((await loginFrom(home, 'carl', password)).statusCode, 200);
  const codes = [];
  for (let i = 0; i < 12; ++i) codes.push((await loginFrom(home, 'carl', 'a wrong guess')).statusCode);
  assert.equal(codes.at(-1), 429);
  assert.equal((await loginFrom('127.0.2.4', 'carl', password)).statusCode, 200);
});

test('of 60 logins at once few check a password at a time, and the others are refused at once', async () => {
  const logins = Array.from({ length: 60 }, (_, i) => loginFrom(`127.0.4.${i}`, `nobody${i}`, 'a wrong guess'));
  let most = 0;
  const count = () => {
    let checking = 0;
    for (const { pid } of service.requestProcesses()) {
      if (Number(aboutProcess(pid, 'status').match(/VmRSS:\s*(\d+)/)?.[1]) > 40000) checking += 1;
    }
    return checking;
  };
  const watch = setInterval(() => (most = Math.max(most, count())), 1);
  const answers = await Promise.all(logins);
  clearInterval(watch);
  const codes = answers.map(({ statusCode }) => statusCode);
  assert.ok(most > 0, 'a process was seen');
  assert.ok(most <= 4, `${most} processes check passwords`);
  assert.ok(codes.filter((code) => code === 503).length >= 30, codes.join());
  assert.ok(codes.every((code) => [401, 503].includes(code)), codes.join());
});

test('no file of the service holds a password', () => {
  const holds = (folder) =>
    fs.readdirSync(folder, { withFileTypes: true }).some((entry) => {
      const file = path.join(folder, entry.name);
      return entry.isDirectory() ? holds(file) : entry.isFile() && fs.readFileSync(file, 'latin1').includes(password);
    });
  assert.ok(!holds(service.root));
});
