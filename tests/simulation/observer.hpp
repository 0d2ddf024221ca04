// SPDX-License-Identifier: LGPL-2.1-or-later

// The invariants: what every subscription has been told is held against what has been declared and
// sent. A broken one throws, with the sentence that was broken.
//
// Always: events reach a subscription that lives and wants them; in the order in which they were
// sent; a plain event once, and a property's state never after a newer one.
// When all has come to rest: each subscription knows each declaration that concerns it, and the
// last state of each property that does. What was sent while nothing failed (see is_calm()) has
// reached every subscription that had come to rest before.
#pragma once

#include "simulation/wanted.hpp"

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace qandor::simulation {

struct DeclaredTopic {
    Values values;
    bool is_property = false;
    bool lives = true;
    bool is_settled = false;
    guint last_sent = 0;  // the number of the last event that was accepted
    Values last_values{}; // of that one
};

class SubscribedPart;

class Observer {
public:
    DeclaredTopic &declare(bool is_property, const std::string &b);
    SubscribedPart &subscribe(Wanted wanted);

    // An event of the topic is about to be sent, and has been accepted.
    void accepted(DeclaredTopic &topic, const Values &values);
    // Something failed: a process or a connection went, and what was under way with it.
    void fail();
    // Nothing has to arrive any more of what the topic's events have said.
    void forget_expected(const DeclaredTopic &topic);
    // What has been sent must have arrived by now, except at the excused.
    void check_arrived(const std::set<const SubscribedPart *> &excused);
    // All has come to rest: everything must be as it should be.
    void settled();

    std::vector<std::string> names() const;
    bool is_calm() const { return is_calm_; }
    DeclaredTopic &find(const std::string &who) const;

    guint64 deliveries = 0; // of events

private:
    void check_announced(SubscribedPart &part) const;
    void check_states(const SubscribedPart &part) const;

    std::map<std::string, std::unique_ptr<DeclaredTopic>> topics_;
    std::list<SubscribedPart> parts_;
    bool is_calm_ = true;
};

// One subscription, as its functions see it.
class SubscribedPart {
public:
    SubscribedPart(Observer &observer, guint number, Wanted wanted)
        : wanted(std::move(wanted)), observer_(observer), number_(number)
    {
    }
    SubscribedPart(const SubscribedPart &) = delete;
    SubscribedPart &operator=(const SubscribedPart &) = delete;

    static void receive_event(event *event, gpointer part);
    static void receive_notification(notification *notification, gpointer part);

    const Wanted wanted;
    bool lives = true;
    bool is_settled = false;

private:
    friend class Observer;

    void take(DeclaredTopic &topic, guint number, const Values &values);
    void require(bool condition, const DeclaredTopic &topic, const std::string &what) const;

    Observer &observer_;
    guint number_;
    std::map<std::string, std::set<guint>> received_; // numbers of events, by declaration
    std::map<std::string, std::set<guint>> expected_;
    std::map<std::string, int> announced_; // added, less removed
};

// A sentence that does not hold.
struct BrokenInvariant {
    std::string text;
};

} // namespace qandor::simulation
