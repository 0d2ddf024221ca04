#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later

"""Makes the manual pages of the tool from its own help, so that the two cannot tell different things.

qandor.1.in is the page of the tool; the lines @COMMANDS@, @EXPRESSIONS@ and @EXIT_CODES@ in it give
way to what the help says about them. Each command gets a page of its own, with the same head.

Usage: tool-pages.py TOOL TEMPLATE VERSION OUTPUT_FOLDER
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import textwrap

ESCAPES = {"\\": r"\e", "-": r"\-", "'": r"\(aq", "`": r"\(ga", "^": r"\(ha", "~": r"\(ti"}
TABLE_ROW = re.compile(r"^ +(.*\S) {2,}(\S.*)$")
SENTENCE_END = re.compile(r"(?<=[.?!]) +")
BOLD = re.compile(r"qandor\\-[a-z]+(?=\(1\))|(?<![\w\\-])\\-\\-[a-z](?:[a-z]|\\-)*")
PAGE = re.compile(r"'qandor help ([a-z]+)'")
MARKED = re.compile(r"(?P<option>(?<![\w-])--?[a-z][a-z-]*)|(?P<value>\b[A-Z]{1,}\b)|"
                    r"(?P<word>\b[a-z]+\b)|(?P<rest>.)", re.DOTALL)


def escaped(text):
    return "".join(ESCAPES.get(character, character) for character in text)


def bold(text):
    return rf"\fB{escaped(text)}\fR"


def syntax(text):
    """An option or a command line: what is typed is bold, what stands for something is italic."""
    def marked(match):
        if match["value"]:
            return rf"\fI{match['value']}\fR"
        return escaped(match[0]) if match["rest"] else bold(match[0])
    return MARKED.sub(marked, re.sub(" +", " ", text))


def wrapped(line):
    return textwrap.wrap(line, 79, break_long_words=False, break_on_hyphens=False)


def running(text, pages):
    """Text, a sentence a line, whose mentions of pages of the help are those of manual pages."""
    text = PAGE.sub(lambda match: f"qandor-{match[1]}(1)" if match[1] in pages else match[0], text)
    for sentence in SENTENCE_END.split(" ".join(text.split())):
        marked = BOLD.sub(lambda match: rf"\fB{match[0]}\fR", escaped(sentence))
        yield from (rf"\&{line}" if line.startswith(".") else line for line in wrapped(marked))


def rows(lines, term):
    for line in lines:
        left, right = TABLE_ROW.match(line).groups()
        yield from (".TP", term(left), escaped(right))


def literal(lines):
    return [".PP", ".nf", ".RS", *(escaped(line[4:]) for line in lines), ".RE", ".fi"]


def body(lines, pages):
    """Yields (whether it is an example, lines) of each block of the free part of a page."""
    for block in "\n".join(lines).strip("\n").split("\n\n"):
        block = block.splitlines()
        if not block[0].startswith("    "):
            yield False, [".PP", *running("\n".join(block), pages)]
        elif any("qandor " in line for line in block):
            yield True, literal(block)
        else:
            yield False, [*rows(block, bold)]


def joined(blocks):
    """The lines of the blocks, without the .PP that would follow a heading."""
    return [line for _, lines in blocks for line in lines][1:]


class Help:
    """What the tool says, a page at a time."""

    def __init__(self, tool):
        self.tool = tool
        self.environment = {**os.environ, "LC_ALL": "C.UTF-8"}
        # Where there is no terminal, lines are as long as they come.
        self.environment.pop("COLUMNS", None)
        self.overview = self.sections()[1]
        self.commands = [TABLE_ROW.match(line)[1] for line in self.overview["Commands"]]

    def sections(self, *page):
        """(the lines under no title, those under each title) of a page."""
        text = subprocess.run([self.tool, "help", *page], env=self.environment, check=True,
                              stdout=subprocess.PIPE, text=True).stdout
        free, titled, into = [], {}, None
        for line in text.splitlines():
            if re.match(r"^(Usage|Options|Commands|More|Exit codes.*)$", line):
                into = titled.setdefault(line.split(" (")[0], [])
            elif into is not None and line.startswith("  ") and not line.startswith("    "):
                into.append(line)
            else:
                into = None
                free.append(line)
        return free, titled


def command_page(texts, name, head):
    free, titled = texts.sections(name)
    summary = free.pop(0).partition(": ")[2]
    blocks = list(body(free, texts.commands))
    options = rows(titled.get("Options", []), syntax)
    return [
        head.replace("QANDOR", rf"QANDOR\-{name.upper()}", 1),
        ".SH NAME", *wrapped(rf"qandor\-{name} \- {escaped(summary)}"),
        ".SH SYNOPSIS", *(syntax(line.strip()) for line in titled["Usage"]),
        ".SH DESCRIPTION", *joined(block for block in blocks if not block[0]),
        *([".SH OPTIONS", *options] if "Options" in titled else []),
        ".SH EXIT STATUS", "0, or one of those that", ".BR qandor (1)", "lists.",
        ".SH EXAMPLES", *joined(block for block in blocks if block[0]),
        ".SH SEE ALSO", ".BR qandor (1),", r".BR event\-switch (8)",
    ]


def exit_codes(lines):
    for line in lines:
        code, name, meaning = re.match(r"^ +(\d+) +(EX_\w+|) +(\S.*)$", line).groups()
        yield from (".TP", bold(code) + (f" ({name})" if name else ""), escaped(meaning))


def tool_page(texts, template):
    inserted = {
        "@COMMANDS@": rows(texts.overview["Commands"],
                           lambda name: bold(f"qandor-{name}") + "(1)"),
        "@EXPRESSIONS@": joined(body(texts.sections("expressions")[0], texts.commands)),
        "@EXIT_CODES@": exit_codes(texts.sections("exit-codes")[1]["Exit codes"]),
    }
    for line in template.splitlines():
        yield from inserted.get(line, [line])


def main():
    tool, template, version, folder = sys.argv[1:]
    template = pathlib.Path(template).read_text().replace("@VERSION@", version)
    first, head = template.splitlines()[:2]
    texts = Help(tool)
    pages = {"qandor": tool_page(texts, template)}
    for name in texts.commands:
        pages[f"qandor-{name}"] = [first, *command_page(texts, name, head)]
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    for name, lines in pages.items():
        pathlib.Path(folder, f"{name}.1").write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
