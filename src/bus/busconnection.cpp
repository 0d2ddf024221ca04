// SPDX-License-Identifier: LGPL-2.1-or-later

// Opening and closing a connection.

#include "bus/buseventsource.hpp"
#include "bus/callwindow.hpp"
#include "bus/errors.hpp"
#include "bus/heldsignals.hpp"
#include "platform/check.hpp"
#include "platform/owners.hpp"

#include <qandor/busconnection.h>

using namespace qandor;

namespace {

constexpr guint64 farewell_usec = 2 * G_USEC_PER_SEC;

// A socket that is closed while answers are unread makes the bus throw away what it has not read
// from us. Its answer to a last question tells that it has read everything.
void wait_until_bus_has_read(sd_bus *bus)
{
    sd_bus_message *made = nullptr;
    if (sd_bus_message_new_method_call(bus, &made, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                       "org.freedesktop.DBus", "GetId") < 0)
        return;
    BusMessageOwner question(made);
    sd_bus_message *answer = nullptr;
    sd_bus_call(bus, question.get(), farewell_usec, nullptr, &answer);
    BusMessageOwner owner(answer);
}

} // namespace

int connect_to_bus_and_attach_events(GSource **source, sd_bus **bus, GError **error)
{
    CHECK(source != NULL);
    CHECK(bus != NULL);

    HeldSignals held;
    int r = sd_bus_open_system(bus);
    if (r < 0) {
        set_bus_error(error, r, "Failed to connect to bus");
        return r;
    }

    sd_event *made = nullptr;
    r = sd_event_new(&made);
    if (r < 0) {
        sd_bus_unref(*bus);
        set_bus_error(error, r, "Failed to get the default sd_event");
        return r;
    }
    EventLoopOwner event(made);

    if (!sd_bus_get_event(*bus)) {
        r = sd_bus_attach_event(*bus, event.get(), SD_EVENT_PRIORITY_NORMAL);
        if (r < 0) {
            sd_bus_unref(*bus);
            set_bus_error(error, r, "Failed to link sd_bus with sd_event");
            return r;
        }
    }

    *source = attach_bus_event_source(event.get());
    CallWindow::open(*bus);
    return r;
}

void disconnect_from_bus_and_detach_events(GSource *source, sd_bus *bus)
{
    CHECK(source != NULL);
    CHECK(bus != NULL);
    HeldSignals held;
    std::shared_ptr<CallWindow> window = CallWindow::close(bus);
    if (window)
        window->finish(farewell_usec);
    sd_bus_flush(bus);
    wait_until_bus_has_read(bus);
    sd_bus_close(bus);
    window.reset();
    sd_bus_unref(bus);
    g_source_destroy(source);
}
