// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/heldevents.hpp"

#include "platform/owners.hpp"

#include <utility>

namespace qandor {
namespace {

constexpr gint64 longest_wait_usec = G_USEC_PER_SEC;

// What an event takes in memory besides the bytes of its texts, about.
constexpr std::size_t overhead = 512;

} // namespace

void HeldEvents::push(const event &event, const std::shared_ptr<Backlog> &backlog)
{
    ArrayOwner bytes(event_serialize(&event));
    events_.push_back({std::make_unique<struct event>(event),
                       BacklogPart(backlog, overhead + bytes->len),
                       g_get_monotonic_time() + longest_wait_usec});
}

HeldEvent HeldEvents::pop()
{
    HeldEvent first = std::move(events_.front());
    events_.pop_front();
    return first;
}

std::deque<HeldEvent> HeldEvents::take(guint32 local_id)
{
    std::deque<HeldEvent> taken, left;
    for (HeldEvent &held : events_) {
        bool is_wanted = held.content->local_id == local_id;
        (is_wanted ? taken : left).push_back(std::move(held));
    }
    events_ = std::move(left);
    return taken;
}

} // namespace qandor
