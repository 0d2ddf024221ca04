// SPDX-License-Identifier: LGPL-2.1-or-later

// What the switch tells people and tools about itself: how much there is, as properties that say
// when they change, and lists of who there is and what he uses. Who listens to what is for root and
// the switch's own user alone.
#pragma once

#include "switch/countwatch.hpp"

namespace qandor {

class Service;

class Monitor {
public:
    explicit Monitor(Service &service);

    // Serves the interface. A negative errno on failure.
    int serve();

private:
    Service &service_;
    CountWatch watch_;
};

} // namespace qandor
