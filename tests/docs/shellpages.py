# SPDX-License-Identifier: LGPL-2.1-or-later

"""Reads the shell commands of the pages.

They are the lines of ```sh, and the lines of ```console that begin with "$ ", whose output follows. In
manual pages they stand under EXAMPLES. A comment of HTML above a fragment names the file that it is:

    <!-- file: door.c -->
"""

import re

FENCE = re.compile(r"(?:^<!-- file: (\S+) -->\n)?^```(\S*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
ROFF = {r"\-": "-", r"\(aq": "'", r"\e": "\\", r"\(ti": "~", r"\&": ""}


class Page:
    """The commands of a page: (number of the line, text, lines of the expected output or None)."""

    def __init__(self, name, needs_stage):
        self.name, self.needs_stage = name, needs_stage
        self.commands, self.files = [], {}


def commands_of(text, line, is_session):
    command, output = "", []
    for number, text_line in enumerate(text.splitlines(), line):
        if is_session and not text_line.startswith("$ ") and not command.endswith("\\"):
            output.append(text_line)
            continue
        if command.endswith("\\"):
            command = command[:-1] + text_line.strip()
        else:
            command, output = text_line.removeprefix("$ ") if is_session else text_line, []
        if not command.endswith("\\"):
            yield number, re.sub(r"\s+#.*", "", command), output if is_session else None


def markdown_page(root, name, needs_stage):
    page = Page(name, needs_stage)
    text = (root / name).read_text()
    for fence in FENCE.finditer(text):
        file, language, body = fence.groups()
        if file:
            page.files[file] = body
        if language in ("sh", "console"):
            line = text.count("\n", 0, fence.start(3)) + 1
            page.commands += commands_of(body, line, language == "console")
    return page


def manual_page(path):
    page = Page(path.name, True)
    examples = path.read_text().partition(".SH EXAMPLES")[2].partition(".SH ")[0]
    for block in re.findall(r"^\.nf\n\.RS\n(.*?)^\.RE$", examples, re.MULTILINE | re.DOTALL):
        for escape, character in ROFF.items():
            block = block.replace(escape, character)
        page.commands += commands_of(block, 0, False)
    return page
