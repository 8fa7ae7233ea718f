"""A machine with the test card: a system root with the card's node, and the transcoder on it."""
import fcntl
import json
import os
import pathlib
import select
import signal
import subprocess
import tempfile
import unittest

PROGRAMS = {}


def take_arguments(arguments):
    PROGRAMS["transcoder"], PROGRAMS["driver"], *PROGRAMS["package"] = arguments


class Machine:
    """The node is a link to a device that everybody may open; the driver says that it is a card."""

    def __init__(self, nodes=("renderD128",)):
        self.folder = tempfile.TemporaryDirectory()
        self.root = pathlib.Path(self.folder.name)
        for name in ("dev/dri", "var/packages/Mirevo/etc", "etc.defaults", "tmp/Mirevo", "out"):
            (self.root / name).mkdir(parents=True)
        for node in nodes:
            (self.root / "dev/dri" / node).symlink_to("/dev/null")
        driver = pathlib.Path(PROGRAMS["driver"]).parent
        self.write("var/packages/Mirevo/etc/confinement.conf", f"libraries={driver}\n")
        self.environment = {**os.environ, "ORVO_SYSROOT": str(self.root),
                            "LIBVA_DRIVERS_PATH": str(driver), "LD_PRELOAD": PROGRAMS["driver"]}
        # The runtime of a sanitizer must come first.
        self.environment["ASAN_OPTIONS"] = "verify_asan_link_order=0:detect_leaks=0"

    def settle(self):
        """Waits for the processes that runs have left behind: those that prove a failed engine again."""
        own = f"ORVO_SYSROOT={self.root}".encode()
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                waited = os.pidfd_open(int(process.name))
            except OSError:
                continue
            try:
                if own in (process / "environ").read_bytes().split(b"\0"):
                    select.select([waited], [], [], 60)
            except OSError:
                pass  # it has ended, or belongs to somebody else
            finally:
                os.close(waited)

    def close(self):
        self.settle()
        self.folder.cleanup()

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def prove(self, failure="", encoder="h264_vaapi"):
        """What the transcoder says about the card."""
        result = subprocess.run([PROGRAMS["transcoder"], "--prove"], capture_output=True, text=True,
                                env={**self.environment, "ORVO_TEST_CARD": failure}, check=True)
        lines = dict(line.split(": ", 1) for line in result.stdout.splitlines())
        return lines[encoder]

    def explain(self, *arguments):
        """The command that FFmpeg would get."""
        return subprocess.run([PROGRAMS["transcoder"], "--explain", *arguments],
                              capture_output=True, text=True, env=self.environment,
                              check=True).stdout

    def register(self, *others):
        """For a new process: enters it as a transcoder on hardware, beside others."""
        entries = [{"PID": pid, "hardware_transcode": hardware, "offline_conversion": False}
                   for pid, hardware in (*others, (os.getpid(), True))]
        self.write("tmp/Mirevo/enabled", json.dumps(entries))

    def registered(self, pid):
        """Is the process in the register as one on hardware? None if it is not there."""
        with open(self.root / "tmp/Mirevo/enabled", encoding="utf-8") as register:
            fcntl.flock(register, fcntl.LOCK_SH)  # it is written in place
            entries = json.load(register)
        return next((row["hardware_transcode"] for row in entries if row["PID"] == pid), None)

    def start(self, arguments, failure="", others=(), output=subprocess.DEVNULL):
        return subprocess.Popen([PROGRAMS["transcoder"], *arguments], stdin=subprocess.DEVNULL,
                                stdout=output, stderr=subprocess.PIPE, text=output is None,
                                env={**self.environment, "ORVO_TEST_CARD": failure},
                                preexec_fn=lambda: self.register(*others))


class Case(unittest.TestCase):
    def machine(self, **options):
        machine = Machine(**options)
        self.addCleanup(machine.close)
        return machine

    def running(self, process):
        """The process ends with the test."""
        def end():
            if process.poll() is None:
                process.send_signal(signal.SIGKILL)
            process.communicate()
        self.addCleanup(end)
        return process
