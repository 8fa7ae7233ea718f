#!/usr/bin/env python3
"""Conversions that the ready FFmpeg makes are those of an FFmpeg of their own, and are as confined.

Usage: ready_parent_test.py TRANSCODER
"""
import array
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

import segment_run_test
from copy_parent_test import children, start_parent, status, wait_for
from segment_run_test import PATIENCE, has_ended, make_film

FFMPEG = "/usr/bin/ffmpeg"
ENCODED = ["-vcodec", "libx264", "-preset", "ultrafast", "-acodec", "aac", "-f", "mpegts", "pipe:1"]


class ReadyParent(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp()
        os.environ["ORVO_SYSROOT"] = cls.folder
        os.makedirs(os.path.join(cls.folder, "tmp/Mirevo"))
        cls.socket = os.path.join(cls.folder, "tmp/Mirevo/ffmpeg")
        cls.film = os.path.join(cls.folder, "film.mp4")
        make_film(cls.film, 40)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def setUp(self):
        self.parent = start_parent(self, "--ready")

    def start(self, *options):
        """A conversion that waits for its reader."""
        run = subprocess.Popen([segment_run_test.TRANSCODER, *options, "-i", self.film, *ENCODED],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.addCleanup(run.stdout.close)
        self.addCleanup(run.wait)
        self.addCleanup(run.kill)
        self.assertEqual(len(run.stdout.read(1)), 1)
        return run

    def child(self):
        (pid,) = children(self.parent.pid)
        return int(pid)

    def ask(self, command, numbers=(), files=(), text=None):
        """The answers to a message: what has begun and the exit code, if any."""
        if text is None:
            text = "".join(f"{number}," for number in numbers) + "\0" + "".join(f"{word}\0" for word in command)
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as connection:
            connection.settimeout(PATIENCE)
            connection.connect(self.socket)
            passed = [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", files))] if files else []
            connection.sendmsg([text.encode()], passed)
            return list(iter(lambda: connection.recv(64).decode(), ""))

    def test_its_bytes_are_those_of_an_ffmpeg_of_its_own(self):
        def whole():
            return subprocess.run([segment_run_test.TRANSCODER, "-ss", "20", "-i", self.film, *ENCODED], check=True,
                                  stdin=subprocess.DEVNULL, capture_output=True).stdout
        with_parent = whole()
        self.assertGreater(len(with_parent), 100_000)
        os.unlink(self.socket)
        self.assertEqual(with_parent, whole())

    def test_a_run_is_confined_and_has_no_descriptors_but_its_own(self):
        run = self.start()
        child = self.child()
        for pid in (self.parent.pid, child):
            self.assertEqual((status(pid)["Seccomp"], status(pid)["NoNewPrivs"]), ("2", "1"))
        self.assertEqual(int(status(child)["Seccomp_filters"]), int(status(self.parent.pid)["Seccomp_filters"]) + 1)
        names = [os.readlink(entry) for entry in pathlib.Path(f"/proc/{child}/fd").iterdir()]
        self.assertEqual([name for name in names if name.startswith("socket:")], [])
        self.assertEqual(os.readlink(f"/proc/{child}/exe"), FFMPEG)
        self.assertIsNone(run.poll())

    def test_a_run_reads_its_film_and_no_other(self):
        other = shutil.copy(self.film, os.path.join(self.folder, "other.mp4"))
        tail = ["-t", "0.1", "-f", "null", "-"]
        with open(self.film, "rb") as film, open(os.devnull, "r+b") as null:
            numbers, files = (0, 1, 2, 40), [null.fileno()] * 3 + [film.fileno()]
            own = [FFMPEG, "-nostdin", "-i", "/proc/self/fd/40"]
            self.assertEqual(self.ask([*own, *tail], numbers, files), ["-1", "0"])
            strange = [*own, "-filter_complex", f"movie={other}[v]", "-map", "[v]", *tail]
            self.assertEqual(self.ask(strange, numbers, files), ["-1", "1"])
            self.assertEqual(subprocess.run([FFMPEG, "-v", "quiet", "-nostdin", "-i", self.film, *strange[4:]],
                                            check=False).returncode, 0)

    def test_a_seek_decodes_less_and_shows_the_same_pictures(self):
        kinds = {"pyramid.mp4": ["-bf", "3"], "open.mkv": ["-bf", "3", "-x264-params", "open-gop=1"],
                 "interlaced.mkv": ["-bf", "2", "-flags", "+ilme+ildct"], "plain.mp4": ["-bf", "0"]}
        for name, options in kinds.items():
            film = os.path.join(self.folder, name)
            subprocess.run([FFMPEG, "-nostdin", "-v", "error", "-f", "lavfi", "-i", "testsrc2=s=320x240:r=25:d=24",
                            "-c:v", "libx264", "-preset", "fast", "-g", "250", "-sc_threshold", "0", *options, film],
                           check=True)
            for second in ("0", "9.5", "19.02"):
                with self.subTest(film=name, second=second):
                    own, decoded = self.pictures(film, second, ready=False)
                    pictures, fewer = self.pictures(film, second, ready=True)
                    self.assertGreater(len(pictures.splitlines()), 20)
                    self.assertEqual(pictures, own)
                    if second == "0" or name == "plain.mp4":
                        self.assertEqual(fewer, decoded)
                    else:
                        self.assertLess(fewer, decoded - 50)

    def pictures(self, film, second, ready):
        """The checksums of two seconds of pictures from there on, and the number of decoded ones."""
        with open(film, "rb") as source, open(os.devnull, "rb") as null, tempfile.TemporaryFile() as sums, \
                tempfile.TemporaryFile() as log:
            command = [FFMPEG, "-nostdin", "-v", "verbose", "-threads", "1", "-ss", second, "-i", "/proc/self/fd/40",
                       "-t", "2", "-map", "0:v", "-f", "framehash", "-hash", "md5", "pipe:1"]
            if ready:
                files = [file.fileno() for file in (null, sums, log, source)]
                self.assertEqual(self.ask(command, (0, 1, 2, 40), files), ["-1", "0"])
            else:
                command[command.index("/proc/self/fd/40")] = film
                subprocess.run(command, stdout=sums, stderr=log, check=True)
            sums.seek(0)
            log.seek(0)
            lines = [line for line in sums.read().decode().splitlines() if not line.startswith("#")]
            return "\n".join(lines), int(re.search(r"(\d+) frames decoded", log.read().decode())[1])

    def test_lists_of_processes_show_its_command(self):
        self.start("-ss", "20")
        words = pathlib.Path(f"/proc/{self.child()}/cmdline").read_text().split("\0")
        self.assertEqual(words[0], FFMPEG)
        self.assertIn("libx264", words)
        self.assertIn(self.folder, pathlib.Path(f"/proc/{self.child()}/environ").read_text())

    def test_a_run_ends_with_its_transcoder(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGKILL):
            run = self.start()
            child = os.pidfd_open(self.child())
            run.send_signal(number)
            self.assertTrue(has_ended(child))
            self.assertNotEqual(run.wait(PATIENCE), 0)
            self.assertTrue(wait_for(lambda: not children(self.parent.pid)))
            os.close(child)

    def test_a_run_ends_with_its_reader(self):
        run = self.start()
        child = os.pidfd_open(self.child())
        run.stdout.close()
        self.assertTrue(has_ended(child))
        self.assertNotEqual(run.wait(PATIENCE), 0)
        os.close(child)

    def test_the_reader_sees_the_end_of_a_run_that_was_killed(self):
        run = self.start()
        os.kill(self.child(), signal.SIGKILL)
        run.stdout.read()
        self.assertEqual(run.wait(PATIENCE), 128 + signal.SIGKILL)

    def test_runs_end_with_the_parent(self):
        run = self.start()
        self.parent.kill()
        run.stdout.read()
        self.assertEqual(run.wait(PATIENCE), 128 + signal.SIGKILL)

    def test_a_transcoder_becomes_ffmpeg_where_the_parent_does_not_answer(self):
        self.parent.send_signal(signal.SIGSTOP)
        run = self.start()
        self.assertEqual(os.readlink(f"/proc/{run.pid}/exe"), FFMPEG)
        self.parent.send_signal(signal.SIGCONT)
        self.assertTrue(wait_for(lambda: not children(self.parent.pid)))

    def test_a_transcoder_becomes_ffmpeg_where_the_parent_has_ended(self):
        self.parent.kill()
        self.parent.wait()
        run = self.start()
        self.assertEqual(os.readlink(f"/proc/{run.pid}/exe"), FFMPEG)

    def test_a_message_that_is_no_run_is_refused_and_harms_nobody(self):
        with open(os.devnull, "r+b") as null:
            for text in ("x", "\0", "1,1,\0ffmpeg\0", "1,\0ffmpeg", "-1,\0ffmpeg\0", "99999,\0ffmpeg\0",
                         "1,2,\0ffmpeg\0"):
                self.assertEqual(self.ask([], text=text, files=[null.fileno()]), [], text)
        self.start()


if __name__ == "__main__":
    segment_run_test.TRANSCODER = sys.argv.pop(1)
    unittest.main()
