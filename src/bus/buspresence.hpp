// SPDX-License-Identifier: LGPL-2.1-or-later

// What producers and consumers have in common: a name, an object on a connection of their own, and
// an eye on the event switch.
#pragma once

#include "platform/backlog.hpp"
#include "platform/owners.hpp"

#include <qandor/busconnection.h>

#include <glib-object.h>

#include <string>

namespace qandor {

// Answers to calls that nobody waits for: what came of them shows in what the switch does next.
int ignore_answer(sd_bus_message *reply, void *userdata, sd_bus_error *error);

class BusPresence {
public:
    BusPresence() = default;
    BusPresence(const BusPresence &) = delete;
    BusPresence &operator=(const BusPresence &) = delete;
    ~BusPresence() { disconnect(); }

    // Each returns a negative errno on failure.
    int connect(GError **error);
    int serve(const char *interface, const sd_bus_vtable *vtable, void *instance);
    int watch(void (*online)(gpointer), void (*offline)(gpointer), void *instance);

    void disconnect();

    sd_bus *bus = nullptr;
    std::string object;
    std::string name;
    std::shared_ptr<Backlog> backlog; // of the handle that the instance belongs to, if it has one

private:
    GSource *source_ = nullptr;
    bus_driver_watcher watcher_ = {};
};

// Keeps an instance while the application's functions run, which may free the handle it belongs to
// and iterate the main context until that has happened.
class KeepAlive {
public:
    explicit KeepAlive(void *instance) : instance_(g_object_ref(instance)) {}
    KeepAlive(const KeepAlive &) = delete;
    KeepAlive &operator=(const KeepAlive &) = delete;
    ~KeepAlive() { g_object_unref(instance_); }

private:
    gpointer instance_;
};

// Whether an answer says that there was nobody to take the call.
bool was_not_delivered(sd_bus_message *reply);

} // namespace qandor
