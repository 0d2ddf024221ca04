// SPDX-License-Identifier: LGPL-2.1-or-later

// The object that a consumer serves on the bus: producers deliver events to it, the switch
// notifications.

#include "bus/consumer.hpp"

#include "bus/sendercredentials.hpp"
#include "bus/servercall.hpp"
#include "platform/check.hpp"

#include <qandor/consumerbusclient.h>

#include <mutex>

using namespace qandor;

namespace {

Consumer *consumer_of(void *userdata)
{
    return static_cast<Consumer *>(userdata);
}

// Only a secure subscription pays for asking who the sender is.
guint32 uid_for(ConsumerState &state, guint32 token, sd_bus_message *m)
{
    const subscription_data *subscription = state.find(token);
    if (!subscription || subscription->type != SUBSCRIPTION_TYPE_SECURE)
        return unknown_uid;
    return get_uid_from_message(m);
}

// Reads a delivery and hands it on, with the lock held until the application's function is back.
template <class Receive> int receive(sd_bus_message *m, void *userdata, Receive hand_on)
{
    Consumer *self = consumer_of(userdata);
    KeepAlive alive(self);
    {
        ConsumerState &state = state_of(self);
        std::lock_guard lock(state.mutex);
        GArray array = read_bytes(m);
        guint32 token;
        read_values(m, "u", &token);
        hand_on(self, &array, token, uid_for(state, token, m));
    }
    return sd_bus_reply_method_return(m, nullptr);
}

int consumer_receive_event_bus(sd_bus_message *m, void *self, sd_bus_error *)
{
    CHECK(m != NULL);
    CHECK(self != NULL);
    return receive(m, self, consumer_receive_event);
}

int consumer_receive_notification_bus(sd_bus_message *m, void *self, sd_bus_error *)
{
    CHECK(m != NULL);
    CHECK(self != NULL);
    return receive(m, self, consumer_receive_notification);
}

int consumer_get_name_bus(sd_bus *, const char *, const char *, const char *, sd_bus_message *reply,
                          void *self, sd_bus_error *)
{
    const BusPresence &presence = state_of(consumer_of(self)).presence;
    return sd_bus_message_append(reply, "s", presence.name.c_str());
}

const sd_bus_vtable vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Event", "ayu", nullptr, consumer_receive_event_bus, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Notification", "ayu", nullptr, consumer_receive_notification_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Name", "s", consumer_get_name_bus, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END,
};

} // namespace

int qandor::serve_consumer(ConsumerState &state)
{
    return state.presence.serve(DBUS_INTERFACE_CONSUMER, vtable);
}
