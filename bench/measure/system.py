"""A system of its own for each row: a system root, and the service if the row needs it."""
import http.client
import json
import os
import pathlib
import re
import resource
import shutil
import subprocess
import tempfile
import time
import urllib.parse

from . import HERE


def private_kilobytes(pid):
    """Memory that no other process shares and that cannot be dropped."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return sum(int(size) for size in re.findall(r"^Private_Dirty: *(\d+) kB", text, re.M))


class System:
    def __init__(self, build, rounds):
        self.build = build
        self.rounds = rounds
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="mirevo-bench-"))
        for name in ("etc.defaults", "volume1", "var/packages/Mirevo/etc", "tmp"):
            (self.root / name).mkdir(parents=True)
        (self.root / "etc.defaults/orvoinfo.conf").write_text('unique="orvo_x86_unit"\n')
        (self.root / "var/packages/Mirevo/target").symlink_to(build / "target")
        self.environment = {**os.environ, "ORVO_SYSROOT": str(self.root)}
        self.profiles = json.loads((build / "target/profiles/x86_2.json").read_text())
        self.process = None
        self.address = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process:
            self.process.terminate()
            self.process.wait()
            self.process.stdout.close()
        shutil.rmtree(self.root)

    def serve(self, *media, options=("--no-analysis",)):
        self.process = subprocess.Popen(
            [self.build / "target/bin/mirevo-serve", "--no-browser", "--port", "0", *options, "--", *media],
            env=self.environment, stdout=subprocess.PIPE, text=True)
        self.address = re.search(r"http://([^/]+)/", self.process.stdout.readline())[1]

    def get(self, address, least=None):
        """The body, or its first `least` bytes. Raises an error for any answer but 200."""
        connection = http.client.HTTPConnection(self.address, timeout=120)
        connection.request("GET", address)
        answer = connection.getresponse()
        try:
            body = answer.read(least)
            if answer.status != 200:
                raise RuntimeError(f"{address}: {answer.status} {body[:300]}")
            return body
        finally:
            connection.close()

    def query(self, api, **parameters):
        text = urllib.parse.urlencode({"api": f"ORVO.Mirevo2.{api}", "version": 1, **parameters})
        return f"/webapi/entry.cgi?{text}"

    def call(self, api, **parameters):
        return json.loads(self.get(self.query(api, **parameters)))["data"]

    def open(self, film, kind, profile=None, **more):
        chosen = {"profile": profile} if profile else {}
        stream = self.call("Streaming", method="open", format=kind, path=film, **chosen, **more)
        stream["address"] = self.local(stream["url"])
        return stream

    def close(self, stream):
        self.call("Streaming", method="close", format=stream["format"], stream_id=stream["stream_id"])

    @staticmethod
    def local(url):
        parts = urllib.parse.urlsplit(url)
        return f"{parts.path}?{parts.query}"

    def program(self, api, **parameters):
        """Runs the request program by itself. Returns its output."""
        environment = {**self.environment, "REQUEST_METHOD": "GET", "MIREVO_HOSTS": "films.lan",
                       "HTTP_HOST": "films.lan", "REMOTE_ADDR": "127.0.0.1",
                       "QUERY_STRING": self.query(api, **parameters).split("?")[1]}
        return subprocess.run([self.build / "target/webapi/entry.cgi"], env=environment, stdout=subprocess.PIPE,
                              check=True).stdout

    def allow(self, *media):
        """For calls of program() without a service."""
        roots = self.root / "var/packages/Mirevo/etc/media_roots"
        roots.write_text(json.dumps([str(path) for path in media]))

    def processes(self):
        """{pid: command line} of all processes of this system."""
        found = {}
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if f"ORVO_SYSROOT={self.root}".encode() in (folder / "environ").read_bytes().split(b"\0"):
                    found[int(folder.name)] = (folder / "cmdline").read_bytes().decode(errors="replace")
            except OSError:
                pass  # it has ended, or belongs to another user
        found.pop(os.getpid(), None)
        return found

    def used_processor(self):
        """The ticks of processor time that the processes of this system have used."""
        used = 0
        for pid in self.processes():
            try:
                fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
                used += int(fields[11]) + int(fields[12])
            except OSError:
                pass  # it has ended
        return used

    def wait_until_settled(self):
        """Returns when no process of this system has had anything to do for half a second."""
        looks = [-1]

        def has_rested():
            looks.append(self.used_processor())
            if looks[-1] == looks[-2]:
                return True
            time.sleep(0.5)
            return False

        self.wait_until(has_rested)

    def wait_until(self, is_so, seconds=60):
        """For states that send no event to this process."""
        deadline = time.monotonic() + seconds
        while not is_so():
            if time.monotonic() > deadline:
                raise TimeoutError(f"not within {seconds} s")
            time.sleep(0.05)


def processor_milliseconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (used.ru_utime + used.ru_stime) * 1000


def empty_program(static=False):
    """The least program, for the floor of a start of a process."""
    folder = HERE / "build/bench-media"
    program = folder / ("empty-static" if static else "empty")
    if not program.exists():
        folder.mkdir(parents=True, exist_ok=True)
        source = folder / "empty.cpp"
        source.write_text("#include <iostream>\nint main() { std::cout.flush(); }\n")
        link = ["-static"] if static else []
        subprocess.run(["c++", "-O2", *link, source, "-o", program], check=True)
    return program
