// A viewer: a player that shows the film at its own speed, with so many seconds of it in advance.
import { setTimeout as pause } from 'node:timers/promises';

const patience = 75_000; // milliseconds; the balancer gives up first
const again = 1000;

// The body, or nothing where a player would ask again.
async function body(address, number, complaints) {
  const begun = performance.now();
  const complain = (what) => complaints.push(`${what} for segment ${number} after ${((performance.now() - begun) / 1000).toFixed(1)} s`);
  try {
    // A connection that is kept may end in the moment in which it is used again.
    const response = await fetch(address, { headers: { connection: 'close' }, signal: AbortSignal.timeout(patience) });
    const bytes = await response.arrayBuffer();
    if (response.ok && bytes.byteLength > 0) return bytes;
    complain(`${response.status} (${Buffer.from(bytes).toString('utf8', 0, 200)})`);
  } catch (error) {
    complain(error.cause?.code ?? error.name);
  }
  return undefined;
}

async function load(address, number, complaints) {
  for (;;) {
    const bytes = await body(address, number, complaints);
    if (bytes) return bytes;
    await pause(again);
  }
}

// Plays segments of `length` seconds. `ahead`: seconds of film that it keeps. `asks(number)` is called before each request.
// Returns how long the film stood still at each place, in seconds, and the answers that were errors.
export async function watch(addresses, { length, ahead, asks = () => {} }) {
  const stalls = [];
  const complaints = [];
  let begun; // when the film would have begun if it had never stood still
  for (const [number, address] of addresses.entries()) {
    await asks(number);
    await load(address, number, complaints);
    const now = performance.now() / 1000;
    begun ??= now;
    const late = now - (begun + number * length);
    if (late > 0) {
      stalls.push(late);
      begun += late;
    }
    await pause(Math.max(begun + (number + 1) * length - ahead - performance.now() / 1000, 0) * 1000);
  }
  return { stalls, complaints, longest: Math.max(0, ...stalls) };
}
