// SPDX-License-Identifier: LGPL-2.1-or-later

// Making, changing, comparing and weighing key-values.

#include "model/keyvalue.hpp"

#include "platform/check.hpp"

using namespace qandor;

void key_value::set_attribute(Attribute which, OptionalText text)
{
    AttributeTexts texts;
    for (std::size_t i = 0; i < texts.size(); ++i)
        texts[i] = attribute(static_cast<Attribute>(i));
    texts[static_cast<std::size_t>(which)] = text;
    attributes = Attributes::make(texts);
}

KeyValuePtr qandor::make_key_value(const gchar *key, gboolean key_wildcard, const gchar *value,
                                   gboolean value_wildcard, gboolean negated)
{
    if (key_wildcard == TRUE) {
        if (value_wildcard == TRUE)
            return nullptr;
        key = "";
        CHECK(value != NULL);
    } else if (value_wildcard == TRUE) {
        CHECK(key != NULL);
        value = "";
    } else {
        CHECK(key != NULL);
        CHECK(value != NULL);
    }
    CHECK(key_wildcard == FALSE || value_wildcard == FALSE);
    return std::make_unique<key_value>(KeyName::intern(key), key_wildcard, value, value_wildcard,
                                       negated);
}

key_value *key_value_new(const gchar *key, gboolean key_wildcard, const gchar *name_space,
                         const gchar *key_nice_name, const gchar *value, gboolean value_wildcard,
                         const gchar *value_nice_name, const gchar *value_user_string,
                         const gchar *complex_type_name, gboolean negated)
{
    KeyValuePtr made = make_key_value(key, key_wildcard, value, value_wildcard, negated);
    if (made)
        made->attributes =
            Attributes::make({optional_text(name_space), optional_text(key_nice_name),
                              optional_text(value_nice_name), optional_text(value_user_string),
                              optional_text(complex_type_name)});
    return made.release();
}

void key_value_free(key_value *key_value)
{
    delete key_value;
}

void key_value_add_tag(key_value *key_value, const gchar *tag)
{
    CHECK(key_value != NULL);
    CHECK(tag != NULL);
    own_tags(key_value->tags).add(tag);
}

void key_value_give_tag(key_value *key_value, gchar *tag)
{
    CHECK(key_value != NULL);
    CHECK(tag != NULL);
    own_tags(key_value->tags).give(tag);
    g_free(tag);
}

key_value *key_value_copy(const key_value *key_value)
{
    CHECK(key_value != NULL);
    return new struct key_value(*key_value);
}

namespace {

bool agree_in(Attribute which, const key_value &key_value1, const key_value &key_value2)
{
    return are_same_texts(key_value1.attribute(which), key_value2.attribute(which));
}

bool are_same_conditions(const key_value &key_value1, const key_value &key_value2)
{
    return key_value1.key == key_value2.key && key_value1.value_type == key_value2.value_type &&
           key_value1.key_wildcard == key_value2.key_wildcard &&
           key_value1.value_wildcard == key_value2.value_wildcard &&
           key_value1.negated == key_value2.negated && key_value1.value == key_value2.value;
}

} // namespace

gboolean key_value_is_equal(const key_value *key_value1, const key_value *key_value2)
{
    CHECK(key_value1 != NULL);
    CHECK(key_value2 != NULL);
    return are_same_conditions(*key_value1, *key_value2) &&
           agree_in(Attribute::NameSpace, *key_value1, *key_value2) &&
           are_same_tags(tags_of(key_value1->tags), tags_of(key_value2->tags)) &&
           agree_in(Attribute::KeyNiceName, *key_value1, *key_value2) &&
           agree_in(Attribute::ValueNiceName, *key_value1, *key_value2) &&
           agree_in(Attribute::ValueUserString, *key_value1, *key_value2) &&
           agree_in(Attribute::ComplexTypeName, *key_value1, *key_value2);
}

void key_value_is_contained(const key_value *key_value_container,
                            const key_value *key_value_containee, gboolean *excluded,
                            gboolean *matched)
{
    CHECK_TEXT(key_value_containee != NULL, "key_value != NULL");
    if (key_value_container)
        CHECK(key_value_container->key_wildcard == FALSE &&
              key_value_containee->key_wildcard == FALSE);

    switch (weigh(key_value_container, *key_value_containee)) {
    case Verdict::Matched:
        *matched = TRUE;
        break;
    case Verdict::Differs:
    case Verdict::Excluded:
        *excluded = TRUE;
        break;
    case Verdict::Neither:
        break;
    }
}
