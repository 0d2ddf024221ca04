#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later

"""The shared library exports what the public headers mark and nothing else, under the name that
applications are linked with, and brings its own C++ runtime.

Usage: check.py LIBRARY INCLUDE_FOLDER [--sanitized]
"""

import pathlib
import re
import subprocess
import sys

SONAME = "libqandor.so.0"
COMMENT = re.compile(r"/\*.*?\*/|//[^\n]*", re.DOTALL)
MARKED = re.compile(r"^QANDOR_API\b[^;(]*?(\w+)\s*\(", re.MULTILINE)
DYNAMIC = re.compile(r"\((NEEDED|SONAME)\).*\[(.*)\]")


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def marked_functions(include):
    names = set()
    for header in include.glob("qandor/*.h"):
        names.update(MARKED.findall(COMMENT.sub("", header.read_text())))
    return names


def exported_symbols(library):
    lines = output_of("nm", "-D", "--defined-only", "--format=posix", library).splitlines()
    return {line.split()[0].split("@")[0] for line in lines}


def complaints(library, include, sanitized):
    marked, exported = marked_functions(include), exported_symbols(library)
    if not marked:
        yield f"no function in {include} is marked"
    yield from (f"{name} is marked but not exported" for name in sorted(marked - exported))
    yield from (f"{name} is exported but not marked" for name in sorted(exported - marked))
    dynamic = DYNAMIC.findall(output_of("readelf", "-dW", library))
    if ("SONAME", SONAME) not in dynamic:
        yield f"the library's own name is not {SONAME}"
    if sanitized:
        return
    runtimes = ("libstdc++", "libgcc_s")
    yield from (f"{name} is needed" for kind, name in dynamic
                if kind == "NEEDED" and name.startswith(runtimes))


def main():
    library, include = sys.argv[1], pathlib.Path(sys.argv[2])
    found = list(complaints(library, include, "--sanitized" in sys.argv[3:]))
    print("\n".join(found) or f"{len(marked_functions(include))} functions, nothing else")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
