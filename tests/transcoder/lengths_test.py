#!/usr/bin/env python3
"""Fragments and segments of other lengths than usual, at the end of ten hours, and behind the last picture.

Usage: lengths_test.py TRANSCODER PROFILES [TEST...]
"""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

from fragments import TICKS, Run, annex_b, make, run_binary, samples_of, sized

TRANSCODER = ""
PROFILES = {}
FRAGMENTS, SEGMENTS = "smoothstreaming_240p_x264_vb320_vf15_aac_ab40", "hls_240p_vb300_ab96"
RATE = 25
HOURS = 36000  # seconds
DELAY = 1.4  # of the segments' clock
X264 = ["-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-g", "100", "-c:a", "aac"]


def pictures(seconds):
    return ["-f", "lavfi", "-i", f"testsrc2=s=64x48:r={RATE}:d={seconds}"]


def sound(seconds):
    return ["-f", "lavfi", "-i", f"sine=440:b=2:r=48000:d={seconds}"]


def after_a_gap(filters):
    """One second at the film's start and the rest at the end of ten hours."""
    return f"{filters}='if(lt(T,1),PTS,PTS+{HOURS - 12}/TB)'"


class Lengths(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        os.environ["ORVO_SYSROOT"] = str(cls.folder)
        cls.runs = 0

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def fragments(self, film, **more):
        type(self).runs += 1
        run = Run(TRANSCODER, film, self.folder / f"run{self.runs}", sized(PROFILES[FRAGMENTS], "320x240"), **more)
        run.finish().process.stderr.close()
        return run.fragments()

    def ten_hours(self):
        return make(self.folder / "hours.mkv", *pictures(12), *sound(12), "-vf", after_a_gap("setpts"), "-af",
                    after_a_gap("asetpts"), *X264)

    def check_starts(self, fragments, length):
        for (track, number), fragment in fragments.items():
            late = fragment.samples[0].time / TICKS - number * length
            self.assertLess(abs(late), 1 / RATE, (track, number))

    def test_fragments_have_any_length(self):
        film = make(self.folder / "film.mkv", *pictures(6.4), *sound(6.4), *X264)
        for length in (0.5, 2.5):
            whole = self.fragments(film, length=length, seconds=6)
            count = -int(-6 // length)
            self.assertEqual(list(whole), [(track, n) for track in ("audio", "video") for n in range(count)])
            self.check_starts(whole, length)
            part = self.fragments(film, length=length, seconds=6, start=5)
            self.assertEqual(list(part), [key for key in whole if key[1] >= 5 / length])
            for key, fragment in part.items():
                self.assertEqual([s.time for s in fragment.samples], [s.time for s in whole[key].samples], key)

    def test_ten_hours_end_as_they_begin(self):
        film = self.ten_hours()
        for length in (0.5, 2.5):
            found = self.fragments(film, length=length, start=HOURS - 10, seconds=HOURS)
            numbers = range(int((HOURS - 10) / length), int(HOURS / length))
            self.assertEqual(list(found), [(track, n) for track in ("audio", "video") for n in numbers])
            self.check_starts(found, length)

    def test_short_segments_start_with_their_key_frames(self):
        film = self.ten_hours()
        for length in (2, 3):
            first = (HOURS - 12) // length + 1
            folder = self.folder / f"segments{length}"
            folder.mkdir()
            subprocess.run([TRANSCODER, "-ss", f"{first * length}.000", "-i", film, *PROFILES[SEGMENTS].split(" "),
                            "-hls_seek_time", f"{first * length * 1000}", "-segment_time", f"{length}",
                            "-segment_start_number", f"{first}", folder / "%d.ts"], check=True)
            for number in range(first, HOURS // length):
                text = run_binary(["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries",
                                   "packet=pts_time,flags", "-of", "csv=p=0", folder / f"{number}.ts"]).decode()
                time, flags = text.split("\n")[0].split(",")[:2]
                self.assertIn("K", flags)
                self.assertLess(abs(float(time) - number * length - DELAY), 1 / RATE)

    def last_picture(self, fragment):
        return run_binary(["ffmpeg", "-v", "error", "-f", "h264", "-i", "-", "-vf", "scale=16:12,format=gray",
                           "-fps_mode", "passthrough", "-f", "rawvideo", "-"], annex_b(fragment.samples))[-16 * 12:]

    def check_end(self, whole, part, first):
        self.assertEqual(list(part), [key for key in whole if key[1] >= first])
        ours, theirs = self.last_picture(part["video", first]), self.last_picture(whole["video", first])
        self.assertLess(max(abs(a - b) for a, b in zip(ours, theirs)), 24)
        for track in ("video", "audio"):
            last = samples_of(part, track)[-1]
            self.assertGreaterEqual(last.time + last.duration, 33 * TICKS)

    def test_a_run_behind_the_last_picture_makes_what_is_left(self):
        for name in ("still.mkv", "still.ts"):
            film = make(self.folder / name, *pictures(6), *sound(33.2), *X264)
            whole = self.fragments(film, seconds=33)
            for start in (10, 30):
                self.check_end(whole, self.fragments(film, start=start, seconds=33), start // 5)

    def test_a_run_behind_everything_makes_what_is_promised(self):
        film = make(self.folder / "short.mkv", *pictures(6), *sound(6), *X264)
        found = self.fragments(film, start=10, seconds=13)
        self.assertEqual(list(found), [("audio", 2), ("video", 2)])


if __name__ == "__main__":
    TRANSCODER = sys.argv.pop(1)
    PROFILES = json.loads(pathlib.Path(sys.argv.pop(1), "x86_2.json").read_text())
    unittest.main()
