// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/consumerbusclient.hpp"

#include "bus/callwindow.hpp"
#include "bus/methodcall.hpp"
#include "platform/check.hpp"

#include <qandor/consumerbusclient.h>
#include <qandor/serialize.h>

using namespace qandor;

namespace {

// What waits besides the event, about.
constexpr std::size_t overhead = 256;

} // namespace

BusMessageOwner EventCall::message(sd_bus *bus, const char *destination) const
{
    MethodCall call(bus, {destination, path.c_str(), DBUS_INTERFACE_CONSUMER, "Event"});
    call.append_bytes({reinterpret_cast<const guint8 *>(event->data), event->len});
    call.append("u", token);
    return std::move(call).message();
}

void qandor::call_consumer_event(sd_bus *bus, const gchar *destination, EventCall call,
                                 sd_bus_message_handler_t callback, gpointer userdata)
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
    CHECK(r >= 0);
    std::size_t size = overhead + call.event->len;
    window->call(destination, {std::move(call), callback, userdata, size});
}

void com_vemo_Event_Consumer_event_async_(sd_bus *bus, const gchar *destination, const gchar *path,
                                          const guint8 *event, gsize event_length,
                                          guint32 consumer_token, sd_bus_message_handler_t callback,
                                          gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(event != NULL);
    std::shared_ptr<GArray> copy(serialize_create_array(), g_array_unref);
    g_array_append_vals(copy.get(), event, static_cast<guint>(event_length));
    call_consumer_event(bus, destination, {copy, path ? path : "", consumer_token}, callback,
                        userdata);
}
