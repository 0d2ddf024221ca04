// SPDX-License-Identifier: LGPL-2.1-or-later

// The keys of an event: each function is the inspectable's of the same name behind checks that do
// not end the process.

#include "messages/event.hpp"

#include "platform/check.hpp"

gboolean event_set_value(event *event, const gchar *key, gconstpointer value)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(value != NULL, FALSE);
    return inspectable_set_value(&event->content, key, value);
}

const gchar *event_get_value(const event *event, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    RETURN_VALUE_IF_FAIL(key != NULL, nullptr);
    return inspectable_get_value(&event->content, key);
}

const gchar *event_get_name_space(const event *event, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    RETURN_VALUE_IF_FAIL(key != NULL, nullptr);
    return inspectable_get_name_space(&event->content, key);
}

const gchar *event_get_complex_type_name(const event *event, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    RETURN_VALUE_IF_FAIL(key != NULL, nullptr);
    return inspectable_get_complex_type_name(&event->content, key);
}

const gchar *event_get_value_user_string(const event *event, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    RETURN_VALUE_IF_FAIL(key != NULL, nullptr);
    return inspectable_get_value_user_string(&event->content, key);
}

const gchar *event_get_key_nice_name(const event *event, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    RETURN_VALUE_IF_FAIL(key != NULL, nullptr);
    return inspectable_get_key_nice_name(&event->content, key);
}

const gchar *event_get_value_nice_name(const event *event, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    RETURN_VALUE_IF_FAIL(key != NULL, nullptr);
    return inspectable_get_value_nice_name(&event->content, key);
}

gint event_get_index(const event *event, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(event != NULL, -1);
    RETURN_VALUE_IF_FAIL(key != NULL, -1);
    return inspectable_get_index(&event->content, key);
}

guint event_get_key_count(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, 0);
    return inspectable_get_key_count(&event->content);
}

const gchar *event_get_key_at(const event *event, guint index)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    return inspectable_get_key_at(&event->content, index);
}

const gchar *event_get_name_space_at(const event *event, guint index)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    return inspectable_get_name_space_at(&event->content, index);
}

const gchar *event_get_complex_type_name_at(const event *event, guint index)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    return inspectable_get_complex_type_name_at(&event->content, index);
}

const gchar *event_get_value_at(const event *event, guint index)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    return inspectable_get_value_at(&event->content, index);
}

guint32 event_get_type_at(const event *event, guint index)
{
    RETURN_VALUE_IF_FAIL(event != NULL, 0);
    return inspectable_get_type_at(&event->content, index);
}

gboolean event_get_typed_value_at(const event *event, guint index, gpointer value)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(value != NULL, FALSE);
    return inspectable_get_typed_value_at(&event->content, index, value);
}

gboolean event_get_typed_value(const event *event, const gchar *key, gpointer value)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(value != NULL, FALSE);
    gint index = event_get_index(event, key);
    return index >= 0 && event_get_typed_value_at(event, static_cast<guint>(index), value);
}

GList *event_get_tags_at(const event *event, guint index)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    return inspectable_get_tags_at(&event->content, index);
}

GList *event_get_tags(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    return inspectable_get_tags(&event->content);
}

gboolean event_has_value_at(const event *event, guint index)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    return inspectable_has_value_at(&event->content, index);
}

gboolean event_has_tag_at(const event *event, guint index, const gchar *tag)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(tag != NULL, FALSE);
    return inspectable_has_tag_at(&event->content, index, tag);
}

gboolean event_has_tag(const event *event, const gchar *tag)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(tag != NULL, FALSE);
    return inspectable_has_tag(&event->content, tag);
}

gboolean event_add_tag(event *event, const gchar *tag)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(tag != NULL, FALSE);
    return inspectable_add_tag(&event->content, tag);
}

gboolean event_add_key_tag(event *event, const gchar *key, const gchar *tag)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(tag != NULL, FALSE);
    return inspectable_add_key_tag(&event->content, key, tag);
}
