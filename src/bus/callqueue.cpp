// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/callqueue.hpp"

#include "platform/log.hpp"

namespace qandor {
namespace {

constexpr gint64 quiet_time = 10 * G_USEC_PER_SEC;

} // namespace

std::string CallQueue::property_of(const EventCall &event)
{
    std::string property = event.path;
    property.append(" ").append(std::to_string(event.declaration));
    property.append(" ").append(std::to_string(event.token));
    return property;
}

void CallQueue::push(QueuedCall call)
{
    bytes_ += call.size;
    Place place = calls_.insert(calls_.end(), Entry{std::move(call)});
    const EventCall *event = place->call.event();
    if (!event)
        return;
    if (!event->is_property) {
        place->among_droppable = events_.insert(events_.end(), place);
        return;
    }
    auto [newest, is_first] = newest_states_.try_emplace(property_of(*event), place);
    if (is_first)
        return;
    supersede(newest->second);
    newest->second = place;
}

void CallQueue::supersede(Place place)
{
    place->superseded = true;
    place->among_droppable = superseded_.insert(superseded_.end(), place);
}

QueuedCall CallQueue::pop()
{
    Place first = calls_.begin();
    if (is_state(first->call) && !first->superseded)
        newest_states_.erase(property_of(*first->call.event()));
    QueuedCall call = std::move(first->call);
    erase(first);
    return call;
}

void CallQueue::erase(Place place)
{
    bytes_ -= place->call.size;
    if (place->superseded)
        superseded_.erase(place->among_droppable);
    else if (place->call.event() && !is_state(place->call))
        events_.erase(place->among_droppable);
    calls_.erase(place);
}

bool CallQueue::drop_superseded_state()
{
    if (superseded_.empty())
        return false;
    erase(superseded_.front());
    return true;
}

bool CallQueue::drop_oldest_event()
{
    if (events_.empty())
        return false;
    erase(events_.front());
    return true;
}

void DropReport::count_dropped_event(const char *destination)
{
    ++events_;
    destination_ = destination;
}

void DropReport::count_superseded_state(const char *destination)
{
    ++states_;
    destination_ = destination;
}

void DropReport::tell()
{
    gint64 now = g_get_monotonic_time();
    if (events_ + states_ == 0 || (told_at_ != 0 && now - told_at_ < quiet_time))
        return;
    log_warning("%s does not keep up: %u events and %u superseded property states were dropped",
                destination_.c_str(), events_, states_);
    events_ = states_ = 0;
    told_at_ = now;
}

} // namespace qandor
