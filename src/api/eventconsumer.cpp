// SPDX-License-Identifier: LGPL-2.1-or-later

// The event consumer as applications hold it.

#include "api/eventconsumer.hpp"

#include "bus/errors.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

using namespace qandor;

event_consumer *event_consumer_new(const char *name)
{
    event_consumer *made = event_consumer_int_new_empty();
    event_consumer_int_setup(made, name, nullptr, nullptr);
    return made;
}

void event_consumer_free(event_consumer *event_consumer)
{
    if (event_consumer)
        event_consumer_int_free(event_consumer, nullptr, nullptr);
}

namespace {

guint32 subscribe(event_consumer *handle, subscribe_expression *expression,
                  GCallback event_callback, GCallback notification_callback, subscription_type type,
                  gpointer user_data)
{
    GError *error = nullptr;
    guint32 token =
        event_consumer_int_generate_token(handle, expression, event_callback, type, &error);
    ErrorOwner owner(error);
    if (token == 0) {
        log_warning("Failed to subscribe: %s", error->message);
        return 0;
    }
    event_consumer_int_subscribe(handle, token, expression, nullptr, event_callback,
                                 notification_callback, type, user_data);
    return token;
}

} // namespace

guint32 event_consumer_subscribe(event_consumer *event_consumer, subscribe_expression *expression,
                                 consumer_event_callback event_callback, gpointer user_data)
{
    return event_consumer_subscribe_full(event_consumer, expression, event_callback, nullptr,
                                         user_data);
}

guint32 event_consumer_subscribe_full(event_consumer *event_consumer,
                                      subscribe_expression *expression,
                                      consumer_event_callback event_callback,
                                      consumer_notification_callback notification_callback,
                                      gpointer user_data)
{
    return subscribe(event_consumer, expression, G_CALLBACK(event_callback),
                     G_CALLBACK(notification_callback), SUBSCRIPTION_TYPE_NORMAL, user_data);
}

guint32 event_consumer_subscribe_secure(event_consumer *event_consumer,
                                        subscribe_expression *expression,
                                        consumer_secure_event_callback event_callback,
                                        gpointer user_data)
{
    return event_consumer_subscribe_secure_full(event_consumer, expression, event_callback, nullptr,
                                                user_data);
}

guint32 event_consumer_subscribe_secure_full(
    event_consumer *event_consumer, subscribe_expression *expression,
    consumer_secure_event_callback event_callback,
    consumer_secure_notification_callback notification_callback, gpointer user_data)
{
    return subscribe(event_consumer, expression, G_CALLBACK(event_callback),
                     G_CALLBACK(notification_callback), SUBSCRIPTION_TYPE_SECURE, user_data);
}

namespace {

// The checks before an operation on a token: of the handle, then of the error.
bool may_go_on(event_consumer *handle, GError **error)
{
    if (!handle) {
        set_event_error(error, EventError::NullObject, "NULL object supplied");
        return false;
    }
    return !refuse_error_already_set(error);
}

} // namespace

gboolean event_consumer_refresh(event_consumer *event_consumer, guint32 token, GError **error)
{
    if (!may_go_on(event_consumer, error))
        return FALSE;
    return event_consumer_int_refresh(event_consumer, token, nullptr, nullptr, error);
}

gboolean event_consumer_refresh_async(event_consumer *event_consumer, guint32 token)
{
    return event_consumer_refresh(event_consumer, token, nullptr);
}

gboolean event_consumer_unsubscribe(event_consumer *event_consumer, guint32 token, GError **error)
{
    return event_consumer_unsubscribe_and_notify(event_consumer, token, nullptr, nullptr, error);
}

gboolean event_consumer_unsubscribe_and_notify(event_consumer *event_consumer, guint32 token,
                                               event_consumer_done_callback callback,
                                               gpointer user_data, GError **error)
{
    if (!may_go_on(event_consumer, error))
        return FALSE;
    return event_consumer_int_unsubscribe(event_consumer, token, callback, user_data, error);
}

namespace {

struct PropertyStateCall {
    subscribe_expression *expression;
    GError **error;
    property_state *result;
};

void get_property_state(gpointer data, gpointer user_data)
{
    auto *call = static_cast<PropertyStateCall *>(data);
    auto *handle = static_cast<event_consumer *>(user_data);
    call->result =
        consumer_send_get_property_state(handle->consumer, call->expression, call->error);
}

} // namespace

property_state *event_consumer_get_property_state(event_consumer *event_consumer,
                                                  subscribe_expression *subscribe_expression,
                                                  GError **error)
{
    RETURN_VALUE_IF_FAIL(event_consumer != NULL, nullptr);
    RETURN_VALUE_IF_FAIL(subscribe_expression != NULL, nullptr);
    if (refuse_error_already_set(error))
        return nullptr;
    PropertyStateCall call{subscribe_expression, error, nullptr};
    command_source_run(event_consumer->commands, get_property_state, &call);
    return call.result;
}
