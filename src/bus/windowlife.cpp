// SPDX-License-Identifier: LGPL-2.1-or-later

// The windows of all connections, and how one ends.

#include "bus/methodcall.hpp"
#include "bus/windowdestination.hpp"

#include <algorithm>
#include <mutex>

namespace qandor {
namespace {

std::mutex windows_mutex;

std::unordered_map<sd_bus *, std::shared_ptr<CallWindow>> &windows()
{
    static auto *all = new std::unordered_map<sd_bus *, std::shared_ptr<CallWindow>>();
    return *all;
}

// Takes all that comes in and is no answer to a call of ours.
int swallow(sd_bus_message *, void *, sd_bus_error *)
{
    return 1;
}

} // namespace

void CallWindow::open(sd_bus *bus, const WindowLimits &limits, WindowClock clock)
{
    std::lock_guard lock(windows_mutex);
    windows().insert_or_assign(bus, std::make_shared<CallWindow>(bus, limits, clock));
}

std::shared_ptr<CallWindow> CallWindow::find(sd_bus *bus)
{
    std::lock_guard lock(windows_mutex);
    auto found = windows().find(bus);
    return found == windows().end() ? nullptr : found->second;
}

std::shared_ptr<CallWindow> CallWindow::close(sd_bus *bus)
{
    std::lock_guard lock(windows_mutex);
    auto found = windows().extract(bus);
    return found ? std::move(found.mapped()) : nullptr;
}

CallWindow::CallWindow(sd_bus *bus, const WindowLimits &limits, WindowClock clock)
    : bus_(bus), limits_(limits), clock_(clock), slots_(limits),
      backlog_(std::make_shared<Backlog>())
{
}

CallWindow::~CallWindow() = default;

void CallWindow::learn_name(const char *name)
{
    std::lock_guard lock(windows_mutex);
    unique_name_ = name;
}

bool CallWindow::is_of_this_process(std::string_view name)
{
    std::lock_guard lock(windows_mutex);
    return std::any_of(windows().begin(), windows().end(),
                       [&](const auto &entry) { return entry.second->unique_name_ == name; });
}

void CallWindow::finish(guint64 usec)
{
    ending_ = true;
    timer_.reset();
    timer_at_ = 0; // nothing wakes it any more
    if (sd_bus_is_open(bus_) > 0)
        wait_for_answers(usec);
    send_the_rest();
    backlog_->report.tell_the_rest();
}

bool CallWindow::is_awaited(const Destination &destination) const
{
    const Standing &standing = destination.standing;
    return !standing.is_switch && !standing.is_stuck() && standing.under_way > 0 &&
           !is_of_this_process(destination.name);
}

bool CallWindow::awaits_answers() const
{
    return std::any_of(destinations_.begin(), destinations_.end(),
                       [this](const auto &entry) { return is_awaited(*entry.second); });
}

// Answers let further calls go out, so what waits is sent on the way.
void CallWindow::wait_for_answers(guint64 usec)
{
    if (!awaits_answers())
        return;
    sd_bus_slot *made = nullptr;
    if (sd_bus_add_filter(bus_, &made, swallow, nullptr) < 0)
        return;
    BusSlotOwner filter(made);
    guint64 end = monotonic_usec() + usec;
    guint64 now = monotonic_usec();
    while (now < end && awaits_answers()) {
        int r = sd_bus_process(bus_, nullptr);
        if (r == 0)
            r = sd_bus_wait(bus_, end - now);
        // Not where the connection is just dispatching.
        if (r < 0)
            return;
        now = monotonic_usec();
    }
}

void CallWindow::send_the_rest()
{
    for (const auto &[name, destination] : destinations_) {
        while (!destination->queue.empty()) {
            QueuedCall call = destination->queue.pop();
            BusMessageOwner message = message_of(call, *destination);
            sd_bus_message_set_expect_reply(message.get(), 0);
            int r = sd_bus_send(bus_, message.get(), nullptr);
            if (r < 0)
                report_failure(*destination, call, message.get(), r);
        }
    }
}

} // namespace qandor
