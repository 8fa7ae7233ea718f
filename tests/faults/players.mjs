// A player of each kind of stream, as far as faults need one: it opens, asks for a place, and closes.
import assert from 'node:assert/strict';
import path from 'node:path';

import { media } from '../service/support.mjs';

const film = path.join(media, 'long.mkv');
const enough = 4000; // bytes that prove that a stream plays

// Reads the beginning of an answer, and returns its status and the bytes read.
async function readStart(response) {
  let size = 0;
  let text = '';
  const reader = response.body.getReader();
  while (size < enough) {
    const { done, value } = await reader.read();
    if (done) break;
    size += value.length;
    text += Buffer.from(value).toString('latin1');
  }
  return { status: response.status, size, text: text.slice(0, 300) };
}

// A request that can be given up. `result` never rejects.
class Asking {
  constructor(address) {
    this.control = new AbortController();
    this.result = fetch(address, { signal: this.control.signal })
      .then(readStart)
      .catch((failure) => ({ status: 0, size: 0, text: String(failure.cause?.code ?? failure.name) }));
  }

  leave() {
    this.control.abort();
  }
}

const bytes = (second) => `&start=${second}`;
const kinds = {
  http: { profile: 'http_mp4_240p_vb300_ab96', place: bytes },
  webm: { profile: 'webm_240p_vb300_ab96', place: bytes },
  hls: { profile: 'hls_240p_vb300_ab96', place: (second) => `&fragment_id=${second / 5}` },
  ss: {
    profile: 'smoothstreaming_240p_x264_vb200_vf15_aac_ab40',
    place: (second) => `&fragment_id=${encodeURIComponent(`QualityLevels(200000)/Fragments(video=${second * 1e7})`)}`,
  },
};
export const kindNames = Object.keys(kinds);

export class Player {
  constructor(service, kind) {
    Object.assign(this, { service, kind, format: kinds[kind].profile, asked: [] });
  }

  async open() {
    const answer = await this.service.call('Streaming', 'open', {
      format: this.kind,
      path: film,
      profile: kinds[this.kind].profile,
    });
    assert.ok(answer.success, JSON.stringify(answer.error));
    this.stream = answer.data;
  }

  // Asks for a place of the film, at the service's present address.
  ask(second) {
    const address = this.stream.url.replace(/^https?:\/\/[^/]+/, this.service.address);
    const asking = new Asking(address + kinds[this.kind].place(second));
    this.asked.push(asking);
    return asking;
  }

  leave() {
    this.asked.splice(0).forEach((asking) => asking.leave());
  }

  close() {
    return this.service
      .call('Streaming', 'close', { format: this.kind, stream_id: this.stream.stream_id })
      .catch((failure) => ({ success: false, status: 0, error: String(failure.cause?.code ?? failure) }));
  }
}
