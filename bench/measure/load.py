"""A ready segment that many clients fetch at once."""
import selectors
import socket
import statistics
import time

from . import media
from .figures import Figure

CLIENTS = 64
FETCHES = 20  # of each client
PAUSE = 1 << 20
# The web server sends segments of a stream by itself when it has been open for a moment.
PASS_SECONDS = 4


class Client:
    """Fetches one address again and again, on one connection."""

    def __init__(self, authority, address, times, cookie=""):
        host, port = authority.rsplit(":", 1)
        self.socket = socket.create_connection((host, int(port)))
        self.socket.setblocking(False)
        self.request = f"GET {address} HTTP/1.1\r\nHost: {authority}\r\n{cookie}\r\n".encode()
        self.left = times
        self.took = []

    def ask(self):
        self.begun = time.monotonic()
        self.head = b""
        self.missing = None
        self.socket.send(self.request)

    def take(self):
        """Reads what has come. Is the client done?"""
        data = self.socket.recv(PAUSE)
        if not data:
            raise RuntimeError("the server closed the connection")
        if self.missing is None:
            self.head += data
            if b"\r\n\r\n" not in self.head:
                return False
            head, data = self.head.split(b"\r\n\r\n", 1)
            self.missing = content_length(head)
        self.missing -= len(data)
        if self.missing > 0:
            return False
        self.took.append((time.monotonic() - self.begun) * 1000)
        self.left -= 1
        if self.left > 0:
            self.ask()
        return self.left == 0


def content_length(head):
    lines = head.decode("latin-1").split("\r\n")
    if " 200 " not in lines[0] + " ":
        raise RuntimeError(lines[0])
    return int(next(line.split(":")[1] for line in lines if line.lower().startswith("content-length:")))


def times_of_all(authority, address):
    """The milliseconds of all fetches of all clients."""
    clients = [Client(authority, address, FETCHES) for _ in range(CLIENTS)]
    with selectors.DefaultSelector() as selector:
        for client in clients:
            selector.register(client.socket, selectors.EVENT_READ, client)
            client.ask()
        running = len(clients)
        while running:
            for key, _ in selector.select(60):
                if key.data.take():
                    selector.unregister(key.fileobj)
                    running -= 1
    for client in clients:
        client.socket.close()
    return [took for client in clients for took in client.took]


def percentiles(times):
    ranked = sorted(times)
    return ranked[len(ranked) // 2], ranked[len(ranked) * 99 // 100]


def ready_segment(system):
    """A ready HLS segment for 64 clients at once, against the same bytes as a static file."""
    film = media.film()
    system.serve(film.parent)
    stream = system.open(film, "hls", "hls_240p_vb300_ab96")
    # The following segment shows that the first one is complete.
    address = f"{stream['address'].replace('entry.cgi?', 'entry.cgi/segment.ts?')}&fragment_id=0"
    segment = system.get(address)
    system.get(f"{stream['address']}&fragment_id=1")
    time.sleep(PASS_SECONDS)
    system.get(address)
    static = system.build / "target/player/bench-segment.ts"
    static.write_bytes(segment)
    try:
        samples = []
        for _ in range(max(system.rounds // 3, 1)):
            ours = percentiles(times_of_all(system.address, address))
            floor = percentiles(times_of_all(system.address, f"/{static.name}"))
            samples.append((*ours, *floor))
        p50, p99, floor50, floor99 = (statistics.median(column) for column in zip(*samples))
    finally:
        static.unlink()
    system.close(stream)
    yield Figure(f"{CLIENTS} clients, p50", p50, floor=floor50, floor_name="a static file", bound=30)
    yield Figure(f"{CLIENTS} clients, p99", p99, floor=floor99, floor_name="a static file", bound=80)
