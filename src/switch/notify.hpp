// SPDX-License-Identifier: LGPL-2.1-or-later

// What the switch tells the service manager that has started it: that it serves, how much it keeps,
// and that it is alive. Without a service manager nobody is told anything.
#pragma once

#include "switch/countwatch.hpp"

namespace qandor {

class Notifier {
public:
    Notifier(sd_event *event, CountWatch::Count count);

    // The switch serves; also the end of a reload. From the first time on the event loop answers
    // the watchdog and keeps the counts up to date.
    void ready();
    void reloading();
    void stopping();

private:
    sd_event *event_;
    CountWatch::Count count_;
    CountWatch watch_;
};

} // namespace qandor
