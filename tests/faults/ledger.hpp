// SPDX-License-Identifier: LGPL-2.1-or-later

// What has been sent and what has arrived. Always: a plain event arrives once, in the order in
// which it was sent; the state of a property never goes back.
#pragma once

#include <qandor/qandor.h>

#include <list>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

namespace qandor::faults {

struct Broken : std::runtime_error {
    using std::runtime_error::runtime_error;
};

inline void require(bool condition, const std::string &what)
{
    if (!condition)
        throw Broken(what);
}

// One subscription to everything, as its functions see it.
class Part {
public:
    static void receive_event(event *event, gpointer part);
    static void receive_notification(notification *notification, gpointer part);
    static void receive_secure_event(event *event, guint32 uid, gpointer part);

    bool has(const std::string &who, guint number) const;
    // How often a declaration was added, less how often it was removed.
    int known(const std::string &who) const;

    guint32 token = 0;
    bool lives = true;
    bool is_notified = false;
    std::map<std::string, int> announced;

private:
    std::map<std::string, std::set<guint>> received_;
};

// A declaration of the producer.
struct Topic {
    std::string who;
    bool is_property;
    guint32 id = 0;
    guint sent = 0; // the number of the last event
    bool lives = true;
};

} // namespace qandor::faults
