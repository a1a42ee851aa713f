"""What is compared with what, and what we want to reach."""

import dataclasses
import statistics


@dataclasses.dataclass
class Ratio:
    """One time to another. With several of the others, the longest counts."""

    one: str
    others: list
    by: str = "processor"
    at_most: float = None
    at_least: float = None

    def missed(self, value):
        too_much = self.at_most is not None and value > self.at_most
        return too_much or (self.at_least is not None and value < self.at_least)

    def wanted(self):
        if self.at_most is not None:
            return f"at most {self.at_most:g}"
        return f"at least {self.at_least:g}" if self.at_least is not None else ""


# Between commands, each timed once a round.
COMMANDS = [
    Ratio("read json", ["hand-written, our shape"], at_most=1.0),
    Ratio("read json", ["hand-written"], at_most=2.0),
    Ratio("read json", ["hand-written with libtins"], at_most=0.4),
    Ratio("tshark -T fields", ["read csv, tshark's fields"], at_least=50),
    Ratio("dnscap -g", ["read json"]),
    Ratio("summary", ["read json"], at_most=1.0),
    Ratio("read json, standard input", ["read json"]),
    Ratio("read json, gzip", ["read json", "zlib alone"], by="clock", at_most=1.1),
    Ratio("read json, zstd", ["read json", "zstd alone"], by="clock", at_most=1.1),
    Ratio("read json, 2 workers", ["read json"], by="clock", at_most=0.65),
]

# Between parts; {} is the number of open queries.
PARTS = [
    Ratio("RequestAndResponse/{}", ["BareMap/{}"], at_most=2.0),
    Ratio("IdleHeartbeat/{}", ["BareWalk/{}"], at_most=0.01),
]
OPEN_QUERIES = [2000, 20000, 65536]


def between_commands(times):
    """(ratio, value) for those whose times are there: the median of what each round says."""
    for ratio in COMMANDS:
        if ratio.one not in times or any(other not in times for other in ratio.others):
            continue
        rounds = zip(*([getattr(one, ratio.by) for one in times[name]] for name in [ratio.one, *ratio.others]))
        yield ratio, statistics.median(one / max(others) for one, *others in rounds)


def between_parts(medians):
    """The same for parts."""
    for ratio in PARTS:
        for number in OPEN_QUERIES:
            one, other = ratio.one.format(number), ratio.others[0].format(number)
            if one in medians and other in medians:
                yield dataclasses.replace(ratio, one=one, others=[other]), medians[one] / medians[other]
