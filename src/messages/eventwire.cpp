// SPDX-License-Identifier: LGPL-2.1-or-later

// Events to and from bytes.

#include "messages/event.hpp"

#include "model/inspectablewire.hpp"
#include "model/serialize.hpp"
#include "platform/check.hpp"

#include <memory>

using namespace qandor;

namespace {

struct WrittenEvent {
    explicit WrittenEvent(const event &source)
        : source(source), user_data(source.user_data.blob()), seconds(source.seconds),
          microseconds(source.microseconds), global_id(source.global_id), local_id(source.local_id),
          producer_id(source.producer_id), property(source.property)
    {
    }
    WrittenInspectable inspectable() const { return WrittenInspectable(source.content); }

    const event &source;
    wire::Blob user_data;
    const glong seconds;
    const glong microseconds;
    const guint32 global_id;
    const guint32 local_id;
    const guint32 producer_id;
    const gint property;
};

struct ReadEvent {
    explicit ReadEvent(event &made)
        : made(made), seconds(made.seconds), microseconds(made.microseconds),
          global_id(made.global_id), local_id(made.local_id), producer_id(made.producer_id),
          property(made.property)
    {
    }
    ReadInspectable inspectable() { return ReadInspectable(made.content); }

    event &made;
    wire::Blob user_data;
    glong &seconds;
    glong &microseconds;
    guint32 &global_id;
    guint32 &local_id;
    guint32 &producer_id;
    gint &property;
};

} // namespace

// The road of every event: here what the grammar is made of is best laid out as one piece of code.
[[gnu::flatten]] void event_serialize_internal(const event *event, GArray *array)
{
    CHECK(event != NULL);
    CHECK(array != NULL);
    append_record(array, [&](auto &wire) { grammar::event(wire, WrittenEvent(*event)); });
}

GArray *event_serialize(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    GArray *array = serialize_create_array();
    event_serialize_internal(event, array);
    return array;
}

[[gnu::flatten]] event *event_deserialize_internal(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    CHECK(indx != NULL);
    wire::Reader reader(array, indx);
    auto made = std::make_unique<event>(inspectable::Unread());
    ReadEvent reading(*made);
    grammar::event(reader, reading);
    made->user_data.set(reading.user_data);
    return made.release();
}

event *event_deserialize(GArray *array)
{
    RETURN_VALUE_IF_FAIL(array != NULL, nullptr);
    guint indx = 0;
    return event_deserialize_internal(array, &indx);
}
