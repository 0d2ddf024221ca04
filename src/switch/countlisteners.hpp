// SPDX-License-Identifier: LGPL-2.1-or-later

// Who is told when the counts change: the names that have read one of them. A broadcast would reach
// everybody, but nobody could see whether those who hear it read, and the bus keeps for the
// switch's account what they do not. So each is told through the outbox, and has one message
// waiting at most.
#pragma once

#include "switch/countwatch.hpp"
#include "switch/outbox.hpp"

#include <map>
#include <string>

namespace qandor {

struct CountProperty {
    const char *name;
    std::size_t Counts::*count;
};
inline constexpr CountProperty count_properties[] = {
    {"Producers", &Counts::producers},
    {"Consumers", &Counts::consumers},
    {"Declarations", &Counts::declarations},
    {"Subscriptions", &Counts::subscriptions},
};

class CountListeners {
public:
    // The object and the interface that the counts are properties of.
    struct Place {
        const char *object;
        const char *interface;
    };

    CountListeners(sd_bus *bus, Outbox &outbox, const Place &place, CountWatch::Count count)
        : bus_(bus), outbox_(outbox), place_(place), count_(std::move(count))
    {
    }
    CountListeners(const CountListeners &) = delete;
    CountListeners &operator=(const CountListeners &) = delete;

    // The name has read a count just now.
    void add(const std::string &name) { listeners_[name].known = count_(); }
    void forget(const std::string &name) { listeners_.erase(name); }
    // Tells everybody who knows other counts.
    void tell();

private:
    struct Listener {
        Counts known{};
        bool is_queued = false;
    };

    gint64 send(const std::string &name);
    int append_changes(sd_bus_message *signal, const Counts &known, const Counts &now) const;

    sd_bus *bus_;
    Outbox &outbox_;
    const Place place_;
    const CountWatch::Count count_;
    std::map<std::string, Listener> listeners_;
};

} // namespace qandor
