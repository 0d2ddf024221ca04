# SPDX-License-Identifier: LGPL-2.1-or-later

"""Compares the output of a command with what a page shows of it.

Ids, times and other numbers differ from machine to machine, and with them the widths of columns and the
places at which a cell goes on in the next line. The comparison therefore reads both outputs as rows of
cells and compares

- the cells, whose parts are joined again and whose numbers count as equal;
- the indentation of each row;
- which cells stand right under those of the row before.

Columns are separated by two blanks or more. A line belongs to the row before when its cells all begin
where that row's second or later cells do:

    ID  TOPIC        PRODUCER             KEYS
    2   Device/Load  system-load (10952)  available:int
                                          load:double
"""

import re

NUMBER = re.compile(r"(?<![A-Za-z])(?:0x[0-9a-f]+|\d[\d.:]*)")
CELL = re.compile(r"\S+(?: \S+)*")


class Row:
    """The cells of a row by the column in which they begin."""

    def __init__(self, cells):
        self.cells = cells

    @property
    def columns(self):
        return list(self.cells)

    @property
    def indentation(self):
        return self.columns[0] if self.cells else 0

    @property
    def texts(self):
        return [NUMBER.sub("0", text) for text in self.cells.values()]

    def goes_on_in(self, cells):
        return bool(cells) and set(cells) <= set(self.columns[1:])

    def take(self, cells):
        """A cell is broken at a blank, which is lost, or behind a slash."""
        for column, text in cells.items():
            separator = "" if self.cells[column].endswith("/") else " "
            self.cells[column] += separator + text


def rows_of(lines):
    rows = []
    for line in lines:
        cells = {match.start(): match[0] for match in CELL.finditer(line)}
        if rows and rows[-1].goes_on_in(cells):
            rows[-1].take(cells)
        else:
            rows.append(Row(cells))
    return rows


def alignments(rows):
    """For each row after the first: whether each of its cells stands under that of the row before."""
    for above, below in zip(rows, rows[1:]):
        yield [one == other for one, other in zip(above.columns, below.columns)]


def looks_like(shown, expected):
    """Whether the lines of an output are those of a page."""
    shown, expected = rows_of(shown), rows_of(expected)
    return ([row.texts for row in shown] == [row.texts for row in expected]
            and [row.indentation for row in shown] == [row.indentation for row in expected]
            and list(alignments(shown)) == list(alignments(expected)))
