// What the files of this suite share: a service for films of their own, and tests with a viewer each.
import fs from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { encode } from '../service/page.mjs';
import { media, Service } from '../service/support.mjs';
import { launch, Viewer } from './viewer.mjs';

// Serves a folder that `makeFilms` fills; it gets `link`, which adds one of the films that all suites share.
export function suite(makeFilms) {
  const it = {};
  const place = (view, name = '') => `#/${view}${encode(path.join(it.folder, name))}`;
  const link = (name, as) => {
    const file = path.join(it.folder, as);
    fs.mkdirSync(path.dirname(file), { recursive: true });
    fs.linkSync(path.join(media, name), file);
  };
  before(async () => {
    it.folder = fs.mkdtempSync(path.join(media, '../firefox-'));
    await makeFilms(it.folder, link);
    it.service = await Service.start([it.folder]);
    it.browser = await launch();
  });
  after(async () => {
    await it.browser?.close();
    fs.rmSync(it.folder, { recursive: true });
    await it.service?.finish();
  });
  const forget = () => fetch(`${it.service.address}/webapi/entry.cgi`, { method: 'POST', body: new URLSearchParams({ api: 'ORVO.Mirevo2.History', version: 1, method: 'remove' }) });
  // A test with a viewer of its own, who has seen nothing yet.
  const viewing = (name, body, options = {}) =>
    test(name, async (t) => {
      const viewer = await Viewer.open(it.browser, it.service, options);
      try {
        await body(viewer, t);
      } finally {
        await viewer.close();
        await forget();
      }
      await it.service.isQuiet();
    });
  const watch = (viewer, name, parameters = {}) => viewer.go(`${place('play', name)}?${new URLSearchParams({ t: 0, ...parameters })}`);
  return Object.assign(it, { place, viewing, watch });
}

// Waits for exactly these cues over the film.
export const cuesAre = (viewer, ...texts) =>
  viewer.waitFor(
    (wanted) =>
      [...document.getElementById('video').textTracks]
        .filter(({ mode }) => mode === 'showing')
        .flatMap(({ activeCues }) => [...(activeCues ?? [])].map(({ text }) => text))
        .sort()
        .join() === wanted,
    texts.join(),
  );
