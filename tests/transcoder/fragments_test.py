#!/usr/bin/env python3
"""Makes fragments of films from several starting points and looks at what is in them.

Usage: fragments_test.py TRANSCODER PROFILES [TEST...]
"""
import collections
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from fragments import (LENGTH, TICKS, Run, adts, annex_b, make, run_binary, samples_of, sized)

TRANSCODER = PROFILES = ""
FRAME = 1024 * TICKS / 48000
SMALL = "smoothstreaming_240p_x264_vb320_vf15_aac_ab40"

# What the manifests state of the pictures before there are any: the sizes of each row and the parameter
# sets of each size.
SOFTWARE_SETS = {
    "320x240": "000000016742c01eda0507e840000003004000000783c58ba80000000168ce1f20",
    "430x240": "000000016742c01eda06c7fae10000030001000003001e0f162ea00000000168ce1f20",
    "560x240": "000000016742c01eda0231fa10000003001000000301e0f162ea0000000168ce1f20",
    "430x320": "000000016742c01eda06c29eb840000003004000000783c58ba80000000168ce1f20",
    "560x320": "000000016742c01eda0230a684000003000400000300783c58ba800000000168ce1f20",
    "750x320": "000000016742c01eda02f0a7ae10000003001000000301e0f162ea0000000168ce1f20",
    "640x480": "000000016742c01eda0280f684000003000400000300783c58ba800000000168ce1f20",
    "850x480": "000000016742c01eda0360f788e10000030001000003001e0f162ea00000000168ce1f20",
    "1120x480": "000000016742c01eda01183da10000030001000003001e0f162ea00000000168ce1f20",
    "960x720": "000000016742c01eda03c05ba10000030001000003001e0f162ea00000000168ce1f20",
    "1270x720": "000000016742c01eda014016f9b840000003004000000783c58ba80000000168ce1f20",
    "1280x540": "000000016742c01eda0140117ee10000030001000003001e0f162ea00000000168ce1f20",
}
HARDWARE_SETS = {
    "430x240": "000000016742c029da06c7fafff012000d7100000303e90000bb800f162ea00000000168ce1f20",
    "1920x820": "000000016742c029da01e01a7e7ffc00a400a0400000fa40002ee003c60ca80000000168ce1f20",
}
SIZES = {"240p": ("320x240", "430x240", "560x240"), "320p": ("430x320", "560x320", "750x320"),
         "hd480": ("640x480", "850x480", "1120x480"), "hd720": ("960x720", "1270x720", "1280x540"),
         "hd1080": ("1440x1080", "1920x1080", "1920x820")}
SHAPES = ("640x480", "640x360", "640x272")
LEAST_SIMILARITY = 0.9

TEST_CARD = "testsrc2=s={size}:r={rate}:d={seconds}"
TONE = "sine=440:b=2:r=48000:d={seconds}"
X264 = ["-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"]
B_FRAMES = X264 + ["-bf", "3", "-g", "100"]
AAC = ["-c:a", "aac"]
Film = collections.namedtuple("Film", "name options rate")


def pictures(rate, seconds=13.4, size="160x120"):
    return ["-f", "lavfi", "-i", TEST_CARD.format(size=size, rate=rate, seconds=seconds)]


def sound(seconds=13.4):
    return ["-f", "lavfi", "-i", TONE.format(seconds=seconds)]


UNEVEN = ["-vf", "select='not(between(mod(n,11),3,5))'", "-fps_mode", "vfr"]
FILMS = [
    Film("film.mkv", pictures("24000/1001") + sound() + B_FRAMES + AAC, 24000 / 1001),
    Film("ntsc.mp4", pictures("30000/1001") + sound() + B_FRAMES + AAC, 30000 / 1001),
    Film("odd.mp4", pictures("17") + sound() + B_FRAMES + AAC, 17),
    Film("uneven.mkv", pictures(25) + sound() + UNEVEN + B_FRAMES + AAC, 25 / 4),
    Film("hour.ts", pictures(25) + sound() + B_FRAMES + AAC + ["-output_ts_offset", "3601"], 25),
    Film("late_sound.mkv", pictures(25) + ["-itsoffset", "0.7"] + sound() + B_FRAMES + AAC, 25),
    Film("late_pictures.mkv", ["-itsoffset", "0.5"] + pictures(25) + sound() + X264 + AAC, 25),
    Film("silent.mp4", pictures(25) + B_FRAMES, 25),
    Film("slides.mkv", pictures(1) + sound() + X264 + AAC, 1),
]


class Base(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp())
        os.environ["ORVO_SYSROOT"] = str(cls.folder)
        cls.runs = 0

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def run_of(self, film, key=SMALL, size="320x240", **more):
        type(self).runs += 1
        return Run(TRANSCODER, film, self.folder / f"run{self.runs}", sized(PROFILES[key], size), **more)

    def film(self, film):
        return make(self.folder / film.name, *film.options)


class Fragments(Base):
    """What every fragment of every film is like."""

    def check_boxes(self, fragments):
        for (track, number), fragment in fragments.items():
            self.assertEqual(fragment.boxes, ["moof", "mdat"])
            self.assertEqual(fragment.number, number + 1)
            self.assertTrue(fragment.samples[0].is_key)
            if track == "video":
                self.assertEqual(annex_b(fragment.samples[:1])[4] & 0x1F, 7, "parameter sets come first")

    def check_clock(self, film, fragments, end):
        """Each starts where its name says and both tracks are without a gap up to the end."""
        for (track, number), fragment in fragments.items():
            late = fragment.samples[0].time - number * LENGTH * TICKS
            bound = TICKS / film.rate + 1000 if track == "video" else FRAME / 2 + 1
            self.assertLessEqual(abs(late), bound, (track, number))
            self.assertGreater(late, -FRAME, (track, number))
        for track in ("video", "audio"):
            found = samples_of(fragments, track)
            for before, after in zip(found, found[1:]):
                self.assertLessEqual(abs(before.time + before.duration - after.time), 1, track)
            last = found[-1].time + found[-1].duration - end * TICKS
            self.assertTrue(-FRAME / 2 <= last <= FRAME, (track, last))

    def check_part(self, whole, part, first):
        self.assertEqual(list(part), [key for key in whole if key[1] >= first])
        for key, fragment in part.items():
            ours, theirs = fragment.samples, whole[key].samples
            self.assertEqual(len(ours), len(theirs), key)
            for mine, its in zip(ours, theirs):
                self.assertLessEqual(abs(mine.time - its.time), 10000, key)

    def check_film(self, film):
        path = self.film(film)
        whole = self.run_of(path, seconds=13).finish().fragments()
        self.assertEqual(list(whole), [(track, n) for track in ("audio", "video") for n in range(3)])
        self.check_boxes(whole)
        self.check_clock(film, whole, 13)
        part = self.run_of(path, start=5, seconds=13).finish().fragments()
        self.check_boxes(part)
        self.check_part(whole, part, 1)

    def test_they_follow_each_other_and_are_the_same_in_every_run(self):
        for film in FILMS:
            with self.subTest(film.name):
                self.check_film(film)

    def test_a_start_between_fragments_gives_the_ones_that_are_whole(self):
        path = self.film(FILMS[0])
        self.assertEqual(self.run_of(path, start=3, seconds=13).finish().numbers(), [1, 2])

    def test_what_ends_early_is_made_up_for(self):
        for name, seconds, shorter in (("still.mkv", (6, 13.4), "video"), ("mute.mkv", (13.4, 6), "audio")):
            with self.subTest(name):
                path = make(self.folder / name, *pictures(25, seconds[0]), *sound(seconds[1]), *B_FRAMES, *AAC)
                whole = self.run_of(path, seconds=13).finish().fragments()
                self.assertEqual(list(whole), [(t, n) for t in ("audio", "video") for n in range(3)])
                self.check_boxes(whole)
                found = samples_of(whole, shorter)
                self.assertGreaterEqual(found[-1].time + found[-1].duration, 13 * TICKS)

    def test_without_a_manifest_both_tracks_reach_the_films_end(self):
        path = self.film(FILMS[0])
        whole = self.run_of(path).finish().fragments()
        ends = [samples_of(whole, track)[-1] for track in ("video", "audio")]
        ends = [(sample.time + sample.duration) / TICKS for sample in ends]
        self.assertEqual(list(whole), [(t, n) for t in ("audio", "video") for n in range(3)])
        self.assertLess(max(ends) - min(ends), 0.05)
        self.assertGreater(min(ends), 13.35)


class Pictures(Base):
    """That a client decodes them with nothing but the manifest's parameter sets before them."""

    def check_row(self, key, size, film):
        sets = (HARDWARE_SETS if "smd" in key else SOFTWARE_SETS).get(size)
        if sets is None:
            return
        whole = self.run_of(film, key, size, seconds=2).finish().fragments()
        data = annex_b(samples_of(whole, "video"))
        if "smd" not in key:
            self.assertTrue(data.startswith(bytes.fromhex(sets)), "the sets in the stream are the manifest's")
        stream = self.folder / "stream.h264"
        stream.write_bytes(bytes.fromhex(sets) + data)
        self.check_pictures(stream, size, film)

    def check_pictures(self, stream, size, film):
        scale = size.replace("x", ":")
        result = subprocess.run(
            ["ffmpeg", "-nostdin", "-hide_banner", "-r", "24", "-i", stream, "-i", film, "-lavfi",
             f"[0:v]settb=1/24,setpts=N[a];[1:v]scale={scale},settb=1/24,setpts=N[b];[a][b]ssim", "-f", "null",
             "-"], capture_output=True, text=True, check=True).stderr
        self.assertIn(f" {size}", result)
        self.assertNotIn("SAR", result.split("Output")[0].split("Input #1")[0].replace("SAR 1:1", ""))
        self.assertGreater(float(re.search(r"All:([\d.]+)", result)[1]), LEAST_SIMILARITY, result)

    def test_every_row_decodes_with_its_manifest_in_every_shape(self):
        films = []
        for shape in SHAPES:
            source = "mandelbrot=s={}:r=24:maxiter=80".format(shape)
            films.append(make(self.folder / f"{shape}.mp4", "-f", "lavfi", "-i", source, "-t", "2", *X264,
                              "-crf", "10"))
        for key in (key for key in PROFILES if key.startswith("smoothstreaming_")):
            for size, film in zip(SIZES[key.split("_")[1]], films):
                with self.subTest(key, size=size):
                    self.check_row(key, size, film)

    def test_another_shape_gets_bars(self):
        path = make(self.folder / "tall.mp4", "-f", "lavfi", "-i", "color=white:s=120x240:r=24:d=1", *X264)
        whole = self.run_of(path, seconds=1).finish().fragments()
        gray = run_binary(["ffmpeg", "-v", "error", "-f", "h264", "-i", "-", "-vf", "format=gray", "-frames:v",
                           "1", "-f", "rawvideo", "-"], annex_b(samples_of(whole, "video")))
        row = gray[320 * 120:320 * 121]
        self.assertLess(max(row[:90]), 40)
        self.assertGreater(min(row[110:210]), 200)
        self.assertLess(max(row[230:]), 40)


class Step(Base):
    """Flashes and beeps at the same moments, two seconds apart."""

    def moments(self, values, times, threshold):
        found = [time for value, time in zip(values, times) if value > threshold]
        return [time for i, time in enumerate(found) if i == 0 or time - found[i - 1] > 0.5]

    def flashes(self, fragments):
        samples = samples_of(fragments, "video")
        data = run_binary(["ffmpeg", "-v", "error", "-f", "h264", "-i", "-", "-vf", "scale=1:1,format=gray",
                           "-fps_mode", "passthrough", "-f", "rawvideo", "-"], annex_b(samples))
        self.assertEqual(len(data), len(samples))
        return self.moments(data, [sample.time / TICKS for sample in samples], 128)

    def beeps(self, fragments):
        samples = samples_of(fragments, "audio")
        data = run_binary(["ffmpeg", "-v", "error", "-f", "aac", "-i", "-", "-ac", "1", "-f", "s8", "-"],
                          adts(samples))
        start = samples[0].time / TICKS
        loud = [min(byte, 256 - byte) for byte in data]
        return self.moments(loud, [start + i / 48000 for i in range(len(loud))], 24)

    def test_pictures_and_sound_are_in_step(self):
        flash = "color=black:s=160x120:r=25:d=13,geq=lum='if(lt(mod(T+0.001,2),0.2),235,16)':cb=128:cr=128"
        beep = "aevalsrc='if(lt(mod(t,2),0.2),0.8*sin(6283*t),0)':s=48000:d=13"
        path = make(self.folder / "step.mkv", "-f", "lavfi", "-i", flash, "-f", "lavfi", "-i", beep, *B_FRAMES, *AAC)
        for start in (0, 5):
            fragments = self.run_of(path, start=start, seconds=13).finish().fragments()
            seen, heard = self.flashes(fragments), self.beeps(fragments)
            expected = [time for time in range(0, 13, 2) if time >= start]
            self.assertEqual(len(seen), len(expected))
            for picture, tone, time in zip(seen, heard, expected):
                self.assertLess(abs(picture - time), 0.04)
                self.assertLess(abs(tone - time), 0.04)


def load(folder):
    profiles = {}
    for path in sorted(pathlib.Path(folder).glob("*.json")):
        profiles.update(json.loads(path.read_text()))
    return profiles


if __name__ == "__main__":
    TRANSCODER, PROFILES = sys.argv.pop(1), load(sys.argv.pop(1))
    unittest.main()
