// SPDX-License-Identifier: LGPL-2.1-or-later

#include "platform/lossreport.hpp"

#include "platform/log.hpp"

#include <algorithm>

namespace qandor {

std::string LossReport::Losses::text() const
{
    std::string text;
    if (events + states > 0)
        text = "does not keep up: " + std::to_string(events) + " events and " +
               std::to_string(states) + " superseded property states were dropped";
    if (refusals > 0)
        text += (text.empty() ? "" : "; ") + std::to_string(refusals) +
                " deliveries could not be made (" + reason + ")";
    return text;
}

LossReport::Losses &LossReport::losses_of(std::string_view destination)
{
    auto found = destinations_.find(destination);
    if (found == destinations_.end())
        found = destinations_.emplace(destination, Losses()).first;
    return found->second;
}

void LossReport::count(std::string_view destination, guint events, guint states)
{
    std::lock_guard lock(mutex_);
    Losses &losses = losses_of(destination);
    losses.events += events;
    losses.states += states;
}

void LossReport::count_refusal(std::string_view destination, std::string_view reason)
{
    std::lock_guard lock(mutex_);
    Losses &losses = losses_of(destination);
    ++losses.refusals;
    losses.reason = reason;
}

guint64 LossReport::tell(guint64 now)
{
    std::map<std::string, std::string> lines;
    guint64 next = G_MAXUINT64;
    {
        std::lock_guard lock(mutex_);
        for (auto entry = destinations_.begin(); entry != destinations_.end();) {
            auto &[destination, losses] = *entry;
            bool is_due = now >= losses.quiet_until;
            if (is_due && !losses.any()) {
                entry = destinations_.erase(entry);
                continue;
            }
            if (is_due) {
                lines.emplace(destination, losses.text());
                losses = {};
                losses.quiet_until = now + quiet_time;
            } else if (losses.any()) {
                next = std::min(next, losses.quiet_until);
            }
            ++entry;
        }
    }
    // Not under the lock: a log handler may do anything.
    for (const auto &[destination, text] : lines)
        log_warning("%s %s", destination.c_str(), text.c_str());
    return next;
}

void LossReport::tell_the_rest()
{
    tell(G_MAXUINT64 - quiet_time);
    std::lock_guard lock(mutex_);
    destinations_.clear();
}

} // namespace qandor
