"""The films that are measured. They are made once and kept below build/bench-media."""
import os
import subprocess

from . import HERE

FOLDER = HERE / "build/bench-media"
MANY = 100_000

PICTURE = ["-f", "lavfi", "-i", "testsrc2=s=1920x1080:r=24:d=30,noise=alls=12:allf=t"]
SOUND = ["-f", "lavfi", "-i", "sine=440:b=2:r=48000:d=30"]
H264 = ["-c:v", "libx264", "-preset", "ultrafast", "-bf", "2", "-b:v", "8M", "-g", "48", "-pix_fmt", "yuv420p"]


def _make(name, arguments):
    """A film that is cut short by an interruption keeps its temporary name."""
    film = FOLDER / name
    if not film.exists():
        FOLDER.mkdir(parents=True, exist_ok=True)
        aside = FOLDER / f".{os.getpid()}.{name}"
        subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *arguments, aside], check=True)
        aside.rename(film)
    return film


def _looped(name, times, source):
    return _make(name, ["-stream_loop", str(times - 1), "-i", source, "-c", "copy"])


def film():
    """Five minutes of 1080p, 8 Mbit/s, H.264 and AAC."""
    scene = _make("scene.mp4", [*PICTURE, *SOUND, *H264, "-c:a", "aac"])
    return _looped("film.mp4", 10, scene)


def remux_film():
    """The same pictures with sound that the browser does not play."""
    return _make("film.mkv", ["-i", film(), "-c:v", "copy", "-c:a", "ac3"])


def old_film():
    """A minute of MPEG-4 and MP3, which no browser plays."""
    return _make("old.avi", ["-i", film(), "-t", "60", "-vf", "scale=1280:720", "-c:v", "mpeg4", "-q:v", "4",
                             "-c:a", "libmp3lame"])


def small_film():
    """A minute that differs from ten_hours() in its length only."""
    return _make("small.mkv", ["-f", "lavfi", "-i", "testsrc=s=64x36:r=5:d=60", "-f", "lavfi", "-i", "sine=d=60",
                               "-ac", "1", "-b:a", "16k", "-c:v", "libx264", "-pix_fmt", "yuv420p", "-c:a", "aac"])


def ten_hours():
    return _looped("ten hours.mkv", 600, small_film())


def many_films():
    """A folder of empty files with the names of films."""
    folder = FOLDER / "many"
    folder.mkdir(parents=True, exist_ok=True)
    if not (folder / f"Film {MANY}.mkv").exists():
        for number in range(1, MANY + 1):
            (folder / f"Film {number}.mkv").touch()
    return folder
