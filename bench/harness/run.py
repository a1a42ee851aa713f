"""Builds a release, makes captures from a seed, times the program, its peers and its parts, and prints the results."""

import argparse
import os
import pathlib
import sys

import contenders
import results
import stopwatch
import workshop
from workshop import FOLDER, ROOT, fail, note

EXAMPLES = """examples:
  bench/run                                   everything: some ten minutes
  bench/run --only "read json" --rounds 3     what has these letters in its name
  bench/run --save before.json                and after a change:
  bench/run --compare before.json             says what got slower by more than 5 %, and then exits with 1

The machine's speed drifts and others may work beside us: the commands take turns, medians count, and ratios
are the medians of what each round says. Compare within a run, or runs of one idle machine.
"""


def positive(text):
    number = int(text)
    if number < 1:
        raise argparse.ArgumentTypeError("must be 1 or more")
    return number


def parse():
    usual_peers = ROOT.parent / "shared/bench"
    parser = argparse.ArgumentParser(prog="bench/run", description=__doc__, epilog=EXAMPLES,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--exchanges", type=positive, default=1_000_000, metavar="N",
                        help="in the capture (1000000); peers that take their time get no more than 100000")
    parser.add_argument("--rounds", type=positive, default=5, metavar="N", help="how often everything is timed (5)")
    parser.add_argument("--only", default="", metavar="TEXT", help="what has this text in its name, and what the others are compared with")
    parser.add_argument("--peers", type=pathlib.Path, metavar="FOLDER",
                        default=usual_peers if usual_peers.is_dir() else None,
                        help="with limit.cc and tins_pair.cc to compare with (../shared/bench, where it exists)")
    parser.add_argument("--save", metavar="FILE", help="keep the results, as JSON")
    parser.add_argument("--compare", metavar="FILE", help="with results that were saved")
    options = parser.parse_args()
    if options.peers is not None and not options.peers.is_dir():
        parser.error(f"--peers: {options.peers} is no folder")
    return options


def all_contenders(options):
    capture = workshop.capture(options.exchanges)
    everyone = [*contenders.ours(options.exchanges, capture),
                *contenders.written_by_others(options.peers, options.exchanges, capture),
                *contenders.installed(options.exchanges, capture)]
    chosen = [one for one in everyone if options.only in one.name]
    return [one for one in everyone if one in chosen or (chosen and one.name == results.BASE)]


def measure(options):
    workshop.build()
    everyone = all_contenders(options)
    loads = [os.getloadavg()[0]]

    def tell(text):
        loads.append(os.getloadavg()[0])
        note(text)

    lines = {}
    for contender in everyone:
        note(f"trying {contender.name} ...")
        lines[contender.name] = stopwatch.count_lines(contender)
    times = stopwatch.race(everyone, options.rounds, tell)
    parts = contenders.parts(options.rounds, options.only)
    if not everyone and not parts:
        fail(f"nothing has '{options.only}' in its name")
    return results.collect(options, everyone, lines, times, parts, loads)


def main():
    options = parse()
    before = results.load(options.compare) if options.compare else None
    now = measure(options)
    print(results.show(now))
    results.save(now, options.save or FOLDER / "results.json")
    if before is None:
        return 0
    differences = list(results.differences(before, now))
    print("\n" + "\n".join(differences or ["nothing got slower"]))
    return 1 if any(line.startswith("slower") for line in differences) else 0


if __name__ == "__main__":
    sys.exit(main())
