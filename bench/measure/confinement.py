"""What the confinement of a process that parses media costs."""
import subprocess

from . import media
from .figures import Figure, interleaved
from .system import System, processor_milliseconds


def with_sandbox(system, mode):
    other = System(system.build, system.rounds)
    (other.root / "var/packages/Mirevo/cache").touch()  # no folder, so that no probe is kept
    (other.root / "var/packages/Mirevo/etc/confinement.conf").write_text(f"sandbox={mode}\n")
    return other


def run(command, system):
    """The processor time."""
    begun = processor_milliseconds()
    subprocess.run(command, env=system.environment, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return processor_milliseconds() - begun


def cost(system):
    """Processor time of a confined program and a confined function, against the same without confinement."""
    film = media.small_film()
    programs = system.build / "target/bin"
    commands = {
        "the transcoder, which becomes FFmpeg": [programs / "ffmpeg", "-i", film, "-t", "0.1", "-c", "copy", "-f",
                                                 "mpegts", "pipe:1"],
        "the probe of a film": [programs / "mirevo", "probe", film],
    }
    with with_sandbox(system, "required") as confined, with_sandbox(system, "off") as free:
        for name, command in commands.items():
            value, floor = interleaved(system.rounds * 3, lambda: run(command, confined), lambda: run(command, free))
            yield Figure(name, value, floor=floor, floor_name="without confinement")
