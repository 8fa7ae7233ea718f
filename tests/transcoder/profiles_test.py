#!/usr/bin/env python3
"""Plays the end of real films with every profile and looks at what comes out.

Usage: profiles_test.py TRANSCODER PROFILES MEDIA

Every profile of every platform is played over one film, and every film with at least one profile.
Profiles with the same arguments are played once. Exits with 1 and says why when something is wrong.
"""
import concurrent.futures
import itertools
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

SPAN = 1  # seconds played: the end of the film
CLOCK_TOLERANCE = 0.05  # of the first picture, and between it and the first sound
TICK_TOLERANCE = 0.02  # on top, where the encoder's clock ticks once a picture
KEY_FRAME_DISTANCE = 3  # a remux starts at most this long before the seek
BUFFER = 1  # seconds of the rate that an encoder may spend at once, at the start
WORKERS = 2

# Each film and its length in seconds; the first ones can be remuxed.
H264_FILMS = {"h264_ac3.mkv": 60, "h264_aac.mp4": 60, "portrait.mp4": 60, "no_audio.mkv": 60,
              "two_audio.mkv": 60}
OTHER_FILMS = {"mpeg4_mp3.avi": 30, "mpeg2_mp2.ts": 30, "vp9_opus.webm": 30, "hevc10_aac.mov": 30}
SILENT_FILMS = {"no_audio.mkv"}
COPIED_SOUND = {"h264_aac.mp4": "aac", "mpeg4_mp3.avi": "mp3"}

SIZES = {"240p": (320, 240), "360p": (480, 360), "480p": (852, 480), "720p": (1280, 720),
         "1080p": (1920, 1080)}
CODECS = {"mp4": ("h264", "aac"), "ts": ("h264", "aac"), "wmv": ("wmv2", "wmav2"),
          "webm": ("vp8", "mp3"), "webm_vp9": ("vp9", "mp3")}
KEY = re.compile(r"(http_mp4|http_ts|http_wmv|hls|webm|webm_vp9)_((\d+p)_(vaapi_)?vb(\d+)_ab(\d+)|remux)")
# What is in these is another test's.
FRAGMENT_KEY = re.compile(r"smoothstreaming_(?:hd)?(\d+)p?_(x264|h264_smd)_vb(\d+)_(vf15_)?aac_ab(\d+)")
# For another program.
WRAPPER_KEY = re.compile(r"(http_mp4|http_ts|hls)_(\d+p)_gst_vb(\d+)_ab(\d+)")
# Where segments are cut is another test's; here their streams are played uncut.
KINDS = {"http_mp4": "mp4", "http_ts": "ts", "http_wmv": "wmv", "hls": "ts",
         "webm": "webm", "webm_vp9": "webm"}
CONTAINER = {"hls": ["-f", "mpegts"]}


class Case:
    """One profile over one film."""

    def __init__(self, key, arguments, film, length):
        self.key, self.arguments, self.film = key, arguments, film
        self.start = length - SPAN
        match = KEY.fullmatch(key)
        self.kind, self.is_remux = KINDS[match[1]], match[2] == "remux"
        self.codecs = CODECS.get(match[1], CODECS[self.kind])
        self.container = CONTAINER.get(match[1], [])
        if not self.is_remux:
            self.size = SIZES[match[3]]
            self.rate = (int(match[5]) + 2 * int(match[6])) * 1024

    def keeps_clock(self):
        return self.kind != "wmv"

    def tolerance(self):
        is_fine = self.is_remux or "-enc_time_base" in self.arguments
        return CLOCK_TOLERANCE + (0 if is_fine else TICK_TOLERANCE)


def load(folder):
    """The profiles of all platforms, each set of arguments once."""
    seen = {}
    for path in sorted(pathlib.Path(folder).glob("*.json")):
        profiles = json.loads(path.read_text())
        assert {"http_mp4_remux", "http_ts_remux", "hls_remux"} <= profiles.keys(), path
        for key, arguments in profiles.items():
            if match := FRAGMENT_KEY.fullmatch(key):
                check_fragments(f"{path.name}: {key}", match, arguments)
                continue
            if match := WRAPPER_KEY.fullmatch(key):
                check_wrapper(f"{path.name}: {key}", match, arguments)
                continue
            check_text(path.name, key, arguments)
            seen.setdefault((key.replace("vaapi_", ""), arguments), key)
    return [(key, arguments) for (_, arguments), key in seen.items()]


def check_fragments(where, match, arguments):
    """The manifest's rates are part of the fragments' names."""
    words = arguments.split(" ")
    value = {name: words[words.index(name) + 1] for name in ("-s", "-vb", "-ab")}
    assert value == {"-s": match[1], "-vb": match[3] + "000", "-ab": match[5] + "000"}, where
    assert (match[2] == "x264") == (match[4] is not None) == ("libx264" in words), where


def check_wrapper(where, match, arguments):
    words = arguments.split(" ")
    value = dict(zip(words[::2], words[1::2]))
    kind, size, video, sound = match.groups()
    rate = round(int(video) * (1 if kind == "http_mp4" else 0.9))
    assert value == {"--vcodec": "h264", "--acodec": "aac", "--vb": f"{rate}k", "--ab": f"{sound}k",
                     "--size": "{}x{}".format(*SIZES[size]),
                     "--mux": "mp4" if kind == "http_mp4" else "mpegts"}, where


def check_text(name, key, arguments):
    """What the library relies on when it reads a key and splits the arguments at blanks."""
    where = f"{name}: {key}"
    match = KEY.fullmatch(key)
    assert match, where
    words = arguments.split(" ")
    assert all(words) and not set("'\"\\\n") & set(arguments), where
    is_remux = match[2] == "remux"
    assert is_remux == ("h264_mp4toannexb" in words), where
    assert is_remux != ("-s" in words), where
    assert is_remux == (not any(re.match("vb|ab", part) for part in key.split("_"))), where
    assert ("wmv2" in arguments) == (match[1] == "http_wmv"), where


def with_copied_sound(arguments):
    """As the library changes the arguments where the film's sound needs no encoder."""
    return re.sub(r" -a[brc] \S+", "", arguments).replace("-acodec libmp3lame", "-acodec copy")


def copies(profiles):
    """A live stream beside the films whose sound it takes as it is."""
    key, arguments = next(profile for profile in profiles if profile[0].startswith("webm_240p"))
    for film, codec in COPIED_SOUND.items():
        length = {**H264_FILMS, **OTHER_FILMS}[film]
        case = Case(key, with_copied_sound(arguments), film, length)
        case.codecs = (case.codecs[0], codec)
        yield case


def cases(profiles):
    yield from copies(profiles)
    films = itertools.cycle((OTHER_FILMS | H264_FILMS).items())
    for key, arguments in profiles:
        if key.endswith("remux"):
            for film, length in H264_FILMS.items():
                yield Case(key, arguments, film, length)
        else:
            yield Case(key, arguments, *next(films))


def command(case, options, media, output):
    is_live = case.kind == "webm"
    start = ["-ss", f"{case.start:.3f}"] + (["-copyts"] if case.keeps_clock() and not is_live else [])
    clock = ["-webm_seek_time", f"{case.start}", "-avoid_negative_ts", "0"] if is_live else []
    film = str(pathlib.Path(media, case.film))
    return [options.transcoder, *start, "-i", film, *case.arguments.split(" "),
            *case.container, *clock, output]


def play(case, options, path):
    """Writes the stream through a pipe, as the library does. Returns what is wrong."""
    reader, writer = os.pipe()
    with open(path, "wb") as stream, os.fdopen(reader, "rb") as source:
        process = subprocess.Popen(command(case, options, options.media, f"pipe:{writer}"),
                                   pass_fds=[writer], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        os.close(writer)
        stream.write(source.read())
        error = process.communicate()[1]
    return [] if process.returncode == 0 else [f"exit {process.returncode}: {error}"]


def probe(path):
    shown = "stream=codec_type,codec_name,width,height,pix_fmt,start_time,sample_rate,channels"
    text = subprocess.run(
        ["ffprobe", "-v", "error", "-show_entries", shown, "-of", "json", path],
        capture_output=True, text=True, check=True).stdout
    return {stream["codec_type"]: stream for stream in json.loads(text)["streams"]}


def decoding_errors(path):
    result = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-xerror", "-i", path,
                             "-f", "null", "-"], capture_output=True, text=True, check=False)
    noise = [line for line in result.stderr.splitlines() if "Application provided" not in line]
    return [f"decoding: {line}" for line in noise[:3]]


def clock_errors(case, video, audio):
    start = float(video["start_time"])
    expected = case.start if case.keeps_clock() else 0
    earliest = expected - (KEY_FRAME_DISTANCE if case.is_remux else case.tolerance())
    if not earliest <= start <= expected + case.tolerance():
        yield f"starts at {start}, not {expected}"
    if audio and abs(float(audio["start_time"]) - start) > case.tolerance():
        yield f"sound starts at {audio['start_time']}, the picture at {start}"


def picture_errors(case, video):
    if video["codec_name"] != case.codecs[0] or video["pix_fmt"] != "yuv420p":
        yield f"picture is {video['codec_name']} {video['pix_fmt']}"
    if not case.is_remux and (video["width"], video["height"]) != case.size:
        yield f"picture is {video['width']}x{video['height']}, not {case.size}"


def sound_errors(case, audio):
    if (audio is None) != (case.film in SILENT_FILMS):
        yield f"sound is {audio}"
    expected = (case.codecs[1], "48000", 2)
    found = audio and (audio["codec_name"], audio["sample_rate"], audio["channels"])
    is_copied = "-acodec copy" in case.arguments
    if audio and (found[0] != expected[0] if is_copied else found != expected):
        yield f"sound is {audio}"


def size_errors(case, path):
    if not case.is_remux:
        size, promised = os.path.getsize(path), case.rate * (SPAN + BUFFER) / 8
        if size > promised:
            yield f"{size} bytes, of which {promised:.0f} were promised"


def stream_errors(case, path):
    streams = probe(path)
    if streams.keys() - {"video", "audio"} or "video" not in streams:
        return [f"streams: {list(streams)}"]
    video, audio = streams["video"], streams.get("audio")
    return [*picture_errors(case, video), *sound_errors(case, audio),
            *clock_errors(case, video, audio), *size_errors(case, path), *decoding_errors(path)]


def check(case, options, number):
    path = os.path.join(options.folder, f"{number}")
    errors = play(case, options, path) or stream_errors(case, path)
    os.unlink(path)
    return [f"{case.key} over {case.film}: {error} [{case.arguments}]" for error in errors]


class Options:
    def __init__(self, arguments, folder):
        self.transcoder, self.profiles, self.media = arguments
        self.folder = folder


def main(arguments):
    with tempfile.TemporaryDirectory() as folder:
        os.environ["ORVO_SYSROOT"] = folder
        options = Options(arguments, folder)
        todo = list(cases(load(options.profiles)))
        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            found = pool.map(check, todo, itertools.repeat(options), range(len(todo)))
            errors = list(itertools.chain.from_iterable(found))
    print("\n".join(errors) or f"{len(todo)} streams are fine")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
