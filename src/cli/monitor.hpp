// SPDX-License-Identifier: LGPL-2.1-or-later

// What the switch's monitor tells: who produces, who listens to what, what is used of the limits.
#pragma once

#include "cli/switchbus.hpp"

namespace qandor::cli {

struct MonitoredPeer {
    std::string bus_name;
    std::string object;
    std::string name; // the one that the application gave itself
    guint32 pid = 0;
    guint32 uid = 0;
    guint32 producer_id = 0;    // of producers
    std::vector<guint32> ids{}; // of declarations or of subscriptions
};

struct MonitoredSubscription {
    guint32 id = 0;
    std::string bus_name;
    std::string object;
    guint32 token = 0;
    bool clandestine = false;
    std::string expression;
    std::vector<guint32> declarations{};
};

struct MonitoredLimit {
    guint32 uid = 0; // all bits set: of all users together
    std::string name;
    guint64 used = 0;
    guint64 limit = 0;
};

std::vector<MonitoredPeer> list_producers(const SwitchBus &bus);
// Root and the switch's own user alone may ask for these two; others get a Failure (EX_NOPERM).
std::vector<MonitoredPeer> list_consumers(const SwitchBus &bus);
std::vector<MonitoredSubscription> list_subscriptions(const SwitchBus &bus);
// One's own; root and the switch's user see those of all.
std::vector<MonitoredLimit> list_limits(const SwitchBus &bus);

} // namespace qandor::cli
