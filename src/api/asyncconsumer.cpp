// SPDX-License-Identifier: LGPL-2.1-or-later

// The event consumer driven without waiting: what the plain calls do on the caller's thread is a
// command here.

#include "api/eventconsumer.hpp"
#include "platform/check.hpp"

#include <qandor/asyncconsumer.h>

#include <string>

using namespace qandor;

event_consumer *async_consumer_new(const char *name, event_consumer_setup_callback setup_callback,
                                   gpointer user_data)
{
    event_consumer *made = event_consumer_int_new_empty();
    command_source_post_function(made->commands, [=, name = std::string(name ? name : "")] {
        event_consumer_int_setup(made, name.c_str(), setup_callback, user_data);
    });
    return made;
}

void async_consumer_free(event_consumer *event_consumer, event_consumer_freed_callback callback,
                         gpointer user_data)
{
    if (!event_consumer)
        return;
    command_source_post_function(event_consumer->commands, [=] {
        event_consumer_int_free(event_consumer, callback, user_data);
    });
}

guint32 async_consumer_subscribe(event_consumer *event_consumer, subscribe_expression *expression,
                                 event_consumer_subscribed_callback subscribed_callback,
                                 GCallback event_callback, GCallback notification_callback,
                                 gpointer user_data, guint32 subscription_type, GError **error)
{
    guint32 token = event_consumer_int_generate_token(event_consumer, expression, event_callback,
                                                      subscription_type, error);
    if (token == 0)
        return 0;
    command_source_post_function(event_consumer->commands, [=] {
        event_consumer_int_subscribe(event_consumer, token, expression, subscribed_callback,
                                     event_callback, notification_callback, subscription_type,
                                     user_data);
    });
    return token;
}

void async_consumer_refresh(event_consumer *event_consumer, guint32 token,
                            event_consumer_done_callback callback, gpointer user_data)
{
    CHECK(event_consumer != NULL);
    command_source_post_function(event_consumer->commands, [=] {
        event_consumer_int_refresh(event_consumer, token, callback, user_data, nullptr);
    });
}

void async_consumer_unsubscribe(event_consumer *event_consumer, guint32 token,
                                event_consumer_done_callback callback, gpointer user_data)
{
    CHECK(event_consumer != NULL);
    command_source_post_function(event_consumer->commands, [=] {
        event_consumer_int_unsubscribe(event_consumer, token, callback, user_data, nullptr);
    });
}
