// A progressive stream of copied pictures can only begin at a key frame, up to some seconds before the requested
// second. The page plays the part in between as fast as the browser can.

const FASTEST = 16;
const SLACK = 0.1;

export const isEarly = (now, start) => now < start - SLACK;

// The playback rate for the remaining seconds to skip: slower towards the end, to avoid an overrun.
export const catchUpRate = (seconds) => Math.min(FASTEST, Math.max(2, seconds * 3));
