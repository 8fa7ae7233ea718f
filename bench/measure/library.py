"""A folder of 100,000 films."""
import json

from . import media
from .figures import pair, timed

TILES = 60


def large_folder(system):
    """A folder of 100,000 films: its first tiles, and a search in it."""
    folder = media.many_films()
    system.serve(folder)

    def nothing():
        return timed(lambda: system.call("Auth", method="who"))

    def first_tiles():
        return timed(lambda: system.call("Library", method="list", path=folder, offset=0, limit=TILES))

    def search():
        return timed(lambda: system.call("Library", method="search", q="film 77123"))

    found = system.call("Library", method="search", q="film 77123")["files"]
    if [entry["name"] for entry in found] != ["Film 77123.mkv"]:
        raise RuntimeError(f"the search finds {json.dumps(found)[:300]}")
    # The index is being made, and then it is there.
    floor = "a request without work"
    yield pair(f"{media.MANY:,} films, first tiles, while they are indexed", system.rounds, first_tiles, nothing, floor,
               bound=300)
    system.wait_until_settled()
    yield pair(f"{media.MANY:,} films, first tiles", system.rounds, first_tiles, nothing, floor, bound=300)
    yield pair(f"{media.MANY:,} films, search", system.rounds, search, nothing, floor, bound=100)
