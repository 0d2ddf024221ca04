// SPDX-License-Identifier: LGPL-2.1-or-later

// Plain events that wait while the switch returns.
//
//     switch goes      GlobalDeclareId    Subscribe, ...    DeclarationComplete
//     ----|------------------|------------------------------------|------------> time
//         |    refused       |   accepted, wait here              | delivered, in order
//
// Between the global id and the completion the switch forwards the subscriptions: an event that was
// delivered in between would miss those that are still to come. What was accepted before the switch
// went and was not yet delivered waits as well. No event waits longer than a second.
#pragma once

#include "messages/event.hpp"
#include "platform/backlog.hpp"

#include <deque>
#include <memory>

namespace qandor {

struct HeldEvent {
    std::unique_ptr<event> content;
    BacklogPart charge; // for the bytes that it takes, about
    gint64 deadline;
};

class HeldEvents {
public:
    bool empty() const { return events_.empty(); }
    std::size_t size() const { return events_.size(); }
    const HeldEvent &first() const { return events_.front(); }

    void push(const event &event, const std::shared_ptr<Backlog> &backlog);
    HeldEvent pop();
    // Visits those from a place on.
    template <class Visit> void for_each_from(std::size_t place, const Visit &visit) const
    {
        for (; place < events_.size(); ++place)
            visit(*events_[place].content);
    }
    // Takes out those of one declaration.
    std::deque<HeldEvent> take(guint32 local_id);

private:
    std::deque<HeldEvent> events_;
};

} // namespace qandor
