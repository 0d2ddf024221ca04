// SPDX-License-Identifier: LGPL-2.1-or-later

// Key-values to and from bytes.

#include "model/keyvaluewire.hpp"

#include "model/serialize.hpp"
#include "platform/check.hpp"

using namespace qandor;

void key_value_serialize(const key_value *key_value, GArray *array)
{
    CHECK(key_value != NULL);
    CHECK(array != NULL);
    append_record(array,
                  [&](auto &wire) { grammar::key_value(wire, WrittenKeyValue(*key_value)); });
}

key_value *key_value_deserialize(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    CHECK(indx != NULL);
    wire::Reader reader(array, indx);
    Attributes::Maker attributes;
    ReadKeyValue reading(attributes, nullptr);
    grammar::key_value(reader, reading);
    return reading.made;
}
