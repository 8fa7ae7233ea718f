#!/usr/bin/env python3
"""Runs the GStreamer wrapper as the library does, alone and with the segmenter behind it.

Usage: program_test.py WRAPPER TRANSCODER

Its times are compared with those of the other transcoder. Exits with 1 and says why when something is wrong.
"""
import contextlib
import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

WRAPPER, TRANSCODER = (os.path.abspath(path) for path in sys.argv[1:3])
DELAY = 1.4  # what the segmenter's multiplexer adds to every time
SECONDS = 22
AAC_FRAME = 1024 / 48000
TICK = 2 / 90000
BAD_INPUT_LIMIT = 5
SIGNAL_LIMIT = 2

X264 = ["-c:v", "libx264", "-preset", "ultrafast", "-bf", "3", "-g", "100"]
MPEG2 = ["-c:v", "mpeg2video", "-b:v", "2M", "-bf", "2", "-g", "12", "-flags", "+ildct+ilme", "-top", "1"]
TWO_TRACKS = ["-map", "0", "-map", "1", "-map", "1", "-c:a:0", "mp2", "-c:a:1", "ac3", "-ac:a:1", "6"]


def pictures(rate="24000/1001", size="320x180"):
    return ["-f", "lavfi", "-i", f"testsrc2=s={size}:r={rate}:d={SECONDS}"]


def sound():
    return ["-f", "lavfi", "-i", f"sine=440:b=2:r=48000:d={SECONDS}"]


def noise():
    return ["-f", "lavfi", "-i", f"anoisesrc=r=48000:d={SECONDS}:a=0.3:c=pink:seed=1"]


FILMS = {
    "film.mkv": pictures() + sound() + X264 + ["-c:a", "aac"],
    "pal.mp4": pictures("25") + sound() + X264 + ["-c:a", "aac"],
    "late.mkv": pictures("25") + ["-itsoffset", "0.7"] + sound() + X264 + ["-c:a", "ac3"],
    "broadcast.ts": pictures("25", "360x288") + sound() + TWO_TRACKS + MPEG2 + ["-vf", "setsar=16/11"],
    "silent.mp4": pictures("25") + X264,
    "slow.mp4": pictures("1") + sound() + X264 + ["-c:a", "aac"],
    "short.mkv": pictures("25") + ["-f", "lavfi", "-i", "sine=440:r=48000:d=3"] + X264 + ["-c:a", "aac"],
    "sound.m4a": sound() + ["-c:a", "aac"],
    "opus.mkv": pictures("25") + noise() + X264 + ["-c:a", "libopus"],
    "six.mkv": pictures("25") + noise() + X264 + ["-c:a", "ac3", "-b:a", "448k", "-af",
                                                  "pan=5.1|c0=.2*c0|c1=.3*c0|c2=.4*c0|c3=.5*c0|c4=.1*c0|c5=.1*c0"],
}
FRAME_RATES = {"film.mkv": 24000 / 1001}
FOLDER = tempfile.TemporaryDirectory()


def path(name):
    return os.path.join(FOLDER.name, name)


def setUpModule():
    os.environ["ORVO_SYSROOT"] = FOLDER.name  # with a register of its own
    for name, options in FILMS.items():
        subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *options, path(name)], check=True)
    # Only a copy is marked so.
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", path("pal.mp4"), "-c", "copy", "-metadata:s:v",
                    "rotate=90", path("upright.mp4")], check=True)
    with open(path("text.mkv"), "w", encoding="ascii") as file:
        file.write("This is no film.\n" * 1000)


def tearDownModule():
    FOLDER.cleanup()


def start(*arguments, output, **more):
    return subprocess.Popen([WRAPPER, *arguments, "-o", f"fd:{output}"], pass_fds=[output], stderr=subprocess.PIPE,
                            text=True, **more)


def convert(*arguments):
    """The path of the output, and the ended process with what it said."""
    out = path("out")
    with open(out, "wb") as file, start(*arguments, output=file.fileno()) as process:
        process.said = process.communicate(timeout=60)[1]
    return out, process


def probe(file, *entries):
    text = subprocess.run(["ffprobe", "-v", "error", "-show_entries", ":".join(entries), "-of", "json", file],
                          capture_output=True, text=True, check=True).stdout
    return json.loads(text)


def times(file, kind):
    found = probe(file, "packet=codec_type,pts_time")["packets"]
    return [float(p["pts_time"]) for p in found if p["codec_type"] == kind]


def streams(file):
    return {s["codec_type"]: s for s in probe(file, "stream=codec_type,codec_name,width,height,channels,field_order,"
                                              "sample_aspect_ratio")["streams"]}


def loudness(file, begin, end):
    """The sound's level in dB between these two seconds."""
    told = subprocess.run(["ffmpeg", "-nostdin", "-i", file, "-af", f"atrim={begin}:{end},volumedetect", "-vn", "-f",
                           "null", "-"], capture_output=True, text=True, check=True).stderr
    return float(re.search(r"mean_volume: (\S+) dB", told)[1])


def segments(folder):
    return {int(re.search(r"\d+", name)[0]): os.path.join(folder, name) for name in sorted(os.listdir(folder))}


def wrapped_segments(film, number):
    folder = tempfile.mkdtemp(dir=FOLDER.name)
    read, write = os.pipe()
    with start("-s", str(number * 5), "-i", path(film), "--vb", "400k", "--acodec", "aac", output=write) as wrapper:
        os.close(write)
        command = [TRANSCODER, "-i", f"pipe:{read}", "-map", "0", "-codec", "copy", "-f", "segment", "-segment_time",
                   "5", "-segment_start_number", str(number), "-hls_seek_time", str(number * 5000),
                   os.path.join(folder, "slice-%05d.ts")]
        subprocess.run(command, pass_fds=[read], check=True, timeout=60)
        os.close(read)
        assert wrapper.wait(60) == 0
    return segments(folder)


def transcoded_segments(film):
    folder = tempfile.mkdtemp(dir=FOLDER.name)
    command = [TRANSCODER, "-ss", "0.000", "-i", path(film), "-vcodec", "libx264", "-preset", "ultrafast", "-fps_mode",
               "vfr", "-vb", "400k", "-bf", "0", "-g", "300", "-acodec", "aac", "-ac", "2", "-hls_seek_time", "0",
               "-segment_time", "5", "-segment_start_number", "0", "-map", "0:0", "-map", "0:1",
               os.path.join(folder, "slice-%05d.ts")]
    subprocess.run(command, check=True, timeout=60)
    return segments(folder)


class Segments(unittest.TestCase):
    def compare(self, film):
        expected = transcoded_segments(film)
        for number in (0, 1, 3):
            found = wrapped_segments(film, number)
            self.assertEqual(list(found), [n for n in expected if n >= number])
            for n, segment in found.items():
                with self.subTest(film=film, run=number, segment=n):
                    self.compare_segment(segment, expected[n], 1 / FRAME_RATES.get(film, 25))

    def compare_segment(self, segment, expected, frame):
        decode = ["ffmpeg", "-v", "error", "-i", segment, "-fps_mode", "passthrough", "-enc_time_base", "1:90000",
                  "-f", "null", "-"]
        self.assertEqual(subprocess.run(decode, check=True, capture_output=True, text=True).stderr, "")
        found, wanted = times(segment, "video"), times(expected, "video")
        self.assertEqual(len(found), len(wanted))
        for one, other in zip(found, wanted):
            self.assertAlmostEqual(one, other, delta=frame)
        found, wanted = times(segment, "audio"), times(expected, "audio")
        self.assertAlmostEqual(found[0], wanted[0], delta=AAC_FRAME + TICK)
        self.assertAlmostEqual(found[-1], wanted[-1], delta=2 * AAC_FRAME + TICK)  # the film's end is padded

    def test_are_those_of_the_other_transcoder_whatever_the_start(self):
        for film in ("film.mkv", "pal.mp4", "broadcast.ts"):
            self.compare(film)


class Streams(unittest.TestCase):
    def test_have_the_films_own_times(self):
        for film, frame, container in (("film.mkv", 1001 / 24000, "mpegts"), ("pal.mp4", 0.04, "mpegts"),
                                       ("late.mkv", 0.04, "mpegts"), ("broadcast.ts", 0.04, "mpegts"),
                                       ("pal.mp4", 0.04, "mp4")):
            for seconds in (0, 7):
                with self.subTest(film=film, start=seconds, container=container):
                    out, process = convert("-s", str(seconds), "-i", path(film), "--mux", container, "--shiftpts")
                    self.assertEqual(process.returncode, 0, process.said)
                    self.assertAlmostEqual(min(times(out, "video")), seconds, delta=frame)
                    self.assertGreaterEqual(min(times(out, "video")), seconds - TICK)
                    self.assertAlmostEqual(min(times(out, "audio")), seconds, delta=AAC_FRAME)
                    self.assertAlmostEqual(max(times(out, "video")), SECONDS, delta=2 * frame)

    def test_begin_as_loud_as_those_of_the_other_transcoder(self):
        for film in ("opus.mkv", "film.mkv", "six.mkv"):
            wanted = path(film + ".mp4")
            subprocess.run([TRANSCODER, "-ss", "0.000", "-i", path(film), "-vcodec", "libx264", "-preset", "ultrafast",
                            "-acodec", "aac", "-ac", "2", "-movflags", "frag_keyframe+empty_moov", "-f", "mp4", "-map",
                            "0:0", "-map", "0:1", wanted], check=True, timeout=60)
            out, process = convert("-s", "0", "-i", path(film), "--mux", "mp4", "--shiftpts")
            self.assertEqual(process.returncode, 0, process.said)
            for begin, end in ((0, 0.2), (0, 1), (1, 2)):
                with self.subTest(film=film, begin=begin, end=end):
                    self.assertAlmostEqual(loudness(out, begin, end), loudness(wanted, begin, end), delta=1)

    def test_come_to_their_end_with_few_pictures_or_sound_that_ends_early(self):
        for film, count in (("slow.mp4", SECONDS), ("short.mkv", 25 * SECONDS)):
            for container in ("mp4", "mpegts"):
                with self.subTest(film=film, container=container):
                    out, process = convert("-s", "0", "-i", path(film), "--mux", container, "--shiftpts")
                    self.assertEqual(process.returncode, 0, process.said)
                    self.assertEqual(len(times(out, "video")), count)

    def test_have_upright_progressive_pictures_of_square_pixels_in_the_box(self):
        out, _ = convert("-s", "15", "-i", path("broadcast.ts"), "--size", "300x200")
        picture = streams(out)["video"]
        self.assertEqual((picture["codec_name"], picture["width"], picture["height"]), ("h264", 300, 168))
        self.assertEqual(picture["sample_aspect_ratio"], "1:1")
        self.assertEqual(picture["field_order"], "progressive")
        picture = streams(convert("-s", "15", "-i", path("upright.mp4"))[0])["video"]
        self.assertEqual((picture["width"], picture["height"]), (180, 320))

    def test_have_the_rate_that_is_asked_for(self):
        out, _ = convert("-s", "12", "-i", path("silent.mp4"), "--fps", "10", "--shiftpts")
        self.assertEqual(len(times(out, "video")), 100)

    def test_have_the_wanted_sound_track_in_stereo_or_as_it_is(self):
        track = ["-s", "15", "-i", path("broadcast.ts"), "--aidx", "1"]
        found = streams(convert(*track)[0])["audio"]
        self.assertEqual((found["codec_name"], found["channels"]), ("aac", 2))
        found = streams(convert(*track, "--acodec", "aac", "--acodec", "copy")[0])["audio"]
        self.assertEqual((found["codec_name"], found["channels"]), ("ac3", 6))
        self.assertNotIn("audio", streams(convert("-s", "15", "-i", path("silent.mp4"))[0]))


class Confinement(unittest.TestCase):
    def test_holds_for_every_thread_and_lets_a_film_through(self):
        root = tempfile.mkdtemp(dir=FOLDER.name)
        settings = os.path.join(root, "var/packages/Mirevo/etc")
        os.makedirs(settings)
        with open(os.path.join(settings, "confinement.conf"), "w", encoding="ascii") as file:
            file.write("sandbox=required\n")
        read, write = os.pipe()
        with start("-s", "0", "-i", path("film.mkv"), "--vb", "400k", "--acodec", "aac", output=write,
                   env={**os.environ, "ORVO_SYSROOT": root}) as wrapper:
            os.close(write)
            with open(read, "rb") as output:
                begin = output.read(1000)
                threads = [self.status(wrapper.pid, task) for task in os.listdir(f"/proc/{wrapper.pid}/task")]
                self.assertGreater(len(threads), 1)
                self.assertEqual({(status["NoNewPrivs"], status["Seccomp"]) for status in threads}, {("1", "2")})
                output.read()
            self.assertEqual(len(begin), 1000)
            self.assertEqual(wrapper.wait(60), 0)

    @staticmethod
    def status(pid, task):
        with open(f"/proc/{pid}/task/{task}/status", encoding="ascii") as file:
            return dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)


class Refusals(unittest.TestCase):
    def refuse(self, code, words, *arguments):
        began = time.monotonic()
        out, process = convert(*arguments)
        self.assertEqual(process.returncode, code, arguments)
        self.assertIn(words, process.said)
        self.assertLess(time.monotonic() - began, BAD_INPUT_LIMIT)
        self.assertEqual(os.path.getsize(out), 0)

    def test_tell_the_reason(self):
        self.refuse(64, "unknown option", "-i", path("film.mkv"), "--what")
        self.refuse(64, "-s takes", "-s", "soon", "-i", path("film.mkv"))
        self.refuse(1, "No such file", "-i", path("missing.mkv"))
        self.refuse(1, "is not a file", "-i", FOLDER.name)
        self.refuse(1, "", "-i", path("text.mkv"))
        self.refuse(1, "no pictures", "-i", path("sound.m4a"))
        self.refuse(1, "no sound track 7", "-i", path("film.mkv"), "--aidx", "7")

    def test_take_no_address_for_a_film(self):
        self.refuse(1, "No such file", "-i", "file://" + path("film.mkv"))

    def test_meet_no_name_of_a_film(self):
        for name in ("a film ! fakesink.mkv", "-o.mkv", '50% "off"\n.mkv'):
            os.symlink(path("silent.mp4"), path(name))
            _, process = convert("-s", "20", "-i", path(name))
            self.assertEqual(process.returncode, 0, process.said)


class Ends(unittest.TestCase):
    @contextlib.contextmanager
    def running(self):
        read, write = os.pipe()
        with start("-i", path("film.mkv"), "--vb", "8000k", output=write) as process:
            os.close(write)
            try:
                yield process, read
            finally:
                process.kill()

    def test_come_soon_after_a_signal(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.running() as (process, read):
                with os.fdopen(read, "rb") as output:
                    data = output.read(50000)
                    began = time.monotonic()
                    process.send_signal(number)
                    data += output.read()
                    self.assertEqual(process.wait(10), 0)
                self.assertLess(time.monotonic() - began, SIGNAL_LIMIT)
                self.assertEqual(len(data) % 188, 0, "whole packets")

    def test_come_soon_after_a_signal_when_nobody_reads(self):
        with self.running() as (process, read):
            os.read(read, 1000)
            began = time.monotonic()
            process.terminate()
            self.assertEqual(process.wait(10), 0)
            self.assertLess(time.monotonic() - began, SIGNAL_LIMIT)
            os.close(read)

    def test_come_with_the_reader(self):
        with self.running() as (process, read):
            os.read(read, 1000)
            os.close(read)
            self.assertEqual(process.wait(10), -signal.SIGPIPE)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
