// SPDX-License-Identifier: LGPL-2.1-or-later

// A consumer's subscriptions: filing them, making them known to the switch, and what comes of them.

#include "bus/consumer.hpp"

#include "bus/errors.hpp"
#include "bus/shortdescription.hpp"
#include "bus/switchbusclient.hpp"
#include "messages/event.hpp"
#include "messages/subscribeexpression.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"

#include <qandor/switchbusclient.h>

#include <mutex>

using namespace qandor;

namespace {

constexpr const char *subscribe_method = "com.vemo.Event.Switch.Consumer.Subscribe";

std::string description_of(const subscription_data &subscription)
{
    std::unique_ptr<subscribe_expression> expression(
        subscribe_expression_deserialize(subscription.expression_data.get()));
    return short_description(expression->content);
}

} // namespace

subscription_data *ConsumerState::find(guint32 token)
{
    auto found = subscriptions.find(token);
    return found == subscriptions.end() ? nullptr : found->second.get();
}

void ConsumerState::subscribe(subscription_data &subscription)
{
    // A token that the switch still has is subscribed when the switch has forgotten it.
    if (subscription.subscribed || presence.is_lost() || retractions_.contains(subscription.token))
        return;
    const GArray *array = subscription.expression_data.get();
    Bytes bytes{reinterpret_cast<const guint8 *>(array->data), array->len};
    const char *object = presence.object.c_str(), *name = presence.name.c_str();
    if (!presence.bus) {
        // Which is the critical that a missing connection is.
        com_vemo_Event_Switch_Consumer_subscribe_async(nullptr, object, name, subscription.token,
                                                       bytes.data, bytes.length, ignore_answer,
                                                       nullptr);
        return;
    }
    Ticket *ticket = tickets_.issue(this, subscription.token);
    subscription.subscribed = true;
    subscription.sending = ticket->sending;
    subscribe_call(presence.bus, object, name, subscription.token, bytes)
        .send(receive_subscribe_answer, ticket, receive_subscribe_not_sent);
}

int ConsumerState::receive_subscribe_answer(sd_bus_message *reply, void *ticket, sd_bus_error *)
{
    CHECK(reply != NULL);
    settle_subscribe(static_cast<Ticket *>(ticket),
                     AnnouncementResult::of_answer(reply, subscribe_method));
    return 0;
}

void ConsumerState::receive_subscribe_not_sent(void *ticket, int error)
{
    settle_subscribe(static_cast<Ticket *>(ticket),
                     AnnouncementResult::of_failed_call(error, subscribe_method));
}

// The answer to an earlier sending of a subscription says nothing about a later one.
void ConsumerState::settle_subscribe(const Ticket *ticket, const AnnouncementResult &result)
{
    ConsumerState &state = *ticket->owner;
    std::lock_guard lock(state.mutex);
    Ticket taken = state.tickets_.take_back(ticket);
    subscription_data *record = state.find(taken.id);
    if (record && record->sending == taken.sending) {
        if (result.outcome == AnnouncementResult::NotSent)
            record->subscribed = false;
        if (result.outcome == AnnouncementResult::Refused)
            log_warning("The event switch refuses the subscription %u (%s): %s", taken.id,
                        description_of(*record).c_str(), result.text.c_str());
    }
    if (state.resending_.note(taken.sending, result))
        state.subscribe_all();
}

void ConsumerState::try_one()
{
    for (auto &[token, subscription] : subscriptions) {
        if (subscription->subscribed)
            continue;
        subscribe(*subscription);
        if (subscription->subscribed)
            resending_.set_trial(subscription->sending);
        return;
    }
}

void ConsumerState::subscribe_all()
{
    for (auto &[token, subscription] : subscriptions)
        subscribe(*subscription);
}

void ConsumerState::unsubscribe(guint32 token)
{
    if (presence.is_lost())
        return;
    if (presence.bus)
        retractions_.add(token);
    else // Which is the critical that a missing connection is.
        com_vemo_Event_Switch_Consumer_unsubscribe_async(nullptr, presence.object.c_str(), token,
                                                         ignore_answer, nullptr);
}

void ConsumerState::come_online()
{
    resending_.reset();
    subscribe_all();
}

void ConsumerState::lose_bus()
{
    presence.lose();
    tickets_.forget();
    resending_.reset();
    retractions_.lose_bus();
    go_offline();
}

void ConsumerState::go_offline()
{
    retractions_.forget();
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
    // The states come by themselves when the connection does.
    if (state.presence.is_lost())
        return;
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
    state.unsubscribe(subscription->token);
}

property_state *consumer_send_get_property_state(Consumer *self,
                                                 const subscribe_expression *expression,
                                                 GError **error)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    if (state.presence.is_lost()) {
        set_event_error(error, EventError::CallFailed, "The connection to the bus is lost");
        return nullptr;
    }
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
