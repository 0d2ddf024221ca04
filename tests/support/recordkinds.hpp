// SPDX-License-Identifier: LGPL-2.1-or-later

// Writing and reading of the records of every kind, behind one name each.
#pragma once

#include "support/records.hpp"

namespace qandor::test {

inline Owned<GArray> write(const event *record)
{
    return Owned<GArray>(event_serialize(record));
}
inline Owned<GArray> write(const event_declaration *record)
{
    return Owned<GArray>(event_declaration_serialize(record));
}
inline Owned<GArray> write(const subscribe_expression *record)
{
    return Owned<GArray>(subscribe_expression_serialize(record));
}
inline Owned<GArray> write(const property_state *record)
{
    return Owned<GArray>(property_state_serialize(record));
}
inline Owned<GArray> write(const notification *record)
{
    return Owned<GArray>(notification_serialize(record));
}
inline Owned<GArray> write(const inspectable *record)
{
    Owned<GArray> array(serialize_create_array());
    inspectable_serialize_internal(record, array.get());
    return array;
}
inline Owned<GArray> write(const key_value *record)
{
    Owned<GArray> array(serialize_create_array());
    key_value_serialize(record, array.get());
    return array;
}

inline void read(GArray *array, Owned<event> &record)
{
    record.reset(event_deserialize(array));
}
inline void read(GArray *array, Owned<event_declaration> &record)
{
    record.reset(event_declaration_deserialize(array));
}
inline void read(GArray *array, Owned<subscribe_expression> &record)
{
    record.reset(subscribe_expression_deserialize(array));
}
inline void read(GArray *array, Owned<property_state> &record)
{
    record.reset(property_state_deserialize(array));
}
inline void read(GArray *array, Owned<notification> &record)
{
    record.reset(notification_deserialize(array));
}
inline void read(GArray *array, Owned<inspectable> &record)
{
    guint indx = 0;
    record.reset(inspectable_deserialize_internal(array, &indx));
}
inline void read(GArray *array, Owned<key_value> &record)
{
    guint indx = 0;
    record.reset(key_value_deserialize(array, &indx));
}

} // namespace qandor::test
