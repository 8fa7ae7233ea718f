#!/usr/bin/env python3
"""A run that becomes segments, as a process: it waits for its viewer, ends when it is told to, leaves
nothing unfinished and nobody behind.

Usage: segment_run_test.py TRANSCODER
"""
import os
import pathlib
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

TRANSCODER = ""
LEAD = 12  # segments that a run may be ahead
LENGTH = 8
SECONDS = 200
LAST = SECONDS // LENGTH - 1
PATIENCE = 20
QUIET = 0.5  # a run that has not moved for so long is waiting


def make_film(path, seconds=SECONDS):
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                    f"testsrc2=s=320x240:r=25:d={seconds}", "-f", "lavfi", "-i",
                    f"sine=440:b=2:r=48000:d={seconds}", "-c:v", "libx264", "-preset", "ultrafast",
                    "-b:v", "2M", "-g", "50", "-c:a", "aac", path], check=True)


class Running:
    """A remux into a folder of its own."""
    parent = None  # the process that has the copies as its children; None: each run has its own

    def __init__(self, test, film, number=0, variables=None):
        self.folder = tempfile.mkdtemp(dir=test.folder)
        self.film, self.number = film, number
        self.environment = {**os.environ, **(variables or {})}

    def start(self):
        start = self.number * LENGTH
        command = [TRANSCODER, "-ss", f"{start}.000", "-i", self.film, "-vcodec", "copy",
                   "-bsf:v", "h264_mp4toannexb", "-acodec", "copy",
                   "-hls_seek_time", f"{start * 1000}", "-segment_time", f"{LENGTH}",
                   "-segment_time_delta", "0.000", "-segment_start_number", f"{self.number}",
                   "-break_non_keyframes", "0", "-map", "0:v", "-map", "0:a",
                   f"{self.folder}/slice-%05d.ts"]
        self.process = subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return self

    def request(self, number):
        path = pathlib.Path(self.folder, "requested.new")
        path.write_text(f"{number}")
        path.rename(pathlib.Path(self.folder, "requested"))
        return self

    def path(self, number):
        return pathlib.Path(self.folder, f"slice-{number:05}.ts")

    def numbers(self):
        return sorted(int(path.stem[6:]) for path in pathlib.Path(self.folder).glob("slice-*.ts"))

    def ends_within(self, seconds):
        try:
            self.process.wait(seconds)
            return True
        except subprocess.TimeoutExpired:
            return False

    def wait_for(self, number):
        for _ in range(int(PATIENCE / 0.01)):
            if self.path(number).exists():
                return True
            if self.ends_within(0.01):
                break
        return self.path(number).exists()

    def child(self):
        pid = self.parent or self.process.pid
        return int(pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()[0])

    def contents(self):
        return {number: self.path(number).read_bytes() for number in self.numbers()}


def has_ended(pidfd):
    return bool(select.select([pidfd], [], [], PATIENCE)[0])


class SegmentRun(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp()
        os.environ["ORVO_SYSROOT"] = cls.folder
        cls.film = os.path.join(cls.folder, "film.mp4")
        make_film(cls.film)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def paused(self, newest=0):
        running = Running(self, self.film).request(newest).start()
        self.addCleanup(running.process.wait)
        self.addCleanup(running.process.kill)
        self.assertTrue(running.wait_for(newest + LEAD + 1))
        self.assertFalse(running.ends_within(QUIET))
        return running

    def whole(self):
        running = Running(self, self.film).start()
        self.assertTrue(running.ends_within(PATIENCE))
        self.assertEqual(running.process.returncode, 0)
        return running

    def test_where_boxes_share_the_blocks_a_run_makes_the_rest_of_its_block_and_ends(self):
        whole = self.whole().contents()
        for first, last in ((0, 0), (1, 2), (2, 2), (7, 9), (10, 13), (LAST, LAST)):
            running = Running(self, self.film, first, {"ORVO_BLOCKS": "1"}).request(first).start()
            self.assertTrue(running.ends_within(PATIENCE))
            self.assertEqual(running.process.returncode, 0)
            made = running.contents()
            self.assertEqual(list(made), list(range(first, last + 1)))
            self.assertEqual(made, {number: whole[number] for number in made})

    def test_a_run_whose_viewer_says_nothing_goes_to_the_end(self):
        self.assertEqual(self.whole().numbers(), list(range(LAST + 1)))

    def test_a_run_waits_for_its_viewer_and_loses_nothing(self):
        running = self.paused()
        self.assertEqual(running.numbers(), list(range(LEAD + 2)))
        running.request(3)
        self.assertTrue(running.wait_for(3 + LEAD + 1))
        self.assertFalse(running.ends_within(QUIET))
        self.assertEqual(running.numbers()[-1], 3 + LEAD + 1)
        running.request(LAST)
        self.assertTrue(running.ends_within(PATIENCE))
        self.assertEqual(running.process.returncode, 0)
        self.assertEqual(running.contents(), self.whole().contents())

    def test_a_viewer_who_goes_back_does_not_move_a_run(self):
        running = self.paused(5)
        running.request(1)
        self.assertFalse(running.ends_within(QUIET))
        self.assertEqual(running.numbers()[-1], 5 + LEAD + 1)

    def test_a_damaged_request_counts_as_the_first_segment(self):
        running = Running(self, self.film, 4).request("x").start()
        self.addCleanup(running.process.wait)
        self.addCleanup(running.process.kill)
        self.assertTrue(running.wait_for(4 + LEAD + 1))
        self.assertFalse(running.ends_within(QUIET))

    def test_a_segment_is_complete_when_the_next_one_is_there(self):
        running = Running(self, self.film).start()
        sizes = {}
        for number in range(LAST):
            self.assertTrue(running.wait_for(number + 1))
            sizes[number] = running.path(number).stat().st_size
        self.assertTrue(running.ends_within(PATIENCE))
        self.assertEqual(sizes, {n: running.path(n).stat().st_size for n in range(LAST)})

    def test_a_stopped_run_leaves_no_half_segment_and_no_process(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            running = self.paused()
            child = os.pidfd_open(running.child())
            running.process.send_signal(number)
            self.assertTrue(running.ends_within(PATIENCE))
            self.assertNotEqual(running.process.returncode, 0)
            self.assertTrue(has_ended(child))
            self.assertEqual(running.numbers(), list(range(LEAD + 1)))
            os.close(child)

    def test_a_killed_run_takes_its_transcoder_along(self):
        running = self.paused()
        child = os.pidfd_open(running.child())
        running.process.kill()
        self.assertTrue(has_ended(child))
        os.close(child)

    def test_a_run_ends_with_its_transcoder(self):
        running = self.paused()
        os.kill(running.child(), signal.SIGKILL)
        self.assertTrue(running.ends_within(PATIENCE))
        self.assertEqual(running.process.returncode, 128 + signal.SIGKILL)

    def test_a_truncated_film_gives_the_segments_that_it_can(self):
        path = os.path.join(self.folder, "truncated.ts")
        subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-i", self.film, "-c", "copy", path],
                       check=True)
        os.truncate(path, os.path.getsize(path) // 2)
        running = Running(self, path).start()
        self.assertTrue(running.ends_within(PATIENCE))
        self.assertIn(len(running.numbers()), range(LAST // 2, LAST // 2 + 3))

    def test_nobody_waits_for_a_segment_behind_the_films_end(self):
        running = Running(self, self.film, LAST + 5).start()
        self.assertTrue(running.ends_within(PATIENCE))
        self.assertEqual(running.process.returncode, 0)
        self.assertEqual(running.numbers(), [LAST + 5])

    def test_a_folder_that_is_gone_ends_the_run(self):
        running = self.paused()
        os.rename(running.folder, running.folder + ".gone")
        running.folder += ".gone"
        running.request(LAST)
        self.assertTrue(running.ends_within(PATIENCE))

    def test_a_stream_from_a_pipe_is_cut_as_well(self):
        running = Running(self, self.film, 2)
        source = subprocess.Popen(["ffmpeg", "-nostdin", "-v", "error", "-ss", "10", "-i", self.film,
                                   "-t", "32", "-c:v", "libx264", "-preset", "ultrafast", "-g", "25",
                                   "-c:a", "copy", "-f", "mpegts", "pipe:1"],
                                  stdout=subprocess.PIPE)
        subprocess.run([TRANSCODER, "-i", f"pipe:{source.stdout.fileno()}", "-map", "0",
                        "-codec", "copy", "-f", "segment", "-segment_time", "5",
                        "-segment_start_number", "2", "-hls_seek_time", "10000",
                        f"{running.folder}/slice-%05d.ts"],
                       pass_fds=[source.stdout.fileno()], stdin=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, check=True)
        source.stdout.close()
        self.assertEqual(source.wait(), 0)
        self.assertEqual(running.numbers(), [2, 3, 4, 5, 6, 7, 8])


if __name__ == "__main__":
    TRANSCODER = sys.argv.pop(1)
    unittest.main()
