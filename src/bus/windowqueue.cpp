// SPDX-License-Identifier: LGPL-2.1-or-later

// What waits in a window: whose turn it is, and what goes when too much waits.

#include "bus/windowdestination.hpp"

#include <utility>

namespace qandor {
namespace {

// So many go at one destination before the fullest is looked for again among all.
constexpr int drops_in_a_row = 8;

} // namespace

// Lets a destination stand for a slot if it has calls that wait and may have one more under way by
// its own account. One that may not comes here again with its next answer.
void CallWindow::offer(Destination &destination)
{
    if (destination.is_ready || destination.queue.empty() ||
        !slots_.may_have_another(destination.standing))
        return;
    bool is_newcomer = !destination.standing.seated && !destination.standing.is_switch;
    (is_newcomer ? newcomers_ready_ : seated_ready_).push_back(&destination);
    destination.is_ready = true;
}

void CallWindow::pump()
{
    serve(seated_ready_);
    serve(newcomers_ready_);
}

// Lets each send one call after another, in turns, until none is admitted. Newcomers without a slot
// keep their place; one with a seat has calls under way and comes again with the next answer.
void CallWindow::serve(std::deque<Destination *> &ready)
{
    while (!ready.empty()) {
        Destination &destination = *ready.front();
        bool may = !destination.queue.empty() && slots_.may_have_another(destination.standing);
        bool is_admitted = may && slots_.admits(destination.standing);
        if (may && !is_admitted && destination.standing.under_way == 0)
            return;
        ready.pop_front();
        destination.is_ready = false;
        if (is_admitted) {
            send_next(destination);
            offer(destination);
        }
        retire(destination);
    }
}

void CallWindow::send_next(Destination &destination)
{
    QueuedCall call = destination.queue.pop();
    destination.plain_calls -= !call.event();
    send(destination, std::move(call));
}

void CallWindow::keep_within_bound()
{
    while (backlog_->is_over()) {
        Destination *fullest = nullptr;
        for (const auto &[name, destination] : destinations_)
            if (destination->queue.victim() &&
                (!fullest || destination->queue.bytes() > fullest->queue.bytes()))
                fullest = destination.get();
        if (!fullest)
            return;
        for (int i = 0; i < drops_in_a_row && backlog_->is_over() && fullest->queue.victim(); ++i)
            drop_from(*fullest);
    }
}

void CallWindow::drop_from(Destination &destination)
{
    CallQueue::Victim victim = *destination.queue.victim();
    destination.queue.drop(victim);
    if (victim.is_state)
        backlog_->report.count_superseded_state(destination.name);
    else
        backlog_->report.count_event(destination.name);
    wake_at(backlog_->report.tell(clock_()));
}

} // namespace qandor
