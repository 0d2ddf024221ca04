// SPDX-License-Identifier: LGPL-2.1-or-later

// What time brings to a window: silence, timeouts, and losses to tell.

#include "bus/windowdestination.hpp"

#include <algorithm>

namespace qandor {

// A callback that has waited long enough.
struct CallWindow::Timeout {
    sd_bus_message_handler_t callback;
    void *userdata;
};

namespace {

// The answer in the place of one that did not come in time, as sd-bus gives it.
BusMessageOwner timeout_answer(sd_bus *bus)
{
    sd_bus_message *made = nullptr;
    if (sd_bus_message_new_method_call(bus, &made, nullptr, "/", nullptr, "Call") < 0)
        return nullptr;
    BusMessageOwner call(made);
    const sd_bus_error error =
        SD_BUS_ERROR_MAKE_CONST(SD_BUS_ERROR_NO_REPLY, "Method call timed out");
    if (sd_bus_message_seal(call.get(), 1, 0) < 0 ||
        sd_bus_message_new_method_error(call.get(), &made, &error) < 0)
        return nullptr;
    return BusMessageOwner(made);
}

} // namespace

guint64 monotonic_usec()
{
    return static_cast<guint64>(g_get_monotonic_time());
}

void CallWindow::look_at_clock()
{
    std::shared_ptr<CallWindow> alive = shared_from_this();
    guint64 now = clock_();
    for (const auto &[name, destination] : destinations_)
        if (slots_.is_overdue(destination->standing, now))
            slots_.fall_silent(destination->standing);
    timer_at_ = G_MAXUINT64;
    std::list<Timeout> due;
    collect_timeouts(now, due);
    wake_at(next_look(now));
    run(due);
}

// When to look again; losses that are due are told on the way.
guint64 CallWindow::next_look(guint64 now)
{
    guint64 next = backlog_->report.tell(now);
    for (const PendingCall &pending : pending_)
        if (!pending.is_lost)
            next = std::min(next, pending.since + limits_.timeout);
    for (const auto &[name, destination] : destinations_) {
        next = std::min(next, slots_.silence_begins(destination->standing));
        if (destination->plain_calls > 0)
            next = std::min(next, now + limits_.silence);
    }
    return next;
}

// Calls under way become lost, those that wait are sent later without anybody who listens.
void CallWindow::collect_timeouts(guint64 now, std::list<Timeout> &due)
{
    for (PendingCall &pending : pending_) {
        if (pending.is_lost || now - pending.since < limits_.timeout)
            continue;
        due.push_back({pending.callback, pending.userdata});
        pending.callback = nullptr;
        pending.is_lost = true;
        slots_.lose(pending.destination->standing);
    }
    for (const auto &[name, destination] : destinations_) {
        if (destination->plain_calls == 0)
            continue;
        destination->queue.for_each([&](QueuedCall &call) {
            if (!call.callback || call.event() || now - call.queued_at < limits_.timeout)
                return;
            due.push_back({call.callback, call.userdata});
            call.callback = nullptr;
            call.not_sent = nullptr;
        });
    }
}

// A callback may end the window.
void CallWindow::run(const std::list<Timeout> &due)
{
    if (due.empty())
        return;
    BusMessageOwner answer = timeout_answer(bus_);
    for (const Timeout &timeout : due) {
        sd_bus_error error = SD_BUS_ERROR_NULL;
        if (timeout.callback && answer && !ending_)
            timeout.callback(answer.get(), timeout.userdata, &error);
        sd_bus_error_free(&error);
    }
}

void CallWindow::wake_at(guint64 when)
{
    sd_event *event = sd_bus_get_event(bus_);
    if (when >= timer_at_ || !event)
        return;
    timer_at_ = when;
    if (timer_) {
        sd_event_source_set_time(timer_.get(), when);
        sd_event_source_set_enabled(timer_.get(), SD_EVENT_ONESHOT);
        return;
    }
    constexpr guint64 accuracy = 10000;
    sd_event_source *made = nullptr;
    auto look = [](sd_event_source *, uint64_t, void *window) {
        static_cast<CallWindow *>(window)->look_at_clock();
        return 0;
    };
    if (sd_event_add_time(event, &made, CLOCK_MONOTONIC, when, accuracy, look, this) >= 0)
        timer_.reset(made);
}

} // namespace qandor
