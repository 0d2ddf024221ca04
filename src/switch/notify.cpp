// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/notify.hpp"

#include "switch/log.hpp"

#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <cstring>

namespace qandor {
namespace {

// Counts change with every call; the manager hears of them this often at most.
constexpr guint64 pause_usec = G_USEC_PER_SEC;

std::string number_of(std::size_t number, const char *thing)
{
    return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

void warn_when_failed(int r, const char *what)
{
    if (r < 0)
        log_line(LogLevel::Warning, "cannot %s: %s", what, std::strerror(-r));
}

} // namespace

std::string Notifier::status() const
{
    return number_of(told_.declarations, "declaration") + " of " +
           number_of(told_.producers, "producer") + ", " +
           number_of(told_.subscriptions, "subscription") + " of " +
           number_of(told_.consumers, "consumer");
}

void Notifier::ready()
{
    if (!std::getenv("NOTIFY_SOCKET"))
        return;
    told_ = count_();
    warn_when_failed(sd_notifyf(0, "READY=1\nSTATUS=%s", status().c_str()),
                     "tell the service manager that the switch serves");
    if (!after_work_)
        watch();
}

// The manager tells a reload by its time from an earlier one.
void Notifier::reloading()
{
    sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%" G_GINT64_FORMAT "\nSTATUS=Reloading",
               g_get_monotonic_time());
}

void Notifier::stopping()
{
    sd_notify(0, "STOPPING=1\nSTATUS=Stopping");
}

void Notifier::watch()
{
    warn_when_failed(sd_event_set_watchdog(event_, 1), "answer the watchdog");
    sd_event_source *source = nullptr;
    warn_when_failed(sd_event_add_post(event_, &source, after_work, this), "keep the status");
    after_work_.reset(source);
}

int Notifier::after_work(sd_event_source *, void *data)
{
    auto &self = *static_cast<Notifier *>(data);
    if (!self.pause_ && self.count_() != self.told_)
        self.start_pause();
    return 0;
}

// What comes in a burst is told once, when the pause is over.
void Notifier::start_pause()
{
    sd_event_source *source = nullptr;
    warn_when_failed(sd_event_add_time_relative(event_, &source, CLOCK_MONOTONIC, pause_usec, 0,
                                                end_of_pause, this),
                     "wait with the status");
    pause_.reset(source);
}

int Notifier::end_of_pause(sd_event_source *, uint64_t, void *data)
{
    auto &self = *static_cast<Notifier *>(data);
    self.pause_.reset();
    self.told_ = self.count_();
    sd_notifyf(0, "STATUS=%s", self.status().c_str());
    return 0;
}

} // namespace qandor
