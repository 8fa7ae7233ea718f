"""Runs what each platform gives for each film, and looks at what comes out. See "run" beside this file."""
import collections
import itertools
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

import sources

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path += [os.fspath(TESTS / "va"), os.fspath(TESTS / "transcoder")]
import card  # noqa: E402
import fragments  # noqa: E402

BUILD = pathlib.Path(os.environ["ORVO_TEST_BUILD"])
PLATFORMS = ("braswell", "apollolake", "monaco", "evansport", "avoton", "bromolow", "broadwell", "cedarview", "alpine",
             "alpine4k", "kvmx64", "dockerx64", "x86", "newer")
SETTINGS = [{"cores": cores, "hardware": hardware, "vaapi": vaapi}
            for cores, hardware, vaapi in itertools.product((1, 2), (False, True), (False, True))]
PATIENCE = 600

# What --short looks at: a platform for each engine, all kinds of one film, and the engines with another.
SHORT_PLACES = [("avoton", SETTINGS[0]), ("apollolake", {"cores": 2, "hardware": True, "vaapi": False}),
                ("braswell", {"cores": 2, "hardware": True, "vaapi": True})]
SHORT_FILMS = ("H.264", "MPEG-2")

# Two commands are the same if they differ in these alone. All presets are run for the first film only: they decide how
# much work the encoder does, and not how it is called.
SIZES = re.compile(r"(?<= )(-s|-vb|-ab|-maxrate|-bufsize|--size|--vb|--ab) \S+")
PRESETS = re.compile(r"(?<= )(-preset|-s|-vb|-ab|-maxrate|-bufsize|--size|--vb|--ab) \S+")
GROUPS = ("software", "VA-API", "orvo-gst", "copies")
KINDS = (("hls_", "HLS"), ("http_mp4", "MP4"), ("http_ts", "MPEG-TS"), ("http_wmv", "WMV"), ("webm_vp9", "WebM VP9"),
         ("webm_", "WebM VP8"), ("smooth", "Smooth Streaming"))

Command = collections.namedtuple("Command", "group kind words width height")
Facts = collections.namedtuple("Facts", "pictures width height seconds channels sound_seconds loudness complaints")


class Box(card.Machine):
    """A machine with the package, the test card for FFmpeg and the test engine for GStreamer."""

    def __init__(self):
        super().__init__()
        self.bin = self.root / "var/packages/Mirevo/target/bin"
        self.bin.parent.symlink_to(BUILD / "target")
        (self.root / "proc").mkdir()
        plugins = BUILD / "tests/gst/engine"
        libraries = f"{pathlib.Path(card.PROGRAMS['driver']).parent}:{plugins}"
        self.write("var/packages/Mirevo/etc/confinement.conf", f"libraries={libraries}\n")
        self.environment |= {"GST_PLUGIN_PATH": str(plugins), "GST_REGISTRY": str(self.root / "registry.bin")}

    def become(self, platform, cores, hardware, vaapi):
        self.write("etc.defaults/orvoinfo.conf", f'unique="maker_{platform}_box"\n')
        self.write("proc/cpuinfo", f"cpu cores\t: {cores}\nBogoMIPS\t: 3200.12\n")
        self.write("var/packages/Mirevo/etc/advanced.conf", json.dumps({"hardware_transcode": hardware}))
        self.write("var/packages/Mirevo/etc/vaapi_ffmpeg", json.dumps({"enable": vaapi}))

    def offers(self, film):
        told = subprocess.run([self.bin / "mirevo", "explain", "--json", film], capture_output=True, check=True,
                              env=self.environment)
        return json.loads(told.stdout)["profiles"]

    def start(self, words, **options):
        return subprocess.Popen(words, stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, env=self.environment,
                                preexec_fn=self.register, **options)


# --- The commands ---

def group_of(offer, words):
    if offer["method"] == "remux":
        return "copies"
    if words[0].endswith("orvo-gst"):
        return "orvo-gst"
    return "VA-API" if "h264_vaapi" in words else "software"


def take(offers, found, changing):
    """Adds what no other platform has given. Of commands that count as the same, the smallest remains."""
    for offer in sorted(offers, key=lambda row: row["height"]):
        if offer["method"] == "refused":
            continue
        words = shlex.split(offer["command"])
        kind = next(name for start, name in KINDS if offer["key"].startswith(start))
        pattern = kind + changing.sub(r"\1", offer["command"])
        found.setdefault(pattern, Command(group_of(offer, words), kind, words, offer["width"], offer["height"]))


def shape_of(offers):
    return json.dumps([[offer["key"], offer["method"], offer["command"]] for offer in offers])


def different_places(box, films):
    """The platforms and settings that differ in what they give for one of these films."""
    places = {}
    for platform, settings in itertools.product(PLATFORMS, SETTINGS):
        box.become(platform, **settings)
        places.setdefault("".join(shape_of(box.offers(film)) for film in films), (platform, settings))
    return list(places.values())


def commands_for(box, source, film, places):
    found = {}
    isFirst = source is sources.SOURCES[0]
    isShort = places is SHORT_PLACES
    for platform, settings in places:
        box.become(platform, **settings)
        take(box.offers(film), found, SIZES if isFirst and not isShort else PRESETS)
    isMeant = (lambda command: isFirst or command.group in ("VA-API", "orvo-gst")) if isShort else bool
    return list(filter(isMeant, found.values()))


# --- Running them ---

def ended(process):
    said = process.communicate(timeout=PATIENCE)[1].decode(errors="replace").strip()
    if process.returncode != 0:
        raise RuntimeError(f"exit {process.returncode}: {said.splitlines()[-1] if said else ''}")
    return process


def bytes_of(box, words, folder):
    with open(folder / "stream", "wb") as output:
        process = ended(box.start(words, stdout=output))
    return process.pid, folder / "stream"


def joined(folder):
    whole = folder / "whole.ts"
    whole.write_bytes(b"".join(path.read_bytes() for path in sorted(folder.glob("slice-*.ts"))))
    return whole


def segments_of(box, words, folder):
    process = ended(box.start([*words[:-1], folder / "slice-%05d.ts"], stdout=subprocess.DEVNULL))
    return process.pid, joined(folder)


def wrapped_segments_of(box, words, folder):
    read, write = os.pipe()
    wrapper = box.start(words, stdout=write)
    os.close(write)
    cutter = [box.bin / "ffmpeg", "-i", f"pipe:{read}", "-map", "0", "-codec", "copy", "-f", "segment", "-segment_time",
              "5", "-segment_start_number", "0", "-hls_seek_time", "0", folder / "slice-%05d.ts"]
    subprocess.run(cutter, pass_fds=[read], stdin=subprocess.DEVNULL, env=box.environment, check=True, timeout=PATIENCE)
    os.close(read)
    return ended(wrapper).pid, joined(folder)


def fragments_of(box, words, folder):
    run = fragments.Run("", "", folder / "run", ())
    pid = ended(box.start([*words[:-1], run.folder / "smooth"], stdout=subprocess.DEVNULL)).pid
    return pid, run.fragments()


def run(box, command, folder):
    if command.kind == "Smooth Streaming":
        return fragments_of(box, command.words, folder)
    if command.kind == "HLS":
        make = wrapped_segments_of if command.group == "orvo-gst" else segments_of
        return make(box, command.words, folder)
    return bytes_of(box, command.words, folder)


# --- Looking at what comes out ---

def loudness_of(path):
    """The loudest sample in dB. Decodes everything, and ends at the first error."""
    told = subprocess.run(["ffmpeg", "-nostdin", "-hide_banner", "-xerror", "-i", path, "-map", "0:v?", "-map", "0:a?",
                           "-af", "volumedetect", "-f", "null", "-"], capture_output=True, text=True, check=False)
    if told.returncode != 0:
        raise RuntimeError(f"does not decode: {told.stderr.strip().splitlines()[-1]}")
    found = re.search(r"max_volume: (\S+) dB", told.stderr)
    return float(found[1]) if found else None


def facts_of(path):
    shown = ("stream=codec_type,width,height,channels,sample_rate:"
             "frame=media_type,best_effort_timestamp_time,nb_samples")
    told = subprocess.run(["ffprobe", "-v", "error", "-show_entries", shown, "-of", "json", path], capture_output=True,
                          text=True, check=True)
    found = json.loads(told.stdout)
    streams = {stream["codec_type"]: stream for stream in found["streams"]}
    picture, sound = streams.get("video", {}), streams.get("audio", {})
    times = [float(frame.get("best_effort_timestamp_time", 0)) for frame in found["frames"]
             if frame["media_type"] == "video"]
    samples = sum(int(frame["nb_samples"]) for frame in found["frames"] if frame["media_type"] == "audio")
    return Facts(len(times), picture.get("width"), picture.get("height"),
                 max(times, default=0) - min(times, default=0) + 1 / sources.RATE, sound.get("channels"),
                 samples / int(sound.get("sample_rate", 1)), loudness_of(path), told.stderr.strip())


def facts_of_fragments(found, folder):
    """Tracks alone have no times, so those of their fragments count."""
    pictures, sounds = (fragments.samples_of(found, track) for track in ("video", "audio"))
    (folder / "pictures.h264").write_bytes(fragments.annex_b(pictures))
    (folder / "sound.aac").write_bytes(fragments.adts(sounds))
    picture, sound = facts_of(folder / "pictures.h264"), facts_of(folder / "sound.aac")
    return Facts(picture.pictures, picture.width, picture.height, seconds_of(pictures), sound.channels,
                 seconds_of(sounds), sound.loudness, picture.complaints + sound.complaints)


def seconds_of(samples):
    return (samples[-1].time + samples[-1].duration - samples[0].time) / fragments.TICKS


def faults(command, film, stream):
    """How the stream differs from the film."""
    if stream.complaints:
        yield stream.complaints.splitlines()[0]
    if stream.pictures != film.pictures:
        yield f"{stream.pictures} pictures, not {film.pictures}"
    wanted = (film.width, film.height) if command.group == "copies" else (command.width, command.height)
    if (stream.width, stream.height) != wanted:
        yield f"{stream.width}x{stream.height}, not {wanted[0]}x{wanted[1]}"
    if abs(stream.seconds - film.seconds) > 0.1:
        yield f"{stream.seconds:.2f} s of pictures, not {film.seconds:.2f}"
    if stream.channels != 2 or abs(stream.sound_seconds - film.sound_seconds) > 0.2:
        yield f"{stream.sound_seconds:.2f} s of sound in {stream.channels} channels, not {film.sound_seconds:.2f} in 2"
    if stream.loudness is None or abs(stream.loudness - film.loudness) > 6:
        yield f"sound of {stream.loudness} dB, not {film.loudness}"


def fault_of(box, command, film):
    """What is wrong with what the command makes; "" if it plays."""
    with tempfile.TemporaryDirectory(dir=box.root) as name:
        folder = pathlib.Path(name)
        try:
            pid, made = run(box, command, folder)
            isFragments = command.kind == "Smooth Streaming"
            found = list(faults(command, film, facts_of_fragments(made, folder) if isFragments else facts_of(made)))
        except (RuntimeError, AssertionError, subprocess.SubprocessError, IndexError) as error:
            return str(error)
        if command.group in ("VA-API", "orvo-gst") and box.registered(pid) is not True:
            found.append("software has made it")
        return "; ".join(found)


def judge(box, source, path, places):
    film = facts_of(path)
    tried, good, wrong = collections.Counter(), collections.Counter(), []
    for command in commands_for(box, source, path, places):
        fault = fault_of(box, command, film)
        tried[command.group] += 1
        good[command.group] += not fault
        if fault:
            wrong.append(f"{source.name}, {command.kind}, {command.group}: {fault}\n  {shlex.join(command.words)}")
    cells = [f"{good[group]} of {tried[group]}" if tried[group] else "–" for group in GROUPS]
    print(f"| {source.name} | {' | '.join(cells)} |", flush=True)
    return wrong


def is_wanted(source, words):
    if words == ["--short"]:
        return source.name in SHORT_FILMS
    return not words or any(word in source.name for word in words)


def main(words):
    driver = os.fspath(BUILD / "tests/va/driver/orvotest_drv_video.so")
    card.take_arguments([os.fspath(BUILD / "target/bin/ffmpeg"), driver])
    box = Box()
    try:
        proof = box.prove()
        assert proof.startswith("1080 lines"), proof
        (box.root / "volume1").mkdir()
        isShort = words == ["--short"]
        wanted = [source for source in sources.SOURCES if is_wanted(source, words)]
        films = {source: sources.make(source, box.root / "volume1") for source in sources.SOURCES
                 if source in wanted or (source.name in ("H.264", "VP9") and not isShort)}
        places = SHORT_PLACES if isShort else different_places(
            box, [path for source, path in films.items() if source.name in ("H.264", "VP9")])
        print(f"{len(places)} of {len(PLATFORMS) * len(SETTINGS)} places differ\n\n| film | {' | '.join(GROUPS)} |")
        print("|---" * (len(GROUPS) + 1) + "|", flush=True)
        wrong = [fault for source in wanted for fault in judge(box, source, films[source], places)]
        print("\n" + "\n".join(wrong or ["Everything plays."]))
        return 1 if wrong else 0
    finally:
        box.close()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
