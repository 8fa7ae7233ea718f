#!/usr/bin/env python3
"""What opening a film costs.

Usage: bench/open.py [BUILD] [FILM]      (build/release or build/ci; default build/ci)

Runs the request program by itself and prints medians in milliseconds, by the clock and of processor
time, for
  nothing   a request that opens no film, the least that a request costs
  cold      the first look at a film
  known     a film that was looked at before and has not changed
"""
import json
import os
import pathlib
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.parse

ROUNDS = 30
SETTLED_SECONDS = 4
HERE = pathlib.Path(__file__).resolve().parent.parent


def processor_time():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def make_root(build, media):
    root = pathlib.Path(tempfile.mkdtemp(prefix="mirevo-bench-"))
    for name in ("etc.defaults", "volume1", "var/packages/Mirevo/etc", "tmp"):
        (root / name).mkdir(parents=True)
    (root / "etc.defaults/orvoinfo.conf").write_text('unique="orvo_x86_unit"\n')
    (root / "var/packages/Mirevo/etc/media_roots").write_text(json.dumps([str(media)]))
    (root / "var/packages/Mirevo/target").symlink_to(build / "target")
    return root


class Requests:
    def __init__(self, build, root):
        self.program = build / "target/webapi/entry.cgi"
        self.environment = {**os.environ, "ORVO_SYSROOT": str(root), "REQUEST_METHOD": "GET",
                            "MIREVO_HOSTS": "films.lan", "HTTP_HOST": "films.lan", "REMOTE_ADDR": "127.0.0.1"}

    def call(self, api, **parameters):
        """The answer's data, and what it took in milliseconds: by the clock, of processor time."""
        query = urllib.parse.urlencode({"api": f"ORVO.Mirevo2.{api}", "version": 1, **parameters})
        start = time.perf_counter(), processor_time()
        done = subprocess.run([self.program], env={**self.environment, "QUERY_STRING": query},
                              stdout=subprocess.PIPE, check=True)
        spent = [1000 * (now - then) for now, then in zip((time.perf_counter(), processor_time()), start)]
        answer = json.loads(done.stdout.split(b"\r\n\r\n", 1)[1])
        if not answer["success"]:
            sys.exit(f"{api}: {answer['error']['message']}")
        return answer["data"], spent

    def open(self, film):
        stream, spent = self.call("Streaming", method="open", format="hls", path=film, profile="hls_remux")
        self.call("Streaming", method="close", format="hls", stream_id=stream["stream_id"])
        return spent


def main():
    build = (HERE / (sys.argv[1] if len(sys.argv) > 1 else "build/ci")).resolve()
    film = pathlib.Path(sys.argv[2] if len(sys.argv) > 2 else build / "media/h264_aac.mp4").resolve()
    # A film that was changed a moment ago is not kept.
    time.sleep(max(0, film.stat().st_ctime + SETTLED_SECONDS - time.time()))
    root = make_root(build, film.parent)
    cache = root / "var/packages/Mirevo/cache"
    try:
        requests = Requests(build, root)

        def cold():
            shutil.rmtree(cache, ignore_errors=True)
            return requests.open(film)

        cases = {"nothing": lambda: requests.call("Library", method="list")[1], "cold": cold,
                 "known": lambda: requests.open(film)}
        for name, action in cases.items():
            action()
            wall, processor = (statistics.median(part) for part in zip(*(action() for _ in range(ROUNDS))))
            print(f"{name:8} {wall:8.1f} ms {processor:8.1f} ms")
    finally:
        shutil.rmtree(root)


if __name__ == "__main__":
    main()
