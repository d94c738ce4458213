#!/usr/bin/env python3
"""Turns what the benchmark programs report into a page with tables, results.json and the data of the plots.

usage: report.py WORK PAGE OUT

WORK holds results/*.json (Google Benchmark's, one for each program and round) and instructions (of a handshake, for
each suite and round), and gets plots/*. PAGE is the page's text with a {{name}} where each table goes.
"""

import json
import math
import os
import pathlib
import platform
import re
import sys

from plotdata import write_plot_data
from results import CLASS_TOPICS, DELEGATED, Speed, counted, timed

KIB = 1024
REFERENCE_AIMS = (0.93, 0.87, 0.83)  # 1 / 1.08, 1 / 1.15, 1 / 1.20 of the processor time


def duration(rate):
    nanoseconds = 1e9 / rate
    unit, scale = next((row for row in (("ms", 1e6), ("µs", 1e3)) if nanoseconds >= row[1]), ("ns", 1))
    value = nanoseconds / scale
    return f"{value:.0f} {unit}" if value >= 100 else f"{value:.3g} {unit}"


def size_name(size):
    return f"{size // KIB**2} MiB" if size >= KIB**2 else f"{size // KIB} KiB" if size >= KIB else f"{size} B"


def span(speed, digits=3):
    return f"{speed.low:.{digits}f} to {speed.high:.{digits}f}"


def both(speed, digits=3):
    return f"{speed.value:.{digits}f} ({span(speed, digits)})"


def table(head, rows):
    rule = ["---"] + ["---:"] * (len(head) - 1)
    return "\n".join("| " + " | ".join(row) + " |" for row in [head, rule, *rows])


def code(name):
    return f"`{name}`"


def delegated(contestants):
    return [way for way in DELEGATED if way in contestants]


def handshake_rows(results):
    """(suite, way) of the delegated handshakes"""
    return [(suite, way) for suite, ways in results.cases("handshake").items() for way in DELEGATED if way in ways]


def handshake_table(results):
    rows = []
    for suite, way in handshake_rows(results):
        for threads in (1, 2):
            variant = f"threads:{threads}"
            speed = results.speed("handshake", suite, way, "plain", variant)
            plain = results.rate("handshake", suite, "plain", variant)
            rows.append([suite, way, str(threads), f"{plain:,.0f}", f"{speed.value:.3f}", span(speed)])
    return table(["handshake", "delegated to the", "threads", "plain, 1/s", "speed", "interval"], rows)


def instruction_table(counts):
    rows = []
    for suite, way in handshake_rows(counts):
        speed, plain = counts.speed("handshake", suite, way, "plain"), 1 / counts.rate("handshake", suite, "plain")
        rows.append([suite, way, f"{plain:,.0f}", f"{plain / speed.value - plain:+,.0f}",
                     f"{speed.value:.4f}", span(speed, 4)])
    return table(["handshake", "delegated to the", "plain, instructions", "delegation adds", "speed", "interval"], rows)


def signature_table(results):
    rows = []
    for scheme, ways in results.cases("signature").items():
        own = results.rate("signature", scheme, "OpenSSL's own")
        for way in ways[1:]:
            speed = results.speed("signature", scheme, way, "OpenSSL's own")
            rows.append([scheme, way, duration(own), f"{speed.value:.3f}", span(speed)])
    return table(["signature", "through the engine", "OpenSSL's own", "speed", "interval"], rows)


def generator_table(results):
    topic, case = "generator", "random bytes"
    rows = []
    for size in results.sizes(topic, case):
        speeds = [results.speed(topic, case, "library", other, size) for other in ("SHA-1 bound", "OpenSSL")]
        own = duration(results.rate(topic, case, "OpenSSL", size))
        rows.append([size_name(size), own, *(both(speed, 2) for speed in speeds)])
    return table(["request", "OpenSSL's own", "speed against the bound", "speed against OpenSSL's own"], rows)


def class_tables(results):
    tables = []
    for topic in CLASS_TOPICS:
        cases = results.cases(topic)
        sizes = results.sizes(topic, next(iter(cases)))
        rows = []
        for case in cases:
            speeds = [results.speed(topic, case, "class", "raw", size) for size in sizes]
            smallest = 1e9 / results.rate(topic, case, "raw", sizes[0])
            rows.append([code(case), *(f"{speed.value:.2f}" for speed in speeds), span(speeds[-1]),
                         f"{smallest / speeds[0].value - smallest:+.0f} ns to {smallest:.0f}"])
        tables.append(table([topic, *map(size_name, sizes), f"interval at {size_name(sizes[-1])}",
                             f"added at {size_name(sizes[0])}"], rows))
    return "\n\n".join(tables)


def waiting_table(results):
    rows = []
    for case, ways in results.cases("waiting").items():
        plain = results.rate("waiting", case, "plain key")
        rows.append([case, f"{plain:,.0f}", *(f"{results.speed('waiting', case, way, 'plain key').value:.3f}"
                                              for way in ways if way != "plain key")])
    ways = [way for way in next(iter(results.cases("waiting").values())) if way != "plain key"]
    return table(["key holder at", "plain key, 1/s", *ways], rows)


def reference_table(results):
    rows = []
    for case in results.cases("reference"):
        row = [case, f"{1e6 / results.rate('reference', case, 'key file', 'one core'):,.0f}"]
        for cores in ("one core", "all cores"):
            speed = results.speed("reference", case, "reference", "key file", cores)
            row.append(both(Speed(1 / speed.value, 1 / speed.high, 1 / speed.low), 2))
        rows.append([*row, both(results.speed("reference", case, "reference", "key file", "threads:4"), 2)])
    return table(["handshake", "key file, µs", "reference, times that, on one core", "on all cores",
                  "handshakes a second"], rows)


def rest_table(results):
    rows = []
    for case in results.cases("rest"):
        speed = results.speed("rest", case, "library", "baseline")
        rows.append([case, duration(results.rate("rest", case, "baseline")), f"{speed.value:.2f}", span(speed, 2)])
    return table(["what", "against", "speed", "interval"], rows)


def crossover(results, contestant):
    """The request size from which OpenSSL's generator is faster than the contestant, between two measured sizes."""
    topic, case = "generator", "random bytes"
    sizes = results.sizes(topic, case)
    speeds = [results.speed(topic, case, contestant, "OpenSSL", size) for size in sizes]
    return Speed(*(falls_below_one(sizes, figures) for figures in zip(*speeds)))


def falls_below_one(sizes, speeds):
    logs = [math.log(speed) for speed in speeds]
    for size, following, log, next_log in zip(sizes, sizes[1:], logs, logs[1:]):
        if next_log < 0 <= log:
            return size * (following / size) ** (log / (log - next_log))
    return sizes[-1] if logs[0] >= 0 else sizes[0]


def verdict(speeds, aim):
    """Judged by the ends of the intervals, so that noise proves nothing."""
    missed = sum(speed.high < aim for speed in speeds)
    if missed:
        return f"**no** ({missed} of {len(speeds)})" if len(speeds) > 1 else "**no**"
    unproved = sum(speed.low < aim for speed in speeds)
    return f"not shown ({unproved} of {len(speeds)})" if unproved else "yes"


def row_of_lowest(aim_text, aim, named_speeds, digits=3):
    """named_speeds: (name, speed); the one whose interval begins lowest is shown, all are judged."""
    name, lowest = min(named_speeds, key=lambda row: row[1].low)
    return [aim_text, f"{both(lowest, digits)}, {name}" if name else both(lowest, digits),
            verdict([speed for _, speed in named_speeds], aim)]


def summary_table(results, counts):
    instructions = [(f"{suite}, {way}", counts.speed("handshake", suite, way, "plain"))
                    for suite, way in handshake_rows(counts)]
    handshakes = [(f"{suite}, {way}, threads: {threads}",
                   results.speed("handshake", suite, way, "plain", f"threads:{threads}"))
                  for suite, way in handshake_rows(results) for threads in (1, 2)]
    classes = [(code(case), results.speed(topic, case, "class", "raw", 16 * KIB))
               for topic in CLASS_TOPICS for case in results.cases(topic)]
    bulk = results.speed("generator", "random bytes", "library", "SHA-1 bound", KIB**2)
    own, bound = crossover(results, "library"), crossover(results, "SHA-1 bound")
    return table(["aim", "lowest figure, with its interval", "met"], [
        row_of_lowest("delegated handshakes, in instructions: at least 0.98 of plain ones", 0.98, instructions, 4),
        row_of_lowest("delegated handshakes, timed: at least 0.98 of plain ones", 0.98, handshakes),
        row_of_lowest("generator, 1 MiB: at least 0.8 of its SHA-1 bound", 0.8, [("", bulk)]),
        ["generator: faster than OpenSSL's own below 1 KiB",
         f"up to {both(own, 0)} bytes; its SHA-1 compressions alone would be up to {bound.value:.0f}",
         verdict([own], KIB)],
        row_of_lowest("64 handshakes in flight over 10 ms: at least 0.8 of a plain key", 0.8,
                      [("", results.speed("waiting", "10 ms", "64 in flight", "plain key"))]),
        row_of_lowest("handshakes in flight over 0 ms: at least 0.9 of blocking", 0.9,
                      [(way, results.speed("waiting", "0 ms", way, "blocking"))
                       for way in ("1 in flight", "64 in flight")]),
        *(row_of_lowest(f"key reference on one core, {case}: at least {aim} of the key file", aim,
                        [("", results.speed("reference", case, "reference", "key file", "one core"))])
          for case, aim in zip(results.cases("reference"), REFERENCE_AIMS)),
        row_of_lowest("key reference, RSA handshakes a second: at least 0.95 of the key file", 0.95,
                      [("", results.speed("reference", "TLS 1.2 RSA-2048", "reference", "key file", "threads:4"))]),
        row_of_lowest("every class, 16 KiB: at least 0.98 of the raw calls", 0.98, classes),
    ])


def machine(results):
    """What the figures depend on; nothing that tells one machine from another of its kind."""
    cpu = pathlib.Path("/proc/cpuinfo").read_text()
    flags = re.search(r"^flags\s*: (.*)$", cpu, re.M)
    extensions = {"aes": "AES-NI", "sha_ni": "SHA extensions", "avx2": "AVX2", "avx512f": "AVX-512"}
    release = platform.freedesktop_os_release()
    return {
        "processor": re.search(r"^model name\s*: (.*)$", cpu, re.M)[1],
        "processors": os.cpu_count(),
        "MHz": results.context["mhz_per_cpu"],
        "extensions": [name for flag, name in extensions.items() if flag in flags[1].split()],
        "system": f"{release['NAME']} {release['VERSION_ID']}, {platform.machine()}",
        "OpenSSL": results.context["openssl"],
        "compiler": results.context["compiler"],
        "date": results.context["date"][:10],
    }


def machine_text(description):
    lines = [f"- {key}: {', '.join(value) if isinstance(value, list) else value}" for key, value in description.items()]
    return "\n".join(lines)


def write_results(file, description, results, counts):
    """One line for each benchmark, so that two runs can be compared."""
    def lines(figures):
        return ",\n".join(f"    {json.dumps(name)}: {json.dumps(rounds)}" for name, rounds in figures.items())

    instructions = {name: [round(1 / rate) for rate in rounds] for name, rounds in counts.rates.items()}
    rates = {name: [float(f"{rate:.4g}") for rate in rounds] for name, rounds in results.rates.items()}
    file.write_text('{\n  "machine": ' + json.dumps(description) + ',\n  "instructions": {\n' + lines(instructions)
                    + '\n  },\n  "operations per second": {\n' + lines(rates) + "\n  }\n}\n")


def main(work, page, out):
    results, counts = timed(work / "results"), counted(work / "instructions")
    description = machine(results)
    tables = {
        "machine": machine_text(description),
        "summary": summary_table(results, counts),
        "handshakes": handshake_table(results),
        "instructions": instruction_table(counts),
        "signatures": signature_table(results),
        "generator": generator_table(results),
        "classes": class_tables(results),
        "waiting": waiting_table(results),
        "references": reference_table(results),
        "rest": rest_table(results),
    }
    text = re.sub(r"{{(\w+)}}", lambda match: tables[match[1]], page.read_text())
    (out / "README.md").write_text(text)
    write_results(out / "results.json", description, results, counts)
    write_plot_data(work / "plots", results, counts)


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
