#!/usr/bin/env python3
"""Makes a stream of every kind from every film that players find difficult, and looks at each.

Usage: matrix_test.py TRANSCODER PROFILES [TEST...]

Every film is played in two kinds; with ORVO_ALL_KINDS set, in all of them, which takes minutes.
"""
import itertools
import os
import re
import subprocess

from films import FILMS, SECONDS, make_film
from streams import KEYS, StreamTest, decoded, first_picture, main, output, probe, roundness

INTERLACED = ("top_first", "bottom_first")
SPARSE = {"eight_k.mp4": 2}  # pictures a second
SAME_SHAPE = 0.02
# Of so few pictures the last one may be long, and segments end with their last packet.
LENGTH_TOLERANCE = 0.25
KINDS_EACH = len(KEYS) if "ORVO_ALL_KINDS" in os.environ else 2
BYTE_STREAMS = ("mp4", "ts", "wmv", "webm")


def is_interlaced(film):
    return film.name.startswith(INTERLACED)


def fits(film, kind):
    """Copied pictures have to be plain H.264, and HLS needs sound."""
    return (kind != "remux" or film.copied) and (kind != "hls" or film.channels > 0)


def cases(wanted=lambda film: film.pictures):
    for number, film in enumerate(filter(wanted, FILMS)):
        kinds = [kind for kind in KEYS if fits(film, kind)]
        first = number * KINDS_EACH % len(kinds)
        yield from ((film, kind) for kind in (kinds + kinds)[first:first + min(KINDS_EACH, len(kinds))])


def seconds_shown(path):
    """From the first picture's time to the last one's."""
    shown = "frame=best_effort_timestamp_time"
    text = output(["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", shown, "-of", "csv=p=0",
                   path]).decode()
    times = [float(line.strip(",")) for line in text.split()]
    return times[-1] - times[0]


def combed(path):
    """The share of pictures that show two fields at once."""
    said = subprocess.run(["ffmpeg", "-i", path, "-map", "0:v", "-vf", "idet", "-f", "null", "-"], capture_output=True,
                          check=True, text=True).stderr
    counts = [int(re.search(rf"Multi frame.*{name}:\s*(\d+)", said)[1]) for name in ("TFF", "BFF", "Progressive")]
    return sum(counts[:2]) / max(1, sum(counts))


def picture_faults(film, kind, path):
    found = probe(path, "pix_fmt")
    if found.get("pix_fmt") != "yuv420p":
        yield f"pixels {found}"
    if is_interlaced(film):
        if kind != "remux" and combed(path) > 0.1:
            yield f"combed {combed(path):.2f}"
    elif abs(roundness(first_picture(path)) - 1) > SAME_SHAPE:
        yield f"shape {roundness(first_picture(path)):.3f}"
    if kind != "smooth":  # its pictures alone have no times
        wanted = SECONDS - 1 / SPARSE.get(film.name, 25)
        if abs(seconds_shown(path) - wanted) > LENGTH_TOLERANCE:
            yield f"lasts {seconds_shown(path):.2f} s, not {wanted:.2f}"


def sound_faults(film, path):
    wanted = 2 if film.channels > 0 else None
    if (found := probe(path, "channels", "a").get("channels")) != wanted:
        yield f"{found} channels, not {wanted}"


def errors_of(path):
    """What a decoder complains about."""
    said = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-f", "null", "-"], capture_output=True, check=False,
                          text=True).stderr
    # The test's own output counts time more coarsely than the films.
    yield from [line for line in said.splitlines() if "Application provided" not in line][:1]


class Matrix(StreamTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.films = {film.name: make_film(cls.folder, film) for film in FILMS}

    def test_every_film_is_seen_and_heard_in_every_kind(self):
        def check(case):
            film, kind = case
            path = self.stream(kind, self.films[film.name])
            sound = [] if kind == "smooth" else sound_faults(film, path)
            faults = [*picture_faults(film, kind, path), *sound, *errors_of(path)]
            return [f"{kind} {film.name}: {fault}" for fault in faults]

        self.judge(check, cases())

    def test_fields_come_in_their_order(self):
        """The bar runs to the right and never back, whichever field comes first."""
        def middle(row):
            bright = [x for x, value in enumerate(row) if value > 190]
            return sum(bright) / len(bright) if bright else None

        def check(case):
            film, kind = case
            path = self.stream(kind, self.films[film.name])
            width = 90
            rows = decoded(path, "-map", "0:v", "-vf", f"scale={width}:1:flags=area", "-pix_fmt", "gray", "-f",
                           "rawvideo")
            places = [middle(rows[at:at + width]) for at in range(0, len(rows), width)]
            steps = [(b - a) for a, b in itertools.pairwise(places) if a is not None and b is not None]
            back = [step for step in steps if -width / 2 < step < 0]
            return f"{kind} {film.name}: {places}" if back or len(steps) < SECONDS * 20 else None

        self.judge(check, [(film, kind) for film, kind in cases(is_interlaced) if kind not in ("remux", "smooth")])

    def test_music_with_a_cover_is_sound_alone(self):
        def check(case):
            film, kind = case
            path = self.stream(kind, self.films[film.name], extra=["-music", "1"], track="audio")
            faults = [*sound_faults(film, path), *errors_of(path), *(["a picture"] if probe(path, "width") else [])]
            return [f"{kind} {film.name}: {fault}" for fault in faults]

        covers = [film for film in FILMS if film.name.startswith("cover.")]
        self.judge(check, itertools.product(covers, BYTE_STREAMS))


if __name__ == "__main__":
    main()
