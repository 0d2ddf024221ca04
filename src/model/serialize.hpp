// SPDX-License-Identifier: LGPL-2.1-or-later

// How a record goes to and from a buffer through its description in grammar.hpp: measured first,
// so that the buffer grows once, then written.
#pragma once

#include "model/wire.hpp"

#include <glib.h>

#include <cstddef>

namespace qandor {

// Makes room for size more bytes at the end of the buffer and returns where they begin.
guint8 *grow(GArray *array, std::size_t size);

// Appends what the description writes. It is called twice, with a Sizer and with a Writer.
template <class Describe> void append_record(GArray *array, Describe &&describe)
{
    wire::Sizer sizer;
    describe(sizer);
    wire::Writer writer(grow(array, sizer.size()));
    describe(writer);
}

} // namespace qandor
