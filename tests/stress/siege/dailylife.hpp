// SPDX-License-Identifier: LGPL-2.1-or-later

// A user who goes on with his daily life while others lay siege: calls the switch again and again,
// also from connections that the switch has not seen before, and notes how long each answer takes.
#pragma once

#include "stress/siege/otheruser.hpp"
#include "stress/siege/sharedcount.hpp"

namespace qandor::test {

struct Waits {
    unsigned calls = 0, refused = 0; // refused: answered with an error, or not at all
    double p50_ms = 0, p99_ms = 0, longest_ms = 0;
};

class DailyLife {
public:
    // Begins at once. Asking for all declarations is part of it unless those are so many that the
    // answers would be what costs.
    explicit DailyLife(const PrivateBus &bus, bool asks_for_all = true);

    // Waits until he has made so many more calls; whether he has in that time.
    bool goes_on(guint64 calls = 20, double seconds = 60) const;
    // Ends it and tells how it was.
    Waits end();

private:
    SharedCount calls_;
    OtherUser user_;
};

} // namespace qandor::test
