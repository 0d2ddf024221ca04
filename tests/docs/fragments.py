#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later

"""Compiles the fragments of C and C++ in the pages, and looks after their links and files.

A fragment is compiled as it stands, behind the library's header. One that is statements has a
comment of HTML in the line above it, which names the arguments of the function that it is put into:

    <!-- in: event_producer *producer, guint32 id -->

with `void` for none. Declaration files (```xml with a <declare) are held against the
schema, and links have to lead to a file and, there, to a heading.

Usage: fragments.py SOURCE_ROOT C_COMPILER CXX_COMPILER
"""

import concurrent.futures
import os
import pathlib
import re
import shlex
import subprocess
import sys

STRICT = ["-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
          # An excerpt need not use what it makes.
          "-Wno-unused-variable", "-Wno-unused-but-set-variable"]
LANGUAGES = {"c": ["-x", "c", "-std=c11"], "cpp": ["-x", "c++", "-std=c++20"]}
HEADERS = {"c": "qandor/qandor.h", "cpp": "qandor/qandor.hpp"}

FENCE = re.compile(r"^```(\S*)$")
ARGUMENTS = re.compile(r"^<!-- in: (.+) -->$")
LINK = re.compile(r"\]\(([^)#:\s]*)(?:#([^)]*))?\)")
HEADING = re.compile(r"^#+ (.*)$", re.MULTILINE)


def pages(root):
    return [root / "README.md", *sorted((root / "docs").rglob("*.md"))]


def fragments(page):
    """Yields (language, arguments or None, number of the first line, text) of each fence."""
    lines = page.read_text().splitlines()
    opened = language = None
    for number, line in enumerate(lines, 1):
        fence = FENCE.match(line)
        if not fence:
            continue
        if opened is None:
            opened, language = number, fence[1]
            continue
        above = ARGUMENTS.match(lines[opened - 2]) if opened > 1 else None
        yield language, above[1] if above else None, opened + 1, "\n".join(lines[opened:number - 1])
        opened = None
    if opened is not None:
        raise SystemExit(f"{page}:{opened}: the fragment has no end")


def source_of(language, arguments, line, text, page):
    source = f"#include <{HEADERS[language]}>\n"
    if arguments:
        source += f"void fragment({arguments})\n{{\n"
    source += f'#line {line} "{page}"\n{text}\n'
    return source + ("}\n" if arguments else "")


def broken_links(page):
    for link, anchor in LINK.findall(page.read_text()):
        target = page.parent / link if link else page
        if not target.exists():
            yield link
        elif anchor and anchor not in anchors_of(target):
            yield f"{link}#{anchor}"


def anchors_of(page):
    headings = HEADING.findall(page.read_text())
    return [re.sub(r"[^\w\- ]", "", heading).lower().replace(" ", "-") for heading in headings]


class Checks:
    """The command that looks at a fragment, by its language."""

    def __init__(self, root, c_compiler, cxx_compiler):
        libraries = subprocess.run(
            ["pkg-config", "--cflags", "glib-2.0", "gobject-2.0", "libsystemd"],
            stdout=subprocess.PIPE, text=True, check=True).stdout
        flags = [*STRICT, f"-I{root / 'include'}", *shlex.split(libraries), "-"]
        self.commands = {
            "c": [c_compiler, *LANGUAGES["c"], *flags],
            "cpp": [cxx_compiler, *LANGUAGES["cpp"], *flags],
            "xml": ["xmllint", "--noout", "--relaxng", root / "data" / "declaration.rng", "-"],
        }

    def of_page(self, page, name):
        """Yields (language, place, input) of each fragment that is to be looked at."""
        for language, arguments, line, text in fragments(page):
            if language in LANGUAGES:
                text = source_of(language, arguments, line, text, name)
            elif language != "xml" or "<declare" not in text:
                continue
            yield language, f"{name}:{line}", text

    def complaint(self, check):
        language, place, text = check
        result = subprocess.run(self.commands[language], input=text, text=True, check=False,
                                stderr=subprocess.STDOUT, stdout=subprocess.PIPE)
        return f"{place}: the fragment is broken\n{result.stdout}" if result.returncode else ""


def main():
    root = pathlib.Path(sys.argv[1])
    checks = Checks(root, sys.argv[2], sys.argv[3])
    found = []
    complaints = []
    for page in pages(root):
        name = page.relative_to(root)
        found += checks.of_page(page, name)
        complaints += [f"{name}: there is no {link}" for link in broken_links(page)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        complaints += filter(None, pool.map(checks.complaint, found))

    counts = [sum(language == each for language, _, _ in found) for each in ("c", "cpp", "xml")]
    print("\n".join(complaints) or
          "{} fragments of C, {} of C++ and {} declaration files".format(*counts))
    return 1 if complaints or 0 in counts else 0


if __name__ == "__main__":
    sys.exit(main())
