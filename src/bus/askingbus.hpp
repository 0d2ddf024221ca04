// SPDX-License-Identifier: LGPL-2.1-or-later

// A connection on which nothing but synchronous calls is made. What comes in while a call waits for
// its answer is queued, and nobody comes to handle it. Among it are the Ping calls by which the
// switch sees that its answers are read, without which it sends no more of them after a while.
#pragma once

#include <systemd/sd-bus.h>

namespace qandor {

// To be called before each call: handles what has been queued, up to a bound. There are no handlers
// but those of sd-bus itself.
inline void handle_queued(sd_bus *bus)
{
    constexpr int most = 1024;
    for (int i = 0; i < most && sd_bus_process(bus, nullptr) > 0; ++i) {
    }
}

} // namespace qandor
