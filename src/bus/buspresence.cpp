// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/buspresence.hpp"

#include "bus/callwindow.hpp"
#include "platform/check.hpp"

namespace qandor {

int ignore_answer(sd_bus_message *reply, void *, sd_bus_error *)
{
    CHECK(reply != NULL);
    return 0;
}

int BusPresence::connect(GError **error)
{
    int r = connect_to_bus_and_attach_events(&source_, &bus, error);
    if (r < 0) {
        bus = nullptr;
        source_ = nullptr;
        return r;
    }
    if (backlog)
        CallWindow::find(bus)->share(backlog);
    return r;
}

int BusPresence::serve(const char *interface, const sd_bus_vtable *vtable, void *instance)
{
    return sd_bus_add_object_vtable(bus, nullptr, object.c_str(), interface, vtable, instance);
}

int BusPresence::watch(void (*online)(gpointer), void (*offline)(gpointer), void *instance)
{
    watcher_ = {online, offline, instance};
    return watch_bus_driver(bus, &watcher_);
}

void BusPresence::disconnect()
{
    if (!bus)
        return;
    disconnect_from_bus_and_detach_events(source_, bus);
    bus = nullptr;
    source_ = nullptr;
}

bool was_not_delivered(sd_bus_message *reply)
{
    return sd_bus_message_is_method_error(reply, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0 ||
           sd_bus_message_is_method_error(reply, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0 ||
           sd_bus_message_is_method_error(reply, SD_BUS_ERROR_NO_REPLY) > 0;
}

} // namespace qandor
