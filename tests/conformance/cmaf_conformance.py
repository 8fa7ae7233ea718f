#!/usr/bin/env python3
"""Checks a CMAF presentation on any server: playlists, manifest, headers and segments.

Usage: cmaf_conformance.py [--times FILE] [--same FILE] [--segments N] [--backwards] URL [MANIFEST]

URL is an HLS multivariant playlist, MANIFEST the DASH manifest of the same segments. With --times the
program writes the times of all segments into FILE; with --same it compares them with such a file, which
another run, server or day has written. --segments checks only the first N segments of each rendition.
--backwards asks for the last segment first, so that a server that makes segments on demand makes each one in
a run of its own.
Prints one line for each fault. The exit status is 1 if there is any.
"""
import argparse
import json
import re
import struct
import sys
import urllib.parse
import urllib.request
import xml.etree.ElementTree as xml

MPD = '{urn:mpeg:dash:schema:mpd:2011}'
CONTAINERS = {b'moov', b'trak', b'mdia', b'minf', b'stbl', b'edts', b'mvex', b'moof', b'traf'}


class Fault(Exception):
    """A presentation that breaks a rule."""


def fetch(url):
    with urllib.request.urlopen(url, timeout=90) as answer:
        return answer.read(), answer.headers


def boxes(data, start=0, end=None):
    """The boxes of a part of `data`: type, start of the content, end."""
    end = len(data) if end is None else end
    while start < end:
        if end - start < 8:
            raise Fault('a box is cut off')
        size, kind = struct.unpack_from('>I4s', data, start)
        if size < 8 or start + size > end:
            raise Fault(f'the box {kind!r} is longer than what it is in')
        yield kind, start + 8, start + size
        start += size


def find(data, *path, start=0, end=None):
    """The start and end of the content of the first box with this path."""
    for kind, inside, after in boxes(data, start, end):
        if kind == path[0]:
            return (inside, after) if len(path) == 1 else find(data, *path[1:], start=inside, end=after)
    return None


def need(data, *path, start=0, end=None):
    found = find(data, *path, start=start, end=end)
    if found is None:
        raise Fault('there is no box ' + '/'.join(part.decode() for part in path))
    return found


class Header:
    """A header: the clock of its track, its kind and the start-up delay."""

    def __init__(self, data):
        order = [kind for kind, _, _ in boxes(data)]
        if order[:1] != [b'ftyp'] or b'moov' not in order or b'moof' in order:
            raise Fault(f'a header has the boxes {order}')
        start, end = need(data, b'ftyp')
        if b'cmfc' not in [data[i:i + 4] for i in range(start, end, 4)]:
            raise Fault('the header does not have the brand cmfc')
        tracks = [inside for kind, inside, _ in boxes(data, *need(data, b'moov')) if kind == b'trak']
        if len(tracks) != 1:
            raise Fault(f'the header has {len(tracks)} tracks')
        start, _ = need(data, b'moov', b'trak', b'mdia', b'mdhd')
        self.clock = struct.unpack_from('>I', data, start + (20 if data[start] == 1 else 12))[0]
        start, _ = need(data, b'moov', b'trak', b'mdia', b'hdlr')
        self.is_picture = data[start + 8:start + 12] == b'vide'
        start, end = need(data, b'moov', b'trak', b'mdia', b'minf', b'stbl', b'stsd')
        self.check_flac(data, start + 8, end)
        need(data, b'moov', b'mvex', b'trex')
        self.delay = 0
        edits = find(data, b'moov', b'trak', b'edts', b'elst')
        if edits:
            count = struct.unpack_from('>I', data, edits[0] + 4)[0]
            if count != 1 or data[edits[0]] != 0:
                raise Fault('the edit list is not one short entry')
            self.delay = struct.unpack_from('>Ii', data, edits[0] + 8)[1]
            if self.delay < 0:
                raise Fault('the edit list begins with a gap')

    @staticmethod
    def check_flac(data, start, end):
        """The sample size of the entry is that of the codec's own description; browsers compare them."""
        entry = find(data, b'fLaC', start=start, end=end)
        if entry is None:
            return
        info, _ = need(data, b'dfLa', start=entry[0] + 28, end=entry[1])
        info += 8  # version, flags and the head of the block
        coded = ((data[info + 12] & 1) << 4 | data[info + 13] >> 4) + 1
        stated = struct.unpack_from('>H', data, entry[0] + 18)[0]
        if stated != coded:
            raise Fault(f'the entry of FLAC states {stated} bits instead of {coded}')


class Segment:
    """A segment: the times of its frames in ticks of the track. Presentation times have the delay taken off."""

    def __init__(self, data, header):
        self.chunks = []
        self.shown = []
        self.first_is_key = True
        self.start = self.end = None
        pending = None
        for kind, inside, after in boxes(data):
            if kind == b'moof':
                if pending is not None:
                    raise Fault('a moof follows a moof')
                pending = self.read_fragment(data, inside, after, inside - 8, header)
            elif kind == b'mdat':
                if pending is None:
                    raise Fault('an mdat has no moof')
                if pending != after:
                    raise Fault('the samples do not fill their mdat')
                pending = None
            elif kind not in (b'styp', b'sidx', b'emsg', b'prft'):
                raise Fault(f'the segment has a box {kind!r}')
        if pending is not None or self.start is None:
            raise Fault('the segment does not end with an mdat')

    def read_fragment(self, data, start, end, moof, header):
        inside, after = need(data, b'traf', start=start, end=end)
        head, _ = need(data, b'tfhd', start=inside, end=after)
        flags = struct.unpack_from('>I', data, head)[0] & 0xffffff
        if not flags & 0x020000:
            raise Fault('the base of a fragment is not its moof')
        place = head + 8
        default = {}
        for bit, name in ((1, 'base'), (2, 'description'), (8, 'duration'), (16, 'size'), (32, 'flags')):
            if flags & bit:
                default[name] = struct.unpack_from('>I', data, place)[0]
                place += 8 if bit == 1 else 4
        base, _ = need(data, b'tfdt', start=inside, end=after)
        time = struct.unpack_from('>Q' if data[base] == 1 else '>I', data, base + 4)[0]
        if time >= 1 << 62:
            raise Fault('a decode time is negative')
        if self.end is not None and time != self.end:
            raise Fault(f'a chunk begins at {time}, the one before ends at {self.end}')
        if self.start is None:
            self.start = time
        return self.read_run(data, inside, after, moof, header, time, default)

    def read_run(self, data, inside, after, moof, header, time, default):
        run, _ = need(data, b'trun', start=inside, end=after)
        version, flags = data[run], struct.unpack_from('>I', data, run)[0] & 0xffffff
        count = struct.unpack_from('>I', data, run + 4)[0]
        place = run + 8
        offset = 0
        if flags & 1:
            offset = struct.unpack_from('>i', data, place)[0]
            place += 4
        first = None
        if flags & 4:
            first = struct.unpack_from('>I', data, place)[0]
            place += 4
        begin, size_sum = time, 0
        for number in range(count):
            values = dict(default)
            for bit, name in ((0x100, 'duration'), (0x200, 'size'), (0x400, 'flags')):
                if flags & bit:
                    values[name] = struct.unpack_from('>I', data, place)[0]
                    place += 4
            later = 0
            if flags & 0x800:
                later = struct.unpack_from('>i' if version else '>I', data, place)[0]
                place += 4
                if later < 0 or later >= 1 << 31:
                    raise Fault('a composition offset is negative')
            if number == 0 and first is not None:
                values['flags'] = first
            if not self.shown:
                self.first_is_key = not values.get('flags', 0) & 0x10000
            self.shown.append((time + later - header.delay, values['duration']))
            time += values['duration']
            size_sum += values['size']
        self.chunks.append((time - begin) / header.clock)
        self.end = time
        return moof + offset + size_sum


class Presentation:
    """What the playlists say: renditions with header and segments' addresses, and the plan."""

    def __init__(self, url):
        self.renditions = {}
        text = fetch(url)[0].decode()
        lines = text.splitlines()
        if lines[0] != '#EXTM3U':
            raise Fault('the playlist does not begin with #EXTM3U')
        names = re.findall(r'TYPE=AUDIO.*?URI="([^"]*)"', text)
        for before, line in zip(lines, lines[1:]):
            if before.startswith('#EXT-X-STREAM-INF'):
                if 'CODECS="' not in before or 'BANDWIDTH=' not in before:
                    raise Fault('a variant states no codecs or no bandwidth')
                names.append(line)
        groups = set(re.findall(r'TYPE=AUDIO,GROUP-ID="([^"]*)"', text))
        for group in re.findall(r'AUDIO="([^"]*)"', text):
            if group not in groups:
                raise Fault(f'there is no audio group {group}')
        for name in dict.fromkeys(names):
            self.read_playlist(urllib.parse.urljoin(url, name))
        if not self.renditions:
            raise Fault('the playlist names no renditions')
        spans = {json.dumps(rendition['spans']) for rendition in self.renditions.values()}
        if len(spans) != 1:
            raise Fault('the renditions have different plans')

    def read_playlist(self, url):
        text = fetch(url)[0].decode()
        for tag in ('#EXT-X-INDEPENDENT-SEGMENTS', '#EXT-X-ENDLIST', '#EXT-X-PLAYLIST-TYPE:VOD'):
            if tag not in text:
                raise Fault(f'{url} has no {tag}')
        target = int(re.search(r'#EXT-X-TARGETDURATION:(\d+)', text)[1])
        spans = [float(length) for length in re.findall(r'#EXTINF:([\d.]+)', text)]
        if any(round(length) > target for length in spans):
            raise Fault(f'{url} has a segment longer than its target duration')
        header = re.search(r'#EXT-X-MAP:URI="([^"]*)"', text)[1]
        self.renditions[url] = {
            'header': urllib.parse.urljoin(url, header),
            'segments': [urllib.parse.urljoin(url, line) for line in text.splitlines() if line[:1] not in ('#', '')],
            'spans': spans,
        }


def check_manifest(url, presentation):
    """The manifest must name the same headers and segments."""
    root = xml.fromstring(fetch(url)[0])
    named = {}
    for group in root.iter(MPD + 'AdaptationSet'):
        for representation in group.iter(MPD + 'Representation'):
            template = group.find(MPD + 'SegmentTemplate')
            if template is None:
                continue
            clock = int(template.get('timescale'))
            lengths, time = [], 0
            for line in template.iter(MPD + 'S'):
                if int(line.get('t', time)) != time:
                    raise Fault('the timeline has a gap')
                for _ in range(int(line.get('r', 0)) + 1):
                    lengths.append(int(line.get('d')) / clock)
                    time += int(line.get('d'))
            first = int(template.get('startNumber', 1))

            def expand(text, number=0):
                text = text.replace('$RepresentationID$', representation.get('id'))
                return urllib.parse.urljoin(url, text.replace('$Number$', str(number)))
            named[expand(template.get('initialization'))] = (
                [expand(template.get('media'), first + i) for i in range(len(lengths))], lengths)
    for rendition in presentation.renditions.values():
        segments, lengths = named.pop(rendition['header'], ([], []))
        if segments != rendition['segments']:
            raise Fault(f'the manifest lacks {rendition["header"]} or has other segments')
        if any(abs(one - other) > 0.001 for one, other in zip(lengths, rendition['spans'])):
            raise Fault('the manifest has another plan')
    if named:
        raise Fault(f'the playlist lacks {next(iter(named))}')


class Checker:
    """Checks the headers and segments of a presentation and collects faults."""

    def __init__(self, presentation, limit):
        self.presentation = presentation
        self.limit = limit
        self.faults = []
        self.times = {}

    def complain(self, place, fault):
        self.faults.append(f'{place}: {fault}')

    def check(self):
        delays = set()
        for name, rendition in self.presentation.renditions.items():
            try:
                header = Header(fetch(rendition['header'])[0])
            except (Fault, OSError) as fault:
                self.complain(rendition['header'], fault)
                continue
            if header.is_picture:
                delays.add(header.delay / header.clock)
            self.check_segments(name, rendition, header)
        if len(delays) > 1:
            self.complain('the headers', f'the start-up delays differ: {sorted(delays)}')

    def fetch_backwards(self):
        for rendition in self.presentation.renditions.values():
            for url in reversed(rendition['segments'][:self.limit]):
                fetch(url)

    def check_segments(self, name, rendition, header):
        start, expected, has_any = 0.0, None, False
        times = self.times.setdefault(re.search(r'rendition=([^&]*)|$', name)[1] or name, [])
        for url, span in list(zip(rendition['segments'], rendition['spans']))[:self.limit]:
            try:
                data, headers = fetch(url)
                segment = Segment(data, header)
                self.check_segment(url, segment, header, start, span, url == rendition['segments'][-1])
                self.check_again(url, data, headers)
                tolerance = header.clock // 500
                if not header.is_picture and expected is not None and abs(segment.start - expected) > tolerance:
                    self.complain(url, f'begins at {segment.start}, the one before ends at {expected}')
                expected = segment.end if segment.shown else None
                has_any = has_any or bool(segment.shown)
                times.append([segment.start, segment.end])
            except (Fault, OSError) as fault:
                self.complain(url, fault)
            start += span
        if not has_any:
            self.complain(name, 'has neither pictures nor sound in any segment')

    def check_segment(self, url, segment, header, start, span, is_last):
        begin, end = segment.start / header.clock, segment.end / header.clock
        if any(length > 0.501 for length in segment.chunks[:-1]) and len(segment.shown) > len(segment.chunks):
            self.complain(url, f'a chunk has {max(segment.chunks):.3f} s')
        if header.is_picture:
            if abs(begin - start) > 0.001 or abs(end - start - span) > 0.001:
                self.complain(url, f'covers {begin:.4f} to {end:.4f}, not {start:.4f} to {start + span:.4f}')
            if not segment.first_is_key:
                self.complain(url, 'does not begin with a key frame')
            self.check_pictures(url, segment, header, start, span)
        elif segment.shown:
            frame = max(length for _, length in segment.shown) / header.clock
            # The last sound may end before the last picture.
            is_late = end - start - span > frame or (end - start - span < -frame and not is_last)
            if abs(begin - start) > frame or is_late:
                self.complain(url, f'covers {begin:.4f} to {end:.4f}, not {start:.4f} to {start + span:.4f}')

    def check_pictures(self, url, segment, header, start, span):
        shown = sorted(time for time, _ in segment.shown)
        if len(set(shown)) != len(shown):
            self.complain(url, 'shows two pictures at one time')
        if abs(shown[0] / header.clock - start) > 0.001:
            self.complain(url, f'shows its first picture at {shown[0] / header.clock:.4f}, not {start:.4f}')
        if shown[-1] / header.clock > start + span:
            self.complain(url, 'shows a picture after its end')

    def check_again(self, url, data, headers):
        """A complete segment has a length, a tag and ranges."""
        again, headers = fetch(url)
        if again != data:
            self.complain(url, 'has other bytes the second time')
        if 'Content-Length' not in headers or 'ETag' not in headers:
            self.complain(url, 'is complete and has no Content-Length or no ETag')
        part = urllib.request.Request(url, headers={'Range': 'bytes=8-15'})
        with urllib.request.urlopen(part, timeout=90) as answer:
            if answer.status != 206 or answer.read() != data[8:16]:
                self.complain(url, 'does not send a range')


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--times')
    parser.add_argument('--same')
    parser.add_argument('--segments', type=int)
    parser.add_argument('--backwards', action='store_true')
    parser.add_argument('url')
    parser.add_argument('manifest', nargs='?')
    options = parser.parse_args()
    checker = None
    faults = []
    try:
        presentation = Presentation(options.url)
        if options.manifest:
            check_manifest(options.manifest, presentation)
        checker = Checker(presentation, options.segments)
        if options.backwards:
            checker.fetch_backwards()
        checker.check()
        faults = checker.faults
    except (Fault, OSError) as fault:
        faults = [f'{options.url}: {fault}']
    times = checker.times if checker else {}
    if options.times:
        with open(options.times, 'w', encoding='utf-8') as file:
            json.dump(times, file)
    if options.same:
        with open(options.same, encoding='utf-8') as file:
            for name, other in json.load(file).items():
                if name in times and times[name] != other:
                    faults.append(f'{name}: its segments have other times than before')
    print('\n'.join(faults) if faults else f'{len(times)} renditions conform')
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
