// SPDX-License-Identifier: LGPL-2.1-or-later

// What all client stubs have in common: building a method call and sending it.
#pragma once

#include "bus/callqueue.hpp"
#include "platform/owners.hpp"

#include <glib.h>

namespace qandor {

constexpr guint64 call_timeout_usec = 60 * G_USEC_PER_SEC;

struct Method {
    const char *destination;
    const char *path;
    const char *interface;
    const char *member;
};

struct Bytes {
    const guint8 *data;
    gsize length;
};

// Sends a call on a connection that has no window. The callback never runs when it cannot be sent.
void send_past_window(sd_bus *bus, sd_bus_message *message, sd_bus_message_handler_t callback,
                      void *userdata, not_sent_handler not_sent = nullptr);

// Hands a call that could not be sent to its handler, or warns where it has none.
void report_not_sent(sd_bus_message *message, int r, not_sent_handler not_sent, void *userdata);

// A call under construction. What cannot be built ends the process, in the name of the function
// that wanted to call.
class MethodCall {
public:
    MethodCall(sd_bus *bus, const Method &method, const char *function);

    template <class... Arguments> MethodCall &append(const char *types, Arguments... arguments)
    {
        check(sd_bus_message_append(message_.get(), types, arguments...));
        return *this;
    }
    MethodCall &append_bytes(const Bytes &bytes);

    // The bus does not start a service for it: it means nothing to one that is not running.
    MethodCall &without_starting();

    // Sends it through the connection's window, now or in its turn. The callback runs once, with
    // the answer or an error; not_sent runs in its place when the call could not be sent or the
    // connection ended while it waited.
    void send(sd_bus_message_handler_t callback, void *userdata,
              not_sent_handler not_sent = nullptr);
    // Sends it past the window, of which one call at a time leaves enough room, and waits.
    int send_and_wait(sd_bus_error *error, sd_bus_message **reply);
    // Gives away what has been built.
    BusMessageOwner message() && { return std::move(message_); }

private:
    void check(int r) const;

    sd_bus *bus_;
    const char *function_;
    BusMessageOwner message_;
    std::size_t size_;
};

} // namespace qandor
