"""The rows of bench/run. A row is a function that takes a System and yields figures."""
import pathlib

HERE = pathlib.Path(__file__).resolve().parent.parent.parent

from . import confinement, kinds, library, load, memory, page, requests  # noqa: E402

ROWS = {
    "request": requests.empty,
    "open": requests.opening,
    "playlist": requests.playlist,
    "hls": kinds.hls,
    "smooth": kinds.smooth,
    "webm": kinds.webm,
    "progressive": kinds.progressive,
    "cmaf": kinds.cmaf,
    "ready": load.ready_segment,
    "memory": memory.beside_ffmpeg,
    "idle": memory.idle_streams,
    "library": library.large_folder,
    "page": page.first_frames,
    "confinement": confinement.cost,
}
