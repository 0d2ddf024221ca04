// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch on the bus: its objects with their interfaces, and what each call does. Every call is
// checked before anything changes, and answered before anybody else is told.
#pragma once

#include "switch/book.hpp"
#include "switch/buspost.hpp"
#include "switch/configuration.hpp"
#include "switch/memoryreturn.hpp"
#include "switch/monitor.hpp"
#include "switch/outbox.hpp"
#include "switch/propertyquestions.hpp"
#include "switch/senders.hpp"
#include "switch/turns.hpp"
#include "switch/typechanges.hpp"
#include "switch/typefolders.hpp"

#include <systemd/sd-bus.h>

namespace qandor {

class Service {
public:
    Service(sd_bus *bus, const Configuration &configuration)
        : bus(bus), accounts(configuration.limits), outbox(bus), turns(outbox, accounts),
          post(bus, outbox), book(post, accounts), questions(bus, outbox, post, book, accounts),
          folders(configuration.types_read_only, configuration.types_writable),
          type_changes(folders), monitor(*this), memory_return([this] {
              return accounts.total().stored_bytes + accounts.total().waiting_bytes;
          })
    {
    }
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Serves everything; the name is not requested yet. A negative errno on failure.
    int serve();

    // From now on; what is kept already stays.
    void configure(const Configuration &configuration);

    Counts counts() const;

    // Handles a call when its user's turn has come.
    int take(sd_bus_message *call, sd_bus_message_handler_t handle);

    sd_bus *bus;
    Accounts accounts;
    Senders senders;
    Outbox outbox;
    Turns turns;
    BusPost post;
    Book book;
    PropertyQuestions questions;
    TypeFolders folders;
    TypeChanges type_changes;
    Monitor monitor;
    MemoryReturn memory_return;
};

// A method of the service as sd-bus calls it, in turn.
template <sd_bus_message_handler_t handle>
int in_turn(sd_bus_message *call, void *service, sd_bus_error *)
{
    return static_cast<Service *>(service)->take(call, handle);
}

// The methods of each interface.
extern const sd_bus_vtable producer_vtable[];
extern const sd_bus_vtable consumer_vtable[];
extern const sd_bus_vtable query_vtable[];

} // namespace qandor
