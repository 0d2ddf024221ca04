// SPDX-License-Identifier: LGPL-2.1-or-later

// What the consumer's calls are made of: the part on the caller's thread, and the command that does
// the rest on the main context's thread.

#include "api/eventconsumer.hpp"
#include "bus/consumer.hpp"
#include "bus/errors.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

using namespace qandor;

event_consumer *event_consumer_int_new_empty(void)
{
    auto *made = new event_consumer();
    made->idgen = idgenerator_new();
    made->commands = command_source_new_full(nullptr, made, 1, nullptr);
    return made;
}

void event_consumer_int_setup(event_consumer *event_consumer, const char *name,
                              event_consumer_setup_callback setup_callback, gpointer user_data)
{
    event_consumer->consumer = consumer_new(name);
    command_source_post_function(event_consumer->commands, [=] {
        GError *error = nullptr;
        consumer_init_dbus(event_consumer->consumer, &error);
        if (setup_callback) {
            setup_callback(event_consumer, user_data, error);
            return;
        }
        ErrorOwner owner(error);
        if (error)
            log_critical("Failed to setup dbus: %s (%d)", error->message, error->code);
    });
}

void event_consumer_int_free(event_consumer *event_consumer, event_consumer_freed_callback callback,
                             gpointer user_data)
{
    CHECK(event_consumer != NULL);
    consumer_prepare_free(event_consumer->consumer);
    command_source_post_function(event_consumer->commands, [=] {
        consumer_send_disconnect(event_consumer->consumer);
        g_object_unref(event_consumer->consumer);
        command_source_free(event_consumer->commands);
        idgenerator_free(event_consumer->idgen);
        delete event_consumer;
        if (callback)
            callback(event_consumer, user_data);
    });
}

guint32 event_consumer_int_generate_token(event_consumer *event_consumer,
                                          subscribe_expression *expression,
                                          GCallback event_callback, guint32 subscription_type,
                                          GError **error)
{
    if (refuse_error_already_set(error))
        return 0;
    if (!event_consumer) {
        set_event_error(error, EventError::NullObject, "Event consumer object was NULL");
        return 0;
    }
    if (!expression) {
        set_event_error(error, EventError::NullObject, "Subscribe expression was NULL");
        return 0;
    }
    if (!event_callback) {
        set_event_error(error, EventError::NullObject, "Subscription callback was NULL");
        return 0;
    }
    if (subscription_type > SUBSCRIPTION_TYPE_SECURE) {
        set_event_error(error, EventError::InvalidSubscriptionType, "Invalid subscription type");
        return 0;
    }
    return idgenerator_reserve(event_consumer->idgen);
}

void event_consumer_int_subscribe(event_consumer *event_consumer, guint32 token,
                                  subscribe_expression *expression,
                                  event_consumer_subscribed_callback subscribed_callback,
                                  GCallback event_callback, GCallback notification_callback,
                                  guint32 subscription_type, gpointer user_data)
{
    RETURN_IF_FAIL(event_consumer != NULL);
    RETURN_IF_FAIL(token != 0);
    RETURN_IF_FAIL(expression != NULL);
    RETURN_IF_FAIL(event_callback != NULL);
    CHECK(subscription_type == SUBSCRIPTION_TYPE_NORMAL ||
          subscription_type == SUBSCRIPTION_TYPE_SECURE);
    Consumer *consumer = event_consumer->consumer;
    consumer_prepare_subscribe(consumer, token, expression, event_callback, notification_callback,
                               user_data, subscription_type);
    command_source_post_function(event_consumer->commands, [=] {
        consumer_send_subscribe(consumer, token);
        if (subscribed_callback)
            subscribed_callback(token, user_data);
    });
}

namespace {

// A command for one subscription. It runs whether or not the token was known: then it only tells.
struct TokenCommand : Command {
    TokenCommand(event_consumer *handle, guint32 token, event_consumer_done_callback callback,
                 gpointer user_data)
        : handle(handle), token(token), callback(callback), user_data(user_data)
    {
    }

    void set_unknown()
    {
        GError *failure = nullptr;
        set_event_error(&failure, EventError::UnknownToken, "Cannot find subscription token %d",
                        static_cast<gint>(token));
        error.reset(failure);
    }
    void tell()
    {
        if (callback)
            callback(token, user_data, error.release());
    }

    event_consumer *handle;
    guint32 token;
    event_consumer_done_callback callback;
    gpointer user_data;
    ErrorOwner error;
};

struct RefreshCommand : TokenCommand {
    using TokenCommand::TokenCommand;

    void run() override
    {
        if (!error)
            consumer_send_refresh(handle->consumer, token);
        tell();
    }
};

struct UnsubscribeCommand : TokenCommand {
    using TokenCommand::TokenCommand;

    // The callback may free the consumer, but only by a command behind this one.
    void run() override
    {
        if (subscription)
            consumer_send_unsubscribe(handle->consumer, subscription.release());
        tell();
        idgenerator_release(handle->idgen, token);
    }

    std::unique_ptr<subscription_data> subscription;
};

// Queues the command and tells the caller what is known already.
gboolean post(event_consumer *handle, std::unique_ptr<TokenCommand> command, GError **error)
{
    bool passed = !command->error;
    if (error && !passed)
        *error = g_error_copy(command->error.get());
    command_source_post(handle->commands, std::move(command));
    return passed;
}

} // namespace

gboolean event_consumer_int_refresh(event_consumer *event_consumer, guint32 token,
                                    event_consumer_done_callback callback, gpointer user_data,
                                    GError **error)
{
    CHECK(error == NULL || *error == NULL);
    CHECK(event_consumer != NULL);
    auto command = std::make_unique<RefreshCommand>(event_consumer, token, callback, user_data);
    if (!consumer_token_exists(event_consumer->consumer, token))
        command->set_unknown();
    return post(event_consumer, std::move(command), error);
}

gboolean event_consumer_int_unsubscribe(event_consumer *event_consumer, guint32 token,
                                        event_consumer_done_callback callback, gpointer user_data,
                                        GError **error)
{
    CHECK(error == NULL || *error == NULL);
    CHECK(event_consumer != NULL);
    auto command = std::make_unique<UnsubscribeCommand>(event_consumer, token, callback, user_data);
    command->subscription.reset(consumer_send_unsubscribe_prepare(event_consumer->consumer, token));
    if (!command->subscription)
        command->set_unknown();
    return post(event_consumer, std::move(command), error);
}
