#!/usr/bin/env python3
"""Looks at the pictures of every kind of stream: a circle stays a circle, a film begins with its first picture,
a high dynamic range becomes a standard one, and a turned film is upright.

Usage: pictures_test.py TRANSCODER PROFILES [TEST...]
"""
import collections
import itertools
import json

from streams import StreamTest, first_picture, main, make, output, roundness, spot

# --- Shape ---


def circle(size, shape):
    """A film of a circle. Its pixels are `shape` times as wide as high; None: it does not say."""
    source = f"nullsrc=s={size}:r=5:d=0.4,format=yuv420p,{spot(size, shape or 1)},setsar={shape or 0}:max=1000"
    return ["-f", "lavfi", "-i", source,
            "-f", "lavfi", "-i", "sine=440:r=48000:d=0.4", "-c:v", "libx264", "-preset", "ultrafast", "-c:a", "aac"]


Shape = collections.namedtuple("Shape", "name size pixel")
SHAPES = [
    Shape("old.flv", "640x480", None), Shape("wide.flv", "640x360", None), Shape("cinema.mkv", "752x320", None),
    Shape("upright.mp4", "360x640", None), Shape("old_square.mkv", "640x480", 1),
    Shape("old_pal.mkv", "720x576", 16 / 15), Shape("wide_pal.mkv", "720x576", 64 / 45),
    Shape("cinema_narrow.mp4", "640x360", 1.322), Shape("upright_narrow.mkv", "480x640", 0.75),
]
RESIZING = ("mp4", "wmv", "hls", "webm", "smooth")

# --- Rotation ---

# Only the left upper quarter of the card is bright. FFmpeg writes angles that count against the clock.
CARD = ["-f", "lavfi", "-i", "color=black:s=320x180:r=5:d=0.4,drawbox=w=160:h=90:c=white:t=fill", "-f", "lavfi", "-i",
        "sine=440:r=48000:d=0.4", "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-c:a", "aac"]
BRIGHT_CORNER = {90: "left lower", 180: "right lower", 270: "right upper"}
TURNING = ("mp4", "ts", "remux", "wmv", "hls", "webm", "smooth")


def bright_corner(path):
    """Where the player shows the bright quarter: it turns the picture as the stream tells."""
    luma = output(["ffmpeg", "-v", "error", "-i", path, "-map", "0:v", "-frames:v", "1", "-vf",
                   "scale=10:10:flags=area", "-pix_fmt", "gray", "-f", "rawvideo", "-"])
    places = {"left upper": 33, "right upper": 36, "left lower": 63, "right lower": 66}
    return " and ".join(name for name, place in places.items() if luma[place] > 127)


# --- The first picture ---

FIRST_LEVEL, LEVEL_STEP = 60, 6  # each picture of the first second is so much brighter
PIECES = ["-f", "lavfi", "-i", "nullsrc=s=64x48:r=25:d=2,format=yuv420p,"
          f"geq=lum='{FIRST_LEVEL}+{LEVEL_STEP}*min(N,25)':cb=128:cr=128",
          "-f", "lavfi", "-i", "sine=440:b=2:r=48000:d=2"]
H264 = ["-c:v", "libx264", "-preset", "ultrafast", "-bf", "2", "-g", "20", "-c:a", "aac"]
MPEG2 = ["-c:v", "mpeg2video", "-bf", "2", "-g", "20", "-c:a", "mp2"]
CONTAINERS = {
    "a.mp4": H264, "a.mkv": H264, "a.ts": H264, "mpeg2.ts": MPEG2, "a.mpg": MPEG2,
    "no_index.flv": H264, "index.flv": H264 + ["-flvflags", "add_keyframe_index"],
    "fragments.mp4": H264 + ["-movflags", "frag_keyframe+empty_moov"], "hour.ts": H264 + ["-output_ts_offset", "3601"],
    "a.avi": ["-c:v", "mpeg4", "-bf", "2", "-g", "20", "-c:a", "libmp3lame"],
    "a.webm": ["-c:v", "libvpx", "-deadline", "realtime", "-g", "20", "-c:a", "libvorbis"],
    "a.ogg": ["-c:v", "libtheora", "-g", "20", "-c:a", "libvorbis"],
    "a.wmv": ["-c:v", "wmv2", "-g", "20", "-c:a", "wmav2"],
}
STARTING = ("mp4", "remux", "hls", "webm", "smooth")
COPIED = {name for name, options in CONTAINERS.items() if options[1] == "libx264"}


# --- Tones ---

# Four patches as ten bits of luma, blue and red difference: the white of paper (203 nits), a dark grey (20 nits),
# a deep red and black.
Tones = collections.namedtuple("Tones", "name transfer patches options")
PQ = [(572, 512, 512), (378, 512, 512), (350, 420, 720), (64, 512, 512)]
HLG = [(721, 512, 512), (397, 512, 512), (330, 380, 750), (64, 512, 512)]
HEVC = ["-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=none"]
HIGH_10 = ["-c:v", "libx264", "-preset", "ultrafast"]
TONES = [Tones("pq.mp4", "smpte2084", PQ, HEVC), Tones("hlg.mkv", "arib-std-b67", HLG, HEVC),
         Tones("hlg.ts", "arib-std-b67", HLG, HEVC), Tones("pq.mkv", "smpte2084", PQ, HIGH_10),
         Tones("hlg.mov", "arib-std-b67", HLG, HIGH_10)]
# What may be seen of each patch, again as luma and differences, in eight bits.
SEEN = [((195, 225), (124, 132), (124, 132)), ((90, 135), (124, 132), (124, 132)),
        ((0, 120), (90, 125), (200, 255)), ((14, 20), (124, 132), (124, 132))]
ENCODING = ("mp4", "ts", "wmv", "hls", "webm", "smooth")
UNTAGGED = {"wmv"}  # nothing in these streams can say it


def tones(film):
    """A film of four patches, one in each quarter."""
    def plane(row):
        a, b, c, d = (patch[row] for patch in film.patches)
        return f"'if(lt(Y,H/2),if(lt(X,W/2),{a},{b}),if(lt(X,W/2),{c},{d}))'"

    picture = (f"nullsrc=s=320x180:r=5:d=0.4,format=yuv420p10le,geq=lum={plane(0)}:cb={plane(1)}:cr={plane(2)},"
               f"setparams=range=tv:color_primaries=bt2020:color_trc={film.transfer}:colorspace=bt2020nc")
    return ["-f", "lavfi", "-i", picture, "-f", "lavfi", "-i", "sine=440:r=48000:d=0.4", *film.options,
            "-color_primaries", "bt2020", "-color_trc", film.transfer, "-colorspace", "bt2020nc", "-color_range", "tv",
            "-c:a", "aac"]


def tags(path):
    shown = "stream=color_transfer,color_primaries,color_space,pix_fmt"
    text = output(["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", shown, "-of", "json", path])
    return json.loads(text)["streams"][0]


def seen_patches(path):
    """The middle of each quarter."""
    picture = first_picture(path)
    width, height = picture.width, picture.height
    data = output(["ffmpeg", "-v", "error", "-i", path, "-map", "0:v", "-frames:v", "1", "-pix_fmt", "yuv444p", "-f",
                   "rawvideo", "-"])
    places = [int(y * height) * width + int(x * width) for y, x in itertools.product((0.35, 0.65), (0.25, 0.75))]
    return [[data[plane * width * height + place] for plane in range(3)] for place in places]


def tone_faults(path, kind):
    found = seen_patches(path)
    if not all(low <= value <= high for patch, bounds in zip(found, SEEN)
               for value, (low, high) in zip(patch, bounds)):
        yield f"patches {found}"
    stated = tags(path)
    colors = {stated.get(name) for name in ("color_transfer", "color_primaries", "color_space")}
    if stated["pix_fmt"] != "yuv420p" or (kind not in UNTAGGED and colors != {"bt709"}):
        yield f"tagged {stated}"


def level(picture):
    return sum(picture.luma) / len(picture.luma)


class Pictures(StreamTest):
    def begin(self, kind, film, extra=()):
        return first_picture(self.stream(kind, film, extra=extra))

    def test_a_circle_stays_a_circle(self):
        films = {shape.name: make(self.folder / shape.name, *circle(shape.size, shape.pixel)) for shape in SHAPES}

        def check(case):
            kind, name, extra = case
            found = roundness(self.begin(kind, films[name], extra))
            return None if abs(found - 1) <= 0.02 else f"{kind} {name} {extra}: {found:.3f}"

        # The library adds the option to some sizes.
        cases = [(kind, name, ()) for kind, name in itertools.product(RESIZING, films)]
        self.judge(check, cases + [("hls", name, ("-aspect", "1.77778")) for name in films])

    def test_a_film_begins_with_its_first_picture(self):
        films = {name: make(self.folder / name, *PIECES, *options, "-pix_fmt", "yuv420p")
                 for name, options in CONTAINERS.items()}

        def check(case):
            kind, name = case
            found = level(self.begin(kind, films[name]))
            wanted = level(first_picture(films[name]))
            return None if abs(found - wanted) < LEVEL_STEP / 2 else f"{kind} {name}: {found:.1f}, not {wanted:.1f}"

        self.judge(check, [(kind, name) for kind, name in itertools.product(STARTING, films)
                           if kind != "remux" or name in COPIED])

    def test_a_turned_film_is_upright(self):
        card = make(self.folder / "card.mp4", *CARD)
        films = {turn: make(self.folder / f"card{turn}.mp4", "-i", card, "-c", "copy",
                            "-metadata:s:v", f"rotate={turn}") for turn in BRIGHT_CORNER}

        def check(case):
            kind, turn = case
            shown = bright_corner(films[turn])
            found = bright_corner(self.stream(kind, films[turn]))
            return None if found == shown else f"{kind} {turn}: {found}, not {shown}"

        self.assertEqual({turn: bright_corner(film) for turn, film in films.items()}, BRIGHT_CORNER)
        self.judge(check, itertools.product(TURNING, films))

    def test_a_high_dynamic_range_becomes_a_standard_one(self):
        films = {film.name: make(self.folder / film.name, *tones(film)) for film in TONES}

        def check(case):
            kind, name = case
            path = self.stream(kind, films[name])
            return [f"{kind} {name}: {fault}" for fault in tone_faults(path, kind)]

        self.judge(check, itertools.product(ENCODING, films))


if __name__ == "__main__":
    main()
