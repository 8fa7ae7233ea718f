// Playing the film on another device, such as a television, where the browser has that: by its remote playback, or by
// AirPlay. The device fetches the film itself, so it needs a stream with an address that it can reach.
//
// Event: "change" when the offer or the connection has changed.
import { kindsFor } from './kinds.js';

// Addresses of this computer mean something else on another one.
const isLoopback = (name) => name === 'localhost' || name === '[::1]' || name.startsWith('127.');

export class Remote extends EventTarget {
  // `hasAddress`: has a kind of stream one in a browser with these abilities?
  constructor(playback, hasAddress) {
    super();
    this.playback = playback;
    this.video = playback.video;
    this.hasAddress = hasAddress;
    this.isFound = false; // does the browser know a device for this film?
    this.engine = null;
    this.watching = undefined; // what the browser calls the running watch for devices
    this.hasAirPlay = typeof this.video.webkitShowPlaybackTargetPicker === 'function';
    if (this.hasAirPlay) {
      this.listenToAirPlay();
    } else if (this.video.remote) {
      this.listenToRemote();
    }
  }

  listenToAirPlay() {
    this.video.addEventListener('webkitplaybacktargetavailabilitychanged', ({ availability }) => this.find(availability === 'available'));
    this.video.addEventListener('webkitcurrentplaybacktargetiswirelesschanged', () => this.changed());
    this.playback.addEventListener('change', () => this.follow(() => {}));
  }

  listenToRemote() {
    for (const type of ['connecting', 'connect', 'disconnect']) {
      this.video.remote.addEventListener(type, () => this.changed());
    }
    this.playback.addEventListener('change', () => this.follow(() => this.watch()));
  }

  changed() {
    this.dispatchEvent(new Event('change'));
  }

  find(isFound) {
    this.isFound = isFound;
    this.changed();
  }

  // Calls `begin` for each new stream of a film that another device can play.
  follow(begin) {
    const { engine } = this.playback;
    if (engine !== this.engine) {
      this.engine = engine;
      this.video.disableRemotePlayback = Boolean(engine) && this.kinds().length === 0;
      if (engine && !this.video.disableRemotePlayback) {
        begin();
      }
      this.changed();
    }
  }

  // The browser answers for the source that the element has now. One that cannot watch lets its viewer ask.
  async watch() {
    const { engine } = this;
    const { remote } = this.video;
    const found = (isFound) => engine === this.engine && this.find(isFound);
    this.isFound = false;
    await remote.cancelWatchAvailability().catch(() => {});
    await remote.watchAvailability(found).catch(({ name }) => found(name === 'NotSupportedError'));
  }

  // The methods with an address that fit this film and this browser, best first.
  kinds() {
    const { film, can } = this.playback;
    return film ? kindsFor(film.info, can).filter((kind) => this.hasAddress(kind, can)) : [];
  }

  isOffered() {
    return this.isFound && Boolean(this.engine) && !this.video.disableRemotePlayback && !isLoopback(window.location.hostname);
  }

  isConnected() {
    return this.hasAirPlay ? Boolean(this.video.webkitCurrentPlaybackTargetIsWireless) : this.video.remote?.state === 'connected';
  }

  // Lets the viewer choose a device. A stream of pieces, which have no common address, gives way to another one.
  async choose() {
    if (!this.engine.constructor.hasAddress) {
      await this.playback.change({ kind: this.kinds()[0], profile: '' });
    }
    if (this.hasAirPlay) {
      this.video.webkitShowPlaybackTargetPicker();
    } else {
      await this.video.remote.prompt().catch(() => {}); // the viewer has closed the list, or it is empty
    }
  }
}
