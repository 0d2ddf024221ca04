// SPDX-License-Identifier: LGPL-2.1-or-later

// Which sending of which declaration or subscription an answer belongs to. A ticket goes along with
// a call as its user data; those of calls that are never answered end with their owner.
#pragma once

#include <glib.h>

#include <list>

namespace qandor {

template <class Owner> class SendTickets {
public:
    struct Ticket {
        Owner *owner;
        guint32 id;
        guint64 sending;
        typename std::list<Ticket>::iterator place;
    };

    // A new ticket; its sending is a number that no other one has.
    Ticket *issue(Owner *owner, guint32 id)
    {
        tickets_.push_front({owner, id, ++last_sending_, {}});
        tickets_.front().place = tickets_.begin();
        return &tickets_.front();
    }
    Ticket take_back(const Ticket *ticket)
    {
        Ticket taken = *ticket;
        tickets_.erase(taken.place);
        return taken;
    }
    // All calls that were under way have ended.
    void forget() { tickets_.clear(); }

private:
    std::list<Ticket> tickets_;
    guint64 last_sending_ = 0;
};

} // namespace qandor
