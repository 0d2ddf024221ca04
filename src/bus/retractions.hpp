// SPDX-License-Identifier: LGPL-2.1-or-later

// What the switch is to forget: the calls that say so are sent again while the bus refuses them,
// until the switch has them. A switch or a connection that has gone has forgotten by itself.
#pragma once

#include "bus/announcement.hpp"
#include "bus/methodcall.hpp"
#include "bus/retrytimer.hpp"
#include "bus/sendtickets.hpp"
#include "platform/owners.hpp"

#include <systemd/sd-bus.h>

#include <map>

namespace qandor {

class Retractions {
public:
    // How an instance does it. All of this runs with its lock.
    struct Owner {
        RecursiveMutex &lock;
        gpointer instance;
        const char *method;                                // in full
        MethodCall (*call)(gpointer instance, guint32 id); // that makes the switch forget the id
        void (*done)(gpointer instance);                   // an id is free for use again
        bool ids_are_own;                                  // and not the switch's
    };

    explicit Retractions(const Owner &owner);
    Retractions(const Retractions &) = delete;
    Retractions &operator=(const Retractions &) = delete;

    // Sends the call.
    void add(guint32 id);
    // Whether the switch may not have forgotten it yet.
    bool contains(guint32 id) const { return ids_.find(id) != ids_.end(); }
    // The switch has gone. A call that is under way with an id of our own may yet reach the next
    // one, or be refused on the way to it: what it is about may have been told to that one already,
    // before we heard that the switch had changed.
    void forget();
    // The same; and the calls under way have ended with the connection.
    void lose_bus();

private:
    using Ticket = SendTickets<Retractions>::Ticket;

    static int receive_answer(sd_bus_message *answer, void *ticket, sd_bus_error *error);
    static void receive_not_sent(void *ticket, int error);
    static void send_refused(gpointer self);
    void reset();
    static void settle(const Ticket *ticket, const AnnouncementResult &result);

    static constexpr guint shortest_pause_msec = 250;
    static constexpr guint longest_pause_msec = 10000;
    static constexpr guint64 refused = 0; // in the place of a sending's number

    const Owner owner_;
    std::map<guint32, guint64> ids_; // with the number of the sending that is under way
    SendTickets<Retractions> tickets_;
    bool told_ = false; // that the bus refuses
    RetryTimer timer_;
};

} // namespace qandor
