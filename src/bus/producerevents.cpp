// SPDX-License-Identifier: LGPL-2.1-or-later

// A producer's events on their way to the subscribers.

#include "bus/producer.hpp"

#include "bus/consumerbusclient.hpp"
#include "bus/errors.hpp"
#include "platform/check.hpp"

#include <mutex>

using namespace qandor;

void Delivery::to(const subscribe_expression &subscription)
{
    if (!bytes_)
        bytes_ = new_event_bytes(bus_, event_serialize(&event_));
    call_consumer_event(bus_, subscription.dbus_service.c_str(),
                        {bytes_, subscription.dbus_object, subscription.consumer_token,
                         event_.property != FALSE, event_.local_id},
                        ignore_answer, nullptr);
}

void decl_data::fill_ids_of_cached_event()
{
    if (cached_event->global_id == 0)
        cached_event->global_id = declaration->global_id;
    if (cached_event->producer_id == 0)
        cached_event->producer_id = declaration->producer_id;
}

void ProducerState::send_property(decl_data &data, guint32 subscription_id)
{
    if (!data.declaration->property || !data.cached_event)
        return;
    data.fill_ids_of_cached_event();
    const event *event = data.cached_event.get();
    if (event->global_id == 0)
        return;
    CHECK(event_is_complete(event));
    const subscribe_expression *subscription = data.subscriptions.find(subscription_id);
    if (subscription && event_contains(event, subscription))
        Delivery(presence.bus, *event).to(*subscription);
}

void producer_fill_global_event_data(Producer *self, event *event)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    decl_data *data = state.find(event_get_local_id(event));
    if (!data)
        return;
    event->global_id = data->declaration->global_id;
    event->producer_id = data->declaration->producer_id;
}

gboolean producer_send_event(Producer *self, const event *event, GError **error)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    CHECK(event != NULL);
    CHECK(error == NULL || *error == NULL);
    decl_data *data = state.find(event->local_id);
    if (!data) {
        set_event_error(error, EventError::NotDeclared,
                        "The local declare id of the event is not registered.");
        return FALSE;
    }
    if (event->property) {
        // The switch may have gone and come since the event was given its ids.
        auto last_state = std::make_unique<struct event>(*event);
        last_state->global_id = data->declaration->global_id;
        last_state->producer_id = data->declaration->producer_id;
        data->cache(std::move(last_state));
    }
    state.deliver(*data, *event);
    return TRUE;
}
