// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/retractions.hpp"

#include "platform/check.hpp"
#include "platform/log.hpp"

#include <mutex>
#include <utility>

namespace qandor {

Retractions::Retractions(const Owner &owner)
    : owner_(owner), timer_(shortest_pause_msec, longest_pause_msec, send_refused, this)
{
}

void Retractions::add(guint32 id)
{
    Ticket *ticket = tickets_.issue(this, id);
    ids_[id] = ticket->sending;
    owner_.call(owner_.instance, id).send(receive_answer, ticket, receive_not_sent);
}

int Retractions::receive_answer(sd_bus_message *answer, void *ticket, sd_bus_error *)
{
    CHECK(answer != NULL);
    auto *its = static_cast<Ticket *>(ticket);
    settle(its, AnnouncementResult::of_answer(answer, its->owner->owner_.method));
    return 0;
}

void Retractions::receive_not_sent(void *ticket, int error)
{
    auto *its = static_cast<Ticket *>(ticket);
    settle(its, AnnouncementResult::of_failed_call(error, its->owner->owner_.method));
}

// A call that did not reach the switch because there is none has nothing to say to the next one.
void Retractions::settle(const Ticket *ticket, const AnnouncementResult &result)
{
    Retractions &self = *ticket->owner;
    std::lock_guard lock(self.owner_.lock);
    Ticket taken = self.tickets_.take_back(ticket);
    auto found = self.ids_.find(taken.id);
    if (found == self.ids_.end() || found->second != taken.sending)
        return;
    if (result.outcome == AnnouncementResult::NotSent && !result.text.empty()) {
        found->second = refused;
        if (!std::exchange(self.told_, true))
            log_warning("%s", result.text.c_str());
        self.timer_.start();
        return;
    }
    self.ids_.erase(found);
    if (self.ids_.empty())
        self.reset();
    self.owner_.done(self.owner_.instance);
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
    std::erase_if(
        ids_, [this](const auto &entry) { return !owner_.ids_are_own || entry.second == refused; });
    if (ids_.empty())
        reset();
}

void Retractions::reset()
{
    told_ = false;
    timer_.reset();
}

void Retractions::lose_bus()
{
    ids_.clear();
    reset();
    tickets_.forget();
}

} // namespace qandor
