// A progressive stream of copied pictures can only begin at a key frame, up to some seconds before the second
// that was asked for. What lies before it is run through, as fast as browsers play.

const FASTEST = 16;
const SLACK = 0.1;

export const isEarly = (now, start) => now < start - SLACK;

// How fast to run through what is left to skip: slower towards its end, so as not to overrun it.
export const catchUpRate = (seconds) => Math.min(FASTEST, Math.max(2, seconds * 3));
