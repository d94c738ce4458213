"""The results of the benchmark programs: their rates and what they say of one another.

A benchmark is named topic/case/contestant[/variant]. Its figure in a round is the median rate of its repetitions; the
speed of one relative to another is the median of their ratios over the rounds, which range from low to high.
"""

import collections
import json
import pathlib
import statistics
import sys

DELEGATED = ("provider", "callback")
CLASS_TOPICS = ("digest", "hmac", "cipher", "wrap")

Speed = collections.namedtuple("Speed", "value low high")


class Results:
    """The rates of all benchmarks, in operations per second, one for each round."""

    def __init__(self, folder):
        self.rates = {}
        self.context = {}
        for file in sorted(pathlib.Path(folder).glob("*.json")):
            report = json.loads(file.read_text())
            self.context = report["context"]
            for name, rates in repetitions(report["benchmarks"]).items():
                self.rates.setdefault(name, []).append(statistics.median(rates))
        if len({len(rounds) for rounds in self.rates.values()}) != 1:
            sys.exit("a benchmark is missing from a round")

    def rounds(self, *name):
        name = "/".join(map(str, name))
        return self.rates[name] if name in self.rates else sys.exit(f"no result for {name}")

    def rate(self, *name):
        return statistics.median(self.rounds(*name))

    def speed(self, topic, case, contestant, baseline, *variant):
        pairs = zip(self.rounds(topic, case, contestant, *variant), self.rounds(topic, case, baseline, *variant))
        ratios = [rate / against for rate, against in pairs]
        return Speed(statistics.median(ratios), min(ratios), max(ratios))

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


def repetitions(runs):
    """The rates of each benchmark in one program's report."""
    rates = collections.defaultdict(list)
    for run in sorted(runs, key=lambda run: (run["family_index"], run["per_family_instance_index"])):
        if run.get("error_occurred"):
            sys.exit(f"{run['name']}: {run['error_message']}")
        if run["run_type"] == "iteration":
            rates[run["run_name"].replace("/real_time", "")].append(run["items_per_second"])
    return rates
