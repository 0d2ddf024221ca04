// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch on the bus: its objects with their interfaces, and what each call does. Every call is
// checked before anything changes, and answered before anybody else is told.
#pragma once

#include "switch/book.hpp"
#include "switch/buspost.hpp"
#include "switch/configuration.hpp"
#include "switch/monitor.hpp"
#include "switch/propertyquestions.hpp"
#include "switch/senders.hpp"
#include "switch/typefolders.hpp"

#include <systemd/sd-bus.h>

namespace qandor {

class Service {
public:
    Service(sd_bus *bus, const Configuration &configuration)
        : bus(bus), accounts(configuration.limits), post(bus), book(post, accounts),
          questions(bus, book, accounts),
          folders(configuration.types_read_only, configuration.types_writable), monitor(*this)
    {
    }
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Serves everything; the name is not requested yet. A negative errno on failure.
    int serve();

    // From now on; what is kept already stays.
    void configure(const Configuration &configuration);

    sd_bus *bus;
    Accounts accounts;
    Senders senders;
    BusPost post;
    Book book;
    PropertyQuestions questions;
    TypeFolders folders;
    Monitor monitor;
};

// The methods of each interface.
extern const sd_bus_vtable producer_vtable[];
extern const sd_bus_vtable consumer_vtable[];
extern const sd_bus_vtable query_vtable[];

} // namespace qandor
