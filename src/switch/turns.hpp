// SPDX-License-Identifier: LGPL-2.1-or-later

// Calls wait for their turn. The users take turns, and the names of a user. A user's next call is
// handled when the work that the one before has caused is done, and a name's next call when the
// name has read nearly all it was told. So a user who makes the switch work or say much waits for
// that himself, and the others do not.
#pragma once

#include "platform/owners.hpp"
#include "switch/accounts.hpp"

#include <systemd/sd-bus.h>

#include <deque>
#include <functional>
#include <map>
#include <string>

namespace qandor {

class Turns {
public:
    // Who may be served now, and what serves a call.
    struct Service {
        std::function<bool(guint32 uid)> may_serve_user;
        std::function<bool(const std::string &name)> may_serve_name;
        std::function<void(sd_bus_message *call, guint32 uid)> handle;
    };

    Turns(Accounts &accounts, Service service) : accounts_(accounts), service_(std::move(service))
    {
    }
    Turns(const Turns &) = delete;
    Turns &operator=(const Turns &) = delete;

    // Files a call with its user. Says why not when too much of the user waits already.
    std::optional<std::string> take(sd_bus_message *call, guint32 uid);
    // Handles one call; false when none may be handled now.
    bool handle_next();
    // Nobody waits for what the name has called any more.
    void forget_peer(const std::string &name);
    bool is_empty() const { return waiting_.empty(); }
    bool has_call_of(const std::string &name, guint32 uid) const;

private:
    struct Waiting {
        BusMessageOwner call;
        Charge charge;
        bool only_asks;
    };
    struct User {
        std::map<std::string, std::deque<Waiting>> calls; // by bus name
        std::string last_name;                            // whose turn it was
    };

    bool may_serve(guint32 uid, const std::string &name, const Waiting &first) const;
    bool handle_next_of(guint32 uid, User &user);

    Accounts &accounts_;
    Service service_;
    std::map<guint32, User> waiting_; // by user id
    guint32 last_uid_ = 0;            // whose turn it was
};

} // namespace qandor
