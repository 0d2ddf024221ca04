// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/switchwatch.hpp"

#include "cli/owners.hpp"
#include "cli/terminal.hpp"

namespace qandor::cli {
namespace {

int lose_bus(sd_bus_message *, void *loop, sd_bus_error *)
{
    static_cast<MainLoop *>(loop)->fail({EX_UNAVAILABLE, "The bus has gone"});
    return 0;
}

} // namespace

SwitchWatch::SwitchWatch(MainLoop &loop)
{
    GError *error = nullptr;
    int r = connect_to_bus_and_attach_events(&source_, &bus_, &error);
    Owned<GError, g_error_free> owner(error);
    if (r < 0)
        throw Failure(EX_UNAVAILABLE, error ? error->message : "There is no bus");
    watcher_.offline = [](gpointer) { note("The switch has gone; what follows waits for it."); };
    watcher_.online = [](gpointer) { note("The switch is back."); };
    watch_bus_driver(bus_, &watcher_);
    sd_bus_match_signal(bus_, nullptr, "org.freedesktop.DBus.Local", "/org/freedesktop/DBus/Local",
                        "org.freedesktop.DBus.Local", "Disconnected", lose_bus, &loop);
}

} // namespace qandor::cli
