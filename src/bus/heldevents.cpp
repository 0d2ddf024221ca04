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

void HeldEvents::push(const event &event)
{
    ArrayOwner bytes(event_serialize(&event));
    std::size_t size = overhead + bytes->len;
    bytes_ += size;
    events_.push_back(
        {std::make_unique<struct event>(event), size, g_get_monotonic_time() + longest_wait_usec});
}

HeldEvent HeldEvents::pop()
{
    HeldEvent first = std::move(events_.front());
    events_.pop_front();
    bytes_ -= first.size;
    return first;
}

std::deque<HeldEvent> HeldEvents::take(guint32 local_id)
{
    std::deque<HeldEvent> taken, left;
    while (!events_.empty()) {
        HeldEvent first = pop();
        bool is_wanted = first.content->local_id == local_id;
        (is_wanted ? taken : left).push_back(std::move(first));
    }
    events_ = std::move(left);
    for (const HeldEvent &event : events_)
        bytes_ += event.size;
    return taken;
}

} // namespace qandor
