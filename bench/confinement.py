#!/usr/bin/env python3
"""Measures what the confinement of a process that parses media costs.

Usage: bench/confinement.py [BUILD]      (default build/ci)

Prints for starts with and without it, in milliseconds, the median processor time and the shortest time on the
clock, which says least of what else the machine does:
  program   the transcoder, which becomes FFmpeg
  function  the probe of a film, by "mirevo probe"
"""
import os
import pathlib
import resource
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 30
HERE = pathlib.Path(__file__).resolve().parent.parent


class System:
    """A system root with or without the sandbox."""

    def __init__(self, folder, mode):
        self.root = pathlib.Path(folder) / mode
        settings = self.root / "var/packages/Mirevo/etc"
        settings.mkdir(parents=True)
        (self.root / "etc.defaults").mkdir()
        (self.root / "etc.defaults/orvoinfo.conf").write_text('unique="orvo_x86_unit"\n')
        (settings.parent / "cache").touch()  # no folder, so that no probe is kept
        (settings / "confinement.conf").write_text(f"sandbox={mode}\n")

    def time(self, command):
        start = time.perf_counter()
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run(command, env={**os.environ, "ORVO_SYSROOT": str(self.root)}, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        processor = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        return processor * 1000, (time.perf_counter() - start) * 1000


def compare(name, command, systems):
    """Alternates, so that what else the machine does weighs on both."""
    times = {mode: [] for mode in systems}
    for _ in range(ROUNDS):
        for mode, system in systems.items():
            times[mode].append(system.time(command))
    for kind, index, choose in (("processor", 0, statistics.median), ("clock", 1, min)):
        confined, free = (choose(sample[index] for sample in times[mode])
                          for mode in ("required", "off"))
        print(f"{name:9} {kind:9} {confined:8.2f} {free:8.2f}  costs {confined - free:6.2f} ms")


def main():
    build = (pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else HERE / "build/ci").resolve()
    film = build / "media/h264_aac.mp4"
    with tempfile.TemporaryDirectory(prefix="mirevo-bench-") as folder:
        systems = {mode: System(folder, mode) for mode in ("required", "off")}
        compare("program", [build / "target/bin/ffmpeg", "-i", film, "-t", "0.1", "-c", "copy",
                            "-f", "mpegts", "pipe:1"], systems)
        compare("function", [build / "target/bin/mirevo", "probe", film], systems)


if __name__ == "__main__":
    main()
