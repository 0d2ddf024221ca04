// SPDX-License-Identifier: LGPL-2.1-or-later

// The subscriptions that the switch forwards to a producer.

#include "bus/producer.hpp"

#include <cerrno>
#include <mutex>

using namespace qandor;

void decl_data::forget_switch()
{
    if (!declaration->property)
        former.remember(subscriptions);
    subscriptions.clear();
    declared = false;
    returning = returning || declaration->global_id != 0;
    declaration->global_id = 0;
    declaration->producer_id = 0;
    // A state that is sent again later carries the ids that are valid then.
    if (cached_event) {
        cached_event->global_id = 0;
        cached_event->producer_id = 0;
    }
}

void ProducerState::notify_subscriptions_changed()
{
    if (!subscriptions_changed)
        return;
    ArrayOwner local_ids(g_array_new(FALSE, FALSE, sizeof(guint32)));
    for (const auto &[local_id, data] : declared_events)
        if (data->subscriptions.has_visible())
            g_array_append_val(local_ids.get(), local_id);
    subscriptions_changed(local_ids.get(), user_data);
}

static void notify(gpointer self)
{
    ProducerState &state = state_of(static_cast<Producer *>(self));
    std::lock_guard lock(state.mutex);
    state.notify_subscriptions_changed();
}

static void notify_on_main_thread(Producer *self)
{
    MainSourceOwner source(g_idle_source_new());
    g_source_set_priority(source.get(), G_PRIORITY_DEFAULT);
    g_source_set_callback(
        source.get(),
        [](gpointer producer) -> gboolean {
            notify(producer);
            return G_SOURCE_REMOVE;
        },
        g_object_ref(self), g_object_unref);
    g_source_attach(source.get(), nullptr);
}

// The thread that owns the main context is its thread. Between two iterations nobody owns it; then
// it is that of the thread that iterated it last, as far as this producer has seen.
void qandor::tell_of_release(Producer *self)
{
    KeepAlive alive(self);
    bool may_be_main_thread =
        g_main_context_is_owner(nullptr) || state_of(self).main_thread.load() == g_thread_self();
    if (!may_be_main_thread || !g_main_context_acquire(nullptr)) {
        notify_on_main_thread(self);
        return;
    }
    notify(self);
    g_main_context_release(nullptr);
}

void ProducerState::come_online()
{
    resending_.reset();
    declare_all();
}

void ProducerState::lose_bus()
{
    std::list<TypeRequest> unanswered;
    {
        std::lock_guard lock(mutex);
        presence.lose();
        tickets_.forget();
        resending_.reset();
        retractions_.lose_bus();
        unanswered.swap(type_requests_);
        go_offline();
        for (auto &[local_id, data] : declared_events)
            data->former.forget_names();
    }
    for (const TypeRequest &request : unanswered)
        request.tell(ENOTCONN);
}

void ProducerState::go_offline()
{
    ++switch_number_;
    retractions_.forget();
    bool was_visible = false;
    for (auto &[local_id, data] : declared_events) {
        was_visible = was_visible || data->subscriptions.has_visible();
        data->forget_switch();
    }
    if (was_visible)
        notify_subscriptions_changed();
}

void producer_receive_subscribe(Producer *self, GArray *array, guint32 local_id)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    decl_data *data = state.find(local_id);
    if (!data)
        return;
    state.main_thread = g_thread_self();
    std::unique_ptr<subscribe_expression> expression(subscribe_expression_deserialize(array));
    guint32 subscription_id = expression->id;
    bool is_first = !expression->clandestine && !data->subscriptions.has_visible();
    data->subscriptions.add(std::move(expression));
    state.welcome(*data, subscription_id);
    if (is_first)
        state.notify_subscriptions_changed();

    // The application may have undeclared meanwhile.
    data = state.find(local_id);
    if (data)
        state.send_property(*data, subscription_id);
}

void producer_receive_refresh_property(Producer *self, guint32 subscription_id, guint32 local_id)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    if (decl_data *data = state.find(local_id))
        state.send_property(*data, subscription_id);
}

void producer_receive_unsubscribe(Producer *self, guint32 subscription_id, guint32 local_id)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    decl_data *data = state.find(local_id);
    if (!data)
        return;
    bool was_visible = data->subscriptions.has_visible();
    data->subscriptions.remove(subscription_id);
    if (was_visible && !data->subscriptions.has_visible())
        state.notify_subscriptions_changed();
}
