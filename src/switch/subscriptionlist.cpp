// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/subscriptionlist.hpp"

#include <qandor/cpp/expressiontext.hpp>

namespace qandor {

Job::Progress SubscriptionList::step()
{
    auto next = book_.subscriptions().lower_bound(next_id_);
    if (next != book_.subscriptions().end()) {
        next_id_ = next->first + 1;
        Row row = row_of(*next->second);
        std::size_t texts = row.consumer.name.size() + row.consumer.object.size() + row.text.size();
        if (room_.take(texts, row.matching.size())) {
            rows_->push_back(std::move(row));
            return Progress::More;
        }
    }
    answer();
    return Progress::Done;
}

SubscriptionList::Row SubscriptionList::row_of(const Subscription &subscription) const
{
    const subscribe_expression *expression = subscription.record.get();
    Row row{subscription.id,
            subscription.consumer,
            subscription.token,
            subscribe_expression_get_clandestine(expression) != FALSE,
            to_text(expression_of(expression)),
            {}};
    for (const Declaration *declaration : book_.find_declarations(expression))
        row.matching.push_back(declaration->global_id);
    return row;
}

void SubscriptionList::answer()
{
    replies_.answer_later(call_.get(), room_.taken(),
                          [rows = rows_, bytes = room_.taken()](sd_bus_message *reply) -> gint64 {
                              int r = append_all(reply, *rows);
                              return r < 0 ? r : static_cast<gint64>(bytes);
                          });
}

int SubscriptionList::append_all(sd_bus_message *reply, const Rows &rows)
{
    int r = sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, "(ussubsau)");
    for (auto row = rows.begin(); r >= 0 && row != rows.end(); ++row)
        r = append(reply, *row);
    return r < 0 ? r : sd_bus_message_close_container(reply);
}

int SubscriptionList::append(sd_bus_message *reply, const Row &row)
{
    int r = sd_bus_message_open_container(reply, SD_BUS_TYPE_STRUCT, "ussubsau");
    if (r >= 0)
        r = sd_bus_message_append(reply, "ussubs", row.id, row.consumer.name.c_str(),
                                  row.consumer.object.c_str(), row.token, row.clandestine,
                                  row.text.c_str());
    if (r >= 0)
        r = append_ids(reply, row.matching);
    return r < 0 ? r : sd_bus_message_close_container(reply);
}

} // namespace qandor
