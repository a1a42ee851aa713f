"""Plays a capture as fast as it goes onto a wire, a veth pair in a network namespace of its own, and tells what the
program and its peers keep up with: each listens alone, in turns, with the same buffer in the kernel. Where packets
were lost, the rate is lowered until none is."""

import argparse
import dataclasses
import datetime
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import results
import workshop
from workshop import PROGRAM, fail, note

EXCHANGES = 200_000  # in the capture, which is played in a loop
BUFFER_MIB = 16      # what a live run has where nothing else is said
SECONDS = 5          # of traffic, long enough for a buffer not to hide that somebody is too slow
SEARCHES = 4         # for a rate without loss
PATIENCE = 30        # seconds


@dataclasses.dataclass
class Listener:
    """A program on the far end. `received` and `dropped` find these numbers in what it says when it ends."""

    name: str
    command: list
    received: str
    dropped: str


def listeners():
    yield Listener("dnspair live", [PROGRAM, "live", "-i", "far", "--buffer", BUFFER_MIB, "--format", "json"],
                   r"far: (\d+) received", r"(\d+) dropped by the kernel")
    yield Listener("tcpdump -w", ["tcpdump", "-i", "far", "-B", BUFFER_MIB << 10, "-w", "/dev/null"],
                   r"(\d+) packets captured", r"(\d+) packets dropped by kernel")
    if shutil.which("dnscap"):
        yield Listener("dnscap -w (UDP only)",
                       ["dnscap", "-N", "-S", "-o", f"pcap_buffer_size={BUFFER_MIB << 20}", "-i", "far", "-w", "-"],
                       r"far: (\d+) recv", r"recv (\d+) drop")
    else:
        note("skipped: dnscap: not installed")


@dataclasses.dataclass
class Outcome:
    """What became of some seconds of traffic."""

    rate: float      # packets a second, as they were sent
    received: int
    dropped: int
    cost: float      # processor nanoseconds for each received packet
    behind: float    # seconds for which the listener went on when nothing more came


@dataclasses.dataclass
class Player:
    """Sends the capture into the near end."""

    capture: str
    packets: int  # in the capture

    def play(self, rate):
        """For about SECONDS, so many packets a second. The rate there was."""
        return self.send(max(1, round(rate * SECONDS / self.packets)), f"--pps={rate:.0f}")

    def play_fast(self, loops):
        """As fast as it goes."""
        return self.send(loops, "--topspeed")

    def send(self, loops, speed):
        sent = subprocess.run(["tcpreplay", "--intf1=near", "--preload-pcap", f"--loop={loops}", speed, self.capture],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        rated = re.search(r"([\d.]+) pps", sent.stdout)
        if sent.returncode != 0 or not rated:
            fail(f"tcpreplay: {sent.stdout.strip()}")
        return float(rated[1])


def wait_for(what, condition):
    """Until it holds."""
    give_up = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > give_up:
            fail(f"{what}: not within {PATIENCE} s")
        time.sleep(0.01)


def sockets():
    """How many packet sockets this network has."""
    with open("/proc/net/packet") as file:
        return len(file.readlines()) - 1


def processor_ticks(process):
    with open(f"/proc/{process.pid}/stat") as file:
        fields = file.read().rsplit(")", 1)[1].split()
    return int(fields[11]) + int(fields[12])


def wait_until_quiet(process):
    """Until it has done nothing for a while. How long it took."""
    begin = quiet_since = time.monotonic()
    ticks = processor_ticks(process)
    while time.monotonic() - quiet_since < 0.5:
        time.sleep(0.02)
        now = processor_ticks(process)
        if now > ticks + 1:  # more than a heartbeat
            ticks, quiet_since = now, time.monotonic()
        if time.monotonic() - begin > PATIENCE:
            fail("a listener does not come to an end")
    return quiet_since - begin


def listen(listener, play):
    """Lets it listen while `play` sends."""
    with tempfile.TemporaryFile("w+", errors="replace") as said:
        process = subprocess.Popen([str(word) for word in listener.command], stdout=subprocess.DEVNULL, stderr=said)
        wait_for(f"{listener.name} listens", lambda: sockets() == 1 or process.poll() is not None)
        rate = play()
        behind = wait_until_quiet(process) if process.poll() is None else 0.0
        process.send_signal(signal.SIGINT)
        _, _, usage = os.wait4(process.pid, 0)
        process.returncode = 0
        wait_for("the socket is closed", lambda: sockets() == 0)
        said.seek(0)
        text = said.read()
    numbers = [re.search(pattern, text) for pattern in (listener.received, listener.dropped)]
    if None in numbers:
        fail(f"{listener.name} does not say what it received:\n{text[-1000:]}")
    received, dropped = (int(number[1]) for number in numbers)
    return Outcome(rate, received, dropped, (usage.ru_utime + usage.ru_stime) * 1e9 / max(received, 1), behind)


def search(listener, player, loops):
    """At full speed, then for the highest rate without loss. (full speed, the best without loss or None)"""
    full = listen(listener, lambda: player.play_fast(loops))
    if full.dropped == 0:
        return full, full
    low, high, best = 0.0, full.rate, None
    rate = full.rate * full.received / (full.received + full.dropped)
    for _ in range(SEARCHES):
        note(f"  {listener.name}: {rate:,.0f} packets a second ...")
        outcome = listen(listener, lambda: player.play(rate))
        if outcome.dropped == 0:
            low, best = rate, outcome
        else:
            high = rate
        rate = (low + high) / 2
    return full, best


def show(found):
    def row(name, full, best):
        lost = 100 * full.dropped / (full.received + full.dropped)
        return [name, f"{full.rate:,.0f}", f"{lost:.2f} %", f"{full.behind:.1f}", f"{full.cost:,.0f}",
                f"{best.rate:,.0f}" if best else "none found"]

    return results.table(["listener", "packets a second", "lost", "seconds behind", "ns for each packet",
                          "a second without loss"], [row(*one) for one in found])


def make_wire():
    for command in ("ip link add near type veth peer name far", "ip link set lo up", "ip link set near up",
                    "ip link set far up"):
        subprocess.run(command.split(), check=True)


def inside(capture, rounds):
    """In the namespaces, whose processes all end with this one."""
    make_wire()
    time.sleep(1)  # the kernel's own first packets
    counted = subprocess.run([PROGRAM, "read", "-q", "--account", "/dev/stdout", "-o", "/dev/null", capture],
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True).stdout
    player = Player(capture, json.loads(counted)["packets"]["total"])
    loops = max(1, round(player.play_fast(1) * SECONDS / player.packets))
    found = {}
    for number in range(rounds):
        for listener in listeners():
            note(f"round {number + 1} of {rounds}: {listener.name} ...")
            found.setdefault(listener.name, []).append(search(listener, player, loops))
    print(show([(name, *middle(outcomes)) for name, outcomes in found.items()]))


def middle(outcomes):
    """The round whose rate without loss is the median."""
    ordered = sorted(outcomes, key=lambda pair: pair[1].rate if pair[1] else 0.0)
    return ordered[(len(ordered) - 1) // 2]


def main():
    parser = argparse.ArgumentParser(prog="bench/live", description=__doc__)
    parser.add_argument("--rounds", type=int, default=1, metavar="N", help="how often everybody listens (1)")
    parser.add_argument("--inside", metavar="CAPTURE", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.rounds < 1:
        parser.error("--rounds: must be 1 or more")
    if options.inside:
        return inside(options.inside, options.rounds)
    workshop.build()
    capture = workshop.capture(EXCHANGES)
    load = os.getloadavg()[0]
    namespaces = ["unshare", "--net", "--pid", "--mount-proc", "--fork", "--kill-child"]
    if subprocess.run([*namespaces, "ip", "link", "add", "near", "type", "veth", "peer", "name", "far"],
                      stderr=subprocess.DEVNULL).returncode != 0:
        print("skipped: bench/live needs the right to make network namespaces, and veth")
        return 0
    status = subprocess.run([*namespaces, sys.executable, "-B", pathlib.Path(__file__).resolve(), "--inside", capture,
                             "--rounds", str(options.rounds)], cwd=workshop.FOLDER).returncode
    if status == 0:
        print(f"\n{datetime.date.today()}, commit {results.commit()}; {results.machine()}; "
              f"load {load:.1f} to {os.getloadavg()[0]:.1f}; a buffer of {BUFFER_MIB} MiB")
    return status


if __name__ == "__main__":
    sys.exit(main())
