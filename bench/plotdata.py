"""The data files of the plots, and where in them direct labels go."""

import math

from results import CLASS_TOPICS, DELEGATED



def write(file, rows):
    file.write_text("".join("\t".join(map(str, row)) + "\n" for row in rows))


def handshakes(folder, results):
    """A block for each way: place, rate, its range, and the speed relative to plain as the label."""
    places = [(suite, threads) for suite in results.cases("handshake") for threads in (1, 2)]
    blocks = []
    for way in ("plain", *DELEGATED):
        for place, (suite, threads) in enumerate(places):
            if way not in results.cases("handshake")[suite]:
                continue
            name = ("handshake", suite, way, f"threads:{threads}")
            label = "" if way == "plain" else f"{results.speed(*name[:3], 'plain', name[3]).value:.2f}"
            blocks.append([place, results.rate(*name), min(results.rounds(*name)), max(results.rounds(*name)), label])
        blocks += [[], []]
    write(folder / "handshakes.dat", blocks)
    names = [suite.replace(" RSA", "\\nRSA").replace(" ECDSA", "\\nECDSA") for suite, _ in places]
    write(folder / "handshakes.names", [[place, names[place], threads] for place, (_, threads) in enumerate(places)])


def signatures(folder, results):
    rows = []
    for scheme, contestants in results.cases("signature").items():
        for way in contestants:
            if way != "OpenSSL's own":
                speed = results.speed("signature", scheme, way, "OpenSSL's own")
                rows.append([len(rows), f"{scheme}, {way}", *speed, f"{speed.value:.3f}"])
    write(folder / "signatures.dat", rows)


def generator(folder, results, crossover):
    """Nanoseconds by size: the library, OpenSSL, the bound."""
    names = ("library", "OpenSSL", "SHA-1 bound")
    write(folder / "generator.dat",
          [[size, *(1e9 / results.rate("generator", "random bytes", name, size) for name in names)]
           for size in results.sizes("generator", "random bytes")])
    write(folder / "generator.crossover", [[crossover]])


def spread(heights, distance):
    """Moves label heights apart until none are closer than the distance, keeping their order."""
    order = sorted(range(len(heights)), key=lambda i: heights[i])
    placed = list(heights)
    for _ in range(1000):
        for low, high in zip(order, order[1:]):
            lack = distance - (placed[high] - placed[low])
            if lack > 1e-9:
                placed[low] -= lack / 2
                placed[high] += lack / 2
    return placed


def classes(folder, results):
    """A block of size and speed for each case, and the labels beside their first points."""
    for topic in CLASS_TOPICS:
        cases = list(results.cases(topic))
        sizes = results.sizes(topic, cases[0])
        curves = [[(size, results.speed(topic, case, "class", "raw", size).value) for size in sizes] for case in cases]
        speeds = [speed for curve in curves for _, speed in curve] + [1]
        labels = spread([curve[0][1] for curve in curves], max(max(speeds) - min(speeds), 0.1) / 13)
        write(folder / f"{topic}.dat", [row for curve in curves for row in [*curve, [], []]])
        write(folder / f"{topic}.labels", [[case, height, index, curve[0][0], curve[0][1]]
                                           for index, (case, height, curve) in enumerate(zip(cases, labels, curves))])


def write_plot_data(folder, results, crossover):
    handshakes(folder, results)
    signatures(folder, results)
    generator(folder, results, crossover)
    classes(folder, results)
