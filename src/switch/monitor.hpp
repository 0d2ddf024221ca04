// SPDX-License-Identifier: LGPL-2.1-or-later

// What the switch tells people and tools about itself: how much there is, as properties that say
// when they change, and lists of who there is and what he uses. Who listens to what is for root and
// the switch's own user alone.
#pragma once

#include "switch/countlisteners.hpp"
#include "switch/countwatch.hpp"

namespace qandor {

class Service;

class Monitor {
public:
    explicit Monitor(Service &service);

    // Serves the interface. A negative errno on failure.
    int serve();

    // The name has read properties of the interface: it is told when they change.
    void note_reader(const char *interface, const char *name);
    void forget(const std::string &name) { listeners_.forget(name); }

private:
    Service &service_;
    CountListeners listeners_;
    CountWatch watch_;
};

} // namespace qandor
