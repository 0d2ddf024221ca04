#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later

"""Reads the includes under src/ and include/ and fails on one that points up.

Usage: check.py SOURCE_ROOT
"""

import pathlib
import re
import sys

# What each layer may include, itself aside. Public headers belong to the layer that implements them.
BELOW = {
    "platform": set(),
    "model": {"platform"},
    "messages": {"platform", "model"},
    "bus": {"platform", "model", "messages"},
    "api": {"platform", "model", "messages", "bus"},
    "query": {"platform", "model", "messages", "bus"},
    # The programs have the library in them. The switch has bus objects of its own.
    "switch": {"platform", "model", "messages", "bus", "face"},
    "cli": {"platform", "model", "messages", "bus", "api", "query", "face"},
}

PUBLIC = {
    "platform": ["api"],
    "model": ["eventutils", "inspectable", "keyvalue", "serialize"],
    "messages": ["event", "eventdeclaration", "notification", "propertystate", "subscribeexpression"],
    "bus": ["busconnection", "consumer", "consumerbusclient", "producer", "switchbusclient"],
    "api": ["asyncconsumer", "asyncproducer", "eventconsumer", "eventproducer", "idgenerator"],
    "query": ["eventquery", "query"],
}
LAYER_OF_PUBLIC = {f"qandor/{name}.h": layer for layer, names in PUBLIC.items() for name in names}
# What includes the families' headers for applications: the face for C++, and all of C.
LAYER_OF_PUBLIC |= {"qandor/qandor.h": "face", "qandor/qandor.hpp": "face"}

INCLUDE = re.compile(r'^\s*#\s*include\s+(?:"([^"]+)"|<(qandor/[^>]+)>)', re.MULTILINE)


def layer_of(included):
    if included in LAYER_OF_PUBLIC:
        return LAYER_OF_PUBLIC[included]
    if included.startswith("qandor/cpp/"):
        return "face"
    return included.split("/")[0]


def complaint(layer, included):
    if included.startswith("qandor/") and layer_of(included) == "qandor":
        return "belongs to no layer that this test knows"
    if layer not in BELOW:
        return f"is included from {layer}, which this test does not know"
    other = layer_of(included)
    return None if other == layer or other in BELOW[layer] else f"is not below {layer}"


def files_with_layers(root):
    for file in sorted((root / "src").rglob("*.[ch]pp")):
        yield file, file.relative_to(root / "src").parts[0]
    for file in sorted((root / "include/qandor").glob("*.h")):
        if file.name != "qandor.h":
            yield file, LAYER_OF_PUBLIC.get(f"qandor/{file.name}", file.name)


def main():
    root = pathlib.Path(sys.argv[1])
    files = 0
    complaints = []
    for file, layer in files_with_layers(root):
        files += 1
        for quoted, public in INCLUDE.findall(file.read_text()):
            text = complaint(layer, quoted or public)
            if text:
                complaints.append(f"{file.relative_to(root)}: {quoted or public} {text}")
    print("\n".join(complaints) or f"{files} files, every include points down")
    return 1 if complaints or files == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
