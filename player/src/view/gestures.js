// Pointers over the picture: a double click for full screen, a double tap to seek, the wheel for the volume.

const DOUBLE_TAP_MILLISECONDS = 300;
const SEEK_SECONDS = 10;
const WHEEL_STEP = 0.05;

// Where in the picture, from 0 at its left edge to 1.
function shareOf({ clientX }, node) {
  const { left, width } = node.getBoundingClientRect();
  return width > 0 ? (clientX - left) / width : 0;
}

// The seconds to skip for a double tap there; 0 in the middle.
export const skipFor = (share) => (share < 1 / 3 ? -SEEK_SECONDS : share > 2 / 3 ? SEEK_SECONDS : 0);

export function listenToGestures(player) {
  const { video, stage } = player;
  let last = { time: -Infinity, skip: 0, isTouch: false };
  video.addEventListener('click', (event) => {
    const skip = skipFor(shareOf(event, video));
    const isTouch = event.pointerType === 'touch';
    const isSecond = isTouch && skip !== 0 && skip === last.skip && event.timeStamp - last.time < DOUBLE_TAP_MILLISECONDS;
    last = { time: event.timeStamp, skip, isTouch };
    player.touch(event); // the second tap undoes what the first one did
    if (isSecond) {
      player.skip(skip);
    }
  });
  video.addEventListener('dblclick', (event) => {
    if (!last.isTouch) {
      event.preventDefault();
      player.fullScreen();
    }
  });
  stage.addEventListener('wheel', (event) => {
    if (!event.ctrlKey && event.target === video && event.deltaY !== 0) {
      event.preventDefault();
      player.louder(event.deltaY < 0 ? WHEEL_STEP : -WHEEL_STEP);
      player.wake();
    }
  }, { passive: false });
}
