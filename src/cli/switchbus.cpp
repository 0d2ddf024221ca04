// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/switchbus.hpp"

#include "bus/askingbus.hpp"
#include "cli/buserror.hpp"

#include <cstring>
#include <pwd.h>

namespace qandor::cli {
namespace {

constexpr const char *query_interface = "com.vemo.Event.Switch.Query";
constexpr guint64 timeout_usec = 30 * 1000 * 1000;

BusPeer peer_of(sd_bus_creds *credentials)
{
    const char *name = "", *program = "";
    pid_t pid = 0;
    uid_t uid = 0;
    BusPeer peer;
    sd_bus_creds_get_unique_name(credentials, &name);
    peer.name = name;
    if (sd_bus_creds_get_comm(credentials, &program) >= 0)
        peer.program = program;
    if (sd_bus_creds_get_pid(credentials, &pid) >= 0)
        peer.pid = static_cast<guint32>(pid);
    if (sd_bus_creds_get_euid(credentials, &uid) >= 0)
        peer.uid = uid;
    return peer;
}

} // namespace

std::string user_name(guint32 uid)
{
    const passwd *user = getpwuid(uid);
    return user ? user->pw_name : std::to_string(uid);
}

SwitchBus::SwitchBus()
{
    sd_bus *made = nullptr;
    int r = sd_bus_open_system(&made);
    if (r < 0)
        throw Failure(r == -EACCES || r == -EPERM ? EX_NOPERM : EX_UNAVAILABLE,
                      std::string("There is no system bus to be had: ") + std::strerror(-r),
                      "It is the service 'dbus'. DBUS_SYSTEM_BUS_ADDRESS names another one.");
    bus_.reset(made);
}

sd_bus *SwitchBus::asking_bus() const
{
    handle_queued(bus_.get());
    return bus_.get();
}

std::optional<BusPeer> SwitchBus::owner() const
{
    sd_bus_creds *made = nullptr;
    int r = sd_bus_get_name_creds(asking_bus(), DBUS_SERVICE_SWITCH,
                                  SD_BUS_CREDS_UNIQUE_NAME | SD_BUS_CREDS_PID | SD_BUS_CREDS_EUID |
                                      SD_BUS_CREDS_COMM | SD_BUS_CREDS_AUGMENT,
                                  &made);
    Credentials credentials(made);
    if (r == -ENXIO || r == -ESRCH)
        return std::nullopt;
    if (r < 0)
        throw Failure(EX_UNAVAILABLE,
                      std::string("The bus does not say who the event switch is: ") +
                          std::strerror(-r));
    return peer_of(made);
}

void SwitchBus::require_switch() const
{
    if (owner())
        return;
    BusError error;
    sd_bus_message *made = nullptr;
    int r = sd_bus_call_method(asking_bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "StartServiceByName", error.get(), &made,
                               "su", DBUS_SERVICE_SWITCH, 0);
    Message reply(made);
    if (r < 0)
        throw Failure(EX_UNAVAILABLE, "There is no event switch on the bus", no_switch_hint);
}

Message SwitchBus::new_call(const char *interface, const char *member) const
{
    sd_bus_message *made = nullptr;
    if (sd_bus_message_new_method_call(bus_.get(), &made, DBUS_SERVICE_SWITCH, DBUS_OBJECT_SWITCH,
                                       interface, member) < 0)
        throw Failure(EX_SOFTWARE, std::string("The call of ") + member + " cannot be made");
    // Who has to have a switch has required it; nobody else is to start one.
    sd_bus_message_set_auto_start(made, false);
    return Message(made);
}

Message SwitchBus::call(const Message &call) const
{
    BusError error;
    sd_bus_message *made = nullptr;
    int r = sd_bus_call(asking_bus(), call.get(), timeout_usec, error.get(), &made);
    Message reply(made);
    if (r < 0)
        error.fail(std::string("The switch refuses ") + sd_bus_message_get_member(call.get()), r);
    return reply;
}

guint32 SwitchBus::count(const char *property) const
{
    BusError error;
    guint32 count = 0;
    int r = sd_bus_get_property_trivial(asking_bus(), DBUS_SERVICE_SWITCH, DBUS_OBJECT_SWITCH,
                                        monitor_interface, property, error.get(), 'u', &count);
    if (r < 0)
        error.fail(std::string("The switch does not tell ") + property, r);
    return count;
}

std::vector<Declaration> SwitchBus::list(const char *member) const
{
    Message reply = call(query_interface, member);
    const void *data = nullptr;
    std::size_t size = 0;
    if (sd_bus_message_read_array(reply.get(), 'y', &data, &size) < 0)
        throw Failure(EX_UNAVAILABLE,
                      std::string("The switch answers ") + member + " with no list");
    Bytes bytes(serialize_create_array());
    serialize_blob(bytes.get(), data, static_cast<guint32>(size));
    guint place = 0;
    GList *read = deserialize_glist(bytes.get(), &place, [](GArray *array, guint *at) -> gpointer {
        return event_declaration_deserialize_internal(array, at);
    });
    std::vector<Declaration> declarations;
    for (GList *link = read; link; link = link->next)
        declarations.emplace_back(static_cast<::event_declaration *>(link->data));
    g_list_free(read);
    return declarations;
}

std::vector<Declaration> SwitchBus::declarations() const
{
    return list("GetAllDeclarations");
}

std::vector<Declaration> SwitchBus::types() const
{
    return list("GetDeclarationTypes");
}

} // namespace qandor::cli
