#!/usr/bin/env python3
"""The runs of run_test.py on encoders that no machine of ours has: NVENC, Quick Sync and V4L2 memory-to-memory.

Usage: encoders.py TRANSCODER STAND_IN [TEST...]

A library in FFmpeg (stand_in.cpp) checks each command line against what FFmpeg tells of the encoder, and encodes with
libx264. A forced key frame is one only where the encoder is told so.
"""
import functools
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import card
import run_test

NODES = {"h264_nvenc": "dev/nvidia0", "h264_qsv": "dev/dri/renderD128", "h264_v4l2m2m": "dev/video11"}
OPTION = re.compile(r"  -(\S+) +<(\w+)> +E..V")
WORD = re.compile(r"     (\S+) +-?\d+ +E..V")


def help_of(topic):
    return subprocess.run(["ffmpeg", "-hide_banner", "-h", topic], capture_output=True, text=True,
                          check=True).stdout.splitlines()


def options_in(lines):
    """Each option of encoders of pictures with the words that it takes."""
    options, words = {}, None
    for line in lines:
        if option := OPTION.match(line):
            words = options.setdefault(option[1], [])
        elif (word := WORD.match(line)) and words is not None:
            words.append(word[1])
        elif not line.startswith(" "):
            words = None
    return options


@functools.cache
def foreign_options():
    """Options that single encoders have, and not all of them."""
    lines = help_of("full")
    start = lines.index("AVCodecContext AVOptions:")
    end = next(i for i in range(start + 1, len(lines)) if lines[i].endswith("AVOptions:"))
    return set(options_in(lines[end:])) - set(options_in(lines[start:end]))


def told(encoder):
    own = options_in(help_of(f"encoder={encoder}"))
    # Its own generic options may have other defaults, and no other names.
    words = [f"{name}={','.join(values)}" if values else name for name, values in own.items()]
    return " ".join([encoder, *words, *(f"!{name}" for name in sorted(foreign_options() - set(own)))])


class Machine(card.Machine):
    def __init__(self, encoder):
        super().__init__(nodes=())
        self.encoder = encoder
        (self.root / NODES[encoder]).symlink_to("/dev/null")
        self.environment["ORVO_TEST_ENCODER"] = told(encoder)

    def prove(self, failure="", encoder=""):
        return super().prove(failure, encoder or self.encoder)


def on(encoder, case):
    """The case on a machine with this encoder."""
    class Case(case):
        LEAST = 10000

        def machine(self):
            machine = Machine(encoder)
            self.addCleanup(machine.close)
            return machine

        def setUp(self):
            self.on = self.machine()
            self.assertRegex(self.on.prove(), "^1080 lines")

    Case.__name__ = Case.__qualname__ = f"{case.__name__}_{encoder}"
    return Case


def refusals(encoder):
    class Refusals(card.Case):
        def test_an_option_of_another_encoder_is_refused(self):
            machine = Machine(encoder)
            self.addCleanup(machine.close)
            for options in (["-crf", "23"], ["-rc_mode", "CBR"], ["-x264-params", "a=b"]):
                command = ["/usr/bin/ffmpeg", "-f", "lavfi", "-i", "testsrc2=d=1", "-vcodec", encoder, *options, "-f",
                           "null", "-"]
                said = subprocess.run(command, env=machine.environment, capture_output=True, text=True, check=False)
                self.assertNotEqual(said.returncode, 0, options)
                self.assertIn(f"{encoder} takes no", said.stderr)

    Refusals.__name__ = Refusals.__qualname__ = f"Refusals_{encoder}"
    return Refusals


def load_tests(loader, _tests, _pattern):
    suite = unittest.TestSuite()
    for encoder in NODES:
        for case in (run_test.Runs, run_test.ByteStreams):
            suite.addTests(loader.loadTestsFromTestCase(on(encoder, case)))
        suite.addTests(loader.loadTestsFromTestCase(refusals(encoder)))
    return suite


if __name__ == "__main__":
    card.take_arguments(sys.argv[1:3])
    with tempfile.TemporaryDirectory() as films:
        run_test.FILM = os.fspath(pathlib.Path(films, "film.mkv"))
        run_test.make_film(run_test.FILM)
        wanted = ["-k", sys.argv[3]] if len(sys.argv) > 3 else []
        sys.exit(not unittest.main(argv=[sys.argv[0], *wanted], verbosity=2, exit=False).result.wasSuccessful())
