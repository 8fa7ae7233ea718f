#!/usr/bin/env python3
"""Cuts films into segments from several starting points and compares what comes out.

Usage: segments_test.py TRANSCODER PROFILES [NAME...]

A run over the whole film is the measure. A run that starts at segment N must give the same segments:
the first picture at the same time, sound within one frame, key frame first, parameter sets in it.
Segments of different runs, one behind the other, must decode without a word. NAME chooses films.
Exits with 1 and says why when something is wrong.
"""
import collections
import concurrent.futures
import functools
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

DELAY = 1.4  # what the multiplexer adds to every time, in every run
TRANSCODED, REMUXED = 5, 8  # seconds
WORKERS = 2

TICK = 1 / 90000
DIFFERENCE = 24  # of 255, between two encodings of a picture shrunk to a thumbnail
REORDERED = 4  # pictures: a stored one may be shown so many after the one that is stored next
ROUNDING = 0.0011  # films that count in milliseconds

Film = collections.namedtuple("Film", "name options rate starts", defaults=((2,),))
Packet = collections.namedtuple("Packet", "kind pts duration is_key size")


def pictures(rate, seconds=13, size="160x120"):
    return ["-f", "lavfi", "-i", f"testsrc2=s={size}:r={rate}:d={seconds}"]


def sound(seconds=13):
    return ["-f", "lavfi", "-i", f"sine=440:b=2:r=48000:d={seconds}"]


X264 = ["-c:v", "libx264", "-preset", "ultrafast"]
B_FRAMES = X264 + ["-bf", "3", "-g", "100"]
OPEN_GOPS = B_FRAMES + ["-x264opts", "open-gop=1:keyint=36", "-preset", "veryfast"]
AAC = ["-c:a", "aac"]
MPEG2 = ["-c:v", "mpeg2video", "-b:v", "1M", "-bf", "2", "-c:a", "mp2"]
UNEVEN = "select='not(between(mod(n,11),3,5))'"

# Each is made in a fraction of a second.
FILMS = [
    Film("film.mkv", pictures("24000/1001") + sound() + B_FRAMES + AAC, 24000 / 1001),
    Film("cinema.mp4", pictures(24) + sound() + OPEN_GOPS + AAC, 24, (2,)),
    Film("pal.mp4", pictures(25) + sound() + B_FRAMES + AAC, 25, (1, 2)),
    Film("ntsc.mkv", pictures("30000/1001") + sound() + OPEN_GOPS + ["-c:a", "ac3"], 30000 / 1001),
    Film("fifty.mp4", pictures(50) + sound() + B_FRAMES + AAC, 50),
    Film("sixty.mkv", pictures(60) + sound() + B_FRAMES + ["-c:a", "libmp3lame"], 60),
    Film("uneven.mkv", pictures(25) + sound() + ["-vf", UNEVEN, "-fps_mode", "vfr"] + B_FRAMES + AAC,
         25 / 4),
    Film("slides.mkv", pictures(1) + sound() + X264 + AAC, 1),
    Film("interlaced.ts", pictures(25) + sound() + MPEG2 + ["-flags", "+ildct+ilme", "-g", "12"], 25),
    Film("hour.ts", pictures(25) + sound() + OPEN_GOPS + AAC + ["-output_ts_offset", "3601"], 25),
    Film("turn.ts", pictures(25) + sound() + B_FRAMES + AAC + ["-output_ts_offset", "95434"], 25),
    Film("jump.ts", pictures(25, 30) + sound(30) + B_FRAMES + AAC + ["-b:v", "1M"], 25, (8,)),
    Film("late_sound.mkv", pictures(25) + ["-itsoffset", "0.7"] + sound() + B_FRAMES + AAC, 25),
    Film("late_pictures.mkv", ["-itsoffset", "0.5"] + pictures(25) + sound() + X264 +
         ["-g", "9", "-sc_threshold", "0"] + AAC, 25),
    Film("silent.mp4", pictures(25) + B_FRAMES, 25),
    Film("old.avi", pictures(25) + sound() + ["-c:v", "mpeg4", "-bf", "2", "-c:a", "libmp3lame"], 25),
]
JUMPING = "jump.ts"
ENCODED_SOUND = {"cinema.mp4", "ntsc.mkv"}
REMUXABLE = {"film.mkv", "cinema.mp4", "pal.mp4", "ntsc.mkv", "hour.ts", "silent.mp4", "uneven.mkv",
             "late_pictures.mkv"}
# In these a run in the middle must be told where the first key frame is.
TOLD = {"late_pictures.mkv"}
FIRST_KEY = "first_key_frame"


def run(command, **more):
    return subprocess.run(command, capture_output=True, text=True, check=True, **more)


def make_jumping(film, path):
    """Two recordings in one, the second of which has an earlier clock than the first."""
    with open(path, "wb") as out:
        for offset in ("5000", "2000"):
            part = run_binary(["ffmpeg", "-nostdin", "-v", "error", *film.options,
                               "-output_ts_offset", offset, "-f", "mpegts", "pipe:1"])
            out.write(part)
    return path


def run_binary(command):
    return subprocess.run(command, capture_output=True, check=True).stdout


def make(film, folder):
    path = os.path.join(folder, film.name)
    if film.name == JUMPING:
        return make_jumping(film, path)
    run(["ffmpeg", "-nostdin", "-v", "error", "-y", *film.options, path])
    return path


# --- What is in a file ---

@functools.lru_cache(maxsize=None)
def packets(path):
    shown = "packet=codec_type,pts_time,duration_time,flags,size"
    text = run(["ffprobe", "-v", "error", "-show_entries", shown, "-of", "json", path]).stdout
    return [Packet(p["codec_type"], float(p["pts_time"]), float(p.get("duration_time", 0)),
                   "K" in p["flags"], int(p["size"]))
            for p in json.loads(text)["packets"] if "pts_time" in p]


def of_kind(kind, found):
    return [packet for packet in found if packet.kind == kind]


def has_parameter_sets(path):
    return b"\0\0\1\x67" in pathlib.Path(path).read_bytes()


def plan(path):
    """Where the fragments of a film start that is cut at its key frames, and their seek times."""
    text = run(["ffprobe", "-v", "error", "-select_streams", "v:0", "-skip_frame", "nokey",
                "-show_entries", "frame=pts_time", "-of", "csv=p=0", path]).stdout
    keys = sorted(float(line.strip(",")) for line in text.split())
    keys = [key - keys[0] for key in keys]
    starts, end = [0.0], 0.0
    while True:
        bound = max(len(starts) * REMUXED, end + 0.001)
        end = next((key for key in keys if key >= bound), None)
        if end is None:
            return starts
        starts.append(end)


# --- Runs ---

class Run:
    """One start of the transcoder, the way the library starts it."""

    def __init__(self, options, film, folder, number, profile, length, start, anywhere=False):
        self.folder = folder
        os.makedirs(folder)
        milliseconds = int(start * 1000)
        head = ["-ss", f"{milliseconds / 1000:.3f}"]
        tail = ["-segment_format", "mpegts", "-segment_list_type", "m3u8",
                "-hls_seek_time", f"{milliseconds}", "-segment_time", f"{length}",
                "-segment_time_delta", f"{milliseconds / 1000 - length * number:.3f}",
                "-segment_start_number", f"{number}", "-individual_header_trailer", "0",
                "-avoid_negative_ts", "0", "-break_non_keyframes", "1" if anywhere else "0",
                "-map", "0:v"]
        self.command = [options.transcoder, *head, "-i", film, *profile.split(" "), *tail,
                        "-map", "0:a?", os.path.join(folder, "slice-%05d.ts")]

    def start(self):
        return subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                text=True)

    def finish(self):
        process = self.start()
        error = process.communicate()[1]
        assert process.returncode == 0, f"exit {process.returncode}: {error}"
        return {int(path.stem[6:]): str(path) for path in sorted(pathlib.Path(self.folder).glob("slice-*"))}


# --- What must hold ---

def opening_errors(path, found):
    video = of_kind("video", found)
    if video and not video[0].is_key:
        yield "does not start with a key frame"
    if not has_parameter_sets(path):
        yield "has no parameter sets"


def seam_errors(before, after):
    """Two neighbours, whichever runs they come from."""
    ends = {kind: [p.pts for p in of_kind(kind, before)] for kind in ("audio", "video")}
    for kind in ("audio", "video"):
        first, last = of_kind(kind, after), of_kind(kind, before)
        if not first or not ends[kind]:
            continue
        step = last[-1].duration or TICK
        gap = min(p.pts for p in first) - max(ends[kind]) - step
        if kind == "audio" and abs(gap) > step:
            yield f"{gap * 1000:.1f} ms between the sound of two runs, whose frames take {step * 1000:.1f}"


def difference_errors(whole, part):
    """The same segment from two runs."""
    for kind in ("video", "audio"):
        ours, theirs = of_kind(kind, part), of_kind(kind, whole)
        if not theirs and not ours:
            continue
        if not theirs or not ours:
            yield f"has {len(ours)} frames of {kind}, not {len(theirs)}"
            continue
        shift = min(p.pts for p in ours) - min(p.pts for p in theirs)
        bound = ROUNDING if kind == "video" else max(theirs[0].duration, 0.0214)
        if abs(shift) > bound:
            yield f"starts {kind} {shift * 1000:.1f} ms off"
        if kind == "video" and len(ours) != len(theirs):
            yield f"has {len(ours)} pictures, not {len(theirs)}"


def place_errors(film, number, found, expected):
    video = of_kind("video", found)
    if not video:
        yield "has no picture"
        return
    late = video[0].pts - DELAY - expected
    if not -ROUNDING <= late <= 1 / film.rate + ROUNDING:
        yield f"starts at {late + expected:.4f}, not {expected:.4f}"


def thumbnails(path):
    data = run_binary(["ffmpeg", "-nostdin", "-v", "error", "-i", path, "-vf", "scale=16:12,format=gray",
                       "-fps_mode", "passthrough", "-f", "rawvideo", "pipe:1"])
    return [data[i:i + 192] for i in range(0, len(data), 192)]


def content_errors(whole, part):
    """Not only the times are the same, the pictures are."""
    for ours, theirs in zip(thumbnails(part), thumbnails(whole)):
        if max(abs(a - b) for a, b in zip(ours, theirs)) > DIFFERENCE:
            yield "shows other pictures"
            return


def decoding_errors(paths, folder):
    joined = os.path.join(folder, "joined.ts")
    with open(joined, "wb") as out:
        for path in paths:
            out.write(pathlib.Path(path).read_bytes())
    result = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-xerror", "-i", joined,
                             "-fps_mode", "passthrough", "-f", "null", "-"],
                            capture_output=True, text=True, check=False)
    lines = [line for line in result.stderr.splitlines() if "Application provided" not in line]
    return [f"decoding runs one behind the other: {line}" for line in lines[:3]]


def compare(film, whole, part, number, folder, starts):
    contents = {n: packets(path) for n, path in whole.items()}
    others = {n: packets(path) for n, path in part.items()}
    if set(others) != {n for n in contents if n >= number}:
        yield f"run from {number} gives {sorted(others)}, the whole {sorted(contents)}"
        return
    for n, found in others.items():
        for error in (*difference_errors(contents[n], found), *opening_errors(part[n], found),
                      *place_errors(film, n, found, starts[n])):
            yield f"segment {n} of the run from {number}: {error}"
    yield from (f"seam at {number}: {e}" for e in seam_errors(contents[number - 1], others[number]))
    yield from decoding_errors([whole[n] for n in range(number)] + list(part.values()), folder)


def profile(options, name):
    return options.profiles[name]


def transcode_errors(options, film, path, folder):
    chosen = profile(options, "hls_240p_vb300_ab96")
    whole = Run(options, path, folder + "/t0", 0, chosen, TRANSCODED, 0).finish()
    count = len(whole)
    starts = [n * TRANSCODED for n in range(count)]
    for n, file in whole.items():
        found = packets(file)
        errors = [*opening_errors(file, found), *(place_errors(film, n, found, starts[n]) if n else ())]
        yield from (f"segment {n} of the whole: {error}" for error in errors)
    for number in film.starts:
        part = Run(options, path, f"{folder}/t{number}", number, chosen, TRANSCODED,
                   number * TRANSCODED).finish()
        yield from compare(film, whole, part, number, folder, starts)
        yield from content_errors(whole[number], part[number])


def remux_errors(options, film, path, folder):
    starts = plan(path)
    for name, audio in (("copied", "-acodec copy"), ("encoded", "-acodec aac")):
        if name == "encoded" and film.name not in ENCODED_SOUND:
            continue
        chosen = profile(options, "hls_remux").replace("-acodec aac", audio)
        where = f"{folder}/r{name}"
        whole = Run(options, path, where + "0", 0, chosen, REMUXED, 0).finish()
        first = of_kind("video", packets(whole[0]))[0].pts - DELAY
        for number in range(1, len(starts)):
            part = Run(options, path, f"{where}{number}", number, chosen, REMUXED, starts[number])
            if film.name in TOLD:
                shutil.copy(os.path.join(where + "0", FIRST_KEY), part.folder)
            part = part.finish()
            for error in compare(film, whole, part, number, folder, [s + first for s in starts]):
                yield f"remux with {name} sound: {error}"
        if len(whole) != len(starts):
            yield f"remux gives {len(whole)} segments, planned are {starts}"


def free_cut_errors(options, film, path, folder):
    """Copied pictures without a plan: cut in time, wherever the key frames are."""
    chosen = profile(options, "hls_remux").replace("-acodec aac", "-acodec copy")
    whole = Run(options, path, folder + "/f0", 0, chosen, REMUXED, 0, anywhere=True).finish()
    part = Run(options, path, folder + "/f1", 1, chosen, REMUXED, REMUXED, anywhere=True).finish()
    if set(part) != {1} or set(whole) != {0, 1}:
        yield f"free cuts give {sorted(whole)} and {sorted(part)}"
        return
    for error in difference_errors(packets(whole[1]), packets(part[1])):
        yield f"free cuts: segment 1 {error}"
    if not has_parameter_sets(part[1]):
        yield "free cuts: no parameter sets"
    late = of_kind("video", packets(part[1]))[0].pts - DELAY - REMUXED
    if not -ROUNDING <= late <= REORDERED / film.rate + ROUNDING:
        yield f"free cuts: starts {late * 1000:.0f} ms late"


def film_errors(options, film):
    folder = os.path.join(options.folder, film.name + ".d")
    os.makedirs(folder)
    path = make(film, folder)
    errors = []
    try:
        errors += transcode_errors(options, film, path, folder)
        if film.name in REMUXABLE:
            errors += remux_errors(options, film, path, folder)
            errors += free_cut_errors(options, film, path, folder)
    except (AssertionError, subprocess.CalledProcessError) as error:
        errors.append(str(error))
    return [f"{film.name}: {error}" for error in errors]


class Options:
    def __init__(self, transcoder, profiles, folder):
        self.transcoder, self.folder = transcoder, folder
        self.profiles = json.loads(pathlib.Path(profiles, "bromolow_1.json").read_text())


def main(transcoder, profiles, *names):
    with tempfile.TemporaryDirectory() as folder:
        os.environ["ORVO_SYSROOT"] = folder
        options = Options(transcoder, profiles, folder)
        films = [film for film in FILMS if not names or film.name in names]
        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            errors = [error for found in pool.map(lambda film: film_errors(options, film), films)
                      for error in found]
    print("\n".join(errors) or f"{len(films)} films are fine")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
