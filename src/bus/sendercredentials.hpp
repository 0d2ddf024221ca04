// SPDX-License-Identifier: LGPL-2.1-or-later

// Who sent a message.
#pragma once

#include <glib.h>
#include <systemd/sd-bus.h>

namespace qandor {

constexpr guint32 unknown_uid = G_MAXUINT32;

// The sender's user id, the effective one by preference. A sender that has left the bus and
// credentials without a user id are a warning and unknown_uid. Any other failure to read them ends
// the process.
guint32 get_uid_from_message(sd_bus_message *call);

} // namespace qandor
