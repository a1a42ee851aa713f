"""Reads captures of 100,000 exchanges and of ten and a hundred times as many, as files and from standard input, and
tells what an exchange costs and what memory the program holds. The longest capture takes 2 GB in build/bench while
this runs."""

import argparse
import dataclasses
import datetime
import os
import statistics
import subprocess
import sys
import time

import results
import workshop
from stopwatch import Contender, finish, start
from workshop import PROGRAM, note

LENGTHS = [100_000, 1_000_000, 10_000_000]
RATE = 10_000  # queries a second, so that the shortest capture sees its unanswered queries expire, as the others do
BETWEEN_LOOKS = 0.02


@dataclasses.dataclass
class Watched:
    """What one run took: processor nanoseconds for each exchange, and the most MiB in each half of its time."""

    cost: float
    first_half: float
    second_half: float


def memory(pid):
    """MiB that the process has for itself: the program and its libraries do not count."""
    try:
        with open(f"/proc/{pid}/status") as status:
            return sum(int(line.split()[1]) for line in status if line.startswith(("RssAnon", "RssShmem"))) / 1024
    except (FileNotFoundError, ProcessLookupError):
        return 0.0


def watch(contender):
    """One run, looked at from outside as it goes."""
    looks = []
    process, feeder = start(contender, stdout=subprocess.DEVNULL)
    pid = 0
    while pid == 0:
        looks.append(memory(process.pid))
        time.sleep(BETWEEN_LOOKS)
        pid, status, usage = os.wait4(process.pid, os.WNOHANG)
    finish(contender, process, feeder, status, str)
    middle = (len(looks) + 1) // 2
    return Watched((usage.ru_utime + usage.ru_stime) * 1e9 / contender.exchanges, max(looks[:middle]),
                   max(looks[middle:], default=0.0))


def contenders(exchanges, capture):
    read = [PROGRAM, "read", "-q", "--format", "json"]
    return [Contender("file", [*read, capture], exchanges),
            Contender("standard input", [*read, "-"], exchanges, feeder=["cat", capture])]


def measure(lengths, rounds):
    """(exchanges, where from) -> [Watched]"""
    everyone = [one for length in lengths for one in contenders(length, workshop.capture(length, rate=RATE))]
    runs = {(one.exchanges, one.name): [] for one in everyone}
    for number in range(rounds):
        for one in everyone:
            note(f"round {number + 1} of {rounds}: {one.exchanges:,} exchanges, {one.name} ...")
            runs[one.exchanges, one.name].append(watch(one))
    return runs


def show(runs):
    def middle(key, what):
        return statistics.median(getattr(run, what) for run in runs[key])

    rows = []
    for exchanges, name in sorted(runs, key=lambda key: (key[1], key[0])):
        cost, least = (middle((number, name), "cost") for number in (exchanges, min(key[0] for key in runs)))
        rows.append([f"{name}, {exchanges:,} exchanges", results.short(cost), f"{cost / least:.2f}",
                     *(f"{middle((exchanges, name), half):.1f}" for half in ("first_half", "second_half"))])
    return results.table(["read json", "ns for each exchange", "to the shortest", "MiB, first half", "MiB, second half"],
                         rows)


def main():
    parser = argparse.ArgumentParser(prog="bench/growth", description=__doc__)
    parser.add_argument("--rounds", type=int, default=3, metavar="N", help="how often each is read (3)")
    parser.add_argument("--longest", type=int, default=LENGTHS[-1], metavar="N",
                        help="leave out captures of more exchanges (10000000)")
    options = parser.parse_args()
    lengths = [length for length in LENGTHS if length <= options.longest]
    if not lengths or options.rounds < 1:
        parser.error("nothing to measure")
    workshop.build()
    load = os.getloadavg()[0]
    try:
        runs = measure(lengths, options.rounds)
    finally:
        for length in lengths:
            workshop.capture_path(length, rate=RATE).unlink(missing_ok=True)
    print(show(runs))
    print(f"\nmedians of rounds ({options.rounds}); {datetime.date.today()}, commit {results.commit()}; "
          f"{results.machine()}; load {load:.1f} to {os.getloadavg()[0]:.1f}")


if __name__ == "__main__":
    sys.exit(main())
