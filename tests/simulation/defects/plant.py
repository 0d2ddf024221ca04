#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later

"""Copies a source with a defect that the system once had.

    plant.py NAME SOURCE COPY

The defects are replacements of text, so that one whose place has changed is noticed.
"""

import pathlib
import sys

# Name: (what it does, text, replacement).
DEFECTS = {
    "trusting": (
        "the switch believes anybody who says that a name has left the bus",
        """    if (g_strcmp0(sd_bus_message_get_sender(signal), "org.freedesktop.DBus") != 0)
        return 0;
""",
        "",
    ),
    "lonely": (
        "a handle whose connection ends does not connect again",
        """    close();
    timer_.start();
""",
        "    close();\n",
    ),
    "silent": (
        "what the bus refuses to deliver is not sent again",
        """    if (trial_ == 0)
        timer_.start();
""",
        "",
    ),
    "forgetful": (
        "the bus is not asked again who a caller is, when its answer was dropped",
        """        if (!name.is_known && now >= name.ask_again_at)
            late.push_back(&name);
""",
        """        if (!name.is_known && now < name.ask_again_at - patience_usec)
            late.push_back(&name);
""",
    ),
    "unaware": (
        "names whose leaving the bus did not tell are kept for ever",
        """        if (!present.contains(known))
            self.names_.forget(known);
""",
        """        if (present.empty())
            self.names_.forget(known);
""",
    ),
}


def main(name, source, copy):
    _, text, replacement = DEFECTS[name]
    content = pathlib.Path(source).read_text(encoding="utf-8")
    if content.count(text) != 1:
        sys.exit(f"{source}: the place of the defect '{name}' has changed; see {__file__}")
    pathlib.Path(copy).write_text(content.replace(text, replacement), encoding="utf-8")


main(*sys.argv[1:])
