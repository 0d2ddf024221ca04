// SPDX-License-Identifier: LGPL-2.1-or-later

// Subscribe expressions: lifecycle, routing data, conditions and log lines.

#include "messages/subscribeexpression.hpp"

#include "platform/check.hpp"
#include "platform/log.hpp"

subscribe_expression *subscribe_expression_new(void)
{
    return subscribe_expression_new_full(FALSE);
}

subscribe_expression *subscribe_expression_new_full(gboolean clandestine)
{
    return new subscribe_expression(clandestine);
}

void subscribe_expression_free(subscribe_expression *se)
{
    delete se;
}

subscribe_expression *subscribe_expression_copy(const subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, nullptr);
    return new subscribe_expression(*se);
}

void subscribe_expression_set_id(subscribe_expression *se, guint32 id)
{
    RETURN_IF_FAIL(se != NULL);
    se->id = id;
}

guint32 subscribe_expression_get_id(const subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, 0);
    return se->id;
}

void subscribe_expression_set_dbus_service(subscribe_expression *se, const gchar *dbus_service)
{
    RETURN_IF_FAIL(se != NULL);
    RETURN_IF_FAIL(dbus_service != NULL);
    se->dbus_service = dbus_service;
}

const gchar *subscribe_expression_get_dbus_service(const subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, nullptr);
    return se->dbus_service.c_str();
}

void subscribe_expression_set_dbus_object(subscribe_expression *se, const gchar *dbus_object)
{
    RETURN_IF_FAIL(se != NULL);
    RETURN_IF_FAIL(dbus_object != NULL);
    se->dbus_object = dbus_object;
}

const gchar *subscribe_expression_get_dbus_object(const subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, nullptr);
    return se->dbus_object.c_str();
}

void subscribe_expression_set_consumer_token(subscribe_expression *se, guint32 consumer_token)
{
    RETURN_IF_FAIL(se != NULL);
    se->consumer_token = consumer_token;
}

guint32 subscribe_expression_get_consumer_token(const subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, 0);
    return se->consumer_token;
}

gboolean subscribe_expression_get_clandestine(const subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, FALSE);
    return se->clandestine;
}

inspectable *subscribe_expression_get_inspectable(subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, nullptr);
    return &se->content;
}

// What all builders come to: one condition for the current group.
static gboolean subscribe_expression_add_key_value_full(subscribe_expression *se, const gchar *key,
                                                        gboolean key_wildcard, const gchar *value,
                                                        gboolean value_wildcard, gboolean negated)
{
    RETURN_VALUE_IF_FAIL(se != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL || key_wildcard == TRUE, FALSE);
    RETURN_VALUE_IF_FAIL(value != NULL || value_wildcard == TRUE, FALSE);
    RETURN_VALUE_IF_FAIL(key_wildcard == FALSE || value_wildcard == FALSE, FALSE);
    return inspectable_add_key_value(&se->content, key, key_wildcard, value, value_wildcard,
                                     negated);
}

gboolean subscribe_expression_add_key_value(subscribe_expression *se, const gchar *key,
                                            const gchar *value)
{
    RETURN_VALUE_IF_FAIL(se != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(value != NULL, FALSE);
    return subscribe_expression_add_key_value_full(se, key, FALSE, value, FALSE, FALSE);
}

gboolean subscribe_expression_add_key_not_value(subscribe_expression *se, const gchar *key,
                                                const gchar *value)
{
    RETURN_VALUE_IF_FAIL(se != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(value != NULL, FALSE);
    return subscribe_expression_add_key_value_full(se, key, FALSE, value, FALSE, TRUE);
}

gboolean subscribe_expression_add_key(subscribe_expression *se, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(se != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    return subscribe_expression_add_key_value_full(se, key, FALSE, nullptr, TRUE, FALSE);
}

gboolean subscribe_expression_add_not_key(subscribe_expression *se, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(se != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    return subscribe_expression_add_key_value_full(se, key, FALSE, nullptr, TRUE, TRUE);
}

gboolean subscribe_expression_add_value(subscribe_expression *se, const gchar *value)
{
    RETURN_VALUE_IF_FAIL(se != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(value != NULL, FALSE);
    return subscribe_expression_add_key_value_full(se, nullptr, TRUE, value, FALSE, FALSE);
}

gboolean subscribe_expression_add_not_value(subscribe_expression *se, const gchar *value)
{
    RETURN_VALUE_IF_FAIL(se != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(value != NULL, FALSE);
    return subscribe_expression_add_key_value_full(se, nullptr, TRUE, value, FALSE, TRUE);
}

gboolean subscribe_expression_set_name_space(subscribe_expression *se, const gchar *key,
                                             const gchar *name_space)
{
    RETURN_VALUE_IF_FAIL(se != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    return inspectable_set_name_space(&se->content, key, name_space);
}

void subscribe_expression_or(subscribe_expression *se)
{
    RETURN_IF_FAIL(se != NULL);
    gboolean result = inspectable_or(&se->content);
    CHECK(result == TRUE);
}

GList *subscribe_expression_get_raw(const subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, nullptr);
    return inspectable_get_raw(&se->content);
}

void subscribe_expression_free_raw(GList *raw)
{
    inspectable_free_raw(raw);
}

void subscribe_expression_print(const subscribe_expression *se)
{
    RETURN_IF_FAIL(se != NULL);
    qandor::log_message("---- Subscribe Expression (id:%3d) ----", static_cast<gint>(se->id));
    inspectable_print(&se->content);
    qandor::log_message("DBus Service: %s", se->dbus_service.c_str());
    qandor::log_message("DBus Object: %s", se->dbus_object.c_str());
    qandor::log_message("Consumer Token: %d", static_cast<gint>(se->consumer_token));
    qandor::log_message("Clandestine: %s", se->clandestine ? "true" : "false");
    qandor::log_message("---------------------------------------");
}
