// SPDX-License-Identifier: LGPL-2.1-or-later

// Inspectables to and from bytes.

#include "model/inspectablewire.hpp"

#include "model/serialize.hpp"

using namespace qandor;

void ReadBuckets::check(const key_value &key_value, Bucket bucket) const
{
    CHECK_TEXT(wildcard == (key_value.key_wildcard != FALSE),
               wildcard ? "key_value->key_wildcard == TRUE" : "key_value->key_wildcard == FALSE");
    if (wildcard && bucket)
        CHECK_TEXT(bucket.first().value == key_value.value, "bucket->value == key_value->value");
}

void ReadInspectable::begin()
{
    guint32 itype = type;
    CHECK(itype == IT_EVENT_DECLARATION || itype == IT_EVENT || itype == IT_PROPERTY_STATE ||
          itype == IT_SUBSCRIBE_EXPRESSION);
    made.type = itype;
    made.and_lists.clear();
    made.has_positions = itype == IT_EVENT || itype == IT_PROPERTY_STATE;
}

void inspectable_serialize_internal(const inspectable *inspect, GArray *array)
{
    CHECK(inspect != NULL);
    CHECK(array != NULL);
    append_record(array,
                  [&](auto &wire) { grammar::inspectable(wire, WrittenInspectable(*inspect)); });
}

inspectable *inspectable_deserialize_internal(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    CHECK(indx != NULL);
    wire::Reader reader(array, indx);
    auto made = std::make_unique<inspectable>(inspectable::Unread());
    ReadInspectable reading(*made);
    grammar::inspectable(reader, reading);
    return made.release();
}
