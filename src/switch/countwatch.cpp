// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/countwatch.hpp"

#include "switch/log.hpp"

#include <cstring>
#include <utility>

namespace qandor {

int CountWatch::begin(sd_event *event)
{
    sd_event_source *source = nullptr;
    int r = sd_event_add_post(event, &source, after_work, this);
    after_work_.reset(source);
    told_ = count_();
    // After everything else: others also work when an event has been handled.
    return r < 0 ? r : sd_event_source_set_priority(source, SD_EVENT_PRIORITY_IDLE);
}

int CountWatch::after_work(sd_event_source *source, void *data)
{
    auto &self = *static_cast<CountWatch *>(data);
    if (self.pause_ || self.count_() == self.told_)
        return 0;
    sd_event_source *pause = nullptr;
    int r = sd_event_add_time_relative(sd_event_source_get_event(source), &pause, CLOCK_MONOTONIC,
                                       self.pause_usec_, 0, end_of_pause, &self);
    self.pause_.reset(pause);
    if (r < 0)
        log_line(LogLevel::Warning, "cannot wait with the counts: %s", std::strerror(-r));
    return 0;
}

int CountWatch::end_of_pause(sd_event_source *, uint64_t, void *data)
{
    auto &self = *static_cast<CountWatch *>(data);
    self.pause_.reset();
    self.told_ = self.count_();
    self.tell_();
    return 0;
}

} // namespace qandor
