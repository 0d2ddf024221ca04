// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/outbox.hpp"

#include "switch/log.hpp"

#include <cstdlib>

namespace qandor {
namespace {

constexpr guint64 look_usec = 10 * G_USEC_PER_SEC;

} // namespace

int Outbox::watch(sd_event *event)
{
    sd_event_source *made = nullptr;
    int r = sd_event_add_time_relative(event, &made, CLOCK_MONOTONIC, look_usec, 0,
                                       look_for_progress, this);
    look_.reset(made);
    return r < 0 ? r : sd_event_source_set_enabled(made, SD_EVENT_OFF);
}

void Outbox::look_later()
{
    taken_at_last_look_ = taken_;
    sd_event_source_set_time_relative(look_.get(), look_usec);
    sd_event_source_set_enabled(look_.get(), SD_EVENT_ONESHOT);
}

int Outbox::look_for_progress(sd_event_source *source, uint64_t, void *data)
{
    auto &self = *static_cast<Outbox *>(data);
    if (self.items_.empty())
        return 0;
    if (self.taken_ != self.taken_at_last_look_) {
        self.look_later();
        return 0;
    }
    log_line(LogLevel::Error, "the bus reads no more: somebody does not read what he is told");
    return sd_event_exit(sd_event_source_get_event(source), EXIT_FAILURE);
}

// What sd-bus keeps is made already, so it gets one message at a time.
bool Outbox::bus_takes_more()
{
    guint64 queued = 0;
    sd_bus_get_n_queued_write(bus_, &queued);
    taken_ += queued == 0;
    return queued == 0;
}

void Outbox::add(Send send)
{
    if (!items_.empty() || left_in_round_ == 0 || !bus_takes_more()) {
        if (items_.empty())
            look_later();
        ++waiting_[cause_];
        items_.push_back({cause_, std::move(send)});
        return;
    }
    if (!send)
        return;
    --left_in_round_;
    send();
}

bool Outbox::send_next()
{
    if (items_.empty() || !bus_takes_more())
        return false;
    Item item = std::move(items_.front());
    items_.pop_front();
    auto waiting = waiting_.find(item.uid);
    if (--waiting->second == 0)
        waiting_.erase(waiting);
    Cause cause(*this, item.uid);
    if (item.send)
        item.send();
    return true;
}

} // namespace qandor
