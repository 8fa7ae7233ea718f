// The page's languages: each text of the page has a translation, and each translation is used.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { counted, languageFor, t } from '../../player/src/language.js';
import { REFUSALS } from '../../player/src/refusals.js';
import { GERMAN } from '../../player/src/strings.js';

const folder = path.join(import.meta.dirname, '../../player/src');
const sources = fs.readdirSync(folder, { recursive: true }).filter((name) => name.endsWith('.js') && name !== 'strings.js');
const source = sources.map((name) => fs.readFileSync(path.join(folder, name), 'utf8')).join('\n');

const placesIn = (text) => [...text.matchAll(/\{\w+\}/g)].map(([place]) => place).sort();

test('each text that the page translates has a German one', () => {
  const called = [...source.matchAll(/\bt\('((?:[^'\\]|\\.)+)'/g)].map(([, text]) => text);
  const countedTexts = [...source.matchAll(/\bcounted\([^']*'([^']+)', '([^']+)'/g)].flatMap(([, one, many]) => [one, many]);
  const missing = [...called, ...countedTexts].filter((text) => !(text in GERMAN));
  assert.ok(called.length > 10);
  assert.deepEqual(missing, []);
});

test('each error and each key has a German text', () => {
  const errors = [...source.matchAll(/^ {2}\w+: \['([^']+)', '([^']+)'\],$/gm)].flatMap(([, sentence, next]) => [sentence, next]);
  const keys = [...source.matchAll(/^ {2}\[\[.*?\], '[^']+', '([^']+)', \(/gm)].map(([, text]) => text);
  assert.ok(errors.length > 40 && keys.length > 20);
  assert.deepEqual([...errors, ...keys].filter((text) => !(text in GERMAN)), []);
});

test('each refusal of a setting that the server describes has a German text', () => {
  for (const name of ['settings/media_folders.cpp', 'accounts/accounts.cpp']) {
    const server = fs.readFileSync(path.join(folder, '../..', name), 'utf8').match(/Describe\(\w+ outcome\) \{.*?\n\}/s)[0];
    const sentences = [...server.matchAll(/return ((?:\s*"[^"]*")+);/g)].map(([, text]) => text.replace(/"\s*"|^\s*"|"$/g, ''));
    assert.ok(sentences.length > 8, name);
    const known = sentences.filter((text) => text !== 'Done.');
    assert.deepEqual(known.filter((text) => !REFUSALS.includes(text) || !(text in GERMAN)), []);
  }
});

test('each German text belongs to a text of the page and has its values', () => {
  for (const [english, german] of Object.entries(GERMAN)) {
    const isUsed = [`'${english}'`, `${english}:`, `"${english}"`].some((text) => source.includes(text));
    assert.ok(isUsed, `${english} is used`);
    assert.deepEqual(placesIn(german), placesIn(english), english);
  }
});

test('the first language that the page speaks is chosen', () => {
  assert.equal(languageFor(['fr-FR', 'de-CH', 'en-US']), 'de');
  assert.equal(languageFor(['fr-FR']), 'en');
  assert.equal(languageFor([]), 'en');
});

test('values are put in place of their names', () => {
  assert.equal(t('{count} films', { count: 3 }), '3 films');
  assert.equal(counted(1, '{count} film', '{count} films'), '1 film');
  assert.equal(t('{time} left', { time: '{count}' }), '{count} left');
});

// What the code says without words of a language.
const NAMES = ['Smooth Streaming', 'Dolby Vision', 'Mirevo'];
const UNITS = ['kbit/s', 'Mbit/s', 'ms', 'fps', 'px'];

const commentless = (name) => fs.readFileSync(path.join(folder, name), 'utf8').replace(/^\s*\/\/.*$|\s\/\/ .*$/gm, '');
const shown = sources
  .filter((name) => name !== 'playlist.js')
  .map((name) => commentless(name).replace(/\bclass: [^,}]*|\b(?:Error|DOMException|closest|matches)\([^)]*\)/g, ''))
  .join('\n');

test('each text of several words in the page’s code has a German one', () => {
  const texts = [...shown.matchAll(/'((?:[^'\\\n]|\\.)*)'/g)].map(([, text]) => text).filter((text) => /^[A-Za-z]+,? [A-Za-z]/.test(text));
  assert.ok(texts.length > 100);
  assert.deepEqual(texts.filter((text) => !(text in GERMAN) && !NAMES.includes(text)), []);
});

test('no text is put together of words in the page’s code', () => {
  const withoutValues = (template) => template.replace(/\{\w+\}|\{[^{}]*(?:\{[^{}]*\}[^{}]*)*\}/g, ' ');
  const isWord = (part) => /^[A-Za-z’]{2,}[.,:]?$/.test(part) && !UNITS.includes(part) && !NAMES.includes(part);
  const templates = [...shown.matchAll(/`([^`\n]*)`/g)].map(([, text]) => text);
  assert.ok(templates.length > 50);
  assert.deepEqual(templates.filter((text) => withoutValues(text).split(/[\s$]+/).some(isWord)), []);
});
