// SPDX-License-Identifier: LGPL-2.1-or-later

// The GSource through which a GLib main context drives an sd-event loop.
#pragma once

#include <glib.h>
#include <systemd/sd-event.h>

namespace qandor {

// Returns a source attached to the default main context, which holds the only reference to it.
GSource *attach_bus_event_source(sd_event *event);

} // namespace qandor
