#!/usr/bin/env -S python3 -B
# SPDX-License-Identifier: LGPL-2.1-or-later

"""What a page shows holds on every machine, and is still compared."""

import unittest

from shownoutput import looks_like

PAGE = """\
ID  TOPIC                KIND      PRODUCER             KEYS
1   Device/Power/Saving  property  system-load (10952)  state:string*
2   Device/Load          event     system-load (10952)  available:int
                                                        load:double
"""


def table(pid, keys=("available:int load:double",), kind="event"):
    """The same table as it is laid out on a machine with other process ids."""
    producer = f"system-load ({pid})"
    rows = [("ID", "TOPIC", "KIND", "PRODUCER", "KEYS"),
            ("1", "Device/Power/Saving", "property", producer, "state:string*"),
            ("2", "Device/Load", kind, producer, keys[0])]
    rows += [("", "", "", "", more) for more in keys[1:]]
    widths = [max(map(len, column)) for column in zip(*rows)]
    return ["  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in rows]


class ShownOutput(unittest.TestCase):
    def assertShows(self, lines, page=PAGE):
        self.assertTrue(looks_like(lines, page.splitlines()), "\n".join(lines))

    def assertDoesNotShow(self, lines, page=PAGE):
        self.assertFalse(looks_like(lines, page.splitlines()), "\n".join(lines))

    def test_holds_whatever_the_width_of_process_ids(self):
        self.assertShows(PAGE.splitlines())
        for pid in (1, 952, 4711, 10952, 4194304):
            self.assertShows(table(pid))
            self.assertShows(table(pid, ("available:int", "load:double")))

    def test_holds_when_other_cells_go_on_in_the_next_line(self):
        self.assertShows(["ID  TOPIC          KIND      PRODUCER     KEYS",
                          "1   Device/Power/  property  system-load  state:string*",
                          "    Saving                   (4194304)",
                          "2   Device/Load    event     system-load  available:int",
                          "                             (4194304)    load:double"])

    def test_sees_other_content(self):
        self.assertDoesNotShow(table(10952, kind="state"))
        self.assertDoesNotShow(table(10952, ("available:int",)))
        self.assertDoesNotShow(table(10952, ("available:int load:double more:int",)))
        self.assertDoesNotShow(table(10952)[:2])

    def test_sees_columns_that_are_not_aligned(self):
        lines = table(10952)
        lines[2] = lines[2].replace("  available", "   available")
        self.assertDoesNotShow(lines)
        lines = PAGE.splitlines()
        lines[3] = lines[3][1:]
        self.assertDoesNotShow(lines)

    def test_sees_columns_that_run_into_one_another(self):
        self.assertDoesNotShow([line.replace("  system-load", " system-load") for line in table(7)])

    def test_takes_numbers_for_equal_wherever_they_stand(self):
        page = "12:40:45.714  event  Device/Load  available=21522 load=9.720000\n"
        self.assertShows(["00:00:00.001  event  Device/Load  available=7 load=10.120000"], page)
        self.assertDoesNotShow(["00:00:00.001  event  Device/Load  load=10.120000"], page)

    def test_sees_another_indentation(self):
        page = "declaration 1 does not satisfy\n  no   a=1     there is a=2\n"
        lines = ["declaration 20 does not satisfy", "  no   a=3     there is a=4"]
        self.assertShows(lines, page)
        self.assertDoesNotShow([line.lstrip() for line in lines], page)


if __name__ == "__main__":
    unittest.main()
