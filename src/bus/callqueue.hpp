// SPDX-License-Identifier: LGPL-2.1-or-later

// The calls that wait for one destination, in order, and what may go when too many wait.
#pragma once

#include "bus/eventcall.hpp"
#include "platform/owners.hpp"

#include <list>
#include <string>
#include <unordered_map>
#include <variant>

namespace qandor {

// Runs in the place of a call's callback when the call could not be sent: with a negative errno, on
// the connection's thread, possibly before the function that was to send it returns. A call without
// one is told by a warning.
using not_sent_handler = void (*)(void *userdata, int error);

struct QueuedCall {
    std::variant<BusMessageOwner, EventCall> content;
    sd_bus_message_handler_t callback;
    void *userdata;
    std::size_t size; // bytes that it takes, about
    not_sent_handler not_sent = nullptr;

    // The event that it delivers, if it does.
    const EventCall *event() const { return std::get_if<EventCall>(&content); }
};

class CallQueue {
public:
    bool empty() const { return calls_.empty(); }
    std::size_t bytes() const { return bytes_; }

    void push(QueuedCall call);
    QueuedCall pop();

    // Drops the oldest state of a property for which a newer one waits; whether there was one.
    bool drop_superseded_state();
    // Drops the oldest plain event; whether there was one.
    bool drop_oldest_event();

private:
    struct Entry;
    using Place = std::list<Entry>::iterator;
    using Places = std::list<Place>;

    struct Entry {
        QueuedCall call;
        bool superseded = false;
        Places::iterator among_droppable{}; // of plain events and of superseded states
    };

    static bool is_state(const QueuedCall &call)
    {
        return call.event() && call.event()->is_property;
    }
    static std::string property_of(const EventCall &event);
    void supersede(Place place);
    void erase(Place place);

    std::list<Entry> calls_;
    std::size_t bytes_ = 0;
    Places events_; // in the order of the queue
    Places superseded_;
    std::unordered_map<std::string, Place> newest_states_;
};

// Tells about dropped calls, not too often.
class DropReport {
public:
    void count_dropped_event(const char *destination);
    void count_superseded_state(const char *destination);
    void tell();

private:
    guint events_ = 0;
    guint states_ = 0;
    std::string destination_;
    gint64 told_at_ = 0;
};

} // namespace qandor
