// SPDX-License-Identifier: LGPL-2.1-or-later

// What is to be sent, in the order in which it has come about. It goes out as fast as the bus takes
// it, and is only made then, so that what waits costs little, however large it will be. Whose call
// has caused what waits is known: nobody is to cause more before it has gone out.
//
// Peers who do not read make the bus keep what they are told, and when it keeps too much of the
// switch's it reads nothing more from it, for ever. Then the event loop ends: all comes back to a
// new switch, on a connection of its own.
#pragma once

#include "platform/owners.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <glib.h>

#include <deque>
#include <functional>
#include <unordered_map>
#include <utility>

namespace qandor {

class Outbox {
public:
    using Send = std::function<void()>;

    explicit Outbox(sd_bus *bus) : bus_(bus) {}
    Outbox(const Outbox &) = delete;
    Outbox &operator=(const Outbox &) = delete;

    // From now on the event loop ends when the bus has not taken for long what waits. A negative
    // errno on failure.
    int watch(sd_event *event);

    // Sends at once when nothing waits and the bus takes it, in its turn else. Without a function
    // it stands for what has been sent directly before.
    void add(Send send);
    // Whether something that the user has caused has not gone out yet.
    bool holds(guint32 uid) const { return waiting_.contains(uid); }

    // Sends what has waited longest; false when there is nothing, or the bus does not take it.
    bool send_next();
    // The event loop has had its turn: for a while everything may go out at once again.
    void begin_round() { left_in_round_ = most_in_round; }

    // What is added while this lives is caused by the user.
    class Cause {
    public:
        Cause(Outbox &outbox, guint32 uid)
            : outbox_(outbox), before_(std::exchange(outbox.cause_, uid))
        {
        }
        Cause(const Cause &) = delete;
        Cause &operator=(const Cause &) = delete;
        ~Cause() { outbox_.cause_ = before_; }

    private:
        Outbox &outbox_;
        guint32 before_;
    };

    // So much goes out, or is done, before the event loop sees to others.
    static constexpr guint most_in_round = 64;

private:
    struct Item {
        guint32 uid;
        Send send;
    };

    static int look_for_progress(sd_event_source *, uint64_t, void *outbox);

    void look_later();
    bool bus_takes_more();

    sd_bus *bus_;
    std::deque<Item> items_;
    std::unordered_map<guint32, std::size_t> waiting_; // items by user id
    guint32 cause_ = G_MAXUINT32;                      // nobody
    guint left_in_round_ = most_in_round;
    guint64 taken_ = 0; // how often the bus took more
    guint64 taken_at_last_look_ = 0;
    EventTimerOwner look_;
};

} // namespace qandor
