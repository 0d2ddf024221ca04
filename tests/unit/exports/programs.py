#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later

"""Checks that programs do not load the shared library.

They read the library's private records. A program that loaded a library with another layout of
these records would read the wrong memory.

Usage: programs.py PROGRAM...
"""

import re
import subprocess
import sys


def needed_libraries(program):
    dynamic = subprocess.run(["readelf", "--dynamic", "--wide", program], capture_output=True,
                             text=True, check=True).stdout
    return re.findall(r"\(NEEDED\).*\[(.+)\]", dynamic)


def main():
    failed = False
    for program in sys.argv[1:]:
        needed = needed_libraries(program)
        if not any(name.startswith("libglib") for name in needed):
            sys.exit(f"{program}: libglib not found among its libraries, so the check is broken")
        loaded = [name for name in needed if name.startswith("libqandor")]
        if loaded:
            print(f"{program} loads {loaded[0]}")
            failed = True
    return 1 if failed or len(sys.argv) == 1 else 0


if __name__ == "__main__":
    sys.exit(main())
