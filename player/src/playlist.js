// Playlists for other players. A name may contain anything; it stays text in one line.
const LINE_BREAKS = /[\p{Cc}\u2028\u2029]/gu;
const NOT_IN_XML = /[^\t\n\r\u0020-\ud7ff\ue000-\ufffd\u{10000}-\u{10ffff}]/gu;
const ENTITIES = { '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' };

const inLine = (text) => text.replace(LINE_BREAKS, ' ');
const inXml = (text) => inLine(text).replace(NOT_IN_XML, '\ufffd').replace(/[&<>"]/g, (sign) => ENTITIES[sign]);

// `items`: [{ title, seconds, address }]; `seconds` may be missing.
export function m3u(items) {
  const lines = items.flatMap(({ title, seconds = -1, address }) => [`#EXTINF:${seconds},${inLine(title)}`, inLine(address)]);
  return `${['#EXTM3U', ...lines].join('\n')}\n`;
}

export function xspf(items, name) {
  const track = ({ title, seconds, address }) =>
    `<track><location>${inXml(address)}</location><title>${inXml(title)}</title>${seconds === undefined ? '' : `<duration>${seconds * 1000}</duration>`}</track>`;
  const head = '<?xml version="1.0" encoding="UTF-8"?>\n<playlist version="1" xmlns="http://xspf.org/ns/0/">';
  return `${head}\n<title>${inXml(name)}</title>\n<trackList>\n${items.map(track).join('\n')}\n</trackList>\n</playlist>\n`;
}

// The forms in which a playlist can be saved: the ending of the file, its media type and its text.
export const FORMS = {
  m3u: { type: 'audio/x-mpegurl', write: m3u },
  xspf: { type: 'application/xspf+xml', write: xspf },
};
