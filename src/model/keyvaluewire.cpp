// SPDX-License-Identifier: LGPL-2.1-or-later

// Key-values to and from bytes.

#include "model/keyvaluewire.hpp"

#include "model/serialize.hpp"
#include "platform/check.hpp"

using namespace qandor;

// A key wildcard comes back without a key and a value wildcard without a value, as when it is made.
void ReadKeyValue::make()
{
    bool both = fields.key_wildcard == TRUE && fields.value_wildcard == TRUE;
    CHECK_TEXT(!both, "key_value != NULL");
    CHECK_TEXT(fields.key_wildcard == FALSE || fields.value_wildcard == FALSE,
               "key_wildcard == FALSE || value_wildcard == FALSE");

    std::string_view key = fields.key_wildcard == TRUE ? std::string_view("") : fields.key;
    std::string_view value = fields.value_wildcard == TRUE ? std::string_view("") : fields.value;
    const KeyName *name = KeyName::intern(key);
    made = list
               ? list->make(name, fields.key_wildcard, value, fields.value_wildcard, fields.negated)
               : new key_value(name, fields.key_wildcard, value, fields.value_wildcard,
                               fields.negated);
    made->attributes =
        attributes.make({fields.name_space, fields.key_nice_name, fields.value_nice_name,
                         fields.value_user_string, fields.complex_type_name});
    made->value_type = fields.value_type;
}

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
