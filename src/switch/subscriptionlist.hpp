// SPDX-License-Identifier: LGPL-2.1-or-later

// The answer to ListSubscriptions, made a row a step: each row has the ids of all declarations that
// match.
#pragma once

#include "switch/book.hpp"
#include "switch/jobs.hpp"
#include "switch/listroom.hpp"
#include "switch/replies.hpp"

namespace qandor {

class SubscriptionList : public Job {
public:
    SubscriptionList(const Book &book, Replies &replies, sd_bus_message *call)
        : book_(book), replies_(replies), call_(sd_bus_message_ref(call)),
          rows_(std::make_shared<Rows>())
    {
    }
    Progress step() override;

private:
    struct Row {
        guint32 id;
        PeerAddress consumer;
        guint32 token;
        bool clandestine;
        std::string text;
        std::vector<guint32> matching;
    };
    using Rows = std::vector<Row>;

    static int append(sd_bus_message *reply, const Row &row);
    static int append_all(sd_bus_message *reply, const Rows &rows);
    Row row_of(const Subscription &subscription) const;
    void answer();

    const Book &book_;
    Replies &replies_;
    BusMessageOwner call_;
    guint32 next_id_ = 0;
    ListRoom room_;
    std::shared_ptr<Rows> rows_; // until the answer has gone out
};

} // namespace qandor
