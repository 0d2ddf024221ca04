// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/buseventsource.hpp"

#include "platform/owners.hpp"

using namespace qandor;

namespace {

// More than one message a dispatch saves the main context a round for each, few enough keep its
// other sources from waiting.
constexpr int batch = 16;

// Asking for more costs a system call, in vain where messages come one by one: then only one
// dispatch of so many asks.
constexpr int dispatches_an_asking = 16;

struct bus_event_source {
    GSource source;
    GPollFD pollfd;
    sd_event *event;
    int dispatches_until_asking;
};

bus_event_source *bus_source_of(GSource *source)
{
    return reinterpret_cast<bus_event_source *>(source);
}

sd_event *event_of(GSource *source)
{
    return bus_source_of(source)->event;
}

// Prepares the loop if it is not prepared yet. GLib does not promise a check between two prepares:
// when another thread adds or removes a polled descriptor meanwhile, the loop is still armed and
// has to be waited on before it can be prepared again.
gboolean prepare(GSource *source, gint *)
{
    sd_event *event = event_of(source);
    if (sd_event_get_state(event) == SD_EVENT_ARMED)
        sd_event_wait(event, 0);
    switch (sd_event_get_state(event)) {
    case SD_EVENT_INITIAL:
        return sd_event_prepare(event) > 0;
    case SD_EVENT_PENDING:
        return TRUE;
    default:
        return FALSE;
    }
}

gboolean check(GSource *source)
{
    sd_event *event = event_of(source);
    switch (sd_event_get_state(event)) {
    case SD_EVENT_ARMED:
        return sd_event_wait(event, 0) > 0;
    case SD_EVENT_PENDING:
        return TRUE;
    default:
        return FALSE;
    }
}

bool has_more(GSource *source, sd_event *event)
{
    if (g_source_is_destroyed(source) || sd_event_get_state(event) != SD_EVENT_INITIAL)
        return false;
    return sd_event_prepare(event) > 0 || sd_event_wait(event, 0) > 0;
}

// The rounds that a dispatch may go on for, by what the last ones found.
int rounds_of_dispatch(bus_event_source &source)
{
    if (source.dispatches_until_asking == 0)
        return batch;
    --source.dispatches_until_asking;
    return 1;
}

gboolean dispatch(GSource *source, GSourceFunc, gpointer)
{
    // What is dispatched may disconnect and destroy the source.
    EventLoopOwner event(sd_event_ref(event_of(source)));
    int rounds = rounds_of_dispatch(*bus_source_of(source));
    int round = 0;
    do {
        if (sd_event_dispatch(event.get()) <= 0)
            return G_SOURCE_REMOVE;
    } while (++round < rounds && has_more(source, event.get()));
    if (round == 1 && rounds == batch)
        bus_source_of(source)->dispatches_until_asking = dispatches_an_asking;
    return G_SOURCE_CONTINUE;
}

void finalize(GSource *source)
{
    sd_event_unref(event_of(source));
}

GSourceFuncs functions = {prepare, check, dispatch, finalize, nullptr, nullptr};

} // namespace

GSource *qandor::attach_bus_event_source(sd_event *event)
{
    MainSourceOwner source(g_source_new(&functions, sizeof(bus_event_source)));
    auto *bus_source = reinterpret_cast<bus_event_source *>(source.get());
    bus_source->event = sd_event_ref(event);
    bus_source->pollfd.fd = sd_event_get_fd(event);
    bus_source->pollfd.events = G_IO_IN | G_IO_ERR | G_IO_HUP;
    g_source_add_poll(source.get(), &bus_source->pollfd);
    g_source_attach(source.get(), nullptr);
    return source.get();
}
