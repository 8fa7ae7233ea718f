#!/usr/bin/env python3
"""Runs on a video engine: the card works, fails, hangs, and software goes on.

Usage: run_test.py TRANSCODER DRIVER
"""
import itertools
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import card

LENGTH = 2  # seconds of a segment
SECONDS = 12
LAST = SECONDS // LENGTH - 1
RATE = 25
PATIENCE = 120
NO_SEAT = 75
TICKS = 90000
START = 2  # second of the byte streams
CONTAINERS = {
    "mpegts": ["-f", "mpegts"],
    "mp4": ["-movflags", "frag_keyframe+delay_moov+default_base_moof", "-frag_duration", "500000",
            "-write_tmcd", "0", "-f", "mp4"],
}


def make_film(path):
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                    f"testsrc2=s=320x240:r={RATE}:d={SECONDS}", "-f", "lavfi", "-i",
                    f"sine=440:b=2:r=48000:d={SECONDS}", "-c:v", "libx264", "-preset", "ultrafast",
                    "-c:a", "flac", path], check=True)


def segments(machine, film, number=0):
    start = number * LENGTH
    return ["-ss", f"{start}.000", "-i", film, "-vcodec", "h264_vaapi", "-preset", "ultrafast",
            "-pix_fmt", "yuv420p", "-fps_mode", "vfr", "-vf", "yadif=deint=interlaced",
            "-s", "320x240", "-vb", "500k", "-maxrate", "500k", "-bufsize", "500k", "-bf", "0",
            "-g", "300", "-acodec", "aac", "-ab", "96k", "-ac", "2", "-hls_seek_time",
            f"{start * 1000}", "-segment_time", f"{LENGTH}", "-segment_start_number", f"{number}",
            "-map", "0:v", "-map", "0:a", f"{machine.root}/out/slice-%05d.ts"]


def packets(path):
    """The times of the pictures and of the sound in a segment, in seconds."""
    shown = subprocess.run(["ffprobe", "-v", "error", "-show_entries",
                            "packet=codec_type,pts", "-of", "json", path],
                           capture_output=True, text=True, check=True).stdout
    times = {"video": [], "audio": []}
    for packet in json.loads(shown)["packets"]:
        times[packet["codec_type"]].append(int(packet["pts"]))
    return times


class Runs(card.Case):
    LEAST = 1 << 20  # bytes of a segment: nothing is compressed there

    def setUp(self):
        self.on = self.machine()
        self.on.prove()

    def play(self, failure="", others=(), number=0):
        process = self.running(self.on.start(segments(self.on, FILM, number), failure, others))
        process.log = process.communicate(timeout=PATIENCE)[1].decode()
        return process

    def paths(self):
        return sorted((self.on.root / "out").glob("slice-*.ts"))

    def assert_whole(self):
        """All segments are there, each picture once, each sound once, none late."""
        self.assertEqual([int(path.stem[6:]) for path in self.paths()], list(range(LAST + 1)))
        times = [packets(path) for path in self.paths()]
        pictures = list(itertools.chain.from_iterable(part["video"] for part in times))
        sounds = list(itertools.chain.from_iterable(part["audio"] for part in times))
        self.assertEqual(len(pictures), SECONDS * RATE)
        for number, part in enumerate(times):
            self.assertAlmostEqual(part["video"][0] / TICKS, 1.4 + number * LENGTH, delta=0.001)
        self.assertLessEqual(max(b - a for a, b in zip(pictures, pictures[1:])), TICKS // RATE + 2)
        self.assertLessEqual(max(b - a for a, b in zip(sounds, sounds[1:])), 1024 * TICKS // 48000 + 2)
        self.assertGreater(min(b - a for a, b in zip(sounds, sounds[1:])), 0)

    def assert_decodable(self):
        whole = self.on.root / "whole.ts"
        whole.write_bytes(b"".join(path.read_bytes() for path in self.paths()))
        errors = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", whole, "-f", "null",
                                 "-"], capture_output=True, text=True, check=True).stderr
        self.assertEqual(errors, "")

    def test_the_card_encodes_segments(self):
        process = self.play()
        self.assertEqual(process.returncode, 0, process.log)
        self.assertIs(self.on.registered(process.pid), True)
        self.assert_whole()
        self.assert_decodable()
        self.assertGreater(self.paths()[0].stat().st_size, self.LEAST)

    def test_software_goes_on_where_the_card_fails(self):
        for failure in ("open", "configure", "picture=3", f"picture={3 * LENGTH * RATE + 5}"):
            with self.subTest(failure):
                process = self.play(failure)
                self.assertEqual(process.returncode, 0, process.log)
                self.assertIs(self.on.registered(process.pid), False)
                self.assert_whole()
                self.assert_decodable()
                self.on.settle()
                self.on.prove()

    def test_software_goes_on_where_the_card_hangs(self):
        process = self.play(f"hang={LENGTH * RATE + 5}")
        self.assertEqual(process.returncode, 0, process.log)
        self.assertIs(self.on.registered(process.pid), False)
        self.assert_whole()

    def test_an_engine_that_has_failed_must_prove_itself_again(self):
        self.play("configure")
        self.on.settle()
        self.assertIn("libx264", self.on.explain(*segments(self.on, FILM)))

    def test_a_run_that_replaces_an_engine_is_registered_as_software(self):
        self.on.prove("configure")
        process = self.play()
        self.assertEqual(process.returncode, 0, process.log)
        self.assertIs(self.on.registered(process.pid), False)
        self.assert_whole()

    def test_software_keeps_to_its_own_limit(self):
        for failure in ("picture=3", "prove"):
            with self.subTest(failure):
                if failure == "prove":
                    self.on.prove("configure")
                process = self.play(failure, others=[(os.getpid(), False)])
                self.assertEqual(process.returncode, NO_SEAT, process.log)
                self.assertIs(self.on.registered(process.pid), None)
                self.assertIs(self.on.registered(os.getpid()), False)


class ByteStreams(card.Case):
    LEAST = 1 << 20

    def setUp(self):
        self.on = self.machine()
        self.on.prove()

    def play(self, failure="", container="mpegts", others=()):
        arguments = ["-ss", f"{START}.000", "-copyts", "-i", FILM, "-vcodec", "h264_vaapi", "-preset",
                     "superfast", "-s", "320x240", "-vb", "500k", "-bf", "0", "-g", "250",
                     "-force_key_frames", "expr:gte(t,n_forced*2)", "-acodec", "aac", "-ar", "48000",
                     "-ac", "2", *CONTAINERS[container], "pipe:1"]
        process = self.running(self.on.start(arguments, failure, others, output=subprocess.PIPE))
        stream, log = process.communicate(timeout=PATIENCE)
        process.log = log.decode()
        path = self.on.root / f"out/stream.{container}"
        path.write_bytes(stream)
        return process, path

    def assert_one_film(self, path):
        """Each picture and each frame of sound comes once, at its time in the film; nothing is damaged."""
        times = packets(path)
        pictures = times["video"]
        self.assertEqual(len(pictures), (SECONDS - START) * RATE)
        self.assertEqual(len({b - a for a, b in zip(pictures, pictures[1:])}), 1)
        self.assertEqual(len({b - a for a, b in zip(times["audio"], times["audio"][1:])}), 1)
        tick = (SECONDS - START - 1 / RATE) / (pictures[-1] - pictures[0])
        self.assertAlmostEqual(pictures[0] * tick, START, delta=0.001)
        errors = subprocess.run(["ffmpeg", "-nostdin", "-v", "warning", "-i", path, "-f", "null", "-"],
                                capture_output=True, text=True, check=True).stderr
        self.assertEqual(errors, "")

    def test_the_card_encodes_a_stream(self):
        process, path = self.play()
        self.assertEqual(process.returncode, 0)
        self.assert_one_film(path)
        self.assertGreater(path.stat().st_size, self.LEAST)

    def test_software_makes_the_stream_where_the_card_fails_at_its_start(self):
        for failure in ("open", "configure"):
            with self.subTest(failure):
                process, path = self.play(failure)
                self.assertEqual(process.returncode, 0)
                self.assertIs(self.on.registered(process.pid), False)
                self.assert_one_film(path)
                self.on.settle()
                self.on.prove()

    def test_software_goes_on_in_the_same_stream_where_the_card_fails_in_the_middle(self):
        for container, failure in (("mpegts", "picture=90"), ("mp4", "picture=60")):
            with self.subTest(f"{container}, {failure}"):
                process, path = self.play(failure, container)
                self.assertEqual(process.returncode, 0, process.log)
                self.assertIs(self.on.registered(process.pid), False)
                self.assert_one_film(path)
                self.on.settle()
                self.on.prove()

    def test_software_goes_on_in_the_same_stream_where_the_card_hangs_in_the_middle(self):
        for container in CONTAINERS:
            with self.subTest(container):
                process, path = self.play("hang=90", container)
                self.assertEqual(process.returncode, 0, process.log)
                self.assertIs(self.on.registered(process.pid), False)
                self.assert_one_film(path)
                self.on.settle()
                self.on.prove()

    def test_a_stream_ends_where_no_more_software_may_run(self):
        process, path = self.play("picture=90", others=[(os.getpid(), False)])
        self.assertEqual(process.returncode, NO_SEAT, process.log)
        self.assertIs(self.on.registered(process.pid), None)
        self.assertGreater(path.stat().st_size, self.LEAST)


if __name__ == "__main__":
    card.take_arguments(sys.argv[1:])
    with tempfile.TemporaryDirectory() as films:
        FILM = str(pathlib.Path(films, "film.mkv"))
        make_film(FILM)
        sys.exit(not unittest.main(argv=sys.argv[:1], verbosity=2, exit=False).result.wasSuccessful())
