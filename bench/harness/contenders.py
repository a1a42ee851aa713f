"""Who takes part: our own commands, their peers, and the parts that are timed alone."""

import json
import re
import shutil
import statistics
import subprocess
import sys

import workshop
from stopwatch import Contender
from workshop import PROGRAM, fail, note

FEW = 100_000  # exchanges at most, for peers that take their time

TSHARK_FIELDS = ["frame.time_epoch", "ip.src", "udp.srcport", "ip.dst", "udp.dstport", "dns.qry.name", "dns.qry.type",
                 "dns.flags.rcode", "dns.id", "dns.time"]
OUR_COLUMNS = "response_ns,server_ip,server_port,client_ip,client_port,qname,qtype,rcode,dns_id,rtt_us"  # the same

UNPACK_GZIP = """
import sys, zlib
unpacker = zlib.decompressobj(31)
while chunk := sys.stdin.buffer.read(1 << 16): unpacker.decompress(chunk)
"""


def ours(exchanges, capture):
    """What users run, on one capture in all its forms."""
    gzip = workshop.compressed(capture, ["gzip", "-1"], ".gz")
    zstd = workshop.compressed(capture, ["zstd", "-q", "-1"], ".zst")

    def read(name, *words, **more):
        return Contender(name, [PROGRAM, "read", "-q", "--format", *words], exchanges, **more)

    yield read("read json", "json", capture, lines=exchanges)
    yield read("read csv", "csv", capture, lines=exchanges + 1)
    fewer = min(FEW, exchanges)
    yield Contender("read csv, tshark's fields",
                    [PROGRAM, "read", "-q", "--format", "csv", "--columns", OUR_COLUMNS, workshop.capture(fewer)],
                    fewer, lines=fewer + 1)
    yield Contender("summary", [PROGRAM, "summary", "-q", capture], exchanges)
    yield Contender("names", [PROGRAM, "names", "-q", "--format", "json", capture], exchanges)
    yield read("read json, standard input", "json", "-", feeder=["cat", capture], lines=exchanges)
    yield read("read json, gzip", "json", gzip, by_clock=True, lines=exchanges)
    yield read("read json, zstd", "json", zstd, by_clock=True, lines=exchanges)
    yield Contender("zlib alone", [sys.executable, "-c", UNPACK_GZIP], exchanges, feeder=["cat", gzip], by_clock=True)
    yield Contender("zstd alone", ["zstd", "-qdc", zstd], exchanges, by_clock=True)
    for workers in (1, 2, 4):
        plural = "s" if workers > 1 else ""
        yield read(f"read json, {workers} worker{plural}", "json", "--workers", workers, capture, by_clock=True,
                   lines=exchanges)


def written_by_others(folder, exchanges, capture):
    """Programs whose sources somebody keeps to compare with."""
    if folder is None:
        return note("skipped: hand-written programs: no folder of peers (--peers)")
    built = workshop.peers(folder)
    if "limit" in built:
        yield Contender("hand-written", [built["limit"], capture], exchanges)
        yield Contender("hand-written, our shape",
                        [built["limit"], "--table=rmap", "--record", "--flows", capture], exchanges)
    if "tins_pair" in built:
        yield Contender("hand-written with libtins", [built["tins_pair"], capture], exchanges)


def installed(exchanges, capture):
    """Programs that a system may have."""
    fewer = min(FEW, exchanges)
    few = workshop.capture(fewer)
    fields = [word for field in TSHARK_FIELDS for word in ("-e", field)]
    wanted = "dns.flags.response==1"
    for program, name, size, words in (
            ("tcpdump", "tcpdump -w", exchanges, ["-r", capture, "-w", "/dev/null"]),
            ("dnstop", "dnstop", exchanges, ["-l", "3", capture]),
            ("dnscap", "dnscap -g", fewer, ["-r", few, "-g"]),
            ("tshark", "tshark -T fields", fewer, ["-n", "-r", few, "-Y", wanted, "-T", "fields", *fields])):
        if shutil.which(program):
            yield Contender(name, [program, *words], size)
        else:
            note(f"skipped: {name}: not installed")


def parts(repetitions, only):
    """The parts alone, as Google Benchmark times them: name -> nanoseconds, the median of the repetitions."""
    times = {}
    for program in ("plugin_bench", "parts_bench"):
        note(f"{program} ...")
        result = subprocess.run(
            [workshop.RELEASE / "bench" / program, "--benchmark_format=json", "--benchmark_min_time=0.2",
             f"--benchmark_repetitions={repetitions}", "--benchmark_enable_random_interleaving=true",
             f"--benchmark_filter={re.escape(only)}"],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        if result.returncode != 0:
            fail(f"{program}: {result.stderr.strip()}")
        rows = json.loads(result.stdout)["benchmarks"] if result.stdout else []  # nothing matched
        for row in sorted(rows, key=lambda row: (row["family_index"], row["per_family_instance_index"])):
            if row["run_type"] == "iteration":
                times.setdefault(row["run_name"], []).append(row["cpu_time"])
    return {name: statistics.median(values) for name, values in times.items()}
