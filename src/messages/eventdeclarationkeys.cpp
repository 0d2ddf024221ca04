// SPDX-License-Identifier: LGPL-2.1-or-later

// The keys of an event declaration.

#include "messages/eventdeclaration.hpp"

#include "platform/check.hpp"
#include "platform/log.hpp"

namespace {

bool is_value_type(guint32 value_type)
{
    if (value_type >= VALUE_TYPE_INT && value_type <= VALUE_TYPE_STRING)
        return true;
    qandor::log_critical("Invalid ValueType: %d", static_cast<gint>(value_type));
    return false;
}

} // namespace

gboolean event_declaration_add_key(event_declaration *declaration, const gchar *key,
                                   guint32 value_type)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    if (!is_value_type(value_type))
        return FALSE;
    gboolean result =
        inspectable_add_key_value(&declaration->content, key, FALSE, nullptr, TRUE, FALSE);
    CHECK(result == TRUE);
    result = inspectable_set_value_type(&declaration->content, key, value_type);
    CHECK(result == TRUE);
    return TRUE;
}

gboolean event_declaration_add_key_value(event_declaration *declaration, const gchar *key,
                                         gconstpointer value, guint32 value_type)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(value != NULL, FALSE);
    return event_declaration_add_key(declaration, key, value_type) &&
           inspectable_set_value(&declaration->content, key, value);
}

gboolean event_declaration_set_value_user_string(event_declaration *declaration, const gchar *key,
                                                 const gchar *value_user_string)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(value_user_string != NULL, FALSE);
    return inspectable_set_value_user_string(&declaration->content, key, value_user_string);
}

gboolean event_declaration_set_nice_names(event_declaration *declaration, const gchar *key,
                                          const gchar *key_nice_name, const gchar *value_nice_name)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    return inspectable_set_nice_names(&declaration->content, key, key_nice_name, value_nice_name);
}

gboolean event_declaration_set_name_space(event_declaration *declaration, const gchar *key,
                                          const gchar *name_space)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    return inspectable_set_name_space(&declaration->content, key, name_space);
}

gboolean event_declaration_set_complex_type_name(event_declaration *declaration, const gchar *key,
                                                 const gchar *complex_type_name)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    return inspectable_set_complex_type_name(&declaration->content, key, complex_type_name);
}

gboolean event_declaration_add_key_tag(event_declaration *declaration, const gchar *key,
                                       const gchar *tag)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(tag != NULL, FALSE);
    return inspectable_add_key_tag(&declaration->content, key, tag);
}

gboolean event_declaration_add_tag(event_declaration *declaration, const gchar *tag)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(tag != NULL, FALSE);
    return inspectable_add_tag(&declaration->content, tag);
}
