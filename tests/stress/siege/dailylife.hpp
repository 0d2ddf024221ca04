// SPDX-License-Identifier: LGPL-2.1-or-later

// A bystander: another user's process that calls the switch again and again during an attack, also
// from connections that are new to the switch, and measures how long each answer takes.
#pragma once

#include "stress/siege/otheruser.hpp"
#include "stress/siege/sharedcount.hpp"

namespace qandor::test {

struct Waits {
    unsigned calls = 0, refused = 0; // refused: answered with an error, or not at all
    double p50_ms = 0, p99_ms = 0, longest_ms = 0;
    double bus_p99_ms = 0; // of calls to the bus itself, which are made in between
};

class DailyLife {
public:
    // Begins at once. GetAllDeclarations is one of the calls if @asks_for_all is true; a test of
    // memory excludes it, because its answer may be large.
    explicit DailyLife(const PrivateBus &bus, bool asks_for_all = true);

    // Waits for that number of further calls; returns false after a timeout.
    bool goes_on(guint64 calls = 20, double seconds = 60) const;
    // Ends the process and returns its measurements.
    Waits end();

private:
    SharedCount calls_;
    OtherUser user_;
};

} // namespace qandor::test
