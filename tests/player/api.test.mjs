// The page's calls of the server, and its handling of invalid answers.
import assert from 'node:assert/strict';
import { afterEach, beforeEach, test } from 'node:test';

import { addressOf, get, localAddress, post, queryOf, whenUnauthorized } from '../../player/src/api.js';
import { refusal, Server, unreachable } from './fakes.mjs';

let server;

beforeEach(() => {
  server = new Server();
});
afterEach(() => whenUnauthorized(null));

const reasonOf = (call) => call.then(() => 'none', ({ reason }) => reason);

test('a path stays as the server has encoded it, and empty parameters are left out', () => {
  const query = queryOf('Streaming', 'open', { format: 'hls', profile: '', audio_id: undefined, title: 'a&b=c' }, '/films/Stra%DFe%26.mkv');
  assert.equal(query, 'api=ORVO.Mirevo2.Streaming&version=1&method=open&format=hls&title=a%26b%3Dc&path=/films/Stra%DFe%26.mkv');
  assert.equal(addressOf('Auth', 'who'), 'webapi/entry.cgi?api=ORVO.Mirevo2.Auth&version=1&method=who');
});

test('an address of the server is reached through the host of the page', () => {
  assert.equal(localAddress('http://elsewhere:8096/webapi/a/b?c=d'), '/webapi/a/b?c=d');
});

test('a call gives the answer’s data', async () => {
  server.answers.list = { items: [1] };
  assert.deepEqual(await get('Library', 'list', {}, '/films'), { items: [1] });
  await post('Library', 'list', {}, '/films');
  assert.deepEqual(server.calls.map(({ verb, path }) => [verb, path]), [['GET', '/films'], ['POST', '/films']]);
});

test('a refusal has a reason and a time to wait', async () => {
  server.answers.open = refusal('TransEnable', { status: 503, message: 'Full.', retryAfter: 12 });
  await assert.rejects(post('Streaming', 'open'), { reason: 'TransEnable', message: 'Full.', retryAfter: 12, code: 503 });
});

test('an invalid answer gets a reason from the page', async () => {
  const answer = (status, body, headers = {}) => () => ({ ok: status < 400, status, headers: new Headers(headers), json: async () => body });
  const broken = () => ({ ok: true, status: 200, headers: new Headers(), json: () => Promise.reject(new SyntaxError('no JSON')) });
  const reasons = [];
  for (const one of [unreachable, broken, answer(502, null), answer(401, null), answer(200, { success: false })]) {
    server.answers.open = one;
    reasons.push(await reasonOf(get('Streaming', 'open')));
  }
  assert.deepEqual(reasons, ['Unreachable', 'Unreadable', 'Unreadable', 'Unauthorized', 'Unreadable']);
});

test('the Retry-After header counts if the answer has no time to wait', async () => {
  server.answers.open = () => ({ ok: false, status: 503, headers: new Headers({ 'Retry-After': '7' }), json: async () => null });
  await assert.rejects(get('Streaming', 'open'), { reason: 'Unreadable', retryAfter: 7 });
});

test('an aborted call is not a failure of the server', async () => {
  server.answers.open = () => {
    throw Object.assign(new Error('given up'), { name: 'AbortError' });
  };
  await assert.rejects(get('Streaming', 'open'), { name: 'AbortError' });
});

test('a call that needs a login is repeated once after the login', async () => {
  let logins = 0;
  server.answers.open = refusal('Unauthorized', { status: 401 });
  whenUnauthorized(async () => {
    ++logins;
  });
  assert.equal(await reasonOf(get('Streaming', 'open')), 'Unauthorized');
  assert.deepEqual([logins, server.calls.length], [1, 2]);
});

test('a quiet call asks for no login, and a cancelled login ends the call', async () => {
  server.answers.open = refusal('Unauthorized', { status: 401 });
  whenUnauthorized(() => Promise.reject(Object.assign(new Error(), { reason: 'GivenUp' })));
  assert.equal(await reasonOf(get('Streaming', 'open', {}, undefined, { quiet: true })), 'Unauthorized');
  assert.equal(await reasonOf(post('Streaming', 'open')), 'GivenUp');
  assert.equal(server.calls.length, 2);
});
