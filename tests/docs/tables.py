#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later

"""Asks the library what the pages' tables of expressions say.

Such a table has the columns "expression", "satisfied by" and "not by". An event is {key=value, ...},
one whose value is ? is a declaration with that value open; name-space:key goes for both sides.

Usage: tables.py SOURCE_ROOT LIBRARY
"""

import ctypes
import pathlib
import re
import sys

HEADER = "| expression | satisfied by | not by |"
CONDITION = re.compile(r"^(?:(?P<space>\w+):)?(?P<key>\w+|\*)(?P<sign>!?=)(?P<value>[^=!]*)$")
RECORD = re.compile(r"\{([^}]*)\}")
STRING = 4


class Library:
    """The library's functions, called with texts and pointers."""

    def __init__(self, path):
        self.library = ctypes.CDLL(path)

    def __getattr__(self, name):
        function = getattr(self.library, name)
        function.restype = ctypes.c_int if name.endswith("_contains") else ctypes.c_void_p

        def call(*arguments):
            return function(*[ctypes.c_char_p(a.encode()) if isinstance(a, str) else
                              ctypes.c_void_p(a) for a in arguments])
        return call


def parts_of(text):
    return [CONDITION.match(part.strip()) for part in text.split(",") if part.strip()]


def build_expression(lib, text):
    made = lib.subscribe_expression_new()
    for number, group in enumerate(text.split(" OR ")):
        if number:
            lib.subscribe_expression_or(made)
        for part in parts_of(group):
            add_condition(lib, made, part)
    return made


def add_condition(lib, expression, part):
    negated = "not_" if part["sign"] == "!=" else ""
    if part["key"] == "*":
        getattr(lib, f"subscribe_expression_add_{negated}value")(expression, part["value"])
    elif part["value"] == "*":
        getattr(lib, f"subscribe_expression_add_{negated}key")(expression, part["key"])
    else:
        name = f"subscribe_expression_add_key_{negated}value"
        getattr(lib, name)(expression, part["key"], part["value"])
    if part["space"]:
        lib.subscribe_expression_set_name_space(expression, part["key"], part["space"])


def satisfies(lib, record, expression):
    parts = parts_of(record)
    declaration = lib.event_declaration_new(1)
    for part in parts:
        if part["value"] == "?":
            lib.event_declaration_add_key(declaration, part["key"], STRING)
        else:
            lib.event_declaration_add_key_value(declaration, part["key"], part["value"], STRING)
        if part["space"]:
            lib.event_declaration_set_name_space(declaration, part["key"], part["space"])
    if any(part["value"] == "?" for part in parts):
        return bool(lib.event_declaration_contains(declaration, expression))
    return bool(lib.event_contains(lib.event_declaration_generate_event(declaration), expression))


def rows_of(page):
    in_table = False
    for number, line in enumerate(page.read_text().splitlines(), 1):
        if line == HEADER:
            in_table = True
        elif not line.startswith("|"):
            in_table = False
        elif in_table and not line.startswith("|---"):
            cells = [cell.strip().replace("`", "").replace("\\", "") for cell in line.split("|")]
            yield number, cells[1], RECORD.findall(cells[2]), RECORD.findall(cells[3])


def main():
    root = pathlib.Path(sys.argv[1])
    lib = Library(sys.argv[2])
    claims = 0
    complaints = []
    for page in sorted((root / "docs").rglob("*.md")):
        for number, text, yes, no in rows_of(page):
            expression = build_expression(lib, text)
            for record, expected in [(r, True) for r in yes] + [(r, False) for r in no]:
                claims += 1
                if satisfies(lib, record, expression) != expected:
                    complaints.append(f"{page.relative_to(root)}:{number}: {{{record}}} "
                                      f"{'does not satisfy' if expected else 'satisfies'} {text}")
    print("\n".join(complaints) or f"{claims} claims hold")
    return 1 if complaints or claims == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
