// The history: when the page saves a position, and where a film resumes.
import assert from 'node:assert/strict';
import { beforeEach, test } from 'node:test';

import { HistoryKeeper, resumePoint, watched } from '../../player/src/history.js';
import { refusal, Server, settled, unreachable, Video } from './fakes.mjs';

// The playback for a keeper: a film of a hundred seconds that has shown a picture.
class Film extends EventTarget {
  constructor() {
    super();
    Object.assign(this, { video: new Video(), engine: {}, marks: { frame: 1 }, film: { entry: { encoded_path: '/a%20b.mkv' } }, second: 0 });
  }

  now() {
    return this.second;
  }

  duration() {
    return 100.9;
  }

  show(second) {
    this.second = second;
    this.video.tell('timeupdate');
    return settled();
  }
}

let server;
let film;
let keeper;

const saved = () => server.asked('save').map(({ position }) => Number(position));

beforeEach(() => {
  server = new Server();
  film = new Film();
  keeper = new HistoryKeeper(film);
});

test('the position is saved every ten seconds', async () => {
  for (const second of [9.5, 15, 19.4, 19.9, 12, 9, 3]) await film.show(second);
  assert.deepEqual(saved(), [9, 19, 9]);
  const [{ path, duration, verb }] = server.asked('save');
  assert.deepEqual([path, duration, verb], ['/a b.mkv', '100', 'POST']);
});

test('a pause saves at once, but the same second only once', async () => {
  await film.show(20);
  film.second = 23.2;
  film.video.tell('pause', 'pause');
  await settled();
  assert.deepEqual(saved(), [20, 23]);
});

test('a film that has shown no picture is not saved', async () => {
  film.marks = {};
  await film.show(50);
  film.marks = { frame: 1 };
  film.engine = null;
  await film.show(50);
  assert.deepEqual(saved(), []);
});

test('the end is saved as the whole film, and no position exceeds it', async () => {
  await film.show(130);
  film.second = 98;
  film.video.ended = true;
  film.dispatchEvent(new Event('ended'));
  await settled();
  assert.deepEqual(saved(), [100, 100]);
});

test('another film begins with nothing saved', async () => {
  await film.show(20);
  keeper.startAnew();
  await film.show(20);
  assert.deepEqual(saved(), [20, 20]);
});

test('a server without a history is not called again, one that fails is', async () => {
  server.answers.save = refusal('Internal');
  await film.show(20);
  server.answers.save = refusal('BadRequest', { status: 400 });
  await film.show(40);
  await film.show(60);
  assert.deepEqual(saved(), [20, 40]);
});

test('a page that unloads saves the last position', async () => {
  film.second = 77;
  keeper.saveLastly();
  const [{ method, position, path }] = await Promise.all(server.beacons);
  assert.deepEqual([method, position, path], ['save', '77', '/a b.mkv']);
});

test('a film resumes where the viewer stopped, a finished or unknown one at its beginning', async () => {
  const places = [];
  for (const answer of [{ position: 33, finished: false }, { position: 99, finished: true }, refusal('NotFound', { status: 404 }), unreachable]) {
    server.answers.get = answer;
    places.push(await resumePoint('/a.mkv'));
  }
  assert.deepEqual(places, [33, 0, 0, 0]);
});

test('the watched films are a list, whatever the server answers', async () => {
  const lists = [];
  for (const answer of [{ items: [1, 2] }, {}, unreachable]) {
    server.answers.list = answer;
    lists.push(await watched());
  }
  assert.deepEqual(lists, [[1, 2], [], []]);
});
