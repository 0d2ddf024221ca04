// SPDX-License-Identifier: LGPL-2.1-or-later

// An event for one of its subscribers. Its message is made when its turn comes: a burst waits as
// one copy of each event and a line for each subscriber. Only events may be dropped when too much
// waits.
#pragma once

#include "platform/backlog.hpp"
#include "platform/owners.hpp"

#include <memory>
#include <string>

namespace qandor {

// A serialized event, shared by all that it goes to. It counts once, for as long as one of them
// waits for it.
struct EventBytes {
    ArrayOwner array;
    BacklogPart charge;
};

struct EventCall {
    std::shared_ptr<const EventBytes> event;
    std::string path;
    guint32 token;
    // A property's state gives way to a newer one of the same declaration to the same subscription.
    bool is_property = false;
    guint32 declaration = 0;

    BusMessageOwner message(sd_bus *bus, const char *destination) const;
};

} // namespace qandor
