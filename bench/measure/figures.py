"""Figures, their floors, and the table of both."""
import statistics
import time
from dataclasses import dataclass


@dataclass
class Figure:
    """`bound` is the most that `value` may be or, with `bounds_ratio`, the most for value / floor."""
    name: str
    value: float
    unit: str = "ms"
    floor: float | None = None
    floor_name: str = ""
    bound: float | None = None
    bounds_ratio: bool = False

    def ratio(self):
        return self.value / self.floor if self.floor else None

    def is_kept(self):
        if self.bound is None:
            return None
        return (self.ratio() if self.bounds_ratio else self.value) <= self.bound

    def bound_text(self):
        if self.bound is None:
            return ""
        return f"{self.bound:g} x" if self.bounds_ratio else f"{self.bound:g} {self.unit}"


def milliseconds(begun):
    return (time.monotonic() - begun) * 1000


def timed(action):
    begun = time.monotonic()
    action()
    return milliseconds(begun)


def interleaved(rounds, *actions):
    """The medians of what the actions return. Each is tried once before; then they take turns."""
    for action in actions:
        action()
    samples = [[action() for action in actions] for _ in range(rounds)]
    return [statistics.median(of_one) for of_one in zip(*samples)]


def pair(name, rounds, ours, floor, floor_name, **more):
    value, least = interleaved(rounds, ours, floor)
    return Figure(name, value, floor=least, floor_name=floor_name, **more)


class Table:
    """Prints each figure as it comes."""

    def __init__(self):
        self.figures = []

    def add(self, row, figure):
        if not self.figures:
            print(f"{'row':12} {'figure':44} {'value':>10} {'floor':>10} {'ratio':>6}  {'bound':>9}  floor")
        self.figures.append((row, figure))
        floor = f"{figure.floor:10.2f}" if figure.floor is not None else f"{'':10}"
        ratio = f"{figure.ratio():6.2f}" if figure.floor else f"{'':6}"
        mark = {None: " ", True: " ", False: "!"}[figure.is_kept()]
        print(f"{row:12} {figure.name:44} {figure.value:7.2f} {figure.unit:3}{floor} {ratio}  {figure.bound_text():>9}"
              f"{mark} {figure.floor_name}", flush=True)

    def as_json(self):
        return [{"row": row, "figure": figure.name, "value": figure.value, "unit": figure.unit, "floor": figure.floor,
                 "floor_name": figure.floor_name, "ratio": figure.ratio(), "bound": figure.bound,
                 "bounds_ratio": figure.bounds_ratio, "kept": figure.is_kept()} for row, figure in self.figures]
