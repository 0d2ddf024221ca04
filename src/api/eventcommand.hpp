// SPDX-License-Identifier: LGPL-2.1-or-later

// A command that delivers an event. It owns the copy that it delivers, and may be dropped when too
// much waits; its callback, if it has one, is told of that in its turn.
#pragma once

#include "api/eventproducer.hpp"
#include "platform/owners.hpp"

namespace qandor {

struct EventCommand : Command {
    void fill(event_producer *producer, event *sent, event *copied,
              event_producer_sent_callback sent_callback, gpointer data);

    std::size_t size() const override;
    DropClass drop_class() const override;
    bool drop() override;

    // Calls the callback with the error, if there are such.
    void tell();

    event_producer *handle = nullptr;
    event *original = nullptr; // for the callback to recognize, perhaps gone by now
    std::unique_ptr<event> copy;
    guint32 local_id = 0;
    event_producer_sent_callback callback = nullptr;
    gpointer user_data = nullptr;
    ErrorOwner error;
};

} // namespace qandor
