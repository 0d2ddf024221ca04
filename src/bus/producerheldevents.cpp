// SPDX-License-Identifier: LGPL-2.1-or-later

// A producer's events while the switch returns.

#include "bus/producer.hpp"

#include "platform/log.hpp"

#include <algorithm>

using namespace qandor;

void ProducerState::deliver_to_all(decl_data &data, const event &event)
{
    Delivery delivery(presence.bus, event);
    data.subscriptions.for_each_satisfied(
        event, [&](const subscribe_expression &subscription) { delivery.to(subscription); });
    if (!event.property)
        data.former.keep(event, presence.backlog);
}

// An event without an id was sent while there was no switch. While others wait a later one must not
// overtake them, whatever its declaration.
bool ProducerState::has_to_wait(const decl_data &data, const event &event) const
{
    return !event.property && event.global_id != 0 && (data.returning || !held_.empty());
}

void ProducerState::deliver(decl_data &data, const event &event)
{
    if (has_to_wait(data, event))
        hold(event);
    else
        deliver_to_all(data, event);
}

void ProducerState::hold(const event &event)
{
    held_.push(event, presence.backlog);
    while (presence.backlog && presence.backlog->is_over() && !held_.empty()) {
        held_.pop();
        ++not_waited_for_;
    }
    deliver_held();
}

// The ids may be those of the switch that has gone.
void ProducerState::let_go(decl_data &data, HeldEvent held, bool is_complete)
{
    event &event = *held.content;
    event.global_id = data.declaration->global_id;
    event.producer_id = data.declaration->producer_id;
    not_waited_for_ += is_complete ? 0 : 1;
    if (presence.bus && event.global_id != 0)
        deliver_to_all(data, event);
}

void ProducerState::deliver_held()
{
    gint64 now = g_get_monotonic_time();
    while (!held_.empty()) {
        decl_data *data = find(held_.first().content->local_id);
        if (data && data->returning && now < held_.first().deadline)
            break;
        HeldEvent first = held_.pop();
        if (!data)
            continue;
        let_go(*data, std::move(first), !data->returning);
        // The switch has had its time.
        if (data->declaration->global_id != 0)
            data->returning = false;
    }
    held_timer_.stop();
    if (held_.empty())
        tell_of_lost_events();
    else
        held_timer_.start(held_.first().deadline);
}

// Its subscriptions are those of the switch by which it was released.
void ProducerState::complete(decl_data &data)
{
    data.returning = false;
    deliver_held();
    if (data.former.empty())
        return;
    data.former.wait();
    start_former_timer();
}

void ProducerState::welcome(decl_data &data, guint32 subscription_id)
{
    const subscribe_expression &subscription = *data.subscriptions.find(subscription_id);
    if (data.former.empty())
        return;
    data.former.welcome(subscription, [&](const event &event) {
        if (event_contains(&event, &subscription))
            Delivery(presence.bus, event).to(subscription);
    });
    if (!data.former.empty())
        return;
    not_waited_for_ += data.former.give_up();
    tell_of_lost_events();
}

void ProducerState::start_former_timer()
{
    gint64 earliest = G_MAXINT64;
    for (const auto &[local_id, data] : declared_events)
        earliest = std::min(earliest, data->former.deadline());
    if (earliest != G_MAXINT64)
        former_timer_.start(earliest);
}

void ProducerState::give_up_former()
{
    gint64 now = g_get_monotonic_time();
    guint missed = 0;
    for (auto &[local_id, data] : declared_events)
        if (now >= data->former.deadline())
            missed += data->former.give_up();
    start_former_timer();
    if (missed > 0)
        log_warning("Subscribers of the producer \"%s\" have not come back since the event switch "
                    "returned: %u events may have missed them",
                    presence.name.c_str(), missed);
}

void ProducerState::deliver_held_of(decl_data &released)
{
    if (released.released_at != switch_number_)
        released.subscriptions.clear();
    for (HeldEvent &held : released.held)
        let_go(released, std::move(held), !released.returning);
    released.held.clear();
    tell_of_lost_events();
}

void ProducerState::deliver_all_held()
{
    while (!held_.empty()) {
        HeldEvent first = held_.pop();
        if (decl_data *data = find(first.content->local_id))
            let_go(*data, std::move(first), !data->returning);
    }
    held_timer_.stop();
    tell_of_lost_events();
}

void ProducerState::tell_of_lost_events()
{
    if (not_waited_for_ == 0)
        return;
    log_warning("The event switch did not return in time: %u events of the producer \"%s\" "
                "missed the subscribers that it had not announced yet",
                not_waited_for_, presence.name.c_str());
    not_waited_for_ = 0;
}
