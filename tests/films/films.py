#!/usr/bin/env python3
"""The films that players find difficult, each small, and what a viewer should see and hear of it.

Usage: films.py FOLDER [NAME...]   makes them, or those, in the folder, unless they are there
       films.py --list             prints the table as JSON
"""
import collections
import json
import os
import pathlib
import subprocess
import sys

SECONDS = 2
X264 = ("-c:v", "libx264", "-preset", "ultrafast", "-g", "24")
X265 = ("-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=none")
AAC = ("-c:a", "aac")
TONE = f"sine=440:r=48000:d={SECONDS}"

# `copied`: the kinds that copy pictures can carry it. `channels`: in the film; 0 for no sound. `pictures`: False for
# music. `range`: its high dynamic range.
Film = collections.namedtuple("Film", "name sources options copied channels pictures range",
                              defaults=(False, 1, True, ""))


def circle(size="320x180", rate=25, pixel=0, filters=""):
    """A bright circle, drawn small and square. `pixel`: how much wider than high a pixel of `size` is; 0: unsaid."""
    width, height = (int(side) for side in size.split("x"))
    shown = width * (pixel or 1) / height
    high = 180
    wide = round(high * shown / 2) * 2
    spot = f"geq=lum='if(lt(hypot(X-W/2,Y-H/2),{0.4 * min(wide, high)}),235,16)':cb=128:cr=128"
    still = f"nullsrc=s={wide}x{high}:r={rate}:d=0.01,format=yuv420p,{spot},loop=-1:1"
    return (f"{still},fps={rate},trim=duration={SECONDS},setpts=N/{rate}/TB,scale={size}{filters},"
            f"setsar={pixel}:max=1000")


# A bar that runs to the right, a field at a time.
RUNNING = f"color=gray:s=360x288:r=50:d={SECONDS},drawbox=x='mod(t*200,360)':w=40:h=288:c=white:t=fill"
# Every third picture is missing, so the distances differ.
IRREGULAR = ",select='mod(n,3)',setpts=PTS"


def film(name, picture, options, sound=TONE, **traits):
    sounds = (sound,) if sound else ()
    return Film(name, (picture, *sounds), options, **traits)


def surround(layout):
    names = {"5.1": "FL FR FC LFE BL BR", "7.1": "FL FR FC LFE BL BR SL SR"}[layout].split()
    return f"{TONE},pan={layout}|" + "|".join(f"{name}=0.3*c0" for name in names)


def colored(transfer):
    return ("-pix_fmt", "yuv420p10le", "-color_primaries", "bt2020", "-color_trc", transfer, "-colorspace", "bt2020nc",
            "-color_range", "tv")


PLAIN = (*X264, "-pix_fmt", "yuv420p", *AAC)
COVER = ("-map", "0", "-map", "1", "-frames:v", "1", "-c:v", "mjpeg", "-disposition:v", "attached_pic", "-t",
         f"{SECONDS}")
COVER_PICTURE = circle("300x300")

FILMS = [
    film("plain.mp4", circle(), PLAIN, copied=True),
    film("old.flv", circle("320x240"), PLAIN, copied=True),
    film("cinema.mkv", circle("640x272"), PLAIN, copied=True),
    film("pal.mkv", circle("720x576", pixel=64 / 45), PLAIN, copied=True),
    film("upright.mp4", circle("180x320"), PLAIN, copied=True),
    film("pq.mp4", circle(), (*X265, *colored("smpte2084"), *AAC), range="HDR10"),
    film("hlg.ts", circle(), (*X265, *colored("arib-std-b67"), *AAC), range="HLG"),
    film("ten_bit.mkv", circle(), (*X264, "-pix_fmt", "yuv420p10le", *AAC)),
    film("four_two_two.mov", circle(), ("-c:v", "prores_ks", "-profile:v", "2", "-c:a", "pcm_s16le")),
    film("four_two_two.mkv", circle(), (*X264, "-pix_fmt", "yuv422p", *AAC)),
    film("four_four_four.mp4", circle(), (*X264, "-pix_fmt", "yuv444p", *AAC)),
    film("top_first.ts", f"{RUNNING},interlace=scan=tff", ("-c:v", "mpeg2video", "-flags", "+ilme+ildct", "-top", "1",
                                                           "-b:v", "4M", "-c:a", "mp2")),
    film("bottom_first.mpg", f"{RUNNING},interlace=scan=bff", ("-c:v", "mpeg2video", "-flags", "+ilme+ildct", "-top",
                                                               "0", "-b:v", "4M", "-c:a", "mp2")),
    film("top_first.mkv", f"{RUNNING},interlace=scan=tff", (*X264, "-pix_fmt", "yuv420p", "-flags", "+ilme+ildct",
                                                            "-x264-params", "tff=1", *AAC), copied=True),
    film("irregular.mkv", circle(filters=IRREGULAR), (*PLAIN, "-fps_mode", "passthrough"), copied=True),
    film("fast.mp4", circle(rate=120), PLAIN, copied=True),
    film("eight_k.mp4", circle("7680x4320", rate=2), PLAIN, copied=True),
    film("old_codec.avi", circle(), ("-c:v", "mpeg4", "-c:a", "libmp3lame")),
    film("web.webm", circle(), ("-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8", "-c:a", "libopus")),
    film("stereo.mkv", circle(), (*PLAIN, "-ac", "2"), copied=True, channels=2),
    film("surround.mkv", circle(), (*X264, "-pix_fmt", "yuv420p", "-c:a", "ac3"), surround("5.1"), copied=True,
         channels=6),
    film("more_surround.mkv", circle(), (*X264, "-pix_fmt", "yuv420p", "-c:a", "flac"), surround("7.1"), copied=True,
         channels=8),
    film("silent.mp4", circle(), PLAIN, sound="", copied=True, channels=0),
    film("silent.webm", circle(), ("-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8"), sound="",
         channels=0),
    Film("cover.flac", (TONE, COVER_PICTURE), (*COVER, "-c:a", "flac"), pictures=False),
    Film("cover.mp3", (TONE, COVER_PICTURE), (*COVER, "-c:a", "libmp3lame"), pictures=False),
    Film("cover.m4a", (TONE, COVER_PICTURE), (*COVER, "-c:a", "aac"), pictures=False),
    Film("song.flac", (TONE,), ("-c:a", "flac"), pictures=False),
    Film("song.mp3", (TONE,), ("-c:a", "libmp3lame"), pictures=False),
    Film("song.m4a", (TONE,), ("-c:a", "aac"), pictures=False),
    Film("song.opus", (TONE,), ("-c:a", "libopus"), pictures=False),
    Film("song.ogg", (TONE,), ("-c:a", "libvorbis"), pictures=False),
]


def make_film(folder, wanted):
    sources = [word for source in wanted.sources for word in ("-f", "lavfi", "-i", source)]
    path = pathlib.Path(folder, wanted.name)
    temporary = path.with_name(f".{os.getpid()}.{wanted.name}")
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *sources, *wanted.options, temporary], check=True)
    return temporary.rename(path)


def table():
    kept = ("name", "copied", "channels", "pictures", "range")
    return [{trait: getattr(wanted, trait) for trait in kept} for wanted in FILMS]


def main(arguments):
    if arguments == ["--list"]:
        print(json.dumps(table()))
        return
    folder, names = pathlib.Path(arguments[0]), arguments[1:]
    folder.mkdir(exist_ok=True)
    for wanted in FILMS:
        if (not names or wanted.name in names) and not (folder / wanted.name).exists():
            make_film(folder, wanted)


if __name__ == "__main__":
    main(sys.argv[1:])
