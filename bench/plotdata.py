"""The data files of the plots: ratios with their intervals, a row for each."""

from results import CLASS_TOPICS, DELEGATED

SHOWN_SIZE = 16 * 1024  # of the classes


def write(file, rows):
    file.write_text("".join("\t".join(map(str, row)) + "\n" for row in rows))


def write_speeds(file, named_speeds):
    """named_speeds: (name, speed, colour)"""
    write(file, [[place, name, *speed, f"{speed.value:.3f} ({speed.low:.3f} to {speed.high:.3f})", colour]
                 for place, (name, speed, colour) in enumerate(named_speeds)])


def handshakes(results, counts):
    for suite, ways in counts.cases("handshake").items():
        for way in (way for way in DELEGATED if way in ways):
            yield f"{suite}, {way}: instructions", counts.speed("handshake", suite, way, "plain"), 1
            yield f"{suite}, {way}: time", results.speed("handshake", suite, way, "plain", "threads:1"), 2


def signatures(results):
    for scheme, ways in results.cases("signature").items():
        for way in ways[1:]:
            yield f"{scheme}, {way}", results.speed("signature", scheme, way, "OpenSSL's own"), 2


def classes(results):
    for topic in CLASS_TOPICS:
        for case in results.cases(topic):
            yield case, results.speed(topic, case, "class", "raw", SHOWN_SIZE), 2


def generator(results):
    """Size, the library against OpenSSL, the bound against OpenSSL."""
    topic, case = "generator", "random bytes"
    for size in results.sizes(topic, case):
        yield [size, *results.speed(topic, case, "library", "OpenSSL", size),
               *results.speed(topic, case, "SHA-1 bound", "OpenSSL", size)]


def waiting(results):
    """How far the holder is, and the speeds of the lines against a plain key."""
    for case in results.cases("waiting"):
        speeds = [results.speed("waiting", case, *way)
                  for way in (("64 in flight", "plain key"), ("1000 in flight", "plain key"),
                              ("16 threads", "plain key"), ("blocking", "plain key"))]
        yield [case.split()[0], *(speed.value for speed in speeds)]


def write_plot_data(folder, results, counts):
    write_speeds(folder / "handshakes.dat", handshakes(results, counts))
    write_speeds(folder / "signatures.dat", signatures(results))
    write_speeds(folder / "classes.dat", classes(results))
    write(folder / "generator.dat", generator(results))
    write(folder / "waiting.dat", waiting(results))
