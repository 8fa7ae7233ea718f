// The page: lists the films and plays one.
//
// A progressive stream is one endless response that begins where it was asked to, so a seek is a new
// request with another start. The stream keeps the film's clock. A copied picture can only begin at a
// key frame, up to some seconds early: the page runs through those at once, without a sound.

const find = (id) => document.getElementById(id);
const video = find('video');
const position = find('position');

class ApiError extends Error {
  constructor(error) {
    super(error.message);
    this.reason = error.reason;
  }
}

// `path` is a path as the server has encoded it: a file's name need not be text.
async function call(api, method, parameters, path) {
  const query = new URLSearchParams({ api: `ORVO.Mirevo2.${api}`, version: 1, method, ...parameters });
  const place = path === undefined ? '' : `&path=${path}`;
  const response = await fetch(`/webapi/entry.cgi?${query}${place}`);
  const answer = await response.json();
  if (!answer.success) {
    throw new ApiError(answer.error);
  }
  return answer.data;
}

function clockText(seconds) {
  const whole = Math.max(0, Math.floor(seconds));
  const pad = (number) => String(number).padStart(2, '0');
  const minutes = Math.floor(whole / 60);
  const rest = pad(whole % 60);
  return minutes < 60 ? `${minutes}:${rest}` : `${Math.floor(minutes / 60)}:${pad(minutes % 60)}:${rest}`;
}

function sizeText(bytes) {
  return bytes < 1e9 ? `${Math.ceil(bytes / 1e6)} MB` : `${(bytes / 1e9).toFixed(1)} GB`;
}

function say(text) {
  find('message').textContent = text;
}

const FASTEST = 16; // what browsers play at the most

// How fast to run through what is left to skip: slower towards its end, so as not to overrun it.
const catchUpRate = (seconds) => Math.min(FASTEST, Math.max(2, seconds * 3));

// The film that is open, and the one running request for it.
const film = {
  entry: null,
  stream: null, // what open answered
  muted: false, // what the viewer wants
  start: 0, // second of the film at which the running request was to begin

  // The second of the film that is shown.
  now() {
    return video.readyState < HTMLMediaElement.HAVE_CURRENT_DATA ? this.start : Math.max(this.start, video.currentTime);
  },

  // Is the picture still before what was asked for?
  isEarly() {
    return video.currentTime < this.start - 0.1;
  },
};

// Hurries through what lies before the second that was asked for.
function catchUp(stream, start) {
  if (film.stream !== stream || film.start !== start) {
    return;
  }
  const early = film.isEarly();
  video.playbackRate = early ? catchUpRate(start - video.currentTime) : 1;
  video.classList.toggle('early', early);
  if (early && !video.paused) {
    requestAnimationFrame(() => catchUp(stream, start));
  } else {
    video.muted = film.muted;
  }
}

function showClock() {
  const duration = film.stream?.duration ?? 0;
  const now = Math.min(film.now(), duration);
  if (!position.matches(':active')) {
    position.value = String(now);
  }
  position.setAttribute('aria-valuetext', clockText(now));
  find('clock').textContent = `${clockText(now)} / ${clockText(duration)}`;
}

function playFrom(second) {
  film.start = Math.floor(second);
  video.src = `${new URL(film.stream.url).pathname}${new URL(film.stream.url).search}&start=${film.start}`;
  video.play().catch((error) => {
    if (error.name === 'NotAllowedError') {
      say('Press Play to start.');
    }
  });
  showClock();
}

async function closeStream() {
  const stream = film.stream;
  film.stream = null;
  video.removeAttribute('src');
  video.load();
  if (stream) {
    await call('Streaming', 'close', { format: stream.format, stream_id: stream.stream_id });
  }
}

// Opens the film with what is chosen and plays it from `second`.
async function openStream(second) {
  await closeStream();
  const parameters = { format: 'http', device: 'browser' };
  if (find('profile').value) {
    parameters.profile = find('profile').value;
  }
  if (find('audio').value) {
    parameters.audio_id = find('audio').value;
  }
  film.stream = await call('Streaming', 'open', parameters, film.entry.encoded_path);
  position.max = String(film.stream.duration);
  playFrom(second);
}

function fill(select, options) {
  select.replaceChildren(
    ...options.map(({ value, text, chosen }) => new Option(text, value, chosen, chosen)),
  );
  select.disabled = options.length < 2;
}

function describeProfiles(profiles) {
  const playable = profiles.filter(
    (profile) => profile.method !== 'refused' && profile.content_type === 'video/mp4',
  );
  fill(
    find('profile'),
    playable.map((profile) => ({
      value: profile.key,
      text: profile.key.replace(/^http_mp4_/, '').replace(/_vb\d+_ab\d+$/, '').replace('_', ' '),
      chosen: profile.default,
    })),
  );
  return playable;
}

async function openFilm(entry) {
  say('');
  find('film').hidden = false;
  find('title').textContent = entry.name;
  find('title').scrollIntoView({ block: 'start' });
  await closeStream();
  film.entry = entry;
  const info = await call('Library', 'info', {}, entry.encoded_path);
  film.profiles = describeProfiles(info.profiles);
  fill(
    find('audio'),
    info.metadata.track_info.audio.map((track, index) => ({
      value: track.id,
      text: [track.language, track.codec || track.codec_raw].filter(Boolean).join(' ') || `Track ${index + 1}`,
      chosen: index === 0,
    })),
  );
  await openStream(0);
  explain();
}

function explain() {
  const profile = film.profiles.find((candidate) => candidate.key === film.stream?.profile);
  find('why').textContent = profile ? profile.why : '';
}

function entryButton(entry, detail, action) {
  const item = document.createElement('li');
  const button = document.createElement('button');
  button.type = 'button';
  button.append(entry.name);
  if (detail) {
    const small = document.createElement('small');
    small.textContent = detail;
    button.append(small);
  }
  button.addEventListener('click', () => attempt(action));
  item.append(button);
  return item;
}

async function openFolder(path) {
  const listing = await call('Library', 'list', {}, path);
  if (!path && listing.files.length === 0 && listing.folders.length === 1) {
    await openFolder(listing.folders[0].encoded_path);
    return;
  }
  find('folder').textContent = listing.path;
  const items = [
    ...listing.folders.map((entry) => entryButton(entry, 'folder', () => openFolder(entry.encoded_path))),
    ...listing.files.map((entry) => entryButton(entry, sizeText(entry.size), () => openFilm(entry))),
  ];
  if (listing.parent !== undefined) {
    items.unshift(entryButton({ name: '↩ Up' }, '', () => openFolder(encodeURIComponent(listing.parent))));
  }
  find('entries').replaceChildren(...items);
}

// Runs an action of the viewer's and says what went wrong with it.
async function attempt(action) {
  try {
    await action();
  } catch (error) {
    say(error instanceof ApiError ? error.message : `The server does not answer (${error.message}).`);
  }
}

video.addEventListener('playing', () => {
  if (film.isEarly()) {
    video.muted = true;
  }
  catchUp(film.stream, film.start);
});
video.addEventListener('timeupdate', showClock);
video.addEventListener('play', () => {
  find('play').textContent = 'Pause';
});
video.addEventListener('pause', () => {
  find('play').textContent = 'Play';
});
video.addEventListener('error', () => {
  if (film.stream && video.hasAttribute('src')) {
    say(`Playing failed: ${video.error.message || 'the stream has broken off'}.`);
  }
});
position.addEventListener('change', () => film.stream && playFrom(Number(position.value)));
find('play').addEventListener('click', () => {
  if (!film.stream) {
    return;
  }
  if (video.ended || video.error) {
    playFrom(0);
  } else if (video.paused) {
    video.play();
  } else {
    video.pause();
  }
});
find('mute').addEventListener('click', () => {
  film.muted = !film.muted;
  video.muted = film.muted;
  find('mute').textContent = film.muted ? 'Unmute' : 'Mute';
});
find('full').addEventListener('click', () => video.requestFullscreen());
for (const id of ['profile', 'audio']) {
  find(id).addEventListener('change', () =>
    attempt(async () => {
      await openStream(film.now());
      explain();
    }),
  );
}
window.addEventListener('pagehide', () => {
  if (film.stream) {
    const query = new URLSearchParams({
      api: 'ORVO.Mirevo2.Streaming',
      version: 1,
      method: 'close',
      format: film.stream.format,
      stream_id: film.stream.stream_id,
    });
    navigator.sendBeacon('/webapi/entry.cgi', query);
  }
});

attempt(() => openFolder(''));
