// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/rollcall.hpp"

#include "switch/log.hpp"

#include <cstring>
#include <unordered_set>

namespace qandor {

int RollCall::begin(sd_bus *bus)
{
    bus_ = bus;
    sd_event_source *made = nullptr;
    int r = sd_event_add_time(sd_bus_get_event(bus), &made, CLOCK_MONOTONIC, 0, 0, ask, this);
    timer_.reset(made);
    return r < 0 ? r : sd_event_source_set_enabled(made, SD_EVENT_OFF);
}

// Answers do not count, or the answer to one question would bring about the next.
void RollCall::note(sd_bus_message *message)
{
    guint8 type = 0;
    sd_bus_message_get_type(message, &type);
    bool is_answer = type == SD_BUS_MESSAGE_METHOD_RETURN || type == SD_BUS_MESSAGE_METHOD_ERROR;
    if (is_due_ || is_answer)
        return;
    sd_event_source_set_time(timer_.get(),
                             static_cast<guint64>(g_get_monotonic_time()) + pause_usec);
    is_due_ = sd_event_source_set_enabled(timer_.get(), SD_EVENT_ONESHOT) >= 0;
}

int RollCall::ask(sd_event_source *, uint64_t, void *data)
{
    auto &self = *static_cast<RollCall *>(data);
    self.is_due_ = false;
    sd_bus_slot *slot = nullptr;
    int r = sd_bus_call_method_async(self.bus_, &slot, "org.freedesktop.DBus",
                                     "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames",
                                     receive_names, &self, nullptr);
    self.asking_.reset(slot);
    if (r < 0)
        log_line(LogLevel::Warning, "cannot ask which names are on the bus: %s", std::strerror(-r));
    return 0;
}

// What was read before the answer came before it on the bus too, so that each name that is known
// here and was still connected is in the list.
int RollCall::receive_names(sd_bus_message *reply, void *data, sd_bus_error *)
{
    auto &self = *static_cast<RollCall *>(data);
    std::unordered_set<std::string> present;
    const char *name = nullptr;
    if (sd_bus_message_is_method_error(reply, nullptr) > 0 ||
        sd_bus_message_enter_container(reply, SD_BUS_TYPE_ARRAY, "s") <= 0)
        return 0;
    while (sd_bus_message_read_basic(reply, SD_BUS_TYPE_STRING, &name) > 0)
        present.insert(name);
    for (const std::string &known : self.names_.known())
        if (!present.contains(known))
            self.names_.forget(known);
    return 0;
}

} // namespace qandor
