// SPDX-License-Identifier: LGPL-2.1-or-later

// The subscriptions that the switch has forwarded for one declaration, in the order in which they
// came. A few are looked at one by one for each event; among many an index finds those it
// satisfies, and a table those of an id.
#pragma once

#include "messages/event.hpp"
#include "messages/subscribeexpression.hpp"
#include "model/expressionindex.hpp"

#include <map>
#include <memory>
#include <vector>

namespace qandor {

class ForwardedSubscriptions {
public:
    void add(std::unique_ptr<subscribe_expression> subscription);
    // Takes back the first one of the id, if there is one.
    void remove(guint32 id);
    void clear();

    // The first one of the id, or NULL.
    const subscribe_expression *find(guint32 id);
    // Whether somebody has subscribed who is to be seen.
    bool has_visible() const { return visible_ > 0; }

    // Visits all, in their order.
    template <class Visit> void for_each(const Visit &visit) const
    {
        for (const Filed &filed : filed_)
            if (filed.subscription)
                visit(*filed.subscription);
    }

    // Visits those that the event satisfies.
    template <class Visit> void for_each_satisfied(const event &event, const Visit &visit)
    {
        if (index_) {
            index_->find(event.content, matches_);
            for (const Match &match : matches_)
                visit(*at(match.id));
            return;
        }
        for (const Filed &filed : filed_)
            if (filed.subscription &&
                inspectable_contains(&event.content, &filed.subscription->content))
                visit(*filed.subscription);
    }

private:
    // The switch gives ids, which come as they come; in the index each has a number of its own.
    struct Filed {
        guint32 number;
        guint32 id;
        // NULL when it has been taken back.
        std::unique_ptr<subscribe_expression> subscription;
    };
    using Place = std::vector<Filed>::iterator;

    Place first_of(guint32 id);
    Place place_of(guint32 number);
    const subscribe_expression *at(guint32 number) { return place_of(number)->subscription.get(); }
    void begin_index();
    void drop(Place gone);

    std::vector<Filed> filed_;                // by number
    std::size_t gone_ = 0;                    // of them
    std::multimap<guint32, guint32> numbers_; // by id, once there is an index
    guint32 last_number_ = 0;
    std::size_t visible_ = 0;
    std::unique_ptr<ExpressionIndex> index_;
    Matches matches_;
};

} // namespace qandor
