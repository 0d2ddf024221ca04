#!/usr/bin/env -S python3 -B
# SPDX-License-Identifier: LGPL-2.1-or-later

"""Runs the shell commands of the pages as they stand, against a bus and a switch of their own.

Which lines of the pages are commands is said in shellpages.py. The commands of a page share one shell
and one folder, which has what the tree has. The output of ```console has to be what the page shows; in
what it may differ is said in shownoutput.py.

Usage: commands.py SOURCE_ROOT BUILD_ROOT FOLDER_OF_THE_TOOL'S_PAGES
"""

import contextlib
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile

from shellpages import manual_page, markdown_page
from shownoutput import looks_like

# Commands that are not run, and why.
NOT_RUN = {
    "scripts/demo": "installs packages and builds everything once more; runs by itself",
    "scripts/test": "would run this test again",
    "scripts/packages": "installs packages and builds everything once more; scripts/test-packages",
    "apt install ./build/packages/event-switch_*.deb ./build/packages/libqandor0_*.deb "
    "./build/packages/qandor_*.deb": "installs; scripts/test-packages does",
    "meson setup build/release --buildtype=release --prefix=/usr": "builds everything once more",
    "meson install -C build/release": "installs into the system",
    'meson setup build/start --buildtype=release -Dtests=false --prefix="$HOME/.local" --libdir=lib':
    "builds everything once more: what is built already is put there",
    "meson install -C build/start": "likewise",
    "systemd-sysusers": "changes the system",
    "systemd-tmpfiles --create": "changes the system",
    "systemctl reload dbus": "needs the system's own bus, and root",
    "systemctl daemon-reload": "needs systemd, and root",
    "systemctl enable --now event-switch": "needs systemd, and root",
}
# Commands that go on, and what they have said when all is well.
GOES_ON = {
    "scripts/private-bus build/bus": "unix:path=",
    "~/.local/libexec/event-switch": "serving",
    "build/examples/system-load": "power saving is off",
    "build/examples/watch-events topic1=Load": "^event topic0=Device topic1=Load",
    "./door": "",
    "./bell": "a door is open",
    "qandor watch": "added",
    "busctl monitor com.vemo.Event.Switch": "Monitoring",
}
# What a page takes for granted. The types of the device are those of the tree.
STAGE = """
mkdir build build/bus build/types build/added
cp data/types/*.xml .
cp data/types/system-load.xml data/types/power-saving.xml build/types
qandor() {
    case $1 in
    send|types|check|doctor) command qandor "$@" --types-read-only=build/types --types-writable=build/added;;
    *) command qandor "$@";;
    esac
}
cc examples/system-load.c -o build/system-load $(pkg-config --cflags --libs qandor)
go_on bus unix:path= scripts/private-bus build/bus
export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$PWD/build/bus/bus"
go_on switch serving ~/.local/libexec/event-switch --types-read-only="$PWD/build/types" \
    --types-writable="$PWD/build/added"
go_on load 'power saving is off' build/system-load
"""
PROLOGUE = """
set -eu
go_on() {
    log=$OUTPUT/$1.log
    said=$2
    shift 2
    : >"$log"
    "$@" >"$log" 2>&1 &
    tries=0
    until [ -z "$said" ] || grep -q -e "$said" "$log"; do
        tries=$((tries + 1))
        [ $tries -lt 300 ] || { echo "'$said' does not come from: $*" >&2; cat "$log" >&2; exit 1; }
        sleep 0.1
    done
}
"""


def script_of(page):
    yield PROLOGUE
    if page.needs_stage:
        yield STAGE
    for index, (line, command, output) in enumerate(page.commands):
        if command in NOT_RUN or not shutil.which("busctl") and command.startswith("busctl"):
            continue
        yield f"echo {shlex.quote(f'{page.name}:{line}: {command}')} >\"$OUTPUT/at\"\n"
        if command in GOES_ON:
            yield f"go_on {index} {shlex.quote(GOES_ON[command])} {command}\n"
        elif output is None:
            yield f"{command} >/dev/null\n"
        else:
            yield f'{command} >"$OUTPUT/{index}.out" 2>&1 || true\n'


def install(build, home):
    """Puts what is built where the pages have it."""
    place = home / "destination"
    subprocess.run(["meson", "install", "-C", build, "--no-rebuild", "--quiet"], check=True,
                   env={**os.environ, "DESTDIR": str(place)})
    description = next(place.rglob("qandor.pc"))
    prefix = next(place.rglob("libexec")).parent
    (home / ".local").mkdir()
    for folder in ("bin", "libexec", "include", "share"):
        (home / ".local" / folder).symlink_to(prefix / folder)
    (home / ".local" / "lib").symlink_to(description.parent.parent)
    moved = re.sub("^prefix=.*$", f"prefix={prefix}", description.read_text(), flags=re.MULTILINE)
    description.write_text(moved)


def wrong_outputs(page, outputs):
    for index, (line, command, expected) in enumerate(page.commands):
        if expected is None:
            continue
        shown = (outputs / f"{index}.out").read_text().splitlines()
        if not looks_like(shown, expected):
            yield f"{page.name}:{line}: {command} says now\n" + "\n".join(shown)


def run(page, root, home, work):
    tree, outputs = work / "tree", work / "out"
    for folder in (tree, outputs):
        folder.mkdir(parents=True)
    for entry in root.iterdir():
        if entry.name not in ("build", ".git"):
            (tree / entry.name).symlink_to(entry)
    for name, text in page.files.items():
        (tree / name).write_text(text)
    environment = {
        **os.environ, "HOME": str(home), "OUTPUT": str(outputs), "COLUMNS": "80", "TZ": "UTC",
        "LC_ALL": "C.UTF-8", "LD_LIBRARY_PATH": str(home / ".local" / "lib"),
        "PKG_CONFIG_PATH": str(home / ".local" / "lib" / "pkgconfig"),
        "PATH": f"{home / '.local' / 'bin'}:{os.environ['PATH']}"}
    shell = subprocess.Popen(["sh", "-c", "".join(script_of(page))], cwd=tree, env=environment,
                             start_new_session=True)
    try:
        if shell.wait(timeout=240):
            return [f"{(outputs / 'at').read_text()}fails" if (outputs / "at").exists()
                    else f"{page.name}: what it takes for granted fails"]
        return list(wrong_outputs(page, outputs))
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(shell.pid, signal.SIGKILL)


def main():
    root, build, tool_pages = map(pathlib.Path, sys.argv[1:])
    pages = [markdown_page(root, "docs/getting-started.md", False),
             markdown_page(root, "README.md", True),
             manual_page(tool_pages / "qandor.1"),
             manual_page(root / "docs" / "man" / "event-switch.8")]
    written = {command for page in pages for _, command, _ in page.commands}
    complaints = [f"{page.name} has no commands" for page in pages if not page.commands]
    complaints += [f"no page has: {command}" for command in {*NOT_RUN, *GOES_ON} - written]
    with tempfile.TemporaryDirectory() as folder:
        home = pathlib.Path(folder, "home")
        home.mkdir()
        install(build, home)
        for index, page in enumerate(pages):
            complaints += run(page, root, home, pathlib.Path(folder, str(index)))
    print("\n".join(complaints) or f"{len(written - set(NOT_RUN))} commands work as they stand")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
