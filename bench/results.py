"""The results of the benchmark programs: their rates and what they say of one another.

A benchmark is named topic/case/contestant[/variant]. Two are compared by the ratios of their rates in the same round,
moments apart, and a ratio is all that is shown of the two.
"""

import collections
import json
import math
import pathlib
import re
import statistics
import sys

DELEGATED = ("provider", "callback")
CLASS_TOPICS = ("digest", "hmac", "cipher", "wrap")

Speed = collections.namedtuple("Speed", "value low high")


def speed_of(ratios):
    """The median of the rounds, and the interval that misses the median of endless rounds in at most 5 runs of 100.

    However the ratios are spread, each round is as likely above that median as below it: so how many of the outermost
    may be left out follows from their number alone. With fewer than six rounds nothing may, and the interval is short
    of its promise.
    """
    ordered, rounds = sorted(ratios), len(ratios)
    missed, cut = 1 / 2**rounds, 0
    while missed + math.comb(rounds, cut + 1) / 2**rounds <= 0.025:
        cut += 1
        missed += math.comb(rounds, cut) / 2**rounds
    return Speed(statistics.median(ordered), ordered[cut], ordered[-1 - cut])


class Results:
    """The rates of all benchmarks, one for each round, in operations per second or by the instruction."""

    def __init__(self, rates, context=None):
        self.rates, self.context = rates, context
        if len({len(rounds) for rounds in rates.values()}) != 1:
            sys.exit("a benchmark is missing from a round")

    def rounds(self, *name):
        name = "/".join(map(str, name))
        return self.rates[name] if name in self.rates else sys.exit(f"no result for {name}")

    def rate(self, *name):
        return statistics.median(self.rounds(*name))

    def speed(self, topic, case, contestant, baseline, *variant):
        pairs = zip(self.rounds(topic, case, contestant, *variant), self.rounds(topic, case, baseline, *variant))
        return speed_of([rate / against for rate, against in pairs])

    def cases(self, topic):
        """The cases of a topic, each with its contestants, in the order of the programs."""
        cases = {}
        for name in self.rates:
            of, case, contestant, *_ = name.split("/")
            if of == topic:
                cases.setdefault(case, {})[contestant] = None
        return {case: list(contestants) for case, contestants in cases.items()} or sys.exit(f"no results for {topic}")

    def sizes(self, topic, case):
        """The sizes in bytes that a case was measured at."""
        parts = (name.split("/") for name in self.rates)
        return sorted({int(part[3]) for part in parts if part[:2] == [topic, case]})


def timed(folder):
    """What the programs report, a file for each program and round."""
    rates, context = collections.defaultdict(list), {}
    for file in sorted(pathlib.Path(folder).glob("*.json")):
        report = json.loads(file.read_text())
        context = report["context"]
        for run in report["benchmarks"]:
            if run.get("error_occurred"):
                sys.exit(f"{run['name']}: {run['error_message']}")
            name = re.sub(r"/real_time|/manual_time|/iterations:\d+", "", run["run_name"])
            rates[name.replace("16 threads/threads:16", "16 threads")].append(run["items_per_second"])
    return Results(rates, context)


def counted(file):
    """The instructions of one handshake of each suite, a line for each count."""
    rates = collections.defaultdict(list)
    for line in file.read_text().splitlines():
        suite, count = line.split("\t")
        rates[f"handshake/{suite}"].append(1 / int(count))
    return Results(rates)
