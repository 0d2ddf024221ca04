// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/rounds.hpp"

#include <glib.h>
#include <poll.h>

namespace qandor {
namespace {

// Reading goes on for this long at most while work waits, and work for this long while reading
// does.
constexpr gint64 reading_usec = 2000;
constexpr gint64 working_usec = 2000;
// The same after a large call. The socket holds one of that size, so the next one is not there yet,
// while many may stand in the bus's queue, and in front of other people's calls: without waiting a
// moment for it, the switch would read one for each that it handles.
constexpr gint64 draining_usec = 12000;
constexpr timespec next_message = {0, 300 * 1000};
constexpr gint64 look_usec = G_USEC_PER_SEC;

int wake(sd_event_source *, void *)
{
    return 0;
}

bool has_input(sd_bus *bus, const timespec &wait)
{
    guint64 queued = 0;
    sd_bus_get_n_queued_read(bus, &queued);
    pollfd input{sd_bus_get_fd(bus), POLLIN, 0};
    return queued > 0 || (input.fd >= 0 && ppoll(&input, 1, &wait, nullptr) > 0);
}

} // namespace

int Rounds::begin(sd_bus *bus)
{
    bus_ = bus;
    sd_event *event = sd_bus_get_event(bus);
    sd_event_source *made = nullptr;
    int r = sd_event_add_post(event, &made, after_reading, this);
    after_reading_.reset(made);
    if (r < 0)
        return r;
    r = sd_event_add_defer(event, &made, wake, nullptr);
    if (r < 0)
        return r;
    again_.reset(made);
    sd_event_source_set_enabled(made, SD_EVENT_OFF);
    r = sd_event_add_time(event, &made, CLOCK_MONOTONIC, 0, 0, look, this);
    if (r < 0)
        return r;
    look_.reset(made);
    return sd_event_source_set_enabled(made, SD_EVENT_OFF);
}

bool Rounds::is_to_read_on()
{
    gint64 now = g_get_monotonic_time();
    if (reading_since_ == 0)
        reading_since_ = now;
    gint64 most = drains_ ? draining_usec : reading_usec;
    if (now - reading_since_ < most && has_input(bus_, drains_ ? next_message : timespec{}))
        return true;
    reading_since_ = 0;
    drains_ = false;
    return false;
}

void Rounds::work()
{
    gint64 end = g_get_monotonic_time() + working_usec;
    bool has_more = true;
    while (has_more && g_get_monotonic_time() < end)
        has_more = work_.step();
    if (has_more)
        sd_event_source_set_enabled(again_.get(), SD_EVENT_ONESHOT);
    int is_looking = SD_EVENT_OFF;
    sd_event_source_get_enabled(look_.get(), &is_looking);
    if (is_looking != SD_EVENT_OFF || !work_.waits())
        return;
    sd_event_source_set_time(look_.get(), static_cast<guint64>(g_get_monotonic_time() + look_usec));
    sd_event_source_set_enabled(look_.get(), SD_EVENT_ONESHOT);
}

int Rounds::after_reading(sd_event_source *, void *data)
{
    auto &self = *static_cast<Rounds *>(data);
    if (!self.is_to_read_on())
        self.work();
    return 0;
}

int Rounds::look(sd_event_source *, uint64_t, void *data)
{
    static_cast<Rounds *>(data)->work_.look_again();
    return 0;
}

} // namespace qandor
