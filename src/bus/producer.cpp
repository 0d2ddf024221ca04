// SPDX-License-Identifier: LGPL-2.1-or-later

// The Producer type: its life, from the first connection to the last farewell.

#include "bus/producer.hpp"

#include "bus/errors.hpp"
#include "bus/switchbusclient.hpp"
#include "platform/check.hpp"

#include <qandor/switchbusclient.h>

#include <mutex>

using namespace qandor;

struct _Producer {
    GObject parent_instance;
    ProducerState *state;
};

struct _ProducerClass {
    GObjectClass parent_class;
};

G_DEFINE_TYPE(Producer, producer, G_TYPE_OBJECT)

ProducerState &qandor::state_of(Producer *self)
{
    return *self->state;
}

void qandor::disconnect_producer(Producer *self)
{
    std::lock_guard lock(self->state->mutex);
    self->state->presence.disconnect();
}

static void producer_online_handler(gpointer user_data)
{
    ProducerState &state = state_of(static_cast<Producer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.come_online();
}

static void producer_offline_handler(gpointer user_data)
{
    KeepAlive alive(user_data);
    ProducerState &state = state_of(static_cast<Producer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.go_offline();
}

static void producer_lost_handler(gpointer user_data)
{
    KeepAlive alive(user_data);
    state_of(static_cast<Producer *>(user_data)).lose_bus();
}

static void producer_connect_again(gpointer user_data)
{
    GError *error = nullptr;
    producer_init_dbus(static_cast<Producer *>(user_data), &error);
    ErrorOwner owner(error);
}

static void producer_try_one(gpointer user_data)
{
    ProducerState &state = state_of(static_cast<Producer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.try_one();
}

static void producer_let_go(gpointer user_data)
{
    ProducerState &state = state_of(static_cast<Producer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.deliver_held();
}

static void producer_give_up_former(gpointer user_data)
{
    ProducerState &state = state_of(static_cast<Producer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.give_up_former();
}

static MethodCall producer_call_to_forget(gpointer user_data, guint32 global_id)
{
    const BusPresence &presence = state_of(static_cast<Producer *>(user_data)).presence;
    return undeclare_call(presence.bus, presence.object.c_str(), global_id);
}

// A local id that is declared again replaces what the switch has of it.
static void producer_id_is_free(gpointer) {}

ProducerState::ProducerState(Producer *instance)
    : presence({"producer", instance, producer_online_handler, producer_offline_handler,
                producer_lost_handler, producer_connect_again}),
      resending_(producer_try_one, instance),
      retractions_({mutex, instance, "com.vemo.Event.Switch.Producer.Undeclare",
                    producer_call_to_forget, producer_id_is_free, false}),
      held_timer_(producer_let_go, instance), former_timer_(producer_give_up_former, instance)
{
    TextOwner object(g_strdup_printf("/com/vemo/Event/Producer/%p", static_cast<void *>(instance)));
    presence.object = object.get();
}

// Connects, serves the object and watches the switch; FALSE with the error set.
static gboolean set_up(ProducerState &state, GError **error)
{
    if (state.presence.connect(error) < 0)
        return FALSE;
    int r = serve_producer(state);
    if (r < 0) {
        set_bus_error(error, r, "Failed to register producer server");
        return FALSE;
    }
    r = state.presence.watch();
    if (r < 0) {
        set_bus_error(error, r, "Producer failed to watch bus driver");
        return FALSE;
    }
    return TRUE;
}

gboolean producer_init_dbus(Producer *self, GError **error)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    CHECK(error != NULL && *error == NULL);
    if (!set_up(state, error)) {
        state.presence.connect_later();
        return FALSE;
    }
    state.declare_all();
    return *error == nullptr;
}

static void producer_init(Producer *self)
{
    self->state = new ProducerState(self);
}

static void producer_finalize(GObject *object)
{
    auto *self = reinterpret_cast<Producer *>(object);
    disconnect_producer(self);
    delete self->state;
    G_OBJECT_CLASS(producer_parent_class)->finalize(object);
}

static void producer_class_init(ProducerClass *producer_class)
{
    G_OBJECT_CLASS(producer_class)->finalize = producer_finalize;
}

Producer *producer_new(const gchar *name, producer_ids_callback subscriptions_changed,
                       gpointer user_data)
{
    auto *self = static_cast<Producer *>(g_object_new(QANDOR_TYPE_PRODUCER, nullptr));
    ProducerState &state = state_of(self);
    state.presence.name = name ? name : "";
    state.subscriptions_changed = subscriptions_changed;
    state.user_data = user_data;
    return self;
}

void producer_send_disconnect(Producer *self)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    state.deliver_all_held();
    if (state.presence.is_lost())
        return;
    com_vemo_Event_Switch_Producer_disconnect_async(
        state.presence.bus, state.presence.object.c_str(), ignore_answer, nullptr);
}

void producer_prepare_free(Producer *self)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    state.subscriptions_changed = nullptr;
    for (auto &[local_id, data] : state.declared_events) {
        drop_property_callback(*data->declaration);
        data->complete_cb = nullptr;
    }
}
