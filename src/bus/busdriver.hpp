// SPDX-License-Identifier: LGPL-2.1-or-later

// Who speaks: the bus itself or somebody on it.
#pragma once

#include <glib.h>
#include <systemd/sd-bus.h>

namespace qandor {

// Whether the bus itself sent the message. A stock bus lets everybody send signals to a single
// connection, and sd-bus does not hold their senders against a match rule that names the bus.
inline bool is_from_bus(sd_bus_message *message)
{
    return g_strcmp0(sd_bus_message_get_sender(message), "org.freedesktop.DBus") == 0;
}

} // namespace qandor
