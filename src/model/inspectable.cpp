// SPDX-License-Identifier: LGPL-2.1-or-later

// Making inspectables and adding to them.

#include "model/inspectable.hpp"

#include "platform/check.hpp"
#include "platform/log.hpp"

using namespace qandor;

inspectable::inspectable(const inspectable &other, guint32 type)
    : SliceAllocated(), and_lists(other.and_lists), tags(other.tags), internal(other.internal),
      type(type)
{
}

inspectable::~inspectable() = default;

key_value *inspectable::find(std::string_view key) const
{
    const AndList *list = current();
    if (!list)
        return nullptr;
    std::size_t place = list->find_place(key);
    return place < list->keyed().size() ? &list->keyed()[place].first() : nullptr;
}

void inspectable::add_key_value_internal(key_value key_value)
{
    AndList *and_list = current();
    CHECK(and_list != NULL);
    if (type == IT_EVENT_DECLARATION && !key_value.key_wildcard)
        and_list->replace(std::move(key_value));
    else
        and_list->add(std::move(key_value));
    has_positions = true;
}

inspectable *inspectable_new(guint32 type)
{
    CHECK_TEXT(is_inspectable_type(type),
               "type == IT_EVENT_DECLARATION || type == IT_EVENT || type == IT_PROPERTY_STATE || "
               "type == IT_SUBSCRIBE_EXPRESSION");
    return new inspectable(type);
}

inspectable *inspectable_copy(const inspectable *inspect, guint32 type)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    CHECK_TEXT(is_inspectable_type(type),
               "type == IT_EVENT_DECLARATION || type == IT_EVENT || type == IT_PROPERTY_STATE || "
               "type == IT_SUBSCRIBE_EXPRESSION");
    return new inspectable(*inspect, type);
}

void inspectable_free(inspectable *inspect)
{
    delete inspect;
}

gboolean inspectable_or(inspectable *inspect)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    if (inspect->type != IT_SUBSCRIBE_EXPRESSION) {
        log_warning("Only subscribe expressions support the OR statement.");
        return FALSE;
    }
    inspect->and_lists.add();
    return TRUE;
}

gboolean inspectable_add_key_value(inspectable *inspect, const gchar *key, gboolean key_wildcard,
                                   const gchar *value, gboolean value_wildcard, gboolean negated)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    CHECK(key_wildcard == FALSE || value_wildcard == FALSE);
    CHECK(key != NULL || key_wildcard == TRUE);
    CHECK(value != NULL || value_wildcard == TRUE);
    if (inspect->type != IT_SUBSCRIBE_EXPRESSION)
        CHECK(key_wildcard == FALSE);
    if (inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE)
        CHECK(inspectable_get_value(inspect, key) == NULL);

    KeyValuePtr key_value = make_key_value(key, key_wildcard, value, value_wildcard, negated);
    CHECK(key_value != NULL);
    inspect->add_key_value_internal(std::move(*key_value));
    return TRUE;
}

gboolean inspectable_set_internal(inspectable *inspect, gboolean internal)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    inspect->internal = internal;
    return TRUE;
}

gboolean inspectable_get_internal(const inspectable *inspect)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    return inspect->internal;
}

gboolean inspectable_add_tag(inspectable *inspect, const gchar *tag)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_EVENT);
    CHECK(tag != NULL);
    inspect->tags.emplace_back(tag);
    return TRUE;
}

GList *inspectable_get_tags(const inspectable *inspect)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    return tags_to_reversed_glist(inspect->tags);
}

gboolean inspectable_has_tag(const inspectable *inspect, const gchar *tag)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    CHECK(tag != NULL);
    return has_tag(inspect->tags, tag);
}
