"""Interleaved runs of programs, and how sure their figures are."""
import os
import shutil
import statistics
import subprocess
import sys
import time
from dataclasses import dataclass, field


class BenchError(Exception):
    """Says what is wrong and what to do about it."""


class MissingTool(BenchError):
    """A program that a row compares with is not here."""


@dataclass
class Sample:
    """Figures of one side of a row, in the row's unit."""
    values: list
    detail: dict = field(default_factory=dict)

    @property
    def median(self):
        return statistics.median(self.values)

    @property
    def low(self):
        return self._quartile(0)

    @property
    def high(self):
        return self._quartile(2)

    @property
    def spread(self):
        """Half the distance of the quartiles, as a share of the median."""
        return (self.high - self.low) / 2 / self.median if self.median else 0.0

    def _quartile(self, which):
        if len(self.values) < 4:
            return min(self.values) if which == 0 else max(self.values)
        return statistics.quantiles(self.values, n=4, method='inclusive')[which]

    def scaled(self, factor):
        return Sample([value * factor for value in self.values], dict(self.detail))


@dataclass
class Side:
    """One way to do a row's work: `prepare` is not timed, `check` looks at the result."""
    command: list
    prepare: object = None
    check: object = None


def tool(name):
    found = shutil.which(name, path=os.environ['PATH'] + ':/usr/sbin:/sbin')
    if not found:
        raise MissingTool(f'{name} is not installed; run scripts/setup --bench')
    return found


def run_once(side):
    """Seconds and peak memory in MiB of one run."""
    if side.prepare:
        side.prepare()
    start = time.perf_counter()
    child = subprocess.Popen(side.command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                             stderr=subprocess.PIPE, text=True, errors='replace')
    errors = child.stderr.read()
    _, status, usage = os.wait4(child.pid, 0)
    seconds = time.perf_counter() - start
    child.stderr.close()
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0 and side.check is None:
        raise BenchError(f'{" ".join(side.command)} ended with {child.returncode}: {errors.strip()[-2000:]}')
    if side.check:
        side.check(child.returncode, errors)
    return seconds, usage.ru_maxrss / 1024


def interleaved(sides, runs, warm_up=True):
    """`sides`: name to Side, or to (Side, runs) for one that is too slow for as many."""
    counted = {name: side if isinstance(side, tuple) else (side, runs) for name, side in sides.items()}
    seconds = {name: [] for name in counted}
    memory = {name: 0.0 for name in counted}
    for turn in range(-1 if warm_up else 0, max(count for _, count in counted.values())):
        for name, (side, count) in counted.items():
            if turn >= count or (turn < 0 and count < runs):
                continue
            took, used = run_once(side)
            if turn >= 0:
                seconds[name].append(took)
                memory[name] = max(memory[name], used)
    return {name: Sample(values, {'peak_mib': round(memory[name], 1)}) for name, values in seconds.items()}


class Noise:
    """The same piece of arithmetic again and again: a machine with nothing else to do takes the same time."""
    limit = 0.10

    def __init__(self):
        self.times = []

    def look(self):
        for _ in range(5):
            start = time.perf_counter()
            total = 0
            for number in range(200_000):
                total += number * number
            self.times.append(time.perf_counter() - start)

    @property
    def share(self):
        """By how much the usual time is above the best one."""
        return statistics.quantiles(self.times, n=10)[7] / min(self.times) - 1

    @property
    def too_noisy(self):
        return self.share > self.limit


def progress(text):
    print(text, file=sys.stderr, flush=True)
