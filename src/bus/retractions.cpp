// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/retractions.hpp"

#include "platform/check.hpp"

#include <mutex>

namespace qandor {

Retractions::Retractions(const Owner &owner)
    : owner_(owner), timer_(shortest_pause_msec, longest_pause_msec, send_refused, this)
{
}

void Retractions::add(guint32 id)
{
    Ticket *ticket = tickets_.issue(this, id);
    ids_[id] = ticket->sending;
    owner_.send(owner_.instance, id, receive_answer, ticket);
}

int Retractions::receive_answer(sd_bus_message *answer, void *data, sd_bus_error *)
{
    CHECK(answer != NULL);
    auto *ticket = static_cast<Ticket *>(data);
    Retractions &self = *ticket->owner;
    std::lock_guard lock(self.owner_.lock);
    self.settle(self.tickets_.take_back(ticket),
                AnnouncementResult::of_answer(answer, self.owner_.method));
    return 0;
}

// A call that did not reach the switch because there is none has nothing to say to the next one.
void Retractions::settle(const Ticket &ticket, const AnnouncementResult &result)
{
    auto found = ids_.find(ticket.id);
    if (found == ids_.end() || found->second != ticket.sending)
        return;
    if (result.outcome == AnnouncementResult::NotSent && !result.text.empty()) {
        found->second = refused;
        timer_.start();
        return;
    }
    ids_.erase(found);
    if (ids_.empty())
        timer_.reset();
    owner_.done(owner_.instance);
}

void Retractions::send_refused(gpointer data)
{
    auto &self = *static_cast<Retractions *>(data);
    std::lock_guard lock(self.owner_.lock);
    for (const auto &[id, sending] : std::map(self.ids_))
        if (sending == refused)
            self.add(id);
}

void Retractions::forget()
{
    ids_.clear();
    timer_.reset();
}

void Retractions::lose_bus()
{
    forget();
    tickets_.forget();
}

} // namespace qandor
