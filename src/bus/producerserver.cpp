// SPDX-License-Identifier: LGPL-2.1-or-later

// The object that a producer serves on the bus, for the switch to call.

#include "bus/producer.hpp"

#include "bus/servercall.hpp"
#include "platform/check.hpp"

using namespace qandor;

namespace {

Producer *producer_of(void *userdata)
{
    return static_cast<Producer *>(userdata);
}

int producer_receive_global_declare_id_bus(sd_bus_message *m, void *self, sd_bus_error *)
{
    CHECK(m != NULL);
    CHECK(self != NULL);
    guint32 local_id, global_id, producer_id;
    read_values(m, "uuu", &local_id, &global_id, &producer_id);
    producer_receive_global_declare_id(producer_of(self), local_id, global_id, producer_id);
    return sd_bus_reply_method_return(m, nullptr);
}

int producer_receive_declaration_complete_bus(sd_bus_message *m, void *self, sd_bus_error *)
{
    CHECK(m != NULL);
    CHECK(self != NULL);
    KeepAlive alive(self);
    guint32 local_id, global_id;
    read_values(m, "uu", &local_id, &global_id);
    producer_receive_declaration_complete(producer_of(self), local_id, global_id);
    return sd_bus_reply_method_return(m, nullptr);
}

int producer_receive_subscribe_bus(sd_bus_message *m, void *self, sd_bus_error *)
{
    CHECK(m != NULL);
    CHECK(self != NULL);
    KeepAlive alive(self);
    GArray array = read_bytes(m);
    guint32 local_id;
    read_values(m, "u", &local_id);
    producer_receive_subscribe(producer_of(self), &array, local_id);
    return sd_bus_reply_method_return(m, nullptr);
}

int producer_receive_refresh_property_bus(sd_bus_message *m, void *self, sd_bus_error *)
{
    CHECK(m != NULL);
    CHECK(self != NULL);
    guint32 subscription_id, local_id;
    read_values(m, "uu", &subscription_id, &local_id);
    producer_receive_refresh_property(producer_of(self), subscription_id, local_id);
    return sd_bus_reply_method_return(m, nullptr);
}

int producer_receive_unsubscribe_bus(sd_bus_message *m, void *self, sd_bus_error *)
{
    CHECK(m != NULL);
    CHECK(self != NULL);
    KeepAlive alive(self);
    guint32 subscription_id, local_id;
    read_values(m, "uu", &subscription_id, &local_id);
    producer_receive_unsubscribe(producer_of(self), subscription_id, local_id);
    return sd_bus_reply_method_return(m, nullptr);
}

int producer_get_name_bus(sd_bus *, const char *, const char *, const char *, sd_bus_message *reply,
                          void *self, sd_bus_error *)
{
    const BusPresence &presence = state_of(producer_of(self)).presence;
    return sd_bus_message_append(reply, "s", presence.name.c_str());
}

const sd_bus_vtable vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GlobalDeclareId", "uuu", nullptr, producer_receive_global_declare_id_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("DeclarationComplete", "uu", nullptr, producer_receive_declaration_complete_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Subscribe", "ayu", nullptr, producer_receive_subscribe_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("RefreshProperty", "uu", nullptr, producer_receive_refresh_property_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Unsubscribe", "uu", nullptr, producer_receive_unsubscribe_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Name", "s", producer_get_name_bus, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END,
};

} // namespace

int qandor::serve_producer(ProducerState &state)
{
    return state.presence.serve("com.vemo.Event.Producer", vtable);
}
