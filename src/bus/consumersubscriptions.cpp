// SPDX-License-Identifier: LGPL-2.1-or-later

// A consumer's subscriptions: filing them, making them known to the switch, and what comes of them.

#include "bus/consumer.hpp"

#include "bus/errors.hpp"
#include "messages/event.hpp"
#include "platform/check.hpp"

#include <qandor/switchbusclient.h>

#include <mutex>

using namespace qandor;

subscription_data *ConsumerState::find(guint32 token)
{
    auto found = subscriptions.find(token);
    return found == subscriptions.end() ? nullptr : found->second.get();
}

void ConsumerState::subscribe(subscription_data &subscription)
{
    if (subscription.subscribed)
        return;
    auto *ticket = tickets_.issue(this, subscription.token);
    subscription.subscribed = true;
    subscription.sending = ticket->sending;
    const GArray *bytes = subscription.expression_data.get();
    com_vemo_Event_Switch_Consumer_subscribe_async(presence.bus, presence.object.c_str(),
                                                   presence.name.c_str(), subscription.token,
                                                   reinterpret_cast<const guint8 *>(bytes->data),
                                                   bytes->len, receive_subscribe_answer, ticket);
}

// A subscription that found no switch counts as not sent, so that the switch learns of it when it
// comes. An answer to an earlier sending says nothing about a later one.
int ConsumerState::receive_subscribe_answer(sd_bus_message *reply, void *data, sd_bus_error *error)
{
    auto *ticket = static_cast<SendTickets<ConsumerState>::Ticket *>(data);
    ConsumerState &state = *ticket->owner;
    std::lock_guard lock(state.mutex);
    auto taken = state.tickets_.take_back(ticket);
    subscription_data *record = state.find(taken.id);
    if (record && record->sending == taken.sending && was_not_delivered(reply))
        record->subscribed = false;
    return ignore_answer(reply, nullptr, error);
}

void ConsumerState::subscribe_all()
{
    for (auto &[token, subscription] : subscriptions)
        subscribe(*subscription);
}

void ConsumerState::go_offline()
{
    for (auto &[token, subscription] : subscriptions)
        subscription->subscribed = false;
}

gboolean consumer_token_exists(Consumer *self, guint32 token)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    return state.find(token) != nullptr;
}

void consumer_prepare_subscribe(Consumer *self, guint32 token,
                                const subscribe_expression *expression, GCallback event_cb,
                                GCallback notification_cb, gpointer user_data, guint32 type)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    auto subscription = std::make_unique<subscription_data>();
    subscription->expression_data.reset(subscribe_expression_serialize(expression));
    subscription->event_cb = event_cb;
    subscription->notification_cb = notification_cb;
    subscription->user_data = user_data;
    subscription->token = token;
    subscription->type = type;
    state.subscriptions.insert_or_assign(token, std::move(subscription));
}

void consumer_send_subscribe(Consumer *self, guint32 token)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    if (subscription_data *subscription = state.find(token))
        state.subscribe(*subscription);
}

void consumer_send_refresh(Consumer *self, guint32 token)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    com_vemo_Event_Switch_Consumer_refresh_property_async(
        state.presence.bus, state.presence.object.c_str(), token, ignore_answer, nullptr);
}

subscription_data *consumer_send_unsubscribe_prepare(Consumer *self, guint32 token)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    auto node = state.subscriptions.extract(token);
    if (!node)
        return nullptr;
    node.mapped()->event_cb = nullptr;
    return node.mapped().release();
}

void consumer_send_unsubscribe(Consumer *self, subscription_data *subscription)
{
    std::unique_ptr<subscription_data> owner(subscription);
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    com_vemo_Event_Switch_Consumer_unsubscribe_async(state.presence.bus,
                                                     state.presence.object.c_str(),
                                                     subscription->token, ignore_answer, nullptr);
}

property_state *consumer_send_get_property_state(Consumer *self,
                                                 const subscribe_expression *expression,
                                                 GError **error)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    ArrayOwner bytes(subscribe_expression_serialize(expression));
    BusError bus_error;
    guint8 *data = nullptr;
    gsize length = 0;
    int r = com_vemo_Event_Switch_Consumer_get_property_state(
        state.presence.bus, reinterpret_cast<const guint8 *>(bytes->data), bytes->len,
        bus_error.get(), &data, &length);
    if (r < 0) {
        const char *message = bus_error.message();
        set_event_error(error, EventError::CallFailed, "%s", message ? message : "");
        return nullptr;
    }
    BytesOwner owner(data);
    GArray view{reinterpret_cast<gchar *>(data), static_cast<guint>(length)};
    return property_state_deserialize(&view);
}

// A subscription's function is called last of all: it may unsubscribe or free the consumer, so
// nothing of the subscription is touched after it.

void consumer_receive_event(Consumer *self, GArray *array, guint32 token, guint32 uid)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    const subscription_data *subscription = state.find(token);
    if (!subscription)
        return;
    event *received = event_deserialize(array);
    if (subscription->type == SUBSCRIPTION_TYPE_SECURE)
        reinterpret_cast<consumer_secure_event_callback>(subscription->event_cb)(
            received, uid, subscription->user_data);
    else
        reinterpret_cast<consumer_event_callback>(subscription->event_cb)(received,
                                                                          subscription->user_data);
}

void consumer_receive_notification(Consumer *self, GArray *array, guint32 token, guint32 uid)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    const subscription_data *subscription = state.find(token);
    if (!subscription || !subscription->notification_cb)
        return;
    notification *received = notification_deserialize(array);
    if (subscription->type == SUBSCRIPTION_TYPE_SECURE)
        reinterpret_cast<consumer_secure_notification_callback>(subscription->notification_cb)(
            received, uid, subscription->user_data);
    else
        reinterpret_cast<consumer_notification_callback>(subscription->notification_cb)(
            received, subscription->user_data);
}
