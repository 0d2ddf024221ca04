// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/countlisteners.hpp"

#include "platform/owners.hpp"

namespace qandor {
namespace {

// What the changes take in a message, about.
constexpr guint64 signal_bytes = 256;

int append_change(sd_bus_message *signal, const char *name, guint32 count)
{
    int r = sd_bus_message_open_container(signal, SD_BUS_TYPE_DICT_ENTRY, "sv");
    if (r >= 0)
        r = sd_bus_message_append(signal, "sv", name, "u", count);
    return r < 0 ? r : sd_bus_message_close_container(signal);
}

} // namespace

void CountListeners::tell()
{
    Counts now = count_();
    for (auto &[name, listener] : listeners_) {
        if (listener.is_queued || listener.known == now)
            continue;
        listener.is_queued = true;
        outbox_.add(name, Outbox::Kind::Call, signal_bytes,
                    [this, name = name] { return send(name); });
    }
}

// What has changed until it goes out is told with it.
gint64 CountListeners::send(const std::string &name)
{
    auto found = listeners_.find(name);
    if (found == listeners_.end())
        return 0;
    Listener &listener = found->second;
    listener.is_queued = false;
    Counts now = count_();
    if (listener.known == now)
        return 0;
    sd_bus_message *made = nullptr;
    int r = sd_bus_message_new_signal(bus_, &made, place_.object, "org.freedesktop.DBus.Properties",
                                      "PropertiesChanged");
    BusMessageOwner signal(made);
    if (r >= 0)
        r = sd_bus_message_set_destination(made, name.c_str());
    if (r >= 0)
        r = append_changes(made, std::exchange(listener.known, now), now);
    if (r >= 0)
        r = sd_bus_send(bus_, made, nullptr);
    return r < 0 ? r : static_cast<gint64>(signal_bytes);
}

int CountListeners::append_changes(sd_bus_message *signal, const Counts &known,
                                   const Counts &now) const
{
    int r = sd_bus_message_append(signal, "s", place_.interface);
    if (r >= 0)
        r = sd_bus_message_open_container(signal, SD_BUS_TYPE_ARRAY, "{sv}");
    for (const CountProperty &property : count_properties)
        if (r >= 0 && known.*property.count != now.*property.count)
            r = append_change(signal, property.name, static_cast<guint32>(now.*property.count));
    if (r >= 0)
        r = sd_bus_message_close_container(signal);
    return r < 0 ? r : sd_bus_message_append(signal, "as", 0); // no name without its value
}

} // namespace qandor
