// SPDX-License-Identifier: LGPL-2.1-or-later

#include "api/eventcommand.hpp"

#include "bus/errors.hpp"

#include <cerrno>

namespace qandor {

void EventCommand::fill(event_producer *producer, event *sent, event *copied,
                        event_producer_sent_callback sent_callback, gpointer data)
{
    handle = producer;
    original = sent;
    copy.reset(copied);
    local_id = copied ? copied->local_id : 0;
    callback = sent_callback;
    user_data = data;
}

std::size_t EventCommand::size() const
{
    std::size_t size = plain_size;
    if (!copy)
        return size;
    size += sizeof(event) + copy->user_data.blob().size;
    if (const AndList *values = copy->content.current())
        for (Bucket bucket : values->keyed())
            size += sizeof(key_value) + sizeof(BucketPlace) + bucket.first().value.capacity();
    return size;
}

DropClass EventCommand::drop_class() const
{
    if (!copy || error)
        return {};
    if (!copy->property)
        return {Droppable::Event, {}};
    return {Droppable::State, std::to_string(local_id)};
}

bool EventCommand::drop()
{
    copy.reset();
    error.reset(new_bus_error(-ENOBUFS, "The event was dropped: too much is waiting"));
    return callback != nullptr;
}

void EventCommand::tell()
{
    if (callback)
        callback(local_id, original, user_data, error.release());
}

} // namespace qandor
