#!/usr/bin/env python3
"""Measures the time of requests, and compares each with a lower bound.

Usage: bench/requests.py [BUILD]      (build/release or build/ci; default build/ci)

Prints medians in milliseconds and ratios:
  process   the request program answers a call       against  an empty C++ program
  segment   a complete HLS segment                   against  the same bytes as a static file
  playlist  opening a ten-hour film                  against  opening a one-minute film
  first     the first bytes of a progressive stream  against  stock ffmpeg with the same arguments
"""
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

ROUNDS = 30
HERE = pathlib.Path(__file__).resolve().parent.parent


def timed(action, rounds=ROUNDS):
    def once():
        start = time.perf_counter()
        action()
        return (time.perf_counter() - start) * 1000

    once()
    return statistics.median(once() for _ in range(rounds))


def report(name, ours, other):
    print(f"{name:10} {ours:9.2f} ms  {other:9.2f} ms  ratio {ours / other:6.2f}")


class Service:
    def __init__(self, build, media):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="mirevo-bench-"))
        for name in ("etc.defaults", "volume1", "var/packages/Mirevo"):
            (self.root / name).mkdir(parents=True)
        (self.root / "etc.defaults/orvoinfo.conf").write_text('unique="orvo_x86_unit"\n')
        (self.root / "var/packages/Mirevo/target").symlink_to(build / "target")
        self.environment = {**os.environ, "ORVO_SYSROOT": str(self.root)}
        self.process = subprocess.Popen(
            [build / "target/bin/mirevo-serve", "--no-browser", "--port", "0", "--", media],
            env=self.environment, stdout=subprocess.PIPE, text=True)
        self.address = re.search(r"(http://[^/]+)/", self.process.stdout.readline())[1]

    def call(self, **parameters):
        query = urllib.parse.urlencode({"api": "ORVO.Mirevo2.Streaming", "version": 1, **parameters})
        with urllib.request.urlopen(f"{self.address}/webapi/entry.cgi?{query}") as answer:
            return json.load(answer)["data"]

    def stop(self):
        self.process.terminate()
        self.process.wait()
        shutil.rmtree(self.root)


def fetch(url, length=None):
    with urllib.request.urlopen(url) as answer:
        return answer.read() if length is None else answer.read(length)


def empty_program(folder):
    source = folder / "empty.cpp"
    source.write_text("#include <iostream>\nint main() { std::cout.flush(); }\n")
    subprocess.run(["c++", "-O2", source, "-o", folder / "empty"], check=True)
    return folder / "empty"


def bench_process(build, service, folder):
    empty = empty_program(folder)
    program = build / "target/webapi/entry.cgi"
    environment = {**service.environment, "REQUEST_METHOD": "GET",
                   "QUERY_STRING": "api=ORVO.Mirevo2.Library&version=1&method=list"}
    quiet = {"stdout": subprocess.DEVNULL, "env": environment}
    report("process", timed(lambda: subprocess.run([program], **quiet), 200),
           timed(lambda: subprocess.run([empty], **quiet), 200))


def bench_segment(service, film, static_folder):
    stream = service.call(method="open", format="hls", path=film, profile="hls_480p_vb1200_ab128")
    segment = fetch(f"{stream['url']}&fragment_id=0")
    static = static_folder / "segment.ts"
    static.write_bytes(segment)
    try:
        report("segment", timed(lambda: fetch(f"{stream['url']}&fragment_id=0")),
               timed(lambda: fetch(f"{service.address}/{static.name}")))
    finally:
        static.unlink()
        service.call(method="close", format="hls", stream_id=stream["stream_id"])


def bench_playlist(service, short, long):
    def opening(film):
        stream = service.call(method="open", format="hls", path=film, profile="hls_remux")
        fetch(stream["url"])
        service.call(method="close", format="hls", stream_id=stream["stream_id"])

    report("playlist", timed(lambda: opening(long), 10), timed(lambda: opening(short), 10))


def bench_first_bytes(build, service, film):
    key = "http_mp4_480p_vb1200_ab128"
    arguments = json.loads((build / "target/profiles/x86_2.json").read_text())[key].split()
    arguments[arguments.index("hd480")] = "852x480"

    def ours():
        stream = service.call(method="open", format="http", path=film, profile=key)
        fetch(f"{stream['url']}&start=30", 4096)
        service.call(method="close", format="http", stream_id=stream["stream_id"])

    def stock():
        ffmpeg = subprocess.Popen(
            ["/usr/bin/ffmpeg", "-v", "error", "-nostdin", "-ss", "30", "-i", film, *arguments, "pipe:1"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        ffmpeg.stdout.read(4096)
        ffmpeg.kill()
        ffmpeg.communicate()

    report("first", timed(ours, 10), timed(stock, 10))


def ten_hours(source, folder):
    film = folder / "ten hours.mkv"
    subprocess.run(["ffmpeg", "-v", "error", "-stream_loop", "599", "-i", source, "-map", "0:v", "-map", "0:a",
                    "-c", "copy", "-t", "36000", film], check=True)
    return film


def main():
    build = (HERE / (sys.argv[1] if len(sys.argv) > 1 else "build/ci")).resolve()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        subprocess.run([HERE / "tests/media/make_media.sh", folder], check=True)
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=s=64x36:r=5:d=60", "-f", "lavfi",
                        "-i", "sine=d=60", "-ac", "1", "-b:a", "16k", "-c:v", "libx264",
                        "-pix_fmt", "yuv420p", "-c:a", "aac",
                        folder / "small.mkv"], check=True)
        long = ten_hours(folder / "small.mkv", folder)
        service = Service(build, folder)
        try:
            print(f"{'':10} {'ours':>12}  {'other':>12}")
            bench_process(build, service, folder)
            bench_segment(service, str(folder / "h264_ac3.mkv"), build / "target/player")
            bench_playlist(service, str(folder / "small.mkv"), str(long))
            bench_first_bytes(build, service, str(folder / "h264_ac3.mkv"))
        finally:
            service.stop()


if __name__ == "__main__":
    main()
