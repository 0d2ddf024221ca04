// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch on the bus: its objects with their interfaces, and what each call does. Every call is
// checked before anything changes, and answered before anybody else is told.
#pragma once

#include "switch/book.hpp"
#include "switch/buspost.hpp"
#include "switch/propertyquestions.hpp"
#include "switch/typefolders.hpp"

#include <systemd/sd-bus.h>

namespace qandor {

class Service {
public:
    Service(sd_bus *bus, TypeFolders folders)
        : bus(bus), post(bus), book(post), questions(bus, book), folders(std::move(folders))
    {
    }
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Serves everything; the name is not requested yet. A negative errno on failure.
    int serve();

    sd_bus *bus;
    BusPost post;
    Book book;
    PropertyQuestions questions;
    TypeFolders folders;
};

// The methods of each interface.
extern const sd_bus_vtable producer_vtable[];
extern const sd_bus_vtable consumer_vtable[];
extern const sd_bus_vtable query_vtable[];

} // namespace qandor
