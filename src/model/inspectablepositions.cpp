// SPDX-License-Identifier: LGPL-2.1-or-later

// Reading an inspectable by position: the first key-value of each bucket of the current and-list.

#include "model/inspectable.hpp"

#include "model/shortbytes.hpp"
#include "model/valuetypes.hpp"
#include "platform/check.hpp"

#include <algorithm>
#include <cstring>

using namespace qandor;

std::size_t inspectable::position_count() const
{
    const AndList *list = current();
    return list && has_positions ? list->keyed().size() : 0;
}

key_value *inspectable::at(std::size_t position) const
{
    return position < position_count() ? &current()->keyed()[position].first() : nullptr;
}

namespace {

const gchar *attribute_at(const inspectable *inspect, guint position, Attribute which)
{
    const key_value *key_value = inspect->at(position);
    return key_value ? key_value->attribute(which).data() : nullptr;
}

} // namespace

gboolean inspectable_has_keyvalue_with_tag(const inspectable *inspect, const gchar *tag)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE ||
          inspect->type == IT_EVENT_DECLARATION);
    CHECK(tag != NULL);
    for (std::size_t i = 0; i < inspect->position_count(); ++i)
        if (has_tag(tags_of(inspect->at(i)->tags), tag))
            return TRUE;
    return FALSE;
}

gint inspectable_get_index(const inspectable *inspect, const gchar *key)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT);
    CHECK(key != NULL);
    const AndList *list = inspect->current();
    std::size_t place = list ? list->find_place(std::string_view(key)) : 0;
    return list && place < list->keyed().size() ? static_cast<gint>(place) : -1;
}

guint inspectable_get_key_count(const inspectable *inspect)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
    return static_cast<guint>(inspect->position_count());
}

const gchar *inspectable_get_key_at(const inspectable *inspect, guint position)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
    const key_value *key_value = inspect->at(position);
    return key_value ? key_value->key->text : nullptr;
}

const gchar *inspectable_get_value_at(const inspectable *inspect, guint position)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
    const key_value *key_value = inspect->at(position);
    return key_value ? key_value->value.c_str() : nullptr;
}

const gchar *inspectable_get_name_space_at(const inspectable *inspect, guint position)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
    return attribute_at(inspect, position, Attribute::NameSpace);
}

const gchar *inspectable_get_complex_type_name_at(const inspectable *inspect, guint position)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
    return attribute_at(inspect, position, Attribute::ComplexTypeName);
}

GList *inspectable_get_tags_at(const inspectable *inspect, guint position)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
    const key_value *key_value = inspect->at(position);
    return key_value ? tags_to_reversed_glist(tags_of(key_value->tags)) : nullptr;
}

gboolean inspectable_has_tag_at(const inspectable *inspect, guint position, const gchar *tag)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
    CHECK(tag != NULL);
    const key_value *key_value = inspect->at(position);
    return key_value && has_tag(tags_of(key_value->tags), tag);
}

gboolean inspectable_has_value_at(const inspectable *inspect, guint position)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT);
    const key_value *key_value = inspect->at(position);
    return key_value && !key_value->is_open();
}

guint32 inspectable_get_type_at(const inspectable *inspect, guint position)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT);
    const key_value *key_value = inspect->at(position);
    if (!key_value)
        return 0;
    CHECK_VALUE_TYPE(key_value->value_type);
    return key_value->value_type;
}

namespace {

// Number texts are read with a point in every locale, as they were written.
gint int_of(const std::string &text)
{
    gdouble number = g_ascii_strtod(text.c_str(), nullptr);
    if (number != number)
        return 0;
    return static_cast<gint>(std::clamp<gdouble>(number, G_MININT32, G_MAXINT32));
}

gboolean bool_of(const std::string &text)
{
    if (text == "1")
        return TRUE;
    CHECK_TEXT(text == "0", "FALSE");
    return FALSE;
}

} // namespace

gboolean inspectable_get_typed_value_at(const inspectable *inspect, guint position, gpointer result)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT);
    CHECK(result != NULL);
    const key_value *key_value = inspect->at(position);
    if (!key_value)
        return FALSE;
    CHECK_VALUE_TYPE(key_value->value_type);
    switch (key_value->value_type) {
    case VALUE_TYPE_INT:
        store(result, int_of(key_value->value));
        break;
    case VALUE_TYPE_BOOL:
        store(result, bool_of(key_value->value));
        break;
    case VALUE_TYPE_DOUBLE:
        store(result, g_ascii_strtod(key_value->value.c_str(), nullptr));
        break;
    case VALUE_TYPE_STRING:
        store<const gchar *>(result, key_value->value.c_str());
        break;
    }
    return TRUE;
}
