#!/usr/bin/env python3
"""Turns what the benchmark programs report into a page with tables, results.json and the data of the plots.

usage: report.py WORK PAGE OUT

WORK holds results/*.json (Google Benchmark's, one for each program and round) and instructions (for each handshake),
and gets plots/*. PAGE is the page's text with a {{name}} where each table goes.
"""

import json
import math
import os
import pathlib
import platform
import re
import sys

from plotdata import write_plot_data
from results import CLASS_TOPICS, DELEGATED, Results, Speed

KIB = 1024


def duration(rate):
    nanoseconds = 1e9 / rate
    unit, scale = next((row for row in (("ms", 1e6), ("µs", 1e3)) if nanoseconds >= row[1]), ("ns", 1))
    value = nanoseconds / scale
    return f"{value:.0f} {unit}" if value >= 100 else f"{value:.3g} {unit}"


def size_name(size):
    return f"{size // KIB**2} MiB" if size >= KIB**2 else f"{size // KIB} KiB" if size >= KIB else f"{size} B"


def span(speed):
    return f"{speed.low:.3f} to {speed.high:.3f}"


def table(head, rows):
    rule = ["---"] + ["---:"] * (len(head) - 1)
    return "\n".join("| " + " | ".join(row) + " |" for row in [head, rule, *rows])


def code(name):
    return f"`{name}`"


def delegated(contestants):
    return [way for way in DELEGATED if way in contestants]


def handshake_table(results):
    rows = []
    for suite, contestants in results.cases("handshake").items():
        for threads in (1, 2):
            variant = f"threads:{threads}"
            plain = results.rate("handshake", suite, "plain", variant)
            for way in delegated(contestants):
                rate = results.rate("handshake", suite, way, variant)
                speed = results.speed("handshake", suite, way, "plain", variant)
                rows.append([suite, str(threads), way, f"{plain:,.0f}", f"{rate:,.0f}",
                             f"{speed.value:.3f}", span(speed)])
    return table(["handshake", "threads", "delegated to the", "plain, 1/s", "delegated, 1/s", "speed", "rounds"], rows)


def instruction_speeds(instructions):
    """(suite, way, instructions of the plain handshake, of the delegated one)"""
    suites = sorted({name.split("/")[0] for name in instructions})
    return [(suite, way, instructions[f"{suite}/plain"], instructions[f"{suite}/{way}"])
            for suite in suites for way in DELEGATED if f"{suite}/{way}" in instructions]


def instruction_table(instructions):
    rows = [[suite, way, f"{plain:,}", f"{count - plain:+,}", f"{plain / count:.4f}"]
            for suite, way, plain, count in instruction_speeds(instructions)]
    return table(["handshake", "delegated to the", "plain, instructions", "delegation adds", "speed"], rows)


def signature_table(results):
    rows = []
    for scheme, contestants in results.cases("signature").items():
        own = results.rate("signature", scheme, "OpenSSL's own")
        for way in ["software key"] + delegated(contestants):
            speed = results.speed("signature", scheme, way, "OpenSSL's own")
            rows.append([scheme, way, duration(own), duration(results.rate("signature", scheme, way)),
                         f"{speed.value:.3f}", span(speed)])
    return table(["signature", "through the engine", "OpenSSL's own", "engine", "speed", "rounds"], rows)


def generator_table(results):
    topic, case = "generator", "random bytes"
    rows = []
    for size in results.sizes(topic, case):
        bound, openssl = (results.speed(topic, case, "library", other, size) for other in ("SHA-1 bound", "OpenSSL"))
        times = [duration(results.rate(topic, case, contestant, size))
                 for contestant in ("library", "SHA-1 bound", "OpenSSL")]
        rows.append([size_name(size), *times, f"{bound.value:.2f}", f"{openssl.value:.2f}", span(openssl)])
    return table(["request", "library", "SHA-1 bound", "OpenSSL's own", "speed against the bound",
                  "speed against OpenSSL", "rounds"], rows)


def class_tables(results):
    tables = []
    for topic in CLASS_TOPICS:
        cases = results.cases(topic)
        sizes = results.sizes(topic, next(iter(cases)))
        rows = []
        for case in cases:
            speeds = [results.speed(topic, case, "class", "raw", size) for size in sizes]
            smallest = [1e9 / results.rate(topic, case, contestant, sizes[0]) for contestant in ("raw", "class")]
            rows.append([code(case), *(f"{speed.value:.2f}" for speed in speeds), span(speeds[-1]),
                         f"{smallest[1] - smallest[0]:+.0f} ns of {smallest[0]:.0f}"])
        tables.append(table([topic, *map(size_name, sizes), f"rounds at {size_name(sizes[-1])}",
                             f"added at {size_name(sizes[0])}"], rows))
    return "\n\n".join(tables)


def rest_table(results):
    rows = []
    for case in results.cases("rest"):
        speed = results.speed("rest", case, "library", "baseline")
        times = [duration(results.rate("rest", case, contestant)) for contestant in ("baseline", "library")]
        rows.append([case, *times, f"{speed.value:.2f}", span(speed)])
    return table(["what", "against", "library", "speed", "rounds"], rows)


def crossover(results, contestant):
    """The request size from which OpenSSL's generator is faster than the contestant, between two measured sizes."""
    topic, case = "generator", "random bytes"
    last = None
    for size in results.sizes(topic, case):
        ratio = math.log(results.speed(topic, case, contestant, "OpenSSL", size).value)
        if last is not None and ratio < 0 <= last[1]:
            return last[0] * (size / last[0]) ** (last[1] / (last[1] - ratio))
        last = (size, ratio)
    return last[0]


def verdict(speed, aim):
    return "yes" if speed.value >= aim else "within the noise" if speed.high >= aim else "**no**"


def summary_table(results, instructions):
    suite, way, plain, count = min(instruction_speeds(instructions), key=lambda row: row[2] / row[3])
    counted = Speed(*3 * [plain / count])
    timed, timed_name = min((results.speed("handshake", case, contestant, "plain", f"threads:{threads}"),
                             f"{case}, {contestant}, threads: {threads}")
                            for case, contestants in results.cases("handshake").items()
                            for contestant in delegated(contestants) for threads in (1, 2))
    bulk = results.speed("generator", "random bytes", "library", "SHA-1 bound", KIB**2)
    own, bound = crossover(results, "library"), crossover(results, "SHA-1 bound")
    slowest, slowest_name = min((results.speed(topic, case, "class", "raw", 16 * KIB), code(case))
                                for topic in CLASS_TOPICS for case in results.cases(topic))
    return table(["aim", "lowest figure", "met"], [
        ["delegated handshakes, in instructions: at least 0.98 of plain ones",
         f"{counted.value:.4f} ({suite}, {way})", verdict(counted, 0.98)],
        ["delegated handshakes, timed: at least 0.98 of plain ones",
         f"{timed.value:.3f} ({timed_name})", verdict(timed, 0.98)],
        ["generator, 1 MiB: at least 0.8 of its SHA-1 bound", f"{bulk.value:.2f}", verdict(bulk, 0.8)],
        ["generator: faster than OpenSSL's own below 1 KiB",
         f"up to {own:.0f} bytes; its SHA-1 compressions alone would be up to {bound:.0f}",
         "yes" if own >= KIB else "**no**"],
        ["every class, 16 KiB: at least 0.98 of the raw calls",
         f"{slowest.value:.3f} ({slowest_name})", verdict(slowest, 0.98)],
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


def write_results(file, description, results, instructions):
    """One line for each benchmark, so that two runs can be compared."""
    rates = ",\n".join(f"    {json.dumps(name)}: {json.dumps([float(f'{rate:.4g}') for rate in rounds])}"
                       for name, rounds in results.rates.items())
    file.write_text('{\n  "machine": ' + json.dumps(description) + ',\n  "instructions": ' + json.dumps(instructions)
                    + ',\n  "operations per second": {\n' + rates + "\n  }\n}\n")


def main(work, page, out):
    results = Results(work / "results")
    lines = (work / "instructions").read_text().splitlines()
    instructions = {name: int(count) for name, count in (line.split("\t") for line in lines)}
    description = machine(results)
    tables = {
        "machine": machine_text(description),
        "summary": summary_table(results, instructions),
        "handshakes": handshake_table(results),
        "instructions": instruction_table(instructions),
        "signatures": signature_table(results),
        "generator": generator_table(results),
        "classes": class_tables(results),
        "rest": rest_table(results),
    }
    text = re.sub(r"{{(\w+)}}", lambda match: tables[match[1]], page.read_text())
    (out / "README.md").write_text(text)
    write_results(out / "results.json", description, results, instructions)
    write_plot_data(work / "plots", results, crossover(results, "library"))


if __name__ == "__main__":
    main(*map(pathlib.Path, sys.argv[1:]))
