#!/usr/bin/env python3
"""Copies films into segments with libavformat alone and with FFmpeg, and compares the two.

Usage: copies_test.py TRANSCODER PROFILES [NAME...]

Both must give the same segments: the same packets at the same times, from the start and from the middle.
NAME chooses films. Exits with 1 and says why when something is wrong.
"""
import concurrent.futures
import os
import pathlib
import subprocess
import sys
import tempfile

from segments_test import (AAC, B_FRAMES, FILMS, OPEN_GOPS, REMUXABLE, REMUXED, WORKERS, X264, Film, Options,
                           Run, make, pictures, plan, profile, run, sound)

# An option that only FFmpeg knows makes it do the copy; this one changes nothing.
BY_FFMPEG = ["-max_interleave_delta", "10000000"]
TICK = 1 / 90000
FRAME = 1024 / 48000  # of AAC
MILLISECOND = 0.0011  # the clock of Matroska

MORE_FILMS = [
    Film("hour.mkv", pictures(25) + sound() + B_FRAMES + AAC + ["-output_ts_offset", "3601"], 25),
    Film("hour.mp4", pictures(25) + sound() + OPEN_GOPS + AAC + ["-output_ts_offset", "3601"], 25),
    Film("surround.mkv", pictures(25) + ["-f", "lavfi", "-i", "aevalsrc=0|0|sin(440*t)|0|0|0:c=5.1:s=48000:d=13"] +
         B_FRAMES + ["-c:a", "ac3"], 25),
    Film("cd.mkv", pictures(25) + ["-f", "lavfi", "-i", "sine=440:r=44100:d=13"] + X264 + ["-c:a", "flac"], 25),
    Film("one_key.mp4", pictures(25) + sound() + X264 + ["-g", "10000", "-keyint_min", "10000", "-sc_threshold", "0"] +
         AAC, 25),
    Film("fragmented.mp4", pictures(25) + sound() + B_FRAMES + AAC + ["-movflags", "frag_keyframe+empty_moov"], 25),
]
# What libavformat alone cannot do: FFmpeg takes over by itself.
LEFT_TO_FFMPEG = [
    Film("flash.flv", pictures(25) + sound() + B_FRAMES + AAC, 25),
]
DAMAGED = {"hour.mkv", "hour.mp4", "fragmented.mp4"}
PATIENCE = 60
SOUNDS = {"copied": "-acodec copy", "encoded": "-acodec aac"}


def packets(path):
    text = run(["ffprobe", "-v", "error", "-show_entries", "packet=codec_type,pts_time,size,flags", "-of", "csv=p=0",
                path]).stdout
    found = {"video": [], "audio": []}
    for line in text.split():
        kind, time, size, flags = line.strip(",").split(",")[:4]
        if time != "N/A" and kind in found:
            found[kind].append((float(time), int(size), "K" in flags))
    return found


class Copied(Run):
    def __init__(self, *arguments, by_ffmpeg=False):
        super().__init__(*arguments)
        self.command[-1:-1] = BY_FFMPEG if by_ffmpeg else []


def aligned(ours, theirs, spare):
    """A frame of sound at each cut may belong to either side, where Matroska lets FFmpeg guess decoding times."""
    if spare and ours and theirs and abs(ours[0][0] - theirs[0][0]) > FRAME / 2:
        min(ours, theirs, key=lambda packets: packets[0][0]).pop(0)
    if spare and abs(len(ours) - len(theirs)) == 1:
        max(ours, theirs, key=len).pop()
    return ours, theirs


def difference(ours, theirs, bound, sizes):
    ours, theirs = aligned(ours, theirs, not sizes)
    if len(ours) != len(theirs):
        return f"{len(ours)} packets, not {len(theirs)}"
    for (time, size, key), (other, wanted, is_key) in zip(ours, theirs):
        if abs(time - other) > bound:
            return f"a packet at {time}, not {other}"
        if key != is_key or (sizes and size != wanted):
            return f"other packets at {time}"
    return ""


def segment_errors(ours, theirs, bound, name):
    found, wanted = packets(ours), packets(theirs)
    for kind in ("video", "audio"):
        is_same = kind == "video" or name == "copied"
        error = difference(found[kind], wanted[kind], bound, is_same)
        if error:
            yield f"{kind}: {error}"


def film_errors(options, film):
    folder = os.path.join(options.folder, film.name + ".d")
    os.makedirs(folder)
    path = make(film, folder)
    starts = plan(path)
    bound = MILLISECOND if film.name.endswith(".mkv") else TICK * 3.5
    for name, audio in SOUNDS.items():
        chosen = profile(options, "hls_remux").replace("-acodec aac", audio)
        for number in range(min(2, len(starts))):
            first = [path, f"{folder}/{name}{number}", number, chosen, REMUXED, starts[number]]
            second = [path, f"{folder}/{name}{number}f", number, chosen, REMUXED, starts[number]]
            ours = Copied(options, *first).finish()
            theirs = Copied(options, *second, by_ffmpeg=True).finish()
            if set(ours) != set(theirs):
                yield f"{film.name}, {name} sound, from {number}: {sorted(ours)}, not {sorted(theirs)}"
                continue
            for n, segment in ours.items():
                for error in segment_errors(segment, theirs[n], bound, name):
                    yield f"{film.name}, {name} sound, from {number}, segment {n}: {error}"


# What strangers make of a film; each takes its bytes.
DAMAGES = {
    "is cut off": lambda film: film[:len(film) * 2 // 3],
    "has holes": lambda film: b"".join(bytes(64) if n % 40 == 7 else film[n * 64:n * 64 + 64]
                                       for n in range(len(film) // 64)),
    "has a hole in its header": lambda film: film[:200] + bytes(200) + film[400:],
    "lacks its parameter sets": lambda film: film.replace(b"avcC", b"avcX").replace(b"\x63\xA2", b"\xEC\xA2"),
    "repeats its middle": lambda film: film[:len(film) // 2] + film[len(film) // 4:],
}
ENDS = (0, 1, 69, 183, 187, 234, 251, 255)  # the codes with which FFmpeg and a copy give a film up


def damage_errors(options, film):
    """A damaged film ends the run, and nothing dies of it."""
    folder = os.path.join(options.folder, film.name + ".damaged")
    os.makedirs(folder)
    whole = pathlib.Path(make(film, folder)).read_bytes()
    for what, spoil in DAMAGES.items():
        path = pathlib.Path(folder, what + film.name)
        path.write_bytes(spoil(whole))
        for name, audio in SOUNDS.items():
            chosen = profile(options, "hls_remux").replace("-acodec aac", audio)
            process = Copied(options, os.fspath(path), f"{folder}/{what}{name}", 0, chosen, REMUXED, 0).start()
            try:
                process.communicate(timeout=PATIENCE)
            except subprocess.TimeoutExpired:
                process.kill()
                process.communicate()
            if process.returncode not in ENDS:
                yield f"{film.name} {what}, {name} sound: exit {process.returncode}"


def checked(options, film):
    try:
        return [*film_errors(options, film), *(damage_errors(options, film) if film.name in DAMAGED else ())]
    except (AssertionError, subprocess.CalledProcessError) as error:
        return [f"{film.name}: {error}"]


def main(transcoder, profiles, *names):
    with tempfile.TemporaryDirectory() as folder:
        os.environ["ORVO_SYSROOT"] = folder
        options = Options(transcoder, profiles, folder)
        films = [film for film in FILMS if film.name in REMUXABLE] + MORE_FILMS + LEFT_TO_FFMPEG
        films = [film for film in films if not names or film.name in names]
        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            errors = [error for found in pool.map(lambda film: checked(options, film), films) for error in found]
    print("\n".join(errors) or f"{len(films)} films are fine")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
