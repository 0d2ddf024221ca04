// SPDX-License-Identifier: LGPL-2.1-or-later

// The Consumer type: its life, from the first connection to the last farewell.

#include "bus/consumer.hpp"

#include "bus/errors.hpp"
#include "bus/switchbusclient.hpp"
#include "platform/check.hpp"

#include <qandor/switchbusclient.h>

#include <cstring>
#include <mutex>

using namespace qandor;

struct _Consumer {
    GObject parent_instance;
    ConsumerState *state;
};

struct _ConsumerClass {
    GObjectClass parent_class;
};

G_DEFINE_TYPE(Consumer, consumer, G_TYPE_OBJECT)

ConsumerState &qandor::state_of(Consumer *self)
{
    return *self->state;
}

static void consumer_online_handler(gpointer user_data)
{
    ConsumerState &state = state_of(static_cast<Consumer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.come_online();
}

static void consumer_offline_handler(gpointer user_data)
{
    ConsumerState &state = state_of(static_cast<Consumer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.go_offline();
}

static void consumer_lost_handler(gpointer user_data)
{
    ConsumerState &state = state_of(static_cast<Consumer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.lose_bus();
}

static void consumer_connect_again(gpointer user_data)
{
    GError *error = nullptr;
    consumer_init_dbus(static_cast<Consumer *>(user_data), &error);
    ErrorOwner owner(error);
}

static void consumer_try_one(gpointer user_data)
{
    ConsumerState &state = state_of(static_cast<Consumer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.try_one();
}

static MethodCall consumer_call_to_forget(gpointer user_data, guint32 token)
{
    const BusPresence &presence = state_of(static_cast<Consumer *>(user_data)).presence;
    return unsubscribe_call(presence.bus, presence.object.c_str(), token);
}

static void consumer_token_is_free(gpointer user_data)
{
    state_of(static_cast<Consumer *>(user_data)).subscribe_all();
}

ConsumerState::ConsumerState(Consumer *instance)
    : presence({"consumer", instance, consumer_online_handler, consumer_offline_handler,
                consumer_lost_handler, consumer_connect_again}),
      resending_(consumer_try_one, instance),
      retractions_({mutex, instance, "com.vemo.Event.Switch.Consumer.Unsubscribe",
                    consumer_call_to_forget, consumer_token_is_free, true})
{
    TextOwner object(g_strdup_printf("/com/vemo/Event/Consumer/%p", static_cast<void *>(instance)));
    presence.object = object.get();
}

// The text for the negative number itself, which has none: so the number can be read in it.
static void set_error_with_reason(GError **error, int r, const gchar *what)
{
    TextOwner text(g_strdup_printf("%s: %s", what, std::strerror(r)));
    set_bus_error(error, r, text.get());
}

// Connects, serves the object and watches the switch; FALSE with the error set.
static gboolean set_up(ConsumerState &state, GError **error)
{
    if (state.presence.connect(error) < 0)
        return FALSE;
    int r = serve_consumer(state);
    if (r < 0) {
        set_error_with_reason(error, r, "Failed to register consumer server");
        return FALSE;
    }
    r = state.presence.watch();
    if (r < 0) {
        set_error_with_reason(error, r, "Consumer failed to watch bus driver");
        return FALSE;
    }
    return TRUE;
}

gboolean consumer_init_dbus(Consumer *self, GError **error)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    CHECK(error != NULL && *error == NULL);
    if (!set_up(state, error)) {
        state.presence.connect_later();
        return FALSE;
    }
    state.subscribe_all();
    return *error == nullptr;
}

static void consumer_init(Consumer *self)
{
    self->state = new ConsumerState(self);
}

static void consumer_finalize(GObject *object)
{
    auto *self = reinterpret_cast<Consumer *>(object);
    {
        std::lock_guard lock(self->state->mutex);
        self->state->presence.disconnect();
    }
    delete self->state;
    G_OBJECT_CLASS(consumer_parent_class)->finalize(object);
}

static void consumer_class_init(ConsumerClass *consumer_class)
{
    G_OBJECT_CLASS(consumer_class)->finalize = consumer_finalize;
}

Consumer *consumer_new(const gchar *name)
{
    auto *self = static_cast<Consumer *>(g_object_new(QANDOR_TYPE_CONSUMER, nullptr));
    state_of(self).presence.name = name ? name : "";
    return self;
}

void consumer_send_disconnect(Consumer *self)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    if (state.presence.is_lost())
        return;
    com_vemo_Event_Switch_Consumer_disconnect_async(
        state.presence.bus, state.presence.object.c_str(), ignore_answer, nullptr);
}

void consumer_prepare_free(Consumer *self)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    state.subscriptions.clear();
}
