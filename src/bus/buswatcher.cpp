// SPDX-License-Identifier: LGPL-2.1-or-later

// The watch over the event switch's name.

#include "bus/busdriver.hpp"
#include "bus/heldsignals.hpp"
#include "platform/check.hpp"

#include <qandor/busconnection.h>
#include <qandor/switchbusclient.h>

#include <cerrno>

namespace {

constexpr const char *rule =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
    "interface='org.freedesktop.DBus',member='NameOwnerChanged',"
    "arg0='com.vemo.Event.Switch'";

bool is_switch(const char *name)
{
    return g_strcmp0(name, DBUS_SERVICE_SWITCH) == 0;
}

int driver_name_owner_changed(sd_bus_message *message, void *user_data, sd_bus_error *)
{
    auto *watcher = static_cast<bus_driver_watcher *>(user_data);
    CHECK(message != NULL);
    CHECK(watcher != NULL);
    if (!qandor::is_from_bus(message))
        return 0;

    const char *name, *old_owner, *new_owner;
    int r = sd_bus_message_read(message, "sss", &name, &old_owner, &new_owner);
    CHECK(r >= 0);
    if (!is_switch(name))
        g_assertion_message_cmpstr(nullptr, __FILE__, __LINE__, __func__,
                                   "name == DBUS_SERVICE_SWITCH", name, "==", DBUS_SERVICE_SWITCH);

    // The switch never hands its name over: it comes from nobody and leaves it to nobody.
    bool had_owner = *old_owner;
    bool has_owner = *new_owner;
    if (had_owner == has_owner)
        CHECK_NOT_REACHED();
    auto transition = has_owner ? watcher->online : watcher->offline;
    if (transition)
        transition(watcher->user_data);
    return 0;
}

} // namespace

int watch_bus_driver(sd_bus *bus, bus_driver_watcher *watcher)
{
    CHECK(bus != NULL);
    CHECK(watcher != NULL);
    qandor::HeldSignals held;
    int r;
    do
        r = sd_bus_add_match(bus, nullptr, rule, driver_name_owner_changed, watcher);
    while (r == -1 && errno == EINTR);
    return r;
}
