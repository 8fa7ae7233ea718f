// The films of films.py, and how a browser plays them.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import path from 'node:path';

const program = path.join(import.meta.dirname, 'films.py');

export const films = JSON.parse(execFileSync('python3', [program, '--list'], { encoding: 'utf8' }));
export const isMusic = ({ pictures }) => !pictures;

// Opens the film in the page and waits until its clock runs. Returns what the browser decoded.
export async function plays(viewer, { name, channels, pictures }, kind = '') {
  await viewer.watch(name, kind ? { kind } : {});
  await viewer.page.waitForFunction(() => document.getElementById('video').currentTime > 0.5, null, { timeout: 60000 });
  const state = await viewer.state();
  assert.equal(state.message, '', name);
  assert.equal(state.frames > 0, pictures, `${name}: ${state.frames} pictures`);
  // Smooth Streaming's manifest promises sound, so a film without any gets silence.
  assert.equal(state.sound > 0, channels > 0 || kind === 'ss', `${name}: ${state.sound} bytes of sound`);
  return { ...state, kind: await viewer.page.evaluate(() => document.getElementById('why').textContent) };
}
