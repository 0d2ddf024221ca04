#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later

# Builds the examples as their readers would, against an installed library found by pkg-config, and
# runs them: events and a property's state have to arrive, and the tree of topics has to be told.
#
#   check.sh SOURCE-ROOT BUILD-ROOT
set -eu
source=$1
build=$2

work=$(mktemp -d)
started=""
finish()
{
    # shellcheck disable=SC2086
    [ -z "$started" ] || kill $started 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap finish EXIT

DESTDIR="$work/root" meson install -C "$build" --no-rebuild --quiet
prefix=$(dirname "$(dirname "$(find "$work/root" -type d -name qandor -path '*/include/*')")")
pkgconfig=$(dirname "$(find "$work/root" -name qandor.pc)")
library=$(dirname "$pkgconfig")
switch=$(find "$prefix" -type f -name event-switch)

# The paths in the file are those of the final place: the system's own packages stay where they are.
sed "s|^prefix=.*|prefix=$prefix|" "$pkgconfig/qandor.pc" >"$work/qandor.pc"
export PKG_CONFIG_PATH="$work"
export LD_LIBRARY_PATH="$library"
flags=$(pkg-config --cflags --libs qandor)
strict="-O1 -Wall -Wextra -Wpedantic -Werror"

for example in async-light system-load power-saving watch-events show-topics; do
    # shellcheck disable=SC2086
    cc -std=c11 -D_GNU_SOURCE $strict "$source/examples/$example.c" -o "$work/$example" $flags
done
# shellcheck disable=SC2086
c++ -std=c++20 $strict "$source/examples/watch-topic.cpp" -o "$work/watch-topic" $flags

# wait_for FILE TEXT: until the text stands in the file.
wait_for()
{
    tries=0
    until grep -q -- "$2" "$1" 2>/dev/null; do
        tries=$((tries + 1))
        [ $tries -lt 300 ] || { echo "'$2' does not come in $1:" >&2; cat "$1" >&2; exit 1; }
        sleep 0.1
    done
}

start()
{
    output=$1
    shift
    "$@" >"$work/$output" 2>&1 &
    started="$! $started"
}

start address "$source/scripts/private-bus" "$work"
wait_for "$work/address" unix:
DBUS_SYSTEM_BUS_ADDRESS=$(grep -m1 '^unix:' "$work/address")
export DBUS_SYSTEM_BUS_ADDRESS
start switch.log "$switch"
wait_for "$work/switch.log" serving
start producer.log "$work/system-load"
start load.log "$work/watch-events" topic1=Load 'available!=0'
start topic.log "$work/watch-topic" Device
wait_for "$work/load.log" '^event topic0=Device topic1=Load load='
wait_for "$work/topic.log" 'topic1=Load'
start power.log "$work/watch-events" '!nothing' '*=Saving' or nothing=1
wait_for "$work/power.log" '^state .*state=off'
grep -q '^state' "$work/load.log" && { echo "an event came that does not match" >&2; exit 1; }
"$work/show-topics" >"$work/topics"
for line in 'Device' '  Load' '    - event: load available (Available memory in MiB)' \
    '    Saving' '      - property: state*'; do
    grep -qxF -- "$line" "$work/topics" ||
        { echo "'$line' is missing in the tree:" >&2; cat "$work/topics" >&2; exit 1; }
done
"$work/show-topics" --types

# A type by its name, from a folder that stands in for the system's.
types="$work/types/etc/event_switch/declarations.d"
mkdir -p "$types"
cp "$prefix/share/qandor/types/power-saving.xml" "$types"
# shellcheck disable=SC2086
cc -shared -fPIC $strict "$source/tests/support/typesroot.c" -o "$work/typesroot.so"
start saving.log env LD_PRELOAD="$work/typesroot.so" QANDOR_TYPES_ROOT="$work/types" \
    "$work/power-saving"
saving=$!
start reason.log "$work/watch-events" reason
wait_for "$work/reason.log" '^state .*state=0'
kill -USR1 "$saving"
wait_for "$work/reason.log" '^state .*state=1'
"$work/power-saving" 2>"$work/untyped.log" && { echo "it runs without its type" >&2; exit 1; }
wait_for "$work/untyped.log" 'event_declaration_new_from_type() failed for power-saving'
start light.log "$work/async-light"
light=$!
wait_for "$work/light.log" '^the light is off'
kill "$light"
wait "$light"
echo "the examples work"
