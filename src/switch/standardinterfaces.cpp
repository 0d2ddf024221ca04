// SPDX-License-Identifier: LGPL-2.1-or-later

// Peer, Introspectable and Properties of the switch's objects.

#include "switch/request.hpp"
#include "switch/service.hpp"

#include <systemd/sd-id128.h>

namespace qandor {
namespace {

int ping(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    return Request(call, userdata).answer();
}

int get_machine_id(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    sd_id128_t id;
    char text[SD_ID128_STRING_MAX];
    int r = sd_id128_get_machine(&id);
    return Request(call, userdata).answer_with([&](sd_bus_message *reply) {
        return r < 0 ? r : sd_bus_message_append(reply, "s", sd_id128_to_string(id, text));
    });
}

int introspect(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    std::string path = sd_bus_message_get_path(call);
    return request.answer_with([&](sd_bus_message *reply) {
        return sd_bus_message_append(reply, "s",
                                     request.service().methods.introspect(path).c_str());
    });
}

int append_value(sd_bus_message *reply, const sd_bus_vtable *property, Service &service)
{
    int r =
        sd_bus_message_open_container(reply, SD_BUS_TYPE_VARIANT, property->x.property.signature);
    if (r >= 0)
        r = property->x.property.get(service.bus, "", "", property->x.property.member, reply,
                                     &service, nullptr);
    return r < 0 ? r : sd_bus_message_close_container(reply);
}

int get_property(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    const char *interface = request.read_text();
    const char *name = request.read_text();
    const sd_bus_vtable *property =
        request.service().methods.find_property(sd_bus_message_get_path(call), interface, name);
    if (!property) {
        request.refuse(SD_BUS_ERROR_UNKNOWN_PROPERTY, std::string("Unknown property ") + name);
        return request.refusal();
    }
    request.service().monitor.note_reader(interface, sd_bus_message_get_sender(call));
    return request.answer_with(
        [&](sd_bus_message *reply) { return append_value(reply, property, request.service()); });
}

int append_all(sd_bus_message *reply, const std::vector<const sd_bus_vtable *> &properties,
               Service &service)
{
    int r = sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, "{sv}");
    for (const sd_bus_vtable *property : properties) {
        if (r >= 0)
            r = sd_bus_message_open_container(reply, SD_BUS_TYPE_DICT_ENTRY, "sv");
        if (r >= 0)
            r = sd_bus_message_append(reply, "s", property->x.property.member);
        if (r >= 0)
            r = append_value(reply, property, service);
        if (r >= 0)
            r = sd_bus_message_close_container(reply);
    }
    return r < 0 ? r : sd_bus_message_close_container(reply);
}

int get_all_properties(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    const char *interface = request.read_text();
    auto found = request.service().methods.properties(sd_bus_message_get_path(call), interface);
    request.service().monitor.note_reader(interface, sd_bus_message_get_sender(call));
    return request.answer_with(
        [&](sd_bus_message *reply) { return append_all(reply, found, request.service()); });
}

int set_property(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    request.refuse(SD_BUS_ERROR_PROPERTY_READ_ONLY, "The properties are for reading");
    return request.refusal();
}

} // namespace

const sd_bus_vtable peer_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Ping", "", "", ping, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetMachineId", "", "s", get_machine_id, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable introspectable_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Introspect", "", "s", introspect, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable properties_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Get", "ss", "v", get_property, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetAll", "s", "a{sv}", get_all_properties, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Set", "ssv", "", set_property, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

} // namespace qandor
