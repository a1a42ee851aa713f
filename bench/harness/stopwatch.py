"""Runs commands and takes their times."""

import dataclasses
import os
import statistics
import subprocess
import tempfile
import time

from workshop import fail


@dataclasses.dataclass
class Contender:
    """A command that takes part."""

    name: str
    command: list
    exchanges: int          # in its input
    feeder: list = None     # the command that writes its standard input
    by_clock: bool = False  # judged by the clock, and not by processor time
    lines: int = None       # that it writes; None where that is its own business


@dataclasses.dataclass
class Times:
    """Nanoseconds for each exchange. Processor time is user's and system's, and that of children."""

    processor: float
    clock: float


def start(contender, **streams):
    """Its process, and its feeder's or None."""
    command = [str(word) for word in contender.command]
    if contender.feeder is None:
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, **streams), None
    feeder = subprocess.Popen(contender.feeder, stdout=subprocess.PIPE)
    process = subprocess.Popen(command, stdin=feeder.stdout, **streams)
    feeder.stdout.close()  # so that it hears of an early end
    return process, feeder


def finish(contender, process, feeder, status, said):
    """What failed was fast for no good reason."""
    process.returncode = os.waitstatus_to_exitcode(status)
    if feeder is not None:
        feeder.wait()
    if process.returncode != 0:
        fail(f"{contender.name}: exit code {process.returncode}: {' '.join(process.args)}\n{said()}")


def take_time(contender):
    """One run, with its output thrown away."""
    with tempfile.TemporaryFile("w+", errors="replace") as errors:
        begin = time.monotonic()
        process, feeder = start(contender, stdout=subprocess.DEVNULL, stderr=errors)
        _, status, usage = os.wait4(process.pid, 0)
        clock = time.monotonic() - begin

        def said():
            errors.seek(0)
            return errors.read()[-500:]

        finish(contender, process, feeder, status, said)
    per_exchange = 1e9 / contender.exchanges
    return Times((usage.ru_utime + usage.ru_stime) * per_exchange, clock * per_exchange)


def count_lines(contender):
    """One run that warms the caches, and tells how many lines it wrote."""
    process, feeder = start(contender, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    lines, last = 0, b""
    with process.stdout:
        while chunk := process.stdout.read(1 << 20):
            lines += chunk.count(b"\n")
            last = chunk
    _, status = os.waitpid(process.pid, 0)
    finish(contender, process, feeder, status, lambda: last[-500:].decode(errors="replace"))
    if contender.lines is not None and lines != contender.lines:
        fail(f"{contender.name}: {lines} lines instead of {contender.lines}")
    return lines


def race(contenders, rounds, tell):
    """Every contender's times, a list with one for each round: name -> [Times]. They take turns, because the
    machine's speed drifts."""
    times = {contender.name: [] for contender in contenders}
    for number in range(rounds if contenders else 0):
        tell(f"round {number + 1} of {rounds} ...")
        for contender in contenders:
            times[contender.name].append(take_time(contender))
    return times


def median(times, what):
    """Of one of the two times."""
    return statistics.median(getattr(one, what) for one in times)
