// The owner's page: running streams and their load, free space, recent streams, watch history.
import { get, post } from '../api.js';
import { element, table } from '../dom.js';
import { clockText, decimalText, nameOf, sizeText } from '../format.js';
import { forget, watched } from '../history.js';
import { counted, t } from '../language.js';
import { reasonText } from '../reasons.js';
import { stutterWords } from '../words.js';
import { filmAddress, keepFresh, replaceContent, sayError, say } from './page.js';
import { timesText } from './statistics.js';

const number = (value, digits, unit) => (value === undefined || value === null ? '' : `${decimalText(Number(value), digits)}${unit}`);
const fileName = (path) => (path ?? '').split('/').at(-1);

// Runs an action, then shows the new status.
async function act(action, refresh) {
  try {
    say('');
    await action();
  } catch (error) {
    sayError(error);
  }
  await refresh();
}

const button = (text, name, click) => element('button', { type: 'button', 'aria-label': `${text} ${name}`, on: { click } }, text);

// Why the film stutters for its viewer, as far as the player has told.
function stutterOf({ client }, transcoder) {
  return client ? stutterWords({ seconds: Date.now() / 1000 - client.starved_at, throughput: client.throughput * 1000, transcoder }) : '';
}

const close = (stream) => post('Streaming', 'close', { format: stream.kind.toLowerCase(), stream_id: stream.stream_id });

function streamRow(stream, transcoders, refresh) {
  const transcoder = transcoders.find(({ stream_id: id }) => id === stream.stream_id);
  return [
    fileName(stream.path),
    stream.account,
    stream.kind,
    stream.profile,
    stream.playing ? t('playing') : t('{count} s idle', { count: number(stream.idle_seconds, 0, '') || '0' }),
    timesText(stream.times),
    stutterOf(stream, transcoder),
    transcoder ? `${t(transcoder.kind)}, ${number(transcoder.speed, 1, ' ×')}` : t('none'),
    transcoder ? number(transcoder.cpu_seconds, 1, ' s') : '',
    transcoder ? number(transcoder.cpu_percent, 0, ' %') : '',
    button(t('Stop'), fileName(stream.path), () => act(() => close(stream), refresh)),
  ];
}

const STREAM_HEADINGS = ['Film', 'Account', 'Kind', 'Quality', 'State', 'Start', 'Stutter', 'Transcoder, speed', 'CPU time', 'CPU load', 'Action'];

function streamsTable(label, streams, transcoders, refresh) {
  return table(label, STREAM_HEADINGS.map((text) => t(text)), streams.map((stream) => streamRow(stream, transcoders, refresh)));
}

let isLeftOpen = false; // does the viewer look at the streams that nobody watches?

// The streams whose viewers have left without closing them: one line until someone wants to see them.
function leftStreams(left, transcoders, refresh) {
  const all = element('button', { type: 'button', on: { click: () => act(() => Promise.all(left.map(close)), refresh) } }, t('Stop all of them'));
  return element(
    'details',
    { open: isLeftOpen, on: { toggle: ({ target }) => { isLeftOpen = target.open; } } },
    element('summary', {}, counted(left.length, '{count} stream without a viewer', '{count} streams without a viewer')),
    element('p', {}, t('Their viewers left without closing them. The server ends them by itself after some time without a request.')),
    element('p', { class: 'actions' }, all),
    streamsTable(t('Streams without a viewer'), left, transcoders, refresh),
  );
}

function streamsOf({ streams, transcoders }, refresh) {
  const inUse = streams.filter(({ playing }) => playing);
  const left = streams.filter(({ playing }) => !playing);
  return [
    inUse.length > 0 ? streamsTable(t('Streams'), inUse, transcoders, refresh) : element('p', {}, t('Nobody is watching.')),
    left.length > 0 && leftStreams(left, transcoders, refresh),
  ];
}

function engineText({ encoder, device, lines, speed, reason }) {
  const facts = [t('up to {lines} lines', { lines }), speed > 0 && t('{speed} times the film’s speed', { speed: decimalText(speed, 1) })];
  const used = lines > 0 ? facts.filter(Boolean).join(', ') : `${t('not used.')} ${reasonText(reason)}`;
  return `${t('{encoder} on {device}', { encoder, device })}: ${used}`;
}

function limits({ limits: allowed, transcoders, platform }) {
  const running = (kind) => transcoders.filter((transcoder) => transcoder.kind === kind).length;
  const line = (kind, name) => element('li', {}, t('{name}: {count} of {limit} in use', { name, count: running(kind), limit: allowed[kind] }));
  return element(
    'ul',
    {},
    line('software', t('Software conversions')),
    line('hardware', t('Hardware conversions')),
    element('li', {}, t('Profiles: {name}. Hardware conversion: {state}', { name: platform?.profiles ?? t('unknown'), state: platform?.hardware_enabled ? t('on') : t('off') })),
    ...(platform?.engines ?? []).map((engine) => element('li', {}, engineText(engine))),
  );
}

const volumes = (list) =>
  table(
    t('Disks'),
    [t('Disk'), t('Free'), t('Size'), t('Writable')],
    list.map(({ path, free, total, writable }) => [path, sizeText(free), sizeText(total), writable ? t('yes') : t('no')]),
  );

const when = (seconds) => (seconds ? new Date(seconds * 1000).toLocaleString() : '');

function recent(list) {
  const rows = list.map(({ path, account, kind, time }) => [when(time), fileName(path), account, kind]);
  return rows.length > 0 ? [element('h2', {}, t('Recent streams')), table(t('Recent streams'), [t('When'), t('Film'), t('Account'), t('Kind')], rows)] : [];
}

function history(items, refresh) {
  const rows = items.map((item) => [
    when(item.time),
    element('a', { href: filmAddress(item) }, item.name || nameOf(item.encoded_path)),
    item.finished ? t('finished') : t('{time} of {duration}', { time: clockText(item.position), duration: clockText(item.duration) }),
    button(t('Remove'), item.name, () => act(() => forget(item.encoded_path), refresh)),
  ]);
  const all = element('button', { type: 'button', on: { click: () => act(() => forget(undefined), refresh) } }, t('Clear history'));
  return rows.length > 0 ? [element('h2', {}, t('Watch history')), table(t('Watch history'), [t('When'), t('Film'), t('Position'), t('Action')], rows), element('p', { class: 'actions' }, all)] : [];
}

// Other servers may make parts of the same films.
const others = ({ boxes }) =>
  boxes > 1 && element('p', {}, t('{count} servers share the films. This page shows one of them.', { count: boxes }));

function body(status, items, refresh) {
  return [
    others(status),
    element('h2', {}, t('Streams')),
    ...streamsOf(status, refresh),
    element('h2', {}, t('Limits')),
    limits(status),
    element('h2', {}, t('Disks')),
    volumes(status.volumes),
    ...recent(status.recent ?? []),
    ...history(items, refresh),
  ];
}

export async function statusView(_, signal) {
  const place = element('div');
  const refresh = async () => {
    const [status, items] = await Promise.all([get('Status', 'get', {}, undefined, { signal }), watched()]);
    if (!signal.aborted) {
      replaceContent(place, body(status, items, refresh));
    }
  };
  await keepFresh(refresh, signal);
  return { title: t('Server'), nodes: [element('h1', {}, t('Server')), place] };
}
