"""Single requests: none that does anything, the opening of films, playlists."""
import shutil
import subprocess
import time

from . import media
from .figures import Figure, interleaved, pair, timed
from .system import empty_program

SETTLED_SECONDS = 4


def run_empty():
    subprocess.run([empty_program()], check=True)


def empty(system):
    """A request that does nothing, against an empty C++ program."""
    yield pair("answer without work", system.rounds * 5, lambda: timed(lambda: system.program("Auth", method="who")),
               lambda: timed(run_empty), "an empty C++ program")


def opening(system):
    """Opening a film: known, and seen for the first time."""
    film = media.film()
    # What is found out about a film that was changed a moment ago is not kept.
    time.sleep(max(0, film.stat().st_ctime + SETTLED_SECONDS - time.time()))
    system.serve(film.parent)
    cache = system.root / "var/packages/Mirevo/cache"

    def open_film():
        streams = []
        took = timed(lambda: streams.append(system.open(film, "hls", "hls_remux")))
        system.close(streams[0])
        return took

    def open_new():
        shutil.rmtree(cache, ignore_errors=True)
        return open_film()

    def nothing():
        return timed(lambda: system.call("Auth", method="who"))

    system.call("Library", method="info", path=film)
    known, least = interleaved(system.rounds, open_film, nothing)
    yield Figure("open, page of the film was seen", known, floor=least, floor_name="a request without work", bound=12)
    new, least = interleaved(system.rounds, open_new, nothing)
    yield Figure("open, a new film", new, floor=least, floor_name="a request without work")


def playlist(system):
    """The playlist of a ten-hour film, against a film of one minute."""
    short, long = media.small_film(), media.ten_hours()
    system.serve(short.parent)

    def take(film):
        stream = system.open(film, "hls", "hls_remux")
        took = timed(lambda: system.get(stream["address"]))
        system.close(stream)
        return took

    yield pair("playlist, ten hours", system.rounds, lambda: take(long), lambda: take(short), "one minute")
    yield from ten_hours_of_cmaf(system, "CMAF playlist", cmaf_playlist)
    yield from ten_hours_of_cmaf(system, "CMAF manifest", cmaf_manifest)


def cmaf_playlist(system, stream):
    listed = system.get(stream["address"]).decode().splitlines()
    return next(line for line in listed if not line.startswith("#"))


def cmaf_manifest(system, stream):
    return system.local(stream["dash"])


def ten_hours_of_cmaf(system, what, address_of):
    """One text of a ten-hour presentation, and how large it is."""
    stream, short = (system.open(film, "cmaf") for film in (media.ten_hours(), media.small_film()))
    address, floor = address_of(system, stream), address_of(system, short)
    yield pair(f"{what}, ten hours", system.rounds, lambda: timed(lambda: system.get(address)),
               lambda: timed(lambda: system.get(floor)), "one minute", bound=20)
    yield Figure(f"{what}, ten hours, size", len(system.get(address)) / 1024, unit="KiB")
    for opened in (stream, short):
        system.close(opened)
