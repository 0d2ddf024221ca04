// SPDX-License-Identifier: LGPL-2.1-or-later

// What the fuzz targets share: their entry, and how they say that a property does not hold.
#pragma once

#include <qandor/qandor.h>

#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerInitialize(int *count, char ***arguments);
extern "C" int LLVMFuzzerTestOneInput(const guint8 *bytes, gsize size);

namespace qandor::fuzz {

// Ends the process, which is how a target reports a finding.
inline void must(bool holds, const char *property)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", property);
    std::abort();
}

inline GArray *array_of(const guint8 *bytes, gsize size)
{
    GArray *array = serialize_create_array();
    g_array_append_vals(array, bytes, static_cast<guint>(size));
    return array;
}

inline std::string take(GArray *array)
{
    std::string bytes(array->data, array->len);
    g_array_unref(array);
    return bytes;
}

} // namespace qandor::fuzz
