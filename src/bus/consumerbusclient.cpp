// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/consumerbusclient.hpp"

#include "bus/callwindow.hpp"
#include "bus/methodcall.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"

#include <qandor/consumerbusclient.h>
#include <qandor/serialize.h>

using namespace qandor;

namespace {

// What waits for each subscriber, about, besides the event that they share.
constexpr std::size_t line_size = 256;

constexpr const char *event_stub = "com_vemo_Event_Consumer_event_async_";

void warn_not_sent(void *, int error)
{
    log_warning("Failed to call %s.Event: %d", DBUS_INTERFACE_CONSUMER, error);
}

} // namespace

BusMessageOwner EventCall::message(sd_bus *bus, const char *destination) const
{
    MethodCall call(bus, {destination, path.c_str(), DBUS_INTERFACE_CONSUMER, "Event"}, event_stub);
    const GArray &bytes = *event->array;
    call.append_bytes({reinterpret_cast<const guint8 *>(bytes.data), bytes.len});
    call.append("u", token);
    return std::move(call).message();
}

void qandor::call_consumer_event(sd_bus *bus, const gchar *destination, EventCall call,
                                 sd_bus_message_handler_t callback, gpointer userdata,
                                 not_sent_handler not_sent)
{
    std::shared_ptr<CallWindow> window = CallWindow::find(bus);
    if (!window || !destination) {
        send_past_window(bus, call.message(bus, destination).get(), callback, userdata);
        return;
    }
    // Where the message is made later, what would fail then fails now.
    int r = sd_bus_service_name_is_valid(destination) > 0 &&
                    sd_bus_object_path_is_valid(call.path.c_str()) > 0
                ? 0
                : -EINVAL;
    if (r < 0)
        g_assertion_message_expr(nullptr, __FILE__, __LINE__, event_stub, "r >= 0");
    window->call(destination, {std::move(call), callback, userdata, line_size, not_sent});
}

std::shared_ptr<const EventBytes> qandor::new_event_bytes(sd_bus *bus, GArray *array)
{
    ArrayOwner owner(array);
    std::shared_ptr<CallWindow> window = CallWindow::find(bus);
    BacklogPart charge = window ? BacklogPart(window->backlog(), array->len) : BacklogPart();
    return std::make_shared<EventBytes>(EventBytes{std::move(owner), std::move(charge)});
}

void com_vemo_Event_Consumer_event_async_(sd_bus *bus, const gchar *destination, const gchar *path,
                                          const guint8 *event, gsize event_length,
                                          guint32 consumer_token, sd_bus_message_handler_t callback,
                                          gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(event != NULL);
    GArray *copy = serialize_create_array();
    g_array_append_vals(copy, event, static_cast<guint>(event_length));
    call_consumer_event(bus, destination,
                        {new_event_bytes(bus, copy), path ? path : "", consumer_token}, callback,
                        userdata, warn_not_sent);
}
