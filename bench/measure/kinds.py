"""Each kind of stream: how long a viewer waits for its first bytes, against FFmpeg alone doing the same."""
import concurrent.futures
import subprocess
import time

from . import media
from .figures import Figure, interleaved, milliseconds
from .memory import of_stream

ALONE = ["nice", "-n", "10", "ffmpeg", "-nostdin", "-v", "error"]
QUIET = {"stdin": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
FIRST_BYTES = 65536
TRANSCODE = "hls_720p_vb2500_ab128"
SMOOTH = "smoothstreaming_hd720_x264_vb1500_vf15_aac_ab128"
SEEK_SECONDS = 200  # far from where any transcoder of the first segment gets to


def profile(system, key, size=None):
    words = system.profiles[key].split()
    if size:
        words[words.index("-s") + 1] = size
    return words


def alone(film, arguments, start, length, form):
    """FFmpeg makes one piece of the film and ends."""
    begun = time.monotonic()
    subprocess.run([*ALONE, "-ss", str(start), "-i", film, *arguments, "-t", str(length), "-map", "0:v", "-map", "0:a",
                    *form, "pipe:1"], check=True, stdout=subprocess.DEVNULL, **QUIET)
    return milliseconds(begun)


def first_bytes_alone(film, arguments, start):
    begun = time.monotonic()
    process = subprocess.Popen([*ALONE, "-ss", str(start), "-i", film, *arguments, "pipe:1"], stdout=subprocess.PIPE,
                               **QUIET)
    process.stdout.read(FIRST_BYTES)
    took = milliseconds(begun)
    process.kill()
    process.wait()
    process.stdout.close()
    return took


def waits(system, film, kind, key, fetch, second, wishes):
    """(from `open` to the last byte, from the request to the last byte, the same after a seek)"""
    begun = time.monotonic()
    # As the page opens it: the transcoder may start at once.
    stream = system.open(film, kind, key, start=0, **wishes)
    fetch(stream, 0)
    opened = milliseconds(begun)
    system.close(stream)
    # The place of the transcoder is free when that has ended.
    system.wait_until(lambda: not of_stream(system))
    stream = system.open(film, kind, key, **wishes)
    asked = time.monotonic()
    fetch(stream, 0)
    first = milliseconds(asked)
    begun = time.monotonic()
    fetch(stream, second)
    sought = milliseconds(begun)
    system.close(stream)
    return opened, first, sought


def compare(system, name, film, kind, key, fetch, floor, bounds, wishes=None):
    """Yields three figures. `floor` takes a second of the film; `bounds` are ratios; `wishes` are for `open`."""
    once = []

    def ours():
        once[:] = waits(system, film, kind, key, fetch, SEEK_SECONDS, wishes or {})
        return once[1]

    opened, first, sought, first_floor, sought_floor = interleaved(
        system.rounds, *in_turn(ours, once), lambda: floor(0), lambda: floor(SEEK_SECONDS))
    yield Figure(f"{name}, first", first, floor=first_floor, floor_name="FFmpeg alone", bound=bounds[0],
                 bounds_ratio=True)
    yield Figure(f"{name}, after a seek", sought, floor=sought_floor, floor_name="FFmpeg alone", bound=bounds[1],
                 bounds_ratio=True)
    yield Figure(f"{name}, first, with open", opened, floor=first_floor, floor_name="FFmpeg alone")


def in_turn(ours, once):
    """One run measures three times; interleaved() takes them from three actions."""
    def opened():
        ours()
        return once[0]

    return opened, lambda: once[1], lambda: once[2]


def hls_segments(system, film, key, length, bounds):
    def fetch(stream, second):
        number = second // length
        system.get(segment_address(system, stream, number))

    arguments = profile(system, key)
    yield from compare(system, key, film, "hls", key, fetch,
                       lambda second: alone(film, arguments, second // length * length, length, ["-f", "mpegts"]),
                       bounds)


def segment_address(system, stream, number):
    return f"{stream['address']}&fragment_id={number}"


def hls(system):
    """A complete HLS segment, copied and converted: first, and after a seek."""
    film = media.film()
    system.serve(film.parent)
    yield from hls_segments(system, film, "hls_remux", 8, (0.6, 0.7))
    yield from hls_segments(system, film, TRANSCODE, 5, (0.85, 0.9))


def smooth(system):
    """A pair of Smooth Streaming fragments: first, and after a seek."""
    film = media.film()
    system.serve(film.parent)
    rates = {"video": 1500000, "audio": 128000}

    def fetch(stream, second):
        """Both at once, as players do."""
        pieces = [f"QualityLevels({rate})/Fragments({track}={second * 10_000_000})" for track, rate in rates.items()]
        with concurrent.futures.ThreadPoolExecutor() as pool:
            list(pool.map(lambda piece: system.get(f"{stream['address']}&fragment_id={piece}"), pieces))

    arguments = profile(system, SMOOTH, "1270x720")
    form = ["-movflags", "frag_keyframe+empty_moov", "-f", "mp4"]
    yield from compare(system, "fragments, 720p", film, "ss", SMOOTH, fetch,
                       lambda second: alone(film, arguments, second, 5, form), (0.9, 0.9))


def first_bytes(system, kind, keys):
    film = media.film()
    system.serve(film.parent)
    for key, size in keys.items():
        arguments = profile(system, key, size)

        def fetch(stream, second):
            system.get(f"{stream['address']}&start={second}", FIRST_BYTES)

        yield from compare(system, key, film, kind, key, fetch,
                           lambda second: first_bytes_alone(film, arguments, second), (0.9, 0.9))


def webm(system):
    """The first 64 KiB of a live WebM stream, against FFmpeg alone."""
    yield from first_bytes(system, "webm", {"webm_720p_vb2500_ab128": None, "webm_vp9_720p_vb2500_ab128": None})


def progressive(system):
    """The first 64 KiB of a progressive stream, copied and converted, against FFmpeg alone."""
    yield from first_bytes(system, "http", {"http_ts_remux": None, "http_ts_720p_vb2500_ab128": "1280x720"})


def segment_at(durations, second):
    """(number, start, length) of the segment that holds this second. The durations are in seconds."""
    start = 0.0
    for number, length in enumerate(durations):
        if start <= second < start + length:
            return number, start, length
        start += length
    raise ValueError(f"no segment holds second {second}")


def renditions(presentation, treatments):
    """The first rendition with each of these treatments, and the lengths of the segments in seconds."""
    chosen = [next(row for row in presentation["renditions"] if row["treatment"] == treatment)
              for treatment in treatments]
    return chosen, [ticks / presentation["timescale"] for ticks in presentation["durations"]]


def compare_cmaf(system, name, film, treatments, wishes, encoder, bounds):
    """Segments of these renditions, which are asked for at once. FFmpeg alone makes all in one file."""
    stream = system.open(film, "cmaf", **wishes)
    chosen, durations = renditions(stream["presentation"], treatments)
    system.close(stream)

    def fetch(opened, second):
        number = segment_at(durations, second)[0]
        addresses = [row["segments"].replace(stream["stream_id"], opened["stream_id"]) + str(number) for row in chosen]
        with concurrent.futures.ThreadPoolExecutor() as pool:
            list(pool.map(system.get, addresses))

    def floor(second):
        _, start, length = segment_at(durations, second)
        return alone(film, encoder(chosen), start, length, ["-movflags", "frag_keyframe+empty_moov", "-f", "mp4"])

    yield from compare(system, name, film, "cmaf", None, fetch, floor, bounds, wishes)


def own_encoder(chosen):
    """What the transcoder program tells FFmpeg about a picture of the ladder and its sound."""
    picture = chosen[0]
    rate = picture["bandwidth"]
    return ["-vf", f"scale={picture['width']}:{picture['height']},format=yuv420p", "-c:v", "libx264", "-preset",
            "superfast", "-profile:v", "high", "-bf", "0", "-crf", "23", "-maxrate", str(rate), "-bufsize",
            str(2 * rate), "-rc-lookahead", "0", "-sc_threshold", "0", "-c:a", "aac", "-b:a", "160k", "-ac", "2"]


def cmaf(system):
    """A complete CMAF segment, copied and converted: first, and after a seek."""
    film = media.film()
    system.serve(film.parent)
    yield from compare_cmaf(system, "CMAF, copied", film, ["pictures"], {}, lambda _: ["-c", "copy"], (0.4, 0.4))
    ladder = {"max_height": 720}  # so that the film itself is too large
    usual = profile(system, TRANSCODE)
    yield from compare_cmaf(system, "CMAF, 720p", film, ["h264", "stereo"], ladder, lambda _: usual, (0.9, 0.9))
    yield from compare_cmaf(system, "CMAF, 720p, same encoder", film, ["h264", "stereo"], ladder, own_encoder,
                            (None, None))
