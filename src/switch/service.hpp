// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch on the bus: its objects with their interfaces, and the way of a call through it.
//
//     bus -> Senders -> Turns -> Methods -> Request -> Book -> Jobs -> Outbox -> bus
//            who is     whose    what is    checked,   the     whom    in its
//            it?        turn?    called?    answered   books   to tell turn
//
// Nothing in between waits for anybody: what cannot go on stands in a queue of its user's, which is
// bounded. Every call is checked before anything changes, and answered before anybody else is told.
#pragma once

#include "switch/book.hpp"
#include "switch/buspost.hpp"
#include "switch/configuration.hpp"
#include "switch/jobs.hpp"
#include "switch/memoryreturn.hpp"
#include "switch/methods.hpp"
#include "switch/monitor.hpp"
#include "switch/outbox.hpp"
#include "switch/propertyquestions.hpp"
#include "switch/replies.hpp"
#include "switch/rollcall.hpp"
#include "switch/rounds.hpp"
#include "switch/senders.hpp"
#include "switch/turns.hpp"
#include "switch/typechanges.hpp"
#include "switch/typefolders.hpp"

#include <systemd/sd-bus.h>

namespace qandor {

class Service {
public:
    Service(sd_bus *bus, const Configuration &configuration);
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Serves everything; the name is not requested yet. A negative errno on failure.
    int serve();

    // From now on; what is kept already stays.
    void configure(const Configuration &configuration);

    Counts counts() const;

    // A name has left the bus.
    void forget(const std::string &name);

    sd_bus *bus;
    Accounts accounts;
    Methods methods;
    Senders senders;
    Outbox outbox;
    Replies replies;
    Jobs jobs;
    BusPost post;
    Book book;
    PropertyQuestions questions;
    TypeFolders folders;
    TypeChanges type_changes;
    Turns turns;
    Rounds rounds;
    RollCall roll_call;
    MemoryReturn memory_return;
    Monitor monitor;

private:
    static int receive(sd_bus_message *message, void *service, sd_bus_error *);

    void take(sd_bus_message *call, guint32 uid);
    void handle(sd_bus_message *call, guint32 uid);
    bool step();
    bool has_waiting() const;
    void look_again();
    void drop_lost();
};

// The methods of each interface.
extern const sd_bus_vtable producer_vtable[];
extern const sd_bus_vtable consumer_vtable[];
extern const sd_bus_vtable query_vtable[];

} // namespace qandor
