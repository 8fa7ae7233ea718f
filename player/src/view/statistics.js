// The statistics panel of the open stream.
import { element } from '../dom.js';
import { clockText, decimalText, millisecondsText } from '../format.js';
import { t } from '../language.js';
import { kindText, methodText } from '../playback/kinds.js';
import { reasonText } from '../reasons.js';
import { stutterWords } from '../words.js';

const PARTS = [
  ['open', 'opened'],
  ['manifest', 'manifest'],
  ['media', 'first media'],
  ['frame', 'first frame'],
];

// "1200 ms (opened 300 ms, manifest 20 ms, first media 700 ms, first frame 180 ms)", in the order of the events;
// '' before the first frame.
export function startText(marks) {
  let before = 0;
  const passed = PARTS.filter(([name]) => marks[name] !== undefined).sort(([a], [b]) => marks[a] - marks[b]);
  const parts = passed.map(([name, text]) => {
    const part = marks[name] - before;
    before = marks[name];
    return `${t(text)} ${millisecondsText(part)}`;
  });
  return marks.frame === undefined ? '' : `${millisecondsText(before)} (${parts.join(', ')})`;
}

// The steps of the server's own start, in their order.
const STEPS = {
  probe: 'examining the film',
  admission: 'waiting for room',
  prepare: 'preparing the stream',
  start: 'starting the converter',
  first_key: 'first key picture',
  first_bytes: 'first part',
  sent: 'sending',
};

// "examining the film 12 ms, preparing the stream 20 ms"; '' if the server does not tell.
export const timesText = (times) =>
  Object.entries(STEPS)
    .filter(([name]) => times?.[name] !== undefined)
    .map(([name, text]) => `${t(text)} ${millisecondsText(times[name])}`)
    .join(', ');

function stutterText(playback, state) {
  const { droppedVideoFrames: dropped, totalVideoFrames: total } = playback.video.getVideoPlaybackQuality();
  return stutterWords({ dropped, total, seconds: playback.secondsSinceStarved(), transcoder: state?.transcoder, ...playback.engine?.rates?.() });
}

function framesText(video) {
  const { droppedVideoFrames: dropped, totalVideoFrames: total } = video.getVideoPlaybackQuality();
  return t('{dropped} of {total} dropped', { dropped, total });
}

function encoderText(transcoder) {
  if (transcoder === undefined) {
    return '';
  }
  if (!transcoder) {
    return t('none');
  }
  const { speed, position, cpu_seconds: cpu } = transcoder;
  const facts = [
    speed && t('{speed} times the film’s speed', { speed: decimalText(speed, 1) }),
    position !== undefined && t('at {time}', { time: clockText(position) }),
    cpu !== undefined && t('{count} s of CPU time', { count: decimalText(cpu, 1) }),
  ];
  return facts.filter(Boolean).join(', ');
}

function rowsOf(playback, state) {
  const { video, stream } = playback;
  return [
    ['Playback method', kindText(playback.kind)],
    ['Conversion', methodText(state?.method ?? playback.methodOf()?.method)],
    ['Reason', reasonText(state?.why ?? playback.methodOf()?.why)],
    ['Quality', t(playback.engine?.qualityName?.() ?? stream?.profile ?? '')],
    ['Encoder', encoderText(state?.transcoder)],
    ['Resolution', video.videoWidth && `${video.videoWidth} × ${video.videoHeight}`],
    ['Buffer', `${decimalText(playback.buffered(), 1)} s`],
    ['Frames', framesText(video)],
    ['Startup time', startText(playback.marks)],
    ['Server', timesText(state?.times)],
    ['Stutter', stutterText(playback, state)],
    ['Stream', stream?.stream_id],
  ].filter(([, text]) => text);
}

export class Statistics {
  constructor(playback) {
    this.playback = playback;
    this.panel = element('dl', { class: 'figures', 'aria-label': t('Statistics'), hidden: true });
    this.state = null;
  }

  toggle() {
    this.panel.hidden = !this.panel.hidden;
    clearInterval(this.timer);
    if (!this.panel.hidden) {
      this.timer = setInterval(() => this.refresh(), 1000);
      this.refresh();
    }
    return !this.panel.hidden;
  }

  async refresh() {
    const { stream } = this.playback;
    if (stream && this.lacking !== stream.stream_id) {
      this.state = await this.playback.state().catch((error) => {
        // An older server does not know this call. The page does not ask it again.
        this.lacking = error.reason === 'BadRequest' ? stream.stream_id : undefined;
        return null;
      });
    }
    const rows = rowsOf(this.playback, this.state);
    this.panel.replaceChildren(...rows.flatMap(([name, text]) => [element('dt', {}, t(name)), element('dd', {}, String(text))]));
  }
}
