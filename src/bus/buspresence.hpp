// SPDX-License-Identifier: LGPL-2.1-or-later

// What producers and consumers have in common: a name, an object on a connection of their own, and
// an eye on the event switch.
#pragma once

#include "bus/retrytimer.hpp"
#include "platform/backlog.hpp"
#include "platform/owners.hpp"

#include <qandor/busconnection.h>

#include <glib-object.h>

#include <string>

namespace qandor {

// Answers to calls that nobody waits for: what came of them shows in what the switch does next.
int ignore_answer(sd_bus_message *reply, void *userdata, sd_bus_error *error);

// The connection of an instance, from the first one to the last:
//
//     connect, serve, watch --> up --(the bus hangs up: lost)--> lose --> pause --> connect_again
//              |                                                            ^
//              +--------(a step fails)--> connect_later --------------------+
//
// The pauses grow from 0.1 s to 5 s, until a connection is up.
class BusPresence {
public:
    // What an instance does about its connection. All of them run on the connection's thread,
    // without its lock.
    struct Owner {
        const char *kind; // as it is called in messages
        gpointer instance;
        void (*online)(gpointer instance);        // the switch has come
        void (*offline)(gpointer instance);       // the switch has gone
        void (*lost)(gpointer instance);          // the connection has ended; calls lose()
        void (*connect_again)(gpointer instance); // a pause is over
    };

    explicit BusPresence(const Owner &owner)
        : owner_(owner), watcher_{owner.online, owner.offline, owner.instance},
          timer_(shortest_pause_msec, longest_pause_msec, owner.connect_again, owner.instance)
    {
    }
    BusPresence(const BusPresence &) = delete;
    BusPresence &operator=(const BusPresence &) = delete;
    ~BusPresence() { disconnect(); }

    // Each returns a negative errno on failure. A connection that is left from before is closed.
    int connect(GError **error);
    int serve(const char *interface, const sd_bus_vtable *vtable);
    int watch();

    // Lets go of a connection that has ended, says so and connects again later.
    void lose();
    // After a step has failed: what there is of a connection is let go, so that nothing is sent
    // over it that would have to be sent again over the next one.
    void connect_later();
    // Whether there was a connection and there will be one again: until then nothing is sent.
    bool is_lost() const { return !bus && was_up_; }

    void disconnect();

    sd_bus *bus = nullptr;
    std::string object;
    std::string name;
    std::shared_ptr<Backlog> backlog; // of the handle that the instance belongs to, if it has one

private:
    static constexpr guint shortest_pause_msec = 100;
    static constexpr guint longest_pause_msec = 5000;

    static int receive_disconnected(sd_bus_message *message, void *self, sd_bus_error *error);
    void close();

    Owner owner_;
    MainSourceOwner source_; // GLib drops its own reference when the event loop ends
    bus_driver_watcher watcher_;
    bool was_up_ = false;
    RetryTimer timer_;
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

} // namespace qandor
