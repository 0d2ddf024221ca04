// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/notify.hpp"

#include "switch/log.hpp"

#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace qandor {
namespace {

// The manager hears of changes this often at most.
constexpr guint64 pause_usec = G_USEC_PER_SEC;

std::string number_of(std::size_t number, const char *thing)
{
    return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

std::string status_of(const Counts &counts)
{
    return number_of(counts.declarations, "declaration") + " of " +
           number_of(counts.producers, "producer") + ", " +
           number_of(counts.subscriptions, "subscription") + " of " +
           number_of(counts.consumers, "consumer");
}

void warn_when_failed(int r, const char *what)
{
    if (r < 0)
        log_line(LogLevel::Warning, "cannot %s: %s", what, std::strerror(-r));
}

} // namespace

Notifier::Notifier(sd_event *event, CountWatch::Count count)
    : event_(event), count_(count), watch_(std::move(count), pause_usec, [this] {
          sd_notifyf(0, "STATUS=%s", status_of(count_()).c_str());
      })
{
}

void Notifier::ready()
{
    if (!std::getenv("NOTIFY_SOCKET"))
        return;
    warn_when_failed(sd_notifyf(0, "READY=1\nSTATUS=%s", status_of(count_()).c_str()),
                     "tell the service manager that the switch serves");
    if (!watch_.has_begun())
        warn_when_failed(sd_event_set_watchdog(event_, 1), "answer the watchdog");
    warn_when_failed(watch_.begin(event_), "keep the status");
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

} // namespace qandor
