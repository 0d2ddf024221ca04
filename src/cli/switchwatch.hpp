// SPDX-License-Identifier: LGPL-2.1-or-later

// Tells on the standard error when the switch goes and comes, and ends the main loop when the bus
// has gone.
#pragma once

#include "cli/mainloop.hpp"

#include <qandor/busconnection.h>

namespace qandor::cli {

class SwitchWatch {
public:
    explicit SwitchWatch(MainLoop &loop);
    SwitchWatch(const SwitchWatch &) = delete;
    SwitchWatch &operator=(const SwitchWatch &) = delete;
    ~SwitchWatch() { disconnect_from_bus_and_detach_events(source_, bus_); }

private:
    GSource *source_ = nullptr;
    sd_bus *bus_ = nullptr;
    bus_driver_watcher watcher_{};
};

} // namespace qandor::cli
