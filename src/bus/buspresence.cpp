// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/buspresence.hpp"

#include "bus/callwindow.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"

namespace qandor {
namespace {

// sd-bus sends this to itself, after it has answered all calls under way with an error.
constexpr const char *local_name = "org.freedesktop.DBus.Local";
constexpr const char *disconnected_rule =
    "type='signal',sender='org.freedesktop.DBus.Local',path='/org/freedesktop/DBus/Local',"
    "interface='org.freedesktop.DBus.Local',member='Disconnected'";

} // namespace

int ignore_answer(sd_bus_message *reply, void *, sd_bus_error *)
{
    CHECK(reply != NULL);
    return 0;
}

int BusPresence::connect(GError **error)
{
    close();
    GSource *attached = nullptr;
    int r = connect_to_bus_and_attach_events(&attached, &bus, error);
    if (r < 0) {
        bus = nullptr;
        return r;
    }
    source_.reset(g_source_ref(attached));
    if (backlog)
        CallWindow::find(bus)->share(backlog);
    return r;
}

int BusPresence::serve(const char *interface, const sd_bus_vtable *vtable)
{
    return sd_bus_add_object_vtable(bus, nullptr, object.c_str(), interface, vtable,
                                    owner_.instance);
}

int BusPresence::watch()
{
    int r = watch_bus_driver(bus, &watcher_);
    if (r >= 0)
        r = sd_bus_add_match(bus, nullptr, disconnected_rule, receive_disconnected, this);
    if (r < 0)
        return r;
    was_up_ = true;
    timer_.reset();
    return r;
}

int BusPresence::receive_disconnected(sd_bus_message *message, void *self, sd_bus_error *)
{
    const Owner &owner = static_cast<BusPresence *>(self)->owner_;
    if (g_strcmp0(sd_bus_message_get_sender(message), local_name) == 0)
        owner.lost(owner.instance);
    return 0;
}

void BusPresence::lose()
{
    log_critical("The %s \"%s\" has lost its connection to the bus and connects again", owner_.kind,
                 name.c_str());
    connect_later();
}

void BusPresence::connect_later()
{
    close();
    timer_.start();
}

void BusPresence::disconnect()
{
    timer_.stop();
    close();
}

void BusPresence::close()
{
    if (!bus)
        return;
    disconnect_from_bus_and_detach_events(source_.get(), bus);
    bus = nullptr;
    source_.reset();
}

} // namespace qandor
