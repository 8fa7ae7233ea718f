"""Makes a film's stream of each kind, and looks at it: shared by the tests of films."""
import collections
import concurrent.futures
import itertools
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.append(os.fspath(pathlib.Path(__file__).parent.parent / "transcoder"))
from fragments import Run, adts, annex_b, make, sized  # noqa: E402,F401

WORKERS = 2
SMOOTH_SIZE = "320x240"  # as the library puts it in

# The kinds of streams, by the profile of each that encodes the least.
KEYS = {
    "mp4": "http_mp4_240p_vb300_ab96",
    "ts": "http_ts_240p_vb300_ab96",
    "wmv": "http_wmv_480p_vb1200_ab128",
    "remux": "http_mp4_remux",
    "hls": "hls_240p_vb300_ab96",
    "webm": "webm_240p_vb300_ab96",
    "smooth": "smoothstreaming_240p_x264_vb320_vf15_aac_ab40",
}
# Kinds that state the times of the film's own clock.
KEEPING_CLOCK = ("mp4", "ts", "remux")

Picture = collections.namedtuple("Picture", "width height shape luma")  # shape of a pixel, bytes


class Programs:
    """Set from the command line."""
    transcoder = profiles = ""

    @classmethod
    def take(cls, arguments):
        cls.transcoder, cls.profiles = arguments.pop(1), arguments.pop(1)


def output(command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, check=True).stdout


def arguments_of(kind, key=""):
    return json.loads(pathlib.Path(Programs.profiles, "x86_2.json").read_text())[key or KEYS[kind]]


def smooth_run(film, folder, words):
    run = Run(Programs.transcoder, film, folder / "run", sized(" ".join(words), SMOOTH_SIZE)).finish()
    run.process.stderr.close()
    return run.fragments()


def first_fragment(film, folder, words, track="video"):
    """The pictures, or the sound, of the first fragment as a decoder takes them."""
    samples = smooth_run(film, folder, words)[track, 0].samples
    path = folder / f"{track}.stream"
    path.write_bytes(annex_b(samples) if track == "video" else adts(samples))
    return path


def transcode(kind, film, folder, extra=(), track="video", key=""):
    """The stream's beginning as a file, made the way the library does it. `track` is what is looked at."""
    folder.mkdir()
    words = [*arguments_of(kind, key).split(" "), *extra]
    if kind == "smooth":
        return first_fragment(film, folder, words, track)
    start = ["-ss", "0.000", *(["-copyts"] if kind in KEEPING_CLOCK else [])]
    if kind == "hls":
        cut = ["-hls_seek_time", "0", "-segment_time", "5", "-segment_start_number", "0"]
        output([Programs.transcoder, *start, "-i", film, *words, *cut, folder / "slice-%05d.ts"])
        return folder / "slice-00000.ts"
    # Copies are made by libavformat alone where the tracks are named.
    more = {"webm": ["-webm_seek_time", "0"], "remux": ["-map", "0:v", "-map", "0:a?"]}.get(kind, [])
    path = folder / "stream"
    path.write_bytes(output([Programs.transcoder, *start, "-i", film, *words, *more, "pipe:1"]))
    return path


# --- Looking at a stream ---

def probe(path, shown, which="v"):
    """Facts of the first track of a kind; nothing without one."""
    text = output(["ffprobe", "-v", "error", "-select_streams", which, "-show_entries", f"stream={shown}", "-of",
                   "json", path])
    return next(iter(json.loads(text).get("streams", [])), {})


def pixel_shape(stream):
    text = stream.get("sample_aspect_ratio", "1:1")
    width, height = (int(part) for part in text.split(":"))
    return width / height if width and height else 1


def decoded(path, *options):
    return output(["ffmpeg", "-v", "error", "-i", path, *options, "-"])


def first_picture(path):
    stream = probe(path, "width,height,sample_aspect_ratio")
    luma = decoded(path, "-map", "0:v", "-frames:v", "1", "-pix_fmt", "gray", "-f", "rawvideo")
    return Picture(stream["width"], stream["height"], pixel_shape(stream), luma)


BRIGHT = bytes(1 if level > 127 else 0 for level in range(256))


def spread(counts):
    """The standard deviation of places, of which each is counted so often."""
    total = sum(counts)
    middle = sum(place * count for place, count in enumerate(counts)) / total
    return (sum((place - middle) ** 2 * count for place, count in enumerate(counts)) / total) ** 0.5


def roundness(picture):
    """How much wider than high the bright spot is shown."""
    bright = picture.luma.translate(BRIGHT)
    columns = [sum(bright[x::picture.width]) for x in range(picture.width)]
    rows = [sum(bright[y * picture.width:(y + 1) * picture.width]) for y in range(picture.height)]
    return spread(columns) * picture.shape / spread(rows)


def spot(size, pixel=1.0):
    """A filter that draws a bright circle, whose pixels are `pixel` times as wide as high."""
    width, height = (int(side) for side in size.split("x"))
    radius = 0.4 * min(width * pixel, height)
    return f"geq=lum='if(lt(hypot((X-W/2)*{pixel},Y-H/2),{radius}),235,16)':cb=128:cr=128"


class StreamTest(unittest.TestCase):
    """Has a folder of its own, which is the system root too."""

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        os.environ["ORVO_SYSROOT"] = str(cls.folder)
        cls.counter = itertools.count()

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def stream(self, kind, film, **options):
        return transcode(kind, film, self.folder / f"run{next(self.counter)}", **options)

    def judge(self, check, cases):
        """`check` tells what is wrong with a case."""
        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            self.assertEqual([found for found in pool.map(check, cases) if found], [])


def main():
    Programs.take(sys.argv)
    unittest.main(module="__main__")
