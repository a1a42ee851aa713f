"""What a run has found: kept as JSON, shown as tables, compared with an earlier one."""

import datetime
import json
import os
import platform
import subprocess

import ratios
from stopwatch import median
from workshop import ROOT, fail

VERSION = 1         # of the file
SLOWER = 1.05       # times as long counts as slower
BASE = "read json"  # what the others are compared with


def machine():
    """Its kind, in a few words: what comparisons between runs depend on."""
    with open("/proc/cpuinfo") as cpuinfo:
        model = next((line.split(":", 1)[1].strip() for line in cpuinfo if line.startswith("model name")), "processor")
    with open("/proc/meminfo") as meminfo:
        gib = int(meminfo.readline().split()[1]) / 2**20
    return f"{os.cpu_count()} x {model}, {gib:.0f} GiB, Linux {platform.release()}"


def commit():
    """As git calls it, with a + where files were changed since. Empty outside of a repository."""
    described = subprocess.run(["git", "describe", "--always", "--dirty=+"], cwd=ROOT, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, text=True)
    return described.stdout.strip()


def rounded(value):
    """To the digits that a time can have."""
    return float(f"{value:.5g}")


def collect(options, contenders, lines, times, parts, loads):
    """Everything as one dictionary, ready to be kept."""
    rows = {}
    for contender in contenders:
        taken = times[contender.name]
        by = "clock" if contender.by_clock else "processor"
        rows[contender.name] = {
            "processor": rounded(median(taken, "processor")),
            "clock": rounded(median(taken, "clock")),
            "by": by,
            "spread": [rounded(pick(getattr(one, by) for one in taken)) for pick in (min, max)],
            "lines": lines[contender.name],
        }
    compared = [*ratios.between_commands(times), *ratios.between_parts(parts)]
    return {
        "version": VERSION,
        "date": datetime.datetime.now().isoformat(" ", "minutes"),
        "commit": commit(),
        "machine": machine(),
        "load": [round(pick(loads), 1) for pick in (min, max)],
        "exchanges": options.exchanges,
        "rounds": options.rounds,
        "commands": rows,
        "parts": {name: rounded(value) for name, value in parts.items()},
        "ratios": [{"of": ratio.one, "to": ratio.others, "by": ratio.by, "value": rounded(value),
                    "wanted": ratio.wanted(), "missed": ratio.missed(value)} for ratio, value in compared],
    }


def table(header, rows):
    """As Markdown that is readable as it is. The first column is text, the others are numbers."""
    cells = [header, *([str(cell) for cell in row] for row in rows)]
    widths = [max(len(row[i]) for row in cells) for i in range(len(header))]

    def line(row):
        first, *others = (cell.ljust(width) if i == 0 else cell.rjust(width)
                          for i, (cell, width) in enumerate(zip(row, widths)))
        return "| " + " | ".join([first, *others]) + " |"

    rule = "| " + " | ".join(["-" * widths[0], *("-" * (width - 1) + ":" for width in widths[1:])]) + " |"
    return "\n".join([line(cells[0]), rule, *map(line, cells[1:])])


def short(value):
    """Three digits that count, or two of what is next to nothing."""
    if value < 0.1:
        return f"{value:.2g}"
    return f"{value:,.0f}" if value >= 100 else f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def show(results):
    """The tables, for people and for docs/performance.md."""
    base = results["commands"].get(BASE)

    def command(name, row):
        to_base = short(row[row["by"]] / base[row["by"]]) if base else ""
        least, most = row["spread"]
        return [name, short(row["processor"]), short(row["clock"]), row["by"], f"{short(least)} to {short(most)}",
                to_base, f"{row['lines']:,}"]

    def ratio(row):
        what = f"{row['of']} : {' or '.join(row['to'])}" + (", by the clock" if row["by"] == "clock" else "")
        return [what, short(row["value"]), row["wanted"], "missed" if row["missed"] else ""]

    parts = []
    if results["commands"]:
        parts.append(table(["ns for each exchange", "processor", "clock", "judged by", "spread", "to read json", "lines"],
                           [command(*item) for item in results["commands"].items()]))
    if results["parts"]:
        parts.append(table(["ns for each call", "processor"],
                           [[name, short(value)] for name, value in results["parts"].items()]))
    if results["ratios"]:
        parts.append(table(["ratio", "is", "wanted", ""], [ratio(row) for row in results["ratios"]]))
    low, high = results["load"]
    parts.append(f"{results['exchanges']:,} exchanges, medians of rounds ({results['rounds']}); {results['date']}, "
                 f"commit {results['commit'] or 'unknown'}; {results['machine']}; load {low} to {high}")
    return "\n\n".join(parts)


def load(path):
    """What an earlier run has saved."""
    try:
        with open(path) as file:
            results = json.load(file)
    except OSError as error:
        fail(f"{path}: {error.strerror}")
    except ValueError:
        fail(f"{path}: no JSON")
    if not isinstance(results, dict) or results.get("version") != VERSION:
        fail(f"{path}: not saved by this version of bench/run")
    return results


def save(results, path):
    with open(path, "w") as file:
        json.dump(results, file, indent=1)
        file.write("\n")


def differences(old, new):
    """Lines that say what got slower, and what makes the comparison doubtful."""
    for key in ("machine", "exchanges"):
        if old[key] != new[key]:
            yield f"doubtful: {key}: {new[key]}, was {old[key]}"
    for name, row in new["commands"].items():
        before = old["commands"].get(name)
        if before and row[row["by"]] > before[row["by"]] * SLOWER:
            yield slower(name, before[row["by"]], row[row["by"]])
    for name, value in new["parts"].items():
        before = old["parts"].get(name)
        if before and value > before * SLOWER:
            yield slower(name, before, value)


def slower(name, before, now):
    return f"slower: {name}: {short(now)} ns, was {short(before)} (+{(now / before - 1) * 100:.0f} %)"
