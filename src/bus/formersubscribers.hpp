// SPDX-License-Identifier: LGPL-2.1-or-later

// Those who had subscribed to a declaration when the switch went, until it has announced them anew.
//
// Producers declare and consumers subscribe in any order when the switch returns: a declaration may
// be complete before all of its subscribers are back. What is delivered meanwhile is kept for those
// that are still to come, for a second after the completion. The switch may go again meanwhile:
// each of them has missed only what was kept since it was remembered.
#pragma once

#include "bus/forwardedsubscriptions.hpp"
#include "bus/heldevents.hpp"

#include <optional>
#include <string>
#include <vector>

namespace qandor {

class FormerSubscribers {
public:
    bool empty() const { return former_.empty(); }

    // The switch has gone, with these subscriptions.
    void remember(const ForwardedSubscriptions &subscriptions);
    // The bus has gone: they will have other names on the next one.
    void forget_names();
    // The declaration is complete: they are waited for a while from now on.
    void wait();
    gint64 deadline() const { return deadline_; }

    // Keeps an event for those that are not back yet.
    void keep(const event &event, const std::shared_ptr<Backlog> &backlog);
    // When this is one of them, it is back: calls visit(event) for each of the events that it has
    // missed.
    template <class Visit>
    void welcome(const subscribe_expression &subscription, const Visit &visit)
    {
        if (std::optional<std::size_t> missed = take_back(subscription))
            kept_.for_each_from(*missed, visit);
    }
    // Waits no longer. Returns the number of events that have been missed.
    guint give_up();

private:
    struct Former {
        std::string name; // on the bus; empty when it is not known
        std::string path;
        guint32 token;
        std::size_t missed; // the place of the first kept event that it may have missed

        bool is(const subscribe_expression &subscription) const;
    };

    bool knows(const subscribe_expression &subscription) const;
    std::optional<std::size_t> take_back(const subscribe_expression &subscription);

    std::vector<Former> former_;
    HeldEvents kept_;
    guint dropped_ = 0; // because too much waits
    gint64 deadline_ = G_MAXINT64;
};

} // namespace qandor
