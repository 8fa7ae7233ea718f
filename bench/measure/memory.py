"""What streams cost while they run, and while nobody plays them."""
import contextlib
import os
import time

from . import media
from .figures import Figure, interleaved, milliseconds, timed
from .system import private_kilobytes

IDLE = 200
SERVICE = ("mirevo-serve", "lighttpd", "mirevo-analyze", "orvovideoconversiond", "mirevo\0serve", "ffmpeg\0--copies",
           "ffmpeg\0--ready")


def of_stream(system):
    """{pid: command line} of the processes that belong to no part of the service."""
    return {pid: command for pid, command in system.processes().items()
            if not any(name in command for name in SERVICE)}


def is_ffmpeg(pid):
    return os.path.basename(os.readlink(f"/proc/{pid}/exe")) == "ffmpeg" and "/target/" not in os.readlink(
        f"/proc/{pid}/exe")


def beside_ffmpeg(system):
    """The private memory of a running HLS and a running CMAF conversion, beside FFmpeg's own."""
    film = media.film()
    system.serve(film.parent)
    stream = system.open(film, "hls", "hls_720p_vb2500_ab128")
    system.get(f"{stream['address']}&fragment_id=0")
    yield memory_of(system, stream, "HLS conversion, beside FFmpeg", 1)
    stream = system.open(film, "cmaf", max_height=720)
    first = {row["treatment"]: row["segments"] for row in reversed(stream["presentation"]["renditions"])}
    for treatment in ("h264", "stereo"):
        system.get(first[treatment] + "0")
    yield memory_of(system, stream, "CMAF conversion, beside FFmpeg", 1.5)


def memory_of(system, stream, name, bound):
    """The processes of a stream, which is closed then."""
    sizes = {True: 0, False: 0}
    for pid in of_stream(system):
        with contextlib.suppress(FileNotFoundError):  # a request that has just ended
            sizes[is_ffmpeg(pid)] += private_kilobytes(pid) / 1024
    system.close(stream)
    system.wait_until(lambda: not of_stream(system))
    return Figure(name, sizes[False], unit="MiB", floor=sizes[True], floor_name="FFmpeg's private memory", bound=bound)


def size_of(folder):
    return sum(os.lstat(os.path.join(place, name)).st_size for place, _, names in os.walk(folder) for name in names)


def idle_streams(system):
    """200 opened streams that nobody plays: processes, files, and what they cost others."""
    film = media.film()
    system.serve(film.parent)

    def nothing():
        return timed(lambda: system.call("Auth", method="who"))

    def open_one():
        return system.open(film, "hls", "hls_remux")

    def open_and_close():
        begun = time.monotonic()
        stream = open_one()
        took = milliseconds(begun)
        system.close(stream)
        return took

    (alone,) = interleaved(system.rounds, open_and_close)
    (quiet,) = interleaved(system.rounds, nothing)
    streams = [open_one() for _ in range(IDLE)]
    system.wait_until(lambda: not of_stream(system))
    yield Figure(f"{IDLE} streams, processes", len(of_stream(system)), unit="", bound=0)
    kilobytes = (size_of(system.root / "tmp") + size_of(system.root / "volume1")) / 1024 / len(streams)
    yield Figure("files of one stream", kilobytes, unit="KiB")
    # A client has no more streams than these at a time.
    system.close(streams.pop())
    (opened,) = interleaved(system.rounds, open_and_close)
    (answer,) = interleaved(system.rounds, nothing)
    yield Figure(f"open beside {IDLE} streams", opened, floor=alone, floor_name="beside none")
    yield Figure(f"a request beside {IDLE} streams", answer, floor=quiet, floor_name="beside none")
