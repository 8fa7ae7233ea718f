"""The page in headless Chromium: from the click to the first picture."""
import json
import subprocess

from . import HERE, media
from .figures import Figure

# Milliseconds of a click and of a seek.
BOUNDS = {"copy": (800, None), "transcode": (1200, None),
          "cmaf copy": (None, 200), "cmaf transcode": (None, 600),
          "prepared copy": (400, 200), "prepared transcode": (700, 600)}


def first_frames(system):
    """The page in Chromium: click and seek to the first picture, against the same film without conversion."""
    film, remux, old = media.film(), media.remux_film(), media.old_film()
    system.serve(film.parent)
    subprocess.run([HERE / "tools/fetch-modules", "tests/service"], check=True)
    question = {"address": f"http://{system.address}", "rounds": system.rounds,
                "films": {"copy": str(film), "remux": str(remux), "transcode": str(old)}}
    run = subprocess.run(["node", HERE / "bench/page.mjs", json.dumps(question)], check=True, text=True,
                         stdout=subprocess.PIPE)
    medians = json.loads(run.stdout)
    floors = medians.pop("direct")
    for kind, found in medians.items():
        for what, bound in zip(("click", "seek"), BOUNDS[kind]):
            yield Figure(f"{what} to first picture, {kind}", found[what], floor=floors[what],
                         floor_name="the file itself, same page", bound=bound)
