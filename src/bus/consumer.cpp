// SPDX-License-Identifier: LGPL-2.1-or-later

// The Consumer type: its life, from the first connection to the last farewell.

#include "bus/consumer.hpp"

#include "bus/errors.hpp"
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

ConsumerState::ConsumerState(Consumer *instance)
{
    TextOwner object(g_strdup_printf("/com/vemo/Event/Consumer/%p", static_cast<void *>(instance)));
    presence.object = object.get();
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

static void consumer_online_handler(gpointer user_data)
{
    ConsumerState &state = state_of(static_cast<Consumer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.subscribe_all();
}

static void consumer_offline_handler(gpointer user_data)
{
    ConsumerState &state = state_of(static_cast<Consumer *>(user_data));
    std::lock_guard lock(state.mutex);
    state.go_offline();
}

namespace {

// The text for the negative number itself, which has none: so the number can be read in it.
void set_error_with_reason(GError **error, int r, const gchar *what)
{
    TextOwner text(g_strdup_printf("%s: %s", what, std::strerror(r)));
    set_bus_error(error, r, text.get());
}

} // namespace

gboolean consumer_init_dbus(Consumer *self, GError **error)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    CHECK(error != NULL && *error == NULL);
    if (state.presence.connect(error) < 0)
        return FALSE;

    int r = serve_consumer(state, self);
    if (r < 0) {
        set_error_with_reason(error, r, "Failed to register consumer server");
        return FALSE;
    }
    r = state.presence.watch(consumer_online_handler, consumer_offline_handler, self);
    if (r < 0) {
        set_error_with_reason(error, r, "Consumer failed to watch bus driver");
        return FALSE;
    }
    state.subscribe_all();
    return *error == nullptr;
}

void consumer_send_disconnect(Consumer *self)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    com_vemo_Event_Switch_Consumer_disconnect_async(
        state.presence.bus, state.presence.object.c_str(), ignore_answer, nullptr);
}

void consumer_prepare_free(Consumer *self)
{
    ConsumerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    state.subscriptions.clear();
}
