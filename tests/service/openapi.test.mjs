// Compares the API's description (docs/openapi.json) with a running service: calls, parameters and answers
// must match, and the service must offer nothing else.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import Ajv from 'ajv/dist/2020.js';

import { media, Service } from './support.mjs';

const here = import.meta.dirname;
const description = JSON.parse(fs.readFileSync(path.join(here, '../../docs/openapi.json'), 'utf8'));
const film = path.join(media, 'h264_aac.mp4');
const noStream = `${'0'.repeat(32)}_AAAAAAAA`;
const ajv = new Ajv({ strict: false, validateFormats: false });
ajv.addSchema(description, 'api');

let service;
let folder; // a film with subtitles
let subtitle;
let stream;

before(async () => {
  folder = fs.mkdtempSync(path.join(media, '../described-'));
  const titled = path.join(folder, 'film.mp4');
  subtitle = path.join(fs.realpathSync(folder), 'film.srt');
  fs.copyFileSync(film, titled);
  fs.writeFileSync(subtitle, '1\n00:00:01,000 --> 00:00:02,000\nHello\n');
  service = await Service.start([media, folder]);
  stream = (await service.call('Streaming', 'open', { format: 'hls', path: titled, subtitle_id: 'all' })).data;
});
after(async () => {
  await service.stop();
  fs.rmSync(folder, { recursive: true });
});

const resolve = (entry) =>
  entry.$ref ? entry.$ref.slice(2).split('/').reduce((place, key) => place[key], description) : entry;

// One entry for each operation: the request and the possible answers.
const operations = Object.entries(description.paths).flatMap(([place, item]) =>
  Object.entries(item).map(([verb, operation]) => {
    const query = operation.parameters.map(resolve);
    const form = operation.requestBody?.content['application/x-www-form-urlencoded'].schema;
    const fields = Object.entries(form?.properties ?? {}).map(([name, schema]) => ({
      name,
      schema,
      required: form.required?.includes(name) ?? false,
    }));
    const isFixed = ({ schema }) => schema.const !== undefined;
    return {
      place,
      verb: verb.toUpperCase(),
      operation,
      fixed: Object.fromEntries(query.filter(isFixed).map(({ name, schema }) => [name, schema.const])),
      parameters: [...query.filter((parameter) => !isFixed(parameter)), ...fields],
    };
  }),
);

async function request({ verb, fixed }, parameters) {
  const query = new URLSearchParams({ ...fixed, ...(verb === 'GET' ? parameters : {}) });
  const body = verb === 'GET' ? undefined : new URLSearchParams(parameters);
  return fetch(`${service.address}/webapi/entry.cgi?${query}`, { method: verb, body });
}

// Checks that the description contains this answer. Returns the content, if it is JSON.
async function check(entry, response, why) {
  const where = `${entry.verb} ${entry.place}, ${why}: ${response.status}`;
  const documented = entry.operation.responses[response.status];
  assert.ok(documented, `${where} is described`);
  const type = response.headers.get('content-type').replace(/;.*/, '');
  const content = resolve(documented).content?.[type];
  assert.ok(content, `${where} as ${type} is described`);
  if (type !== 'application/json') {
    await response.body?.cancel();
    return undefined;
  }
  const answer = await response.json();
  const reference = content.schema.$ref;
  const validate = reference ? ajv.getSchema(`api${reference}`) : ajv.compile(inApi(content.schema));
  assert.ok(validate(answer), `${where}: ${JSON.stringify(answer)} ${JSON.stringify(validate.errors)}`);
  if (!answer.success) {
    assert.equal(answer.error.code, response.status);
    assert.equal(answer.error.retry_after !== undefined, response.status === 503);
  }
  return answer;
}

// A schema from an operation, with references that are valid outside of it.
const inApi = (schema) => JSON.parse(JSON.stringify(schema).replaceAll('"#/components', '"api#/components'));

async function isGood(entry, parameters) {
  const response = await request(entry, parameters);
  assert.ok(response.ok, `${entry.verb} ${entry.place}: ${response.status}`);
  return check(entry, response, 'good');
}

const closeOpened = async (answer) => {
  const { format, stream_id: id } = answer?.data ?? {};
  if (id !== undefined && format !== undefined) {
    await service.call('Streaming', 'close', { format, stream_id: id });
  }
};

// Parameters for which each call succeeds.
const good = {
  'Library.list': () => ({ path: media }),
  'Library.info': () => ({ path: film }),
  'Library.search': () => ({ q: 'h264' }),
  'Library.card': () => ({ path: film }),
  'Library.poster': () => ({ path: film }),
  'Library.font': () => undefined, // no film here has one; another suite gets them
  'Library.previews': () => undefined, // nothing is analyzed here
  'Library.thumbnail': () => ({ path: film, time: '20' }),
  'Streaming.open': () => ({ path: film, format: 'direct' }),
  'Streaming.stream': () => ({ format: 'hls', stream_id: stream.stream_id }),
  'Streaming.state': () => ({ format: 'hls', stream_id: stream.stream_id }),
  'Streaming.close': () => ({ format: 'direct', stream_id: noStream }),
  'Subtitle.get': () => ({ stream_id: stream.stream_id, subtitle_id: subtitle }),
  'History.list': () => ({}),
  'History.get': () => ({ path: film }),
  'History.save': () => ({ path: film, position: '12.5', duration: '60' }),
  'History.remove': () => ({ path: film }),
  'Conversion.add': () => ({ path: film }),
  'Conversion.list': () => ({}),
  'Conversion.remove': () => ({ id: '1' }),
  'Conversion.get': () => undefined, // nothing has been converted
  'Conversion.add_rule': () => ({ path: folder }),
  'Conversion.list_rules': () => ({}),
  'Conversion.remove_rule': () => ({ id: '1' }),
  'Status.get': () => ({}),
  'Status.health': () => ({}),
  'Settings.get': () => ({}),
  'Settings.add_folder': () => ({ path: folder }),
  'Settings.remove_folder': () => ({ path: '/srv/nothing' }),
  // Accounts would have every other call ask for a login.
  'Settings.add_account': () => undefined,
  'Settings.remove_account': () => undefined,
  'Settings.set_password': () => undefined,
  'Settings.set_roots': () => undefined,
  'Settings.set_hardware': () => ({ enabled: 'true' }),
  'Settings.set_limit': () => ({ name: 'streams_per_viewer', value: '200' }),
  'Settings.clear_cache': () => ({}),
  'Auth.begin': () => undefined,
  'Auth.login': () => undefined, // without accounts nobody can log in
  'Auth.logout': () => ({}),
  'Auth.who': () => ({}),
};
const goodFor = (entry) => good[entry.place.replace(/.*#/, '')]();

const wrong = ['', 'nonsense', '-1', '1e9', '18446744073709551616', '{}', '"'];
const hostile = [
  '../../../../etc/passwd',
  '/etc/passwd',
  '/proc/self/environ',
  '$(id);`id`|id&',
  '-i /etc/passwd',
  'a\r\nX-Injected: yes\r\n\r\n',
  '\u202e\u0001<script>alert(1)</script>',
  'x'.repeat(5000),
];

test('the server offers exactly the calls of the description', () => {
  const source = fs.readFileSync(path.join(here, '../../webapi/main.cpp'), 'utf8');
  const offered = [...source.matchAll(/Call\{\s*"ORVO\.Mirevo2\.(\w+)",\s*"(\w+)"([^}]*)\}/g)];
  assert.deepEqual(
    offered.map(([, api, method]) => `/webapi/entry.cgi#${api}.${method}`).sort(),
    Object.keys(description.paths).sort(),
  );
});

test('the description is served', async () => {
  const response = await fetch(`${service.address}/webapi/openapi.json`);
  assert.match(response.headers.get('content-type'), /^application\/json/);
  assert.deepEqual(await response.json(), description);
});

test('each operation has its call and its schemas', () => {
  const names = new Set();
  for (const { operation, place, fixed } of operations) {
    assert.ok(!names.has(operation.operationId), operation.operationId);
    names.add(operation.operationId);
    assert.equal(place, `/webapi/entry.cgi#${fixed.api.replace(/.*\./, '')}.${fixed.method}`);
    for (const response of Object.values(operation.responses)) {
      for (const { schema } of Object.values(resolve(response).content ?? {})) {
        ajv.compile(inApi(schema));
      }
    }
  }
});

test('a presentation is described, with the headers of what it begins with', async () => {
  const opening = operations.find(({ verb, place }) => verb === 'GET' && place.endsWith('#Streaming.open'));
  const { data } = await isGood(opening, { path: film, format: 'cmaf', start: '2', renditions: 'h264-360' });
  assert.ok(data.headers['h264-360'].length > 100);
  const [first] = data.presentation.renditions;
  const answer = await fetch(new URL(`${first.segments}0`, service.address));
  assert.match(answer.headers.get('server-timing'), /^wait;dur=\d+$/);
  await answer.arrayBuffer();
  await closeOpened({ data });
});

test('calls that need POST refuse GET and name POST', async () => {
  for (const entry of operations) {
    if (Object.keys(description.paths[entry.place]).join() !== 'post') continue;
    const response = await request({ ...entry, verb: 'GET' }, goodFor(entry) ?? {});
    assert.equal(response.status, 405, entry.place);
    await check(entry, response, 'GET');
  }
});

for (const entry of operations) {
  const name = `${entry.verb} ${entry.operation.operationId}`;
  const base = () => goodFor(entry) ?? {};
  // Each opening probes the film, which takes a while.
  const bad = entry.place.endsWith('.open') ? ['nonsense', '-1', hostile[0], hostile[5]] : [...wrong, ...hostile];

  test(`${name} answers as described`, async () => {
    const parameters = goodFor(entry);
    if (parameters === undefined) return;
    const answer = await isGood(entry, parameters);
    await closeOpened(answer);
    // The same parameters as JSON texts, and with the old name of the stream id.
    const { stream_id: id, ...others } = parameters;
    const quoted = Object.entries({ ...others, ...(id ? { id } : {}) }).map(([key, value]) => [key, JSON.stringify(value)]);
    await closeOpened(await isGood(entry, Object.fromEntries(quoted)));
  });

  test(`${name} answers HEAD with the headers alone`, async () => {
    if (entry.verb !== 'GET' || goodFor(entry) === undefined || entry.place.endsWith('open')) return;
    const query = new URLSearchParams({ ...entry.fixed, ...goodFor(entry) });
    const response = await fetch(`${service.address}/webapi/entry.cgi?${query}`, { method: 'HEAD' });
    assert.equal(response.status, 200);
    assert.equal((await response.arrayBuffer()).byteLength, 0);
  });

  test(`${name} refuses to do without what it needs`, async () => {
    for (const { name: missing, required } of entry.parameters) {
      if (!required) continue;
      const { [missing]: _, ...others } = base();
      const response = await request(entry, others);
      assert.equal(response.status, 400, `without ${missing}`);
      await check(entry, response, `without ${missing}`);
    }
  });

  test(`${name} survives wrong and hostile parameters`, async () => {
    // The other form of the parameters has already been checked.
    if (entry.operation.operationId.endsWith('.post')) return;
    for (const { name: parameter } of entry.parameters) {
      for (const value of bad) {
        const response = await request(entry, { ...base(), [parameter]: value });
        assert.equal(response.headers.get('x-injected'), null);
        assert.ok(response.status < 500, `${parameter}=${value}: ${response.status}`);
        await closeOpened(await check(entry, response, `${parameter}=${value}`));
      }
    }
  });
}
