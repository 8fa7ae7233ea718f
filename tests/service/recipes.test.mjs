// The recipes for containers: what can be checked of them without an engine that runs them.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { test } from 'node:test';

import YAML from 'yaml';

import { build } from './support.mjs';

const recipes = path.join(import.meta.dirname, '../../containers');
const read = (name) => fs.readFileSync(path.join(recipes, name), 'utf8');
const objects = (text) => YAML.parseAllDocuments(text, { strict: true }).map((document) => document.toJS());

// A view of a document that notes which of its members are read. All members of an object that is looped over count.
function watch(value, place, unread) {
  if (typeof value !== 'object' || value === null) return value;
  const members = new Map(Object.keys(value).map((key) => [key, watch(value[key], `${place}/${key}`, unread)]));
  members.forEach((_, key) => unread.add(`${place}/${key}`));
  return new Proxy(value, {
    get(target, key) {
      unread.delete(`${place}/${String(key)}`);
      return members.get(key) ?? target[key];
    },
    ownKeys(target) {
      members.forEach((_, key) => unread.delete(`${place}/${key}`));
      return Reflect.ownKeys(target);
    },
  });
}

// Checks an object against the schema of its kind. A member that the schema never looks at is not one of the kind.
async function complaints(object) {
  const unread = new Set();
  const kinds = await import(`kubernetes-models/${object.apiVersion}`);
  const { validate } = kinds[object.kind].prototype;
  try {
    validate.call(watch(object, object.kind, unread));
  } catch (error) {
    return [error.message];
  }
  return [...unread];
}

const all = async (text) => (await Promise.all(objects(text).map(complaints))).flat();

test('the objects for Kubernetes are as their schemas want them', async () => {
  const text = read('mirevo.yaml');
  assert.deepEqual(objects(text).map(({ kind }) => kind).sort(), ['ConfigMap', 'Deployment', 'PersistentVolumeClaim', 'PersistentVolumeClaim', 'Secret', 'Service']);
  assert.deepEqual(await all(text), []);
});

test('a wrong value, a missing member and an unknown one would be found', async () => {
  const text = read('mirevo.yaml');
  for (const [right, wrong, complaint] of [
    ['replicas: 3', 'replicas: x', /replicas must be integer/],
    ['containerPort: 8096', 'name2: 8096', /required property containerPort/],
    ['sessionAffinity: ClientIP', 'sessionAfinity: ClientIP', /sessionAfinity/],
    ['periodSeconds: 5', 'periodSecond: 5', /periodSecond/],
  ]) {
    assert.ok(text.includes(right));
    assert.match((await all(text.replace(right, wrong))).join(), complaint);
  }
});

test('names within the objects agree', () => {
  const found = objects(read('mirevo.yaml'));
  const one = (kind) => found.find((object) => object.kind === kind);
  const { template, selector } = one('Deployment').spec;
  assert.deepEqual(template.metadata.labels, selector.matchLabels);
  assert.deepEqual(one('Service').spec.selector, selector.matchLabels);
  const { containers, initContainers, volumes } = template.spec;
  const names = new Set(volumes.map(({ name }) => name));
  for (const { volumeMounts } of [...containers, ...initContainers]) volumeMounts.forEach(({ name }) => assert.ok(names.has(name), name));
  const ports = containers[0].ports.map(({ name }) => name);
  for (const { targetPort } of one('Service').spec.ports) assert.ok(ports.includes(targetPort));
  const claims = found.filter(({ kind }) => kind === 'PersistentVolumeClaim').map(({ metadata }) => metadata.name);
  for (const { persistentVolumeClaim: claim } of volumes) assert.ok(!claim || claims.includes(claim.claimName));
});

// The options in a configuration, each of which the program has to know.
const optionsIn = (text) => [...text.matchAll(/^\s*(\w+) = /gm)].map(([, name]) => name);

test('the configurations name options of the service', () => {
  const help = execFileSync(path.join(build, 'target/bin/mirevo'), ['serve', '--help'], { encoding: 'utf8' });
  const configuration = objects(read('mirevo.yaml')).find(({ kind }) => kind === 'ConfigMap').data['mirevo.conf'];
  for (const text of [configuration, read('mirevo.conf')]) {
    for (const option of optionsIn(text)) assert.ok(option === 'media' || help.includes(`--${option} `), option);
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'mirevo-recipe-'));
    try {
      const file = path.join(folder, 'mirevo.conf');
      fs.writeFileSync(file, text.replace(/<([^>]*)>/g, '$1'));
      const run = () => execFileSync(path.join(build, 'target/bin/mirevo'), ['--config', file, 'serve'], { env: { ...process.env, ORVO_SYSROOT: folder }, stdio: 'pipe' });
      assert.throws(run, ({ status, stderr }) => status === 1 && /needs an account/.test(stderr), 'it is read and asks for an account');
    } finally {
      fs.rmSync(folder, { recursive: true, force: true });
    }
  }
});

test('the ports, the user and the health check are the same everywhere', () => {
  const recipe = read('Containerfile');
  const unit = read('mirevo.container');
  assert.match(recipe, /^ARG UID=8096$/m);
  assert.match(recipe, /^EXPOSE 8096 8097$/m);
  assert.match(recipe, /^USER mirevo$/m);
  assert.match(recipe, /^HEALTHCHECK .*CMD \["mirevo", "status", "--json"\]$/m);
  assert.match(unit, /^HealthCmd=mirevo status --json$/m);
  const { spec } = objects(read('mirevo.yaml')).find(({ kind }) => kind === 'Deployment').spec.template;
  assert.equal(spec.securityContext.runAsUser, 8096);
  assert.deepEqual(spec.containers[0].ports.map(({ containerPort }) => containerPort), [8096, 8097]);
});
