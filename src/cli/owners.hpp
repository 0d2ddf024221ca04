// SPDX-License-Identifier: LGPL-2.1-or-later

// One owner for each foreign thing that the commands hold.
#pragma once

#include <glib.h>
#include <systemd/sd-bus.h>

#include <memory>
#include <string>

namespace qandor::cli {

template <auto release> struct Releaser {
    template <class Thing> void operator()(Thing *thing) const { release(thing); }
};
template <class Thing, auto release> using Owned = std::unique_ptr<Thing, Releaser<release>>;

using Text = Owned<gchar, g_free>;
using Bytes = Owned<GArray, g_array_unref>;
using Bus = Owned<sd_bus, sd_bus_flush_close_unref>;
using Message = Owned<sd_bus_message, sd_bus_message_unref>;
using Credentials = Owned<sd_bus_creds, sd_bus_creds_unref>;

inline std::string take_bytes(GArray *array)
{
    Bytes owner(array);
    return {array->data, array->len};
}

} // namespace qandor::cli
