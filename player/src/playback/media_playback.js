// The shared code of the playback methods in which the media element knows the whole film and seeks in it.
export class MediaPlayback {
  constructor(video, hooks) {
    this.video = video;
    this.hooks = hooks;
    this.listening = new AbortController();
    this.wanted = 0; // the second of the film that was last requested
  }

  // The second of the film that is shown.
  now() {
    return this.video.readyState < HTMLMediaElement.HAVE_METADATA ? this.wanted : this.video.currentTime;
  }

  // Seconds that are buffered after the shown one without a gap.
  buffered() {
    const { buffered, currentTime } = this.video;
    for (let part = 0; part < buffered.length; ++part) {
      if (buffered.start(part) <= currentTime + 0.2 && buffered.end(part) > currentTime) {
        return buffered.end(part) - currentTime;
      }
    }
    return 0;
  }

  seek(second) {
    this.wanted = second;
    this.video.currentTime = second;
  }

  // Releases the player library, if one is used.
  release() {}

  close() {
    this.listening.abort();
    this.release();
    this.video.removeAttribute('src');
    this.video.load();
  }
}
