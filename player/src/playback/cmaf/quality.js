// The choice among the renditions of the pictures.
//
// "Automatic" takes the best one that the network carries. It leaves a rendition alone that the server has no room for.

const SHARE = 0.75; // of the network's speed that a rendition may need
const PEAK = 1.25; // a copy is at times larger than its mean
const HIGH_BUFFER = 10; // seconds; with less of it, the quality does not rise
const SAFE_BUFFER = 20; // seconds; with more of it, the quality does not fall
const BARRED_MILLISECONDS = 60000;

const needOf = ({ bandwidth, encoded }) => bandwidth * (encoded ? 1 : PEAK);

export class Quality {
  // `mayEncode`: promises whether the server has room to start a conversion.
  constructor(pictures, throughput, mayEncode) {
    this.pictures = [...pictures].sort((one, other) => needOf(other) - needOf(one));
    this.throughput = throughput;
    this.mayEncode = mayEncode;
    this.picked = undefined;
    this.barred = new Map(); // until when a rendition is not taken
  }

  // The viewer's choice, by its name; '' for the automatic one. A name that does not exist means the automatic one.
  pick(name) {
    this.picked = this.pictures.find((picture) => picture.name === name);
  }

  // The rendition for the next segment. `seconds` are buffered.
  async next(current, seconds) {
    if (this.picked) {
      return this.picked;
    }
    const best = this.best();
    if (!current || best === current) {
      return best;
    }
    const rises = needOf(best) > needOf(current);
    const stays = !this.isBarred(current) && (rises ? seconds < HIGH_BUFFER : seconds > SAFE_BUFFER);
    if (stays || (best.encoded && !current.encoded && !(await this.hasRoom()))) {
      return current;
    }
    return best;
  }

  best() {
    const open = this.pictures.filter((picture) => !this.isBarred(picture));
    const among = open.length > 0 ? open : this.pictures;
    return among.find((picture) => this.isCarried(picture)) ?? among.at(-1);
  }

  // Is the network fast enough for it, as far as is known?
  isCarried(picture) {
    const { rate } = this.throughput;
    return rate === 0 || needOf(picture) <= SHARE * rate;
  }

  async hasRoom() {
    const isFree = await this.mayEncode();
    if (!isFree) {
      this.pictures.filter(({ encoded }) => encoded).forEach((picture) => this.bar(picture));
    }
    return isFree;
  }

  // The server has refused a rendition, or was too slow for it. Returns whether another one can be taken at once.
  leave(picture) {
    const others = this.pictures.filter((other) => other !== picture && !this.isBarred(other));
    if (this.picked || others.length === 0) {
      return false;
    }
    this.bar(picture);
    return true;
  }

  bar(picture) {
    this.barred.set(picture, performance.now() + BARRED_MILLISECONDS);
  }

  isBarred(picture) {
    return (this.barred.get(picture) ?? 0) > performance.now();
  }
}
