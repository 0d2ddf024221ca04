#!/bin/sh
# SPDX-License-Identifier: LGPL-2.1-or-later

# Each public header stands alone for callers in C11 and in C++20, without a warning, and is both
# part of <qandor/qandor.h> and installed. Those of the face for C++ do so in C++20.
#
# Usage: check.sh INCLUDE_FOLDER C_COMPILER CXX_COMPILER
set -u

include=$1 c=$2 cxx=$3
flags="-fsyntax-only -Wall -Wextra -Wpedantic -Werror -I $include
    $(pkg-config --cflags glib-2.0 gobject-2.0 libsystemd)" || exit 1
status=0

complain()
{
    echo "$1"
    status=1
}

# Twice, as callers include a header once from each of their own.
compiles()
{
    printf '#include <qandor/%s>\n#include <qandor/%s>\n' "$name" "$name" | "$@" $flags -
}

for header in "$include"/qandor/*.h; do
    name=${header##*/}
    compiles "$c" -x c -std=c11 || complain "$name does not stand alone in C11"
    compiles "$cxx" -x c++ -std=c++20 || complain "$name does not stand alone in C++20"
    grep -q "'qandor/$name'" "$include/meson.build" || complain "$name is not installed"
    [ "$name" = qandor.h ] || grep -q "^#include <qandor/$name>" "$include/qandor/qandor.h" ||
        complain "$name is not part of qandor.h"
done

for header in "$include"/qandor/qandor.hpp "$include"/qandor/cpp/*.hpp; do
    name=${header#"$include"/qandor/}
    compiles "$cxx" -x c++ -std=c++20 || complain "$name does not stand alone in C++20"
    compiles "$cxx" -x c++ -std=c++20 -fno-exceptions ||
        complain "$name does not stand alone without exceptions"
    grep -q "'qandor/$name'" "$include/meson.build" || complain "$name is not installed"
done
exit $status
