// SPDX-License-Identifier: LGPL-2.1-or-later

// Gives memory back to the system when much of what was kept has gone. The allocator keeps what is
// freed in the middle of its heap, also after hundreds of peers have left at once.
#pragma once

#include "platform/owners.hpp"

#include <systemd/sd-event.h>

#include <glib.h>

#include <functional>

namespace qandor {

class MemoryReturn {
public:
    // Tells how many bytes are kept at the moment, about.
    using Kept = std::function<guint64()>;

    explicit MemoryReturn(Kept kept) : kept_(std::move(kept)) {}
    MemoryReturn(const MemoryReturn &) = delete;
    MemoryReturn &operator=(const MemoryReturn &) = delete;

    // A negative errno on failure.
    int begin(sd_event *event);

private:
    static int after_work(sd_event_source *, void *self);

    Kept kept_;
    guint64 most_ = 0; // kept since memory was given back last
    EventTimerOwner after_work_;
};

} // namespace qandor
