#!/usr/bin/env python3
"""Progressive copies that libavformat makes alone: they have the same packets, tracks and descriptions as those that
FFmpeg makes, and the process behaves as a transcoder does.

Usage: byte_copies_test.py TRANSCODER PROFILES [TEST...]
"""
import concurrent.futures
import json
import os
import pathlib
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

from segments_test import AAC, B_FRAMES, WORKERS, X264, Film, make, pictures, run, sound

# An option that only FFmpeg knows makes it do the copy; this one changes nothing.
BY_FFMPEG = ["-max_interleave_delta", "10000000"]
CONTAINERS = ("http_ts_remux", "http_mp4_remux")
SECONDS = 6
STARTS = (0, 5.3)
MILLISECOND = 0.0011  # the clock of Matroska
PATIENCE = 60
QUIET = 0.5  # a run that has not moved for so long is waiting
FIRST = 65536

HOUR = ["-output_ts_offset", "3601"]
NAMED = ["-metadata", "title=A title", "-metadata:s:a:0", "language=deu"]
SURROUND = ["-f", "lavfi", "-i", f"aevalsrc=0|0|sin(440*t)|0|0|0:c=5.1:s=48000:d={SECONDS}"]
FILMS = [
    Film("plain.mp4", pictures(25, SECONDS) + sound(SECONDS) + B_FRAMES + AAC + NAMED, 25),
    Film("hour.mkv", pictures(25, SECONDS) + sound(SECONDS) + B_FRAMES + AAC + HOUR, 25),
    Film("surround.mkv", pictures(24, SECONDS) + SURROUND + X264 + ["-c:a", "ac3"] + HOUR, 24),
    Film("silent.mp4", pictures(25, SECONDS) + B_FRAMES, 25),
    Film("wide.mp4", pictures(25, SECONDS) + sound(SECONDS) + ["-vf", "setsar=64/45"] + B_FRAMES + AAC, 25),
    Film("flash.flv", pictures(25, SECONDS) + sound(SECONDS) + X264 + AAC, 25),
]
# These are copied from each start into each container, others from one into each.
THOROUGHLY = ("plain.mp4", "hour.mkv")
NO_SHAPE = "wide.mp4"  # only its pictures tell the shape of their pixels
TURNED = "turned.mp4"


class Programs:
    """Set from the command line."""
    transcoder, profiles = "", {}


def make_turned(folder):
    path = pathlib.Path(folder, TURNED)
    run(["ffmpeg", "-nostdin", "-v", "error", "-i", pathlib.Path(folder, "plain.mp4"), "-c", "copy", "-metadata:s:v",
         "rotate=90", path])


def make_films(folder):
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        list(pool.map(lambda film: make(film, folder), FILMS))
    path = pathlib.Path(folder, NO_SHAPE)
    path.write_bytes(path.read_bytes().replace(b"pasp", b"free"))
    make_turned(folder)


def options(key, copies_sound):
    words = Programs.profiles[key].split()
    if copies_sound:
        words[words.index("-acodec") + 1] = "copy"
        for name in ("-ab", "-ar", "-ac", "-af"):
            del words[words.index(name):words.index(name) + 2]
    return words


def command(film, key, start, more=(), copies_sound=False):
    tracks = ["-map", "0:0"] if film.name == "silent.mp4" else ["-map", "0:0", "-map", "0:1"]
    return [Programs.transcoder, "-ss", f"{start:.3f}", "-copyts", "-i", film, *options(key, copies_sound), *tracks,
            *more, "pipe:1"]


def stream(arguments, path):
    result = subprocess.run(arguments, stdin=subprocess.DEVNULL, capture_output=True, check=True, timeout=PATIENCE)
    path.write_bytes(result.stdout)
    return path


def shown(path):
    return json.loads(run(["ffprobe", "-v", "error", "-show_packets", "-show_streams", "-show_format", "-of", "json",
                           path]).stdout)


def packets(facts):
    """The packets of each type, by their times from the first picture."""
    found = {"video": [], "audio": []}
    rows = facts["packets"]
    zero = next(float(row["pts_time"]) for row in rows if row["codec_type"] == "video")
    for row in rows:
        found[row["codec_type"]].append((float(row["pts_time"]) - zero, int(row["size"]), "K" in row["flags"]))
    return found


DESCRIBED = ("codec_name", "profile", "width", "height", "sample_aspect_ratio", "channels", "sample_rate", "tags",
             "side_data_list", "disposition")


def description(facts):
    """What a player learns of the stream."""
    tracks = [{name: track.get(name) for name in DESCRIBED} for track in facts["streams"]]
    return facts["format"]["format_name"], facts["format"].get("tags"), tracks


def begins(facts):
    return float(facts["format"]["start_time"])


def differences(ours, theirs, copies_sound):
    for kind in ("video", "audio"):
        found, wanted = packets(ours)[kind], packets(theirs)[kind]
        if len(found) != len(wanted):
            yield f"{len(found)} packets of {kind}, not {len(wanted)}"
        for (time, size, key), (other, expected, is_key) in zip(found, wanted):
            is_same = key == is_key and (size == expected or (kind == "audio" and not copies_sound))
            if abs(time - other) > MILLISECOND or not is_same:
                yield f"{kind}: {time}, {size} bytes, not {other}, {expected}"
                break
    if description(ours) != description(theirs):
        yield f"{description(ours)}, not {description(theirs)}"
    # Each is moved so that nothing comes before zero, and decoding times in Matroska are guesses.
    if abs(begins(ours) - begins(theirs)) > 0.1:
        yield f"begins at {begins(ours)}, not {begins(theirs)}"


class WithFilms(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        os.environ["ORVO_SYSROOT"] = os.fspath(cls.folder)
        (cls.folder / "tmp/Mirevo").mkdir(parents=True)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)


class ByteCopies(WithFilms):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        make_films(cls.folder)

    def compare(self, name, key, start, copies_sound):
        film = self.folder / name
        here = self.folder / f"{name}.{key}.{start}.{copies_sound}"
        ours = stream(command(film, key, start, copies_sound=copies_sound), here.with_suffix(".ours"))
        theirs = stream(command(film, key, start, BY_FFMPEG, copies_sound), here.with_suffix(".theirs"))
        return [f"{here.name}: {error}" for error in differences(shown(ours), shown(theirs), copies_sound)]

    def judge(self, cases):
        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            self.assertEqual([error for found in pool.map(lambda case: self.compare(*case), cases) for error in found],
                             [])

    def test_a_copy_with_encoded_sound_is_that_of_ffmpeg(self):
        others = [film.name for film in FILMS if film.name not in THOROUGHLY] + [TURNED]
        self.judge([*((name, key, start, False) for name in THOROUGHLY for key in CONTAINERS for start in STARTS),
                    *((name, key, start, False) for name in others for key, start in zip(CONTAINERS, STARTS[::-1]))])

    def test_the_header_states_the_shape_of_pixels_that_only_the_pictures_tell(self):
        copy = stream(command(self.folder / NO_SHAPE, "http_mp4_remux", 0), self.folder / "shape.mp4")
        self.assertIn(b"pasp", copy.read_bytes())

    def test_a_copy_with_copied_sound_is_that_of_ffmpeg(self):
        self.judge([(name, key, start, True) for name, start in zip(THOROUGHLY, STARTS) for key in CONTAINERS])


class ByteRun(WithFilms):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.film = pathlib.Path(make(Film("long.mp4", pictures(25, 30, "640x480") + sound(30) + X264 + AAC, 25),
                                     cls.folder))

    def start(self):
        process = subprocess.Popen(command(self.film, "http_ts_remux", 0, copies_sound=True),
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def begun(self):
        process = self.start()
        self.assertEqual(len(process.stdout.read(FIRST)), FIRST)
        return process

    def copy_of(self, process):
        """Of the process that makes the copy, a descriptor that tells its end."""
        children = pathlib.Path(f"/proc/{self.parent_of(process)}/task/{self.parent_of(process)}/children")
        copy = os.pidfd_open(int(children.read_text().split()[0]))
        self.addCleanup(os.close, copy)
        return copy

    def parent_of(self, process):
        return process.pid

    def ends_with(self, process, copy):
        process.wait(PATIENCE)
        self.assertTrue(select.select([copy], [], [], PATIENCE)[0])

    def test_the_process_that_was_started_stays_and_the_copy_waits_for_its_reader(self):
        process = self.begun()
        copy = self.copy_of(process)
        with self.assertRaises(subprocess.TimeoutExpired):
            process.wait(QUIET)
        self.assertEqual(os.readlink(f"/proc/{process.pid}/exe"), os.path.realpath(Programs.transcoder))
        self.assertGreater(len(process.stdout.read()), self.film.stat().st_size)
        self.ends_with(process, copy)
        self.assertEqual(process.returncode, 0)

    def test_a_signal_ends_the_copy(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            process = self.begun()
            copy = self.copy_of(process)
            process.send_signal(number)
            self.ends_with(process, copy)
            self.assertNotEqual(process.returncode, 0)

    def test_a_reader_who_leaves_ends_the_copy(self):
        process = self.begun()
        copy = self.copy_of(process)
        process.stdout.close()
        self.ends_with(process, copy)

    def test_the_copy_ends_with_its_transcoder(self):
        process = self.begun()
        copy = self.copy_of(process)
        process.kill()
        self.ends_with(process, copy)


class ByteRunOfParent(ByteRun):
    """The same by the parent of copies."""

    def setUp(self):
        self.parent = subprocess.Popen([Programs.transcoder, "--copies"], stdin=subprocess.DEVNULL,
                                       stdout=subprocess.PIPE)
        self.addCleanup(self.parent.stdout.close)
        self.addCleanup(self.parent.wait)
        self.addCleanup(self.parent.kill)
        self.assertTrue(self.wait_for(lambda: b"Seccomp:\t2" in self.status()))

    def parent_of(self, process):
        return self.parent.pid

    def status(self):
        return pathlib.Path(f"/proc/{self.parent.pid}/status").read_bytes()

    def wait_for(self, condition):
        for _ in range(int(PATIENCE / 0.01)):
            if condition() or select.select([self.parent.stdout], [], [], 0.01)[0]:
                break
        return condition()

    def test_the_copy_is_made_although_its_parent_is_lost_at_the_start(self):
        self.parent.send_signal(signal.SIGSTOP)
        process = self.start()
        self.parent.kill()
        self.assertGreater(len(process.stdout.read()), self.film.stat().st_size)
        self.assertEqual(process.wait(PATIENCE), 0)


def main():
    Programs.transcoder, profiles = sys.argv.pop(1), sys.argv.pop(1)
    Programs.profiles = json.loads(pathlib.Path(profiles, "x86_2.json").read_text())
    unittest.main(module="__main__")


if __name__ == "__main__":
    main()
