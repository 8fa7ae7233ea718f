// A control point for tests: finds a device in a local network and calls its actions.
import assert from 'node:assert/strict';
import dgram from 'node:dgram';
import { once } from 'node:events';

import { eventually } from './support.mjs';

const group = { address: '239.255.255.250', port: 1900 };
export const contentDirectory = 'urn:schemas-upnp-org:service:ContentDirectory:1';

const entities = { amp: '&', lt: '<', gt: '>', quot: '"', apos: "'" };
const plain = (text) => text.replace(/&(amp|lt|gt|quot|apos);/g, (_, name) => entities[name]);
const escaped = (text) => `${text}`.replaceAll('&', '&amp;').replaceAll('<', '&lt;');
export const elements = (xml, name) => [...xml.matchAll(new RegExp(`<${name}( [^>]*)?>(.*?)</${name}>`, 'gs'))].map(([, , text]) => plain(text));
const attribute = (tag, name) => plain(tag.match(new RegExp(` ${name}="([^"]*)"`))?.[1] ?? '');

// Asks the network of the address `from` for devices of this type until `device` (a UUID) answers. Returns the address of
// its description.
export async function find(device, { from = '127.0.0.1', type = 'MediaServer' } = {}) {
  const socket = dgram.createSocket({ type: 'udp4', reuseAddr: true });
  let found;
  socket.on('message', (message) => {
    const text = message.toString();
    if (text.includes(device)) found = text.match(/^location: *(\S+)/im)?.[1];
  });
  socket.bind(0, from);
  await once(socket, 'listening');
  socket.setMulticastInterface(from);
  const question = ['M-SEARCH * HTTP/1.1', `HOST: ${group.address}:${group.port}`, 'MAN: "ssdp:discover"', 'MX: 1', `ST: urn:schemas-upnp-org:device:${type}:1`, '', ''].join('\r\n');
  try {
    return await eventually(async () => {
      socket.send(question, group.port, group.address);
      // An answer comes within the second that the question names. Messages may get lost.
      await Promise.race([once(socket, 'message'), new Promise((resolve) => setTimeout(resolve, 1500))]);
      return found;
    });
  } finally {
    socket.close();
  }
}

export class ControlPoint {
  constructor(location) {
    this.location = location;
  }

  // Reads the device's description.
  static async open(device, network) {
    const point = new ControlPoint(await find(device, network));
    const response = await fetch(point.location);
    assert.equal(response.status, 200);
    point.description = await response.text();
    return point;
  }

  // The address of a kind ("SCPDURL", "controlURL", "eventSubURL") for a service.
  addressOf(service, kind) {
    const described = this.description.split('<service>').find((text) => text.includes(`<serviceType>${service}</serviceType>`));
    return new URL(elements(described, kind)[0], this.location).href;
  }

  // Calls an action. Returns its results by their names, with the HTTP status and, after a failure, `error`.
  async call(service, action, inputs = {}) {
    const given = Object.entries(inputs).map(([name, value]) => `<${name}>${escaped(value)}</${name}>`).join('');
    const body = `<?xml version="1.0"?><s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/" s:encodingStyle="http://schemas.xmlsoap.org/soap/encoding/"><s:Body><u:${action} xmlns:u="${service}">${given}</u:${action}></s:Body></s:Envelope>`;
    const headers = { 'content-type': 'text/xml; charset="utf-8"', soapaction: `"${service}#${action}"` };
    const response = await fetch(this.addressOf(service, 'controlURL'), { method: 'POST', headers, body });
    const text = await response.text();
    const results = Object.fromEntries([...text.matchAll(/<(\w+)>([^<]*)<\/\1>/g)].map(([, name, value]) => [name, plain(value)]));
    return { status: response.status, error: Number(elements(text, 'errorCode')[0] ?? 0), ...results };
  }

  // What is in an object, or with `self` the object: { total, objects: [{ kind, id, parent, title, forms, xml }] }.
  async browse(id, { self = false, start = 0, count = 0, filter = '*' } = {}) {
    const answer = await this.call(contentDirectory, 'Browse', { ObjectID: id, BrowseFlag: self ? 'BrowseMetadata' : 'BrowseDirectChildren', Filter: filter, StartingIndex: start, RequestedCount: count, SortCriteria: '' });
    assert.equal(answer.status, 200, `error ${answer.error}`);
    const objects = [...answer.Result.matchAll(/<(item|container)( [^>]*)>(.*?)<\/\1>/gs)].map(([, kind, tag, xml]) => ({
      kind,
      xml,
      id: attribute(tag, 'id'),
      parent: attribute(tag, 'parentID'),
      title: elements(xml, 'dc:title')[0],
      forms: [...xml.matchAll(/<res( [^>]*)>([^<]*)<\/res>/g)].map(([, form, address]) => ({ protocol: attribute(form, 'protocolInfo'), size: Number(attribute(form, 'size')), duration: attribute(form, 'duration'), address: plain(address) })),
    }));
    assert.equal(Number(answer.NumberReturned), objects.length);
    return { total: Number(answer.TotalMatches), objects };
  }
}
