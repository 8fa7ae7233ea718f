#!/usr/bin/env python3
"""The wrapper on a video engine: proved, in its seat of the register, and what happens when the engine fails.

Usage: engine_test.py WRAPPER TRANSCODER PLUGIN
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

WRAPPER, TRANSCODER, PLUGIN = (os.path.abspath(path) for path in sys.argv[1:4])
PATIENCE = 120
NO_SEAT = 75
SECONDS = 4
RATE = 25
START = 1  # second of the streams of bytes
FOLDER = tempfile.TemporaryDirectory()
FILM = os.path.join(FOLDER.name, "film.mkv")


def setUpModule():
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                    f"testsrc2=s=320x180:r={RATE}:d={SECONDS}", "-f", "lavfi", "-i", f"sine=d={SECONDS}",
                    "-c:v", "libx264", "-preset", "ultrafast", "-g", "50", "-c:a", "aac", FILM], check=True)


def tearDownModule():
    FOLDER.cleanup()


class Machine(unittest.TestCase):
    """A system root with a device, and GStreamer with an encoder that says that it uses it."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.root = pathlib.Path(folder.name)
        for name in ("dev/dri", "var/packages/Mirevo/etc", "etc.defaults", "tmp/Mirevo"):
            (cls.root / name).mkdir(parents=True)
        (cls.root / "dev/dri/renderD128").symlink_to("/dev/null")
        (cls.root / "var/packages/Mirevo/target").symlink_to(pathlib.Path(WRAPPER).parents[1])
        (cls.root / "etc.defaults/orvoinfo.conf").write_text('unique="maker_apollolake_box"\n')
        plugins = os.path.dirname(PLUGIN)
        (cls.root / "var/packages/Mirevo/etc/confinement.conf").write_text(f"libraries={plugins}\n")
        cls.environment = {**os.environ, "ORVO_SYSROOT": str(cls.root), "GST_PLUGIN_PATH": plugins,
                           "GST_REGISTRY": os.path.join(FOLDER.name, "registry.bin")}

    @classmethod
    def state(cls, name):
        return cls.root / "tmp/Mirevo" / name

    @classmethod
    def prove(cls, failure=""):
        result = subprocess.run([TRANSCODER, "--prove"], capture_output=True, text=True, check=True,
                                env={**cls.environment, "ORVO_TEST_ENGINE": failure})
        return dict(line.split(": ", 1) for line in result.stdout.splitlines())["orvo-gst"]

    def register(self, others):
        entries = [{"PID": pid, "hardware_transcode": hardware, "offline_conversion": False}
                   for pid, hardware in (*others, (os.getpid(), True))]
        self.state("enabled").write_text(json.dumps(entries))

    def registered(self, pid):
        """Is the process in the register as one on hardware? None if it is not there."""
        entries = json.loads(self.state("enabled").read_text())
        return next((row["hardware_transcode"] for row in entries if row["PID"] == pid), None)

    def convert(self, failure="", others=(), options=(), start=0):
        """The ended process, with what it said, its output and the number of pictures that it made."""
        out = self.root / "out.ts"
        with open(out, "wb") as file:
            process = subprocess.Popen([WRAPPER, "-s", f"{start}", "-i", FILM, "--vb", "500k", "--acodec", "aac",
                                        *options, "-o", f"fd:{file.fileno()}"], pass_fds=[file.fileno()],
                                       stderr=subprocess.PIPE, text=True,
                                       env={**self.environment, "ORVO_TEST_ENGINE": failure},
                                       preexec_fn=lambda: self.register(others))
            process.said = process.communicate(timeout=PATIENCE)[1]
        shown = subprocess.run(["ffprobe", "-v", "error", "-count_packets", "-select_streams", "v",
                                "-show_entries", "stream=nb_read_packets", "-of", "csv=p=0", out],
                               capture_output=True, text=True, check=False).stdout
        process.pictures = int(shown.split()[0]) if shown.split() else 0
        process.output = out
        return process


class Engines(Machine):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.proof, cls.proved = cls.prove(), cls.state("transcoder_engines").read_text()
        cls.complaint, cls.failed = cls.prove("picture=2"), cls.state("transcoder_engines").read_text()

    def know(self, record):
        self.state("transcoder_engines").write_text(record)

    def assert_whole(self, process, is_on_hardware):
        self.assertEqual(process.returncode, 0, process.said)
        self.assertEqual(process.pictures, SECONDS * RATE)
        self.assertIs(self.registered(process.pid), is_on_hardware)

    def test_an_engine_is_proved_by_what_it_encodes(self):
        self.assertRegex(self.proof, "^1080 lines")
        self.assertRegex(self.complaint, "^It fails")

    def test_a_run_on_the_engine_keeps_its_seat(self):
        self.know(self.proved)
        self.assert_whole(self.convert(), True)

    def test_a_run_without_its_engine_takes_a_seat_of_software(self):
        self.know(self.proved)
        self.assert_whole(self.convert("picture=1"), False)
        self.know(self.failed)
        self.assert_whole(self.convert(), False)

    def test_software_keeps_to_its_own_limit(self):
        self.know(self.failed)
        process = self.convert(others=[(os.getppid(), False)])
        self.assertEqual(process.returncode, NO_SEAT, process.said)
        self.assertIs(self.registered(process.pid), None)
        self.assertEqual(process.pictures, 0)

    def test_an_engine_that_fails_in_a_film_is_not_used_for_its_rest(self):
        self.know(self.proved)
        process = self.convert(f"picture={3 * RATE}")
        self.assertEqual(process.returncode, 1)
        self.assertIn("on fire", process.said)
        self.assert_whole(self.convert(f"picture={3 * RATE}"), False)

    def stream(self, container, failure, **more):
        """A stream on the film's clock."""
        self.know(self.proved)
        return self.convert(failure, options=["--mux", container, "--shiftpts"], start=START, **more)

    def times(self, process):
        """Of the packets of each track, in seconds."""
        shown = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "packet=codec_type,pts_time", "-of", "json",
                                process.output], capture_output=True, text=True, check=True).stdout
        times = {"video": [], "audio": []}
        for packet in json.loads(shown)["packets"]:
            times[packet["codec_type"]].append(float(packet["pts_time"]))
        return times

    def assert_steady(self, times, step):
        steps = [after - before for before, after in zip(times, times[1:])]
        self.assertAlmostEqual(max(steps), step, delta=0.001)
        self.assertAlmostEqual(min(steps), step, delta=0.001)

    def test_software_goes_on_in_the_same_stream_of_bytes(self):
        for container, picture in (("mpegts", 40), ("mp4", 33)):
            with self.subTest(container):
                process = self.stream(container, f"picture={picture}")
                self.assertEqual(process.returncode, 0, process.said)
                self.assertIs(self.registered(process.pid), False)
                times = self.times(process)
                self.assertEqual(len(times["video"]), (SECONDS - START) * RATE)
                self.assertTrue(START - 0.001 < times["video"][0] < START + 1 / RATE, times["video"][0])
                self.assert_steady(times["video"], 1 / RATE)
                self.assert_steady(times["audio"], 1024 / 48000)
                decoding = ["ffmpeg", "-nostdin", "-v", "warning", "-i", process.output, "-f", "null", "-"]
                self.assertEqual(subprocess.run(decoding, capture_output=True, text=True, check=True).stderr, "")
                self.assertIn("failed in the middle", self.state("transcoder_engines").read_text())

    def test_a_stream_of_bytes_ends_where_no_more_software_may_run(self):
        process = self.stream("mpegts", "picture=40", others=[(os.getppid(), False)])
        self.assertEqual(process.returncode, NO_SEAT, process.said)
        self.assertIs(self.registered(process.pid), None)
        self.assertGreater(process.pictures, 0)


class Software(Machine):
    def test_proves_no_engine(self):
        del self.environment["GST_PLUGIN_PATH"]
        self.environment["GST_REGISTRY"] = str(self.root / "registry.bin")
        self.assertRegex(self.prove(), "^It fails")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
