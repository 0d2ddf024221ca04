// SPDX-License-Identifier: LGPL-2.1-or-later

// Reading the calls that producers and consumers serve. sd-bus has checked the signatures, so what
// cannot be read ends the process.
#pragma once

#include "platform/check.hpp"

#include <glib.h>
#include <systemd/sd-bus.h>

namespace qandor {

template <class... Values> void read_values(sd_bus_message *m, const char *types, Values *...values)
{
    int r = sd_bus_message_read(m, types, values...);
    CHECK(r >= 0);
}

// The array of bytes that comes next, as a buffer to read from that lives as long as the message.
inline GArray read_bytes(sd_bus_message *m)
{
    const void *data = nullptr;
    size_t length = 0;
    int r = sd_bus_message_read_array(m, 'y', &data, &length);
    CHECK(r >= 0);
    return {static_cast<gchar *>(const_cast<void *>(data)), static_cast<guint>(length)};
}

} // namespace qandor
