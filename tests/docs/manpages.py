#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later

"""Looks at the manual pages with those who show them: none has anything to complain of.

References from one of the project's own pages to another have to lead somewhere. Needs man-db or
mandoc; without both it is skipped.

Usage: manpages.py FOLDER...
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

VIEWERS = {
    "man": ["man", "--warnings", "--encoding=UTF-8", "--local-file", "-Tutf8", "-Z"],
    "mandoc": ["mandoc", "-Tlint", "-Wstyle"],
}
OWN_PAGE = re.compile(r"\b((?:qandor|event-switch)[\w.-]*) ?\((\d)\)")
FONT = re.compile(r"\\f[BIRP]|^\.[BIR]+ ", re.MULTILINE)
SKIPPED = 77


def complaints_of_viewers(page, viewers):
    environment = {**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "80"}
    for viewer in viewers:
        result = subprocess.run([*VIEWERS[viewer], page], env=environment, check=False, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        # man shows the page on its standard output, mandoc what it found.
        said = result.stderr if viewer == "man" else result.stdout + result.stderr
        if said or result.returncode:
            yield f"{page}: {viewer}:\n{said}"


def broken_references(page, names):
    text = FONT.sub("", page.read_text()).replace(r"\-", "-")
    for name, section in sorted(set(OWN_PAGE.findall(text))):
        if f"{name}.{section}" not in names:
            yield f"{page}: there is no {name}({section})"


def main():
    pages = [page for folder in sys.argv[1:] for page in sorted(pathlib.Path(folder).glob("*.[1-8]"))]
    viewers = [viewer for viewer in VIEWERS if shutil.which(viewer)]
    if not viewers:
        return SKIPPED
    names = {page.name for page in pages}
    complaints = []
    for page in pages:
        complaints += complaints_of_viewers(page, viewers)
        complaints += broken_references(page, names)
    print("\n".join(complaints) or f"{len(pages)} pages are good for {' and '.join(viewers)}")
    return 1 if complaints or not pages else 0


if __name__ == "__main__":
    sys.exit(main())
