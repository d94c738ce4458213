#!/usr/bin/env python3
"""The code blocks and commands of the guides, tested as they stand on the pages; guides.txt says how each is.

usage: guides.py test SOURCE OPENSSL_PREFIX
       guides.py script SOURCE PAGE HOW...  prints the page's files and its commands of these kinds, for bash
"""

import collections
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile

COMMAND = re.compile(r"\(cd |(scripts|bench)/[-\w]+\.sh|(cmake|ctest|apt-get|install|delegated_tls|lib) [-/\w]")
COMPILE = "c++ -std=c++20 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -fsyntax-only -x c++ -".split()
PROJECT = "cmake_minimum_required(VERSION 3.25)\nproject(linked LANGUAGES CXX)\nadd_executable(your_program program.cpp)\n"
PORT = "4433"  # the guides' own; the test takes a free one

Block = collections.namedtuple("Block", "start text how")


def found(text):
    """(start, text) of a page's fenced and indented blocks and of the commands in its sentences, in its order."""
    for part in re.split(r"(^```.*?^```$)", text, flags=re.M | re.S):
        if part.startswith("```"):
            fence, code = part.removesuffix("```").split("\n", 1)
            first = code.split("\n", 1)[0]
            yield fence if fence == "```cpp" and not first.startswith("// ") else first, code
            continue
        for paragraph in re.split(r"\n{2,}", part.strip("\n")):
            lines = paragraph.split("\n")
            if all(line.startswith("    ") for line in lines):
                yield lines[0].strip(), "".join(line[4:] + "\n" for line in lines)
                continue
            for code in re.findall(r"`([^`]+)`", paragraph):
                if COMMAND.match(code):
                    yield " ".join(code.split()), code + "\n"


def read_table(source):
    """{page: {start: how}}, and the pages that are followed in the checkout."""
    table, in_checkout = {}, set()
    for line in (source / "tests/docs/guides.txt").read_text().splitlines():
        row = re.fullmatch(r" {4}(.+\S) {2,}(run|bare|serve|file|shows|compile|link|by|not)\b.*", line)
        if row:
            rows[row[1]] = row[2]
        elif line and not line.startswith("#"):
            page, _, checkout = line.partition(", ")
            rows = table.setdefault(page, {})
            in_checkout |= {page} if checkout else set()
    return table, in_checkout


def blocks_of(source, page, rows):
    """The page's blocks. Each has a row, and each row a block."""
    blocks = []
    for start, text in found((source / page).read_text()):
        if start not in rows:
            sys.exit(f"{page}: tests/docs/guides.txt does not say how this is tested: {start}")
        blocks.append(Block(start, text, rows[start]))
    for start in rows.keys() - {block.start for block in blocks}:
        sys.exit(f"{page}: this row of tests/docs/guides.txt has no block: {start}")
    return blocks


def script(blocks, kinds):
    """What a reader does, block by block."""
    parts = []
    for block in blocks:
        if block.how == "file":
            parts.append(f"cat >{block.start.split()[-1]} <<'END_OF_FILE'\n{block.text}END_OF_FILE\n")
        elif block.how == "serve" and "serve" in kinds:
            parts.append(f"{block.text.strip()} &\nserver=$!\ntrap 'kill $server; wait $server || true' EXIT\n"
                         f"until (: </dev/tcp/127.0.0.1/{PORT}) 2>/dev/null; do kill -0 $server; sleep 0.1; done\n")
        elif block.how in kinds:
            parts.append(block.text)
    return "".join(parts)


def run(command, **where):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace", **where)
    if done.returncode:
        sys.exit(f"{done.stdout[-8000:]}\nfailed: {' '.join(command)}")
    return done.stdout


def pattern(shown):
    """A regular expression for what a page shows: ... is anything, and processes and times differ."""
    lines = []
    for line in shown.rstrip("\n").split("\n"):
        line = re.escape(line).replace(r"\.\.\.", ".*")
        line = re.sub(r"(?<=process\\ )\d+", r"\\d+", line)
        line = re.sub(r"(?:\\ )+\d+\\\.\d$", r" +\\d+\\.\\d", line)
        lines.append(r"(?:.*\n)*?.*" if line.strip("\\ ") == ".*" else line)
    return "\n".join(lines)


def follow(blocks, **where):
    """Runs the page's commands, and looks for what the page shows in what they print."""
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        commands = script(blocks, ("run", "serve")).replace(PORT, str(free.getsockname()[1]))
    if not commands:
        return
    printed = run(["bash", "-euo", "pipefail", "-c", commands], **where)
    for block in blocks:
        if block.how == "shows" and not re.search(pattern(block.text), printed):
            sys.exit(f"{printed[-8000:]}\nThis is not what the page shows:\n{block.text}")


def link(lines, home):
    folder = home / "linked"
    folder.mkdir(exist_ok=True)
    (folder / "CMakeLists.txt").write_text(PROJECT + lines)
    (folder / "program.cpp").write_text("#include <krOpenSSL/krOpenSSL.h>\nint main() { return krOSSLSetup(); }\n")
    run(["cmake", "-G", "Ninja", "-S", str(folder), "-B", str(folder / "build"), f"-DCMAKE_PREFIX_PATH={home}/krOpenSSL"])
    run(["cmake", "--build", str(folder / "build")])
    run([str(folder / "build/your_program")])


def copy_of(source, openssl, folder):
    """A checkout to work in: its entries are links, and nothing is built yet."""
    (folder / ".deps").mkdir(parents=True)
    (folder / ".deps/openssl-1.1").symlink_to(openssl)
    for entry in source.iterdir():
        if entry.name not in ("build", ".deps", ".git"):
            (folder / entry.name).symlink_to(entry)
    return folder


def test(source, openssl):
    table, in_checkout = read_table(source)
    pages = {str(page.relative_to(source)) for page in source.rglob("*.md")}
    for page in {page for page in pages if not page.startswith((".", "build/", "CHANGELOG"))} ^ table.keys():
        sys.exit(f"tests/docs/guides.txt and the pages: {page} is not in both")
    guides = {page: blocks_of(source, page, rows) for page, rows in table.items()}
    with tempfile.TemporaryDirectory() as home:
        home = pathlib.Path(home)
        copy = copy_of(source, openssl, home / "checkout")
        environment = {**os.environ, "HOME": str(home)}
        environment.pop("OPENSSL_ROOT_DIR", None)
        for page, blocks in guides.items():
            print(page, flush=True)
            follow(blocks, cwd=source if page in in_checkout else copy, env=environment)
            for block in blocks:
                if block.how == "compile":
                    run([*COMPILE, f"-I{source}/include", f"-isystem{openssl}/include"], input=block.text)
        for block in (block for blocks in guides.values() for block in blocks if block.how == "link"):
            link(block.text, home)


if __name__ == "__main__":
    if sys.argv[1] == "test":
        test(*(pathlib.Path(argument).resolve() for argument in sys.argv[2:]))
    else:
        place, name, *kinds = sys.argv[2:]
        print(script(blocks_of(pathlib.Path(place), name, read_table(pathlib.Path(place))[0][name]), kinds), end="")
