#!/usr/bin/env python3
"""A run that becomes fragments, as a process: it waits for its viewer, ends when it is told to, shows
nothing unfinished and leaves nobody behind.

Usage: fragment_run_test.py TRANSCODER PROFILES [TEST...]
"""
import json
import os
import pathlib
import select
import shutil
import signal
import sys
import tempfile
import unittest

from fragments import LENGTH, Run, make, sized

TRANSCODER = ARGUMENTS = ""
KEY = "smoothstreaming_hd480_x264_vb1000_vf15_aac_ab96"
LEAD = 12  # fragments that a run may be ahead
# More than a pipe holds, so that a run that waits has its transcoder waiting too.
SECONDS = 120
LAST = SECONDS // LENGTH - 1
PATIENCE = 30
QUIET = 0.5  # a run that has not moved for so long is waiting


def has_ended(pidfd):
    return bool(select.select([pidfd], [], [], PATIENCE)[0])


class FragmentRun(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        os.environ["ORVO_SYSROOT"] = str(cls.folder)
        cls.film = make(cls.folder / "film.mp4",
                        "-f", "lavfi", "-i", f"color=s=128x96:r=5:d={SECONDS},noise=alls=100:allf=t",
                        "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p")
        cls.runs = 0

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def run_of(self, start=0):
        type(self).runs += 1
        return Run(TRANSCODER, self.film, self.folder / f"run{self.runs}", sized(ARGUMENTS, "128x96"), start,
                   SECONDS)

    def started(self, run):
        run.start()
        self.addCleanup(run.process.stderr.close)
        self.addCleanup(run.process.wait)
        self.addCleanup(run.process.kill)
        return run

    def request(self, run, number):
        path = run.folder / "requested.new"
        path.write_text(f"{number}")
        path.rename(run.folder / "requested")

    def ends_within(self, run, seconds):
        pidfd = os.pidfd_open(run.process.pid)
        ended = bool(select.select([pidfd], [], [], seconds)[0])
        os.close(pidfd)
        return ended and run.process.wait() is not None

    def wait_for(self, run, number):
        for _ in range(int(PATIENCE / 0.02)):
            if number in run.numbers() or self.ends_within(run, 0.02):
                break
        self.assertIn(number, run.numbers())

    def paused(self, newest=0):
        run = self.run_of()
        self.request(run, newest)
        self.started(run)
        self.wait_for(run, newest + LEAD + 1)
        self.assertFalse(self.ends_within(run, QUIET))
        self.assertEqual(run.numbers()[-1], newest + LEAD + 1)
        return run

    def child(self, run):
        pid = run.process.pid
        return int(pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()[0])

    def test_a_run_whose_viewer_says_nothing_goes_to_the_end(self):
        run = self.run_of().finish()
        run.process.stderr.close()
        self.assertEqual(run.numbers(), list(range(LAST + 1)))
        self.assertEqual(run.numbers("audio"), list(range(LAST + 1)))

    def test_where_boxes_share_the_blocks_a_run_makes_the_rest_of_its_block_and_ends(self):
        os.environ["ORVO_BLOCKS"] = "1"
        self.addCleanup(os.environ.pop, "ORVO_BLOCKS")
        for first, last in ((0, 0), (1, 2), (8, 9), (LAST, LAST)):
            run = self.started(self.run_of(first * LENGTH))
            self.assertTrue(self.ends_within(run, PATIENCE))
            self.assertEqual(run.process.returncode, 0)
            for track in ("video", "audio"):
                self.assertEqual(run.numbers(track), list(range(first, last + 1)))
                self.assertEqual(run.announced(track), [])

    def test_a_run_waits_for_its_viewer_and_goes_on(self):
        run = self.paused()
        self.request(run, 3)
        self.wait_for(run, 3 + LEAD + 1)
        self.assertFalse(self.ends_within(run, QUIET))
        self.assertEqual(run.numbers()[-1], 3 + LEAD + 1)
        self.request(run, LAST)
        self.assertTrue(self.ends_within(run, PATIENCE))
        self.assertEqual(run.process.returncode, 0)
        self.assertEqual(run.numbers(), list(range(LAST + 1)))

    def test_fragments_appear_in_order_and_sound_first(self):
        run = self.started(self.run_of())
        while not self.ends_within(run, 0.01):
            pictures, sound = run.numbers(), run.numbers("audio")
            self.assertEqual(pictures, list(range(len(pictures))))
            self.assertLessEqual(set(pictures), set(run.numbers("audio")) | set(sound))
        self.assertEqual(run.process.returncode, 0)

    def test_a_fragment_counts_as_complete_as_soon_as_it_is_there(self):
        run = self.paused()
        self.assertEqual(run.announced("video"), [run.numbers()[-1] + 1])
        self.assertEqual(run.announced("audio"), [run.numbers("audio")[-1] + 1])
        self.request(run, LAST)
        self.assertTrue(self.ends_within(run, PATIENCE))
        self.assertEqual([run.announced(track) for track in ("video", "audio")], [[], []])

    def test_a_fragment_does_not_change_once_it_is_there(self):
        run = self.started(self.run_of())
        seen = {}
        while not self.ends_within(run, 0.01):
            for key, path in run.files().items():
                seen.setdefault(key, path.read_bytes())
        self.assertEqual(seen, {key: run.files()[key].read_bytes() for key in seen})

    def test_a_stopped_run_shows_nothing_half_and_leaves_no_process(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            run = self.paused()
            child = os.pidfd_open(self.child(run))
            run.process.send_signal(number)
            self.assertTrue(self.ends_within(run, PATIENCE))
            self.assertNotEqual(run.process.returncode, 0)
            self.assertTrue(has_ended(child))
            self.assertEqual(run.numbers(), list(range(LEAD + 2)))
            self.assertEqual(sorted(p.name[:13] for p in (run.folder / "smooth").iterdir()), ["QualityLevels"] * 2)
            self.assertEqual([run.announced(track) for track in ("video", "audio")], [[], []])
            os.close(child)

    def test_a_killed_run_takes_its_transcoder_along(self):
        run = self.paused()
        child = os.pidfd_open(self.child(run))
        run.process.kill()
        self.assertTrue(has_ended(child))
        os.close(child)

    def test_a_run_ends_with_its_transcoder(self):
        run = self.paused()
        os.kill(self.child(run), signal.SIGKILL)
        self.assertTrue(self.ends_within(run, PATIENCE))
        self.assertEqual(run.process.returncode, 128 + signal.SIGKILL)

    def test_a_folder_that_is_gone_ends_the_run(self):
        run = self.paused()
        shutil.rmtree(run.folder / "smooth")
        self.request(run, LAST)
        self.assertTrue(self.ends_within(run, PATIENCE))
        self.assertEqual(run.process.returncode, 1)

    def test_progress_can_be_read(self):
        run = self.paused()
        links = [os.readlink(link) for link in pathlib.Path(f"/proc/{run.process.pid}/fd").iterdir()]
        self.assertIn("/memfd:orvo-progress (deleted)", links)


if __name__ == "__main__":
    TRANSCODER = sys.argv.pop(1)
    ARGUMENTS = json.loads(pathlib.Path(sys.argv.pop(1), "x86_2.json").read_text())[KEY]
    unittest.main()
