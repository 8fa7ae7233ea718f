"""What is in a fragment, and how to get one: shared by the tests of fragments."""
import collections
import os
import pathlib
import re
import struct
import subprocess

TICKS = 10_000_000
LENGTH = 5
NAME = re.compile(r"Fragments\((video|audio)=(\d+)\)")

Sample = collections.namedtuple("Sample", "time duration is_key data")
Fragment = collections.namedtuple("Fragment", "boxes number samples")


def boxes(data, start=0, end=None):
    end = len(data) if end is None else end
    while start < end:
        size, kind = struct.unpack_from(">I4s", data, start)
        yield kind.decode(), start + 8, start + size
        start += size


def inside(data, *path):
    """Where the content of a nested box starts and ends."""
    start, end = 0, len(data)
    for name in path:
        start, end = next((s, e) for kind, s, e in boxes(data, start, end) if kind == name)
    return start, end


def parse(data):
    """A fragment, the way a client reads it."""
    number = struct.unpack_from(">I", data, inside(data, "moof", "mfhd")[0] + 4)[0]
    time = struct.unpack_from(">Q", data, inside(data, "moof", "traf", "tfdt")[0] + 4)[0]
    position, default = inside(data, "moof", "traf", "tfhd")[0], {}
    flags = struct.unpack_from(">I", data, position)[0] & 0xFFFFFF
    position += 8
    for bit, name, size in ((1, "base", 8), (2, "index", 4), (8, "duration", 4), (16, "size", 4),
                            (32, "flags", 4)):
        if flags & bit:
            default[name] = int.from_bytes(data[position:position + size], "big")
            position += size
    position = inside(data, "moof", "traf", "trun")[0]
    flags, count = struct.unpack_from(">II", data, position)
    position, flags = position + 8, flags & 0xFFFFFF
    offset = struct.unpack_from(">i", data, position)[0]
    position += 4
    first = None
    if flags & 4:
        first, position = struct.unpack_from(">I", data, position)[0], position + 4
    samples = []
    for i in range(count):
        row = dict(default)
        for bit, name in ((0x100, "duration"), (0x200, "size"), (0x400, "flags"), (0x800, "shift")):
            if flags & bit:
                row[name] = struct.unpack_from(">I", data, position)[0]
                position += 4
        assert not row.get("shift"), "shown in another order than stored"
        mark = first if first is not None and i == 0 else row["flags"]
        samples.append(Sample(time, row["duration"], not mark & 0x10000, data[offset:offset + row["size"]]))
        time, offset = time + row["duration"], offset + row["size"]
    return Fragment([kind for kind, _, _ in boxes(data)], number, samples)


def annex_b(samples):
    """The pictures as a decoder takes them."""
    out = bytearray()
    for sample in samples:
        position = 0
        while position < len(sample.data):
            size = struct.unpack_from(">I", sample.data, position)[0]
            out += b"\0\0\0\1" + sample.data[position + 4:position + 4 + size]
            position += 4 + size
    return bytes(out)


def adts(samples):
    """The sound as a decoder takes it: AAC-LC, 48 kHz, stereo."""
    out = bytearray()
    for sample in samples:
        size = len(sample.data) + 7
        out += bytes([0xFF, 0xF1, 0x4C, 0x80 | size >> 11, size >> 3 & 0xFF, (size & 7) << 5 | 0x1F, 0xFC])
        out += sample.data
    return bytes(out)


class Run:
    """One start of the transcoder, the way the library starts it."""

    def __init__(self, transcoder, film, folder, arguments, start=0, seconds=None, maps=(), length=LENGTH):
        self.folder, self.length = pathlib.Path(folder), length
        self.folder.mkdir()
        if seconds:
            text = f'<?xml version="1.0"?>\n<SmoothStreamingMedia MajorVersion="2" Duration="{seconds * TICKS}">\n'
            (self.folder / "manifest_predict").write_text(text)
        self.command = [transcoder, "-ss", f"{start}.000", "-i", film, *arguments, "-fragment_length",
                        f"{length}", "-seek_time", f"{start}", *maps, f"{self.folder}/smooth"]

    def start(self):
        self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.PIPE, text=True)
        return self

    def finish(self):
        self.start()
        error = self.process.communicate()[1]
        assert self.process.returncode == 0, f"exit {self.process.returncode}: {error}"
        return self

    def files(self):
        found = {}
        for path in self.folder.glob("smooth/*/*"):
            match = NAME.fullmatch(path.name.removesuffix(".next"))
            assert match, path
            if path.suffix == ".next":
                continue
            found[match[1], int(match[2]) / (self.length * TICKS)] = path
        return dict(sorted(found.items()))

    def numbers(self, track="video"):
        return [number for kind, number in self.files() if kind == track]

    def announced(self, track):
        """The number that is told to come next."""
        return [int(NAME.fullmatch(path.stem)[2]) // (self.length * TICKS)
                for path in self.folder.glob(f"smooth/*/Fragments({track}=*.next")]

    def fragments(self):
        return {key: parse(path.read_bytes()) for key, path in self.files().items()}


def samples_of(fragments, track):
    return [sample for key, fragment in fragments.items() if key[0] == track for sample in fragment.samples]


def sized(arguments, size):
    """The profile's arguments with the size that the library puts in."""
    words = arguments.split(" ")
    words[words.index("-s") + 1] = size
    return words


def run_binary(command, data=None):
    return subprocess.run(command, input=data, capture_output=True, check=True).stdout


def make(path, *options):
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *options, path], check=True)
    return os.fspath(path)
