// SPDX-License-Identifier: LGPL-2.1-or-later

// The methods that the switch serves, by object and interface. The switch calls them itself when a
// call's turn has come: sd-bus would handle each call at once, and answer past the outbox. So the
// standard interfaces, Introspectable and Properties, are here too.
#pragma once

#include <systemd/sd-bus.h>

#include <string>
#include <variant>
#include <vector>

namespace qandor {

struct ServedInterface {
    const char *object;
    const char *name;
    const sd_bus_vtable *vtable;
};

// Why a call is none of the methods.
struct CallFault {
    const char *error;
    std::string text;
};

class Methods {
public:
    void add(const ServedInterface &served) { served_.push_back(served); }

    // What handles the call, with the userdata that all methods share; or what is wrong with it.
    std::variant<sd_bus_message_handler_t, CallFault> find(sd_bus_message *call) const;

    // The XML of an object, or of a folder above objects; empty for any other path.
    std::string introspect(const std::string &path) const;
    // The property of an interface; NULL when there is none.
    const sd_bus_vtable *find_property(const char *object, const char *interface,
                                       const char *name) const;
    // The properties of an interface, or of all with the empty name.
    std::vector<const sd_bus_vtable *> properties(const char *object, const char *interface) const;

private:
    bool has_object(const std::string &path) const;

    std::vector<ServedInterface> served_;
};

// The standard interfaces, for every object.
extern const sd_bus_vtable peer_vtable[];
extern const sd_bus_vtable introspectable_vtable[];
extern const sd_bus_vtable properties_vtable[];

} // namespace qandor
