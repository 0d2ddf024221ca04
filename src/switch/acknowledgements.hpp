// SPDX-License-Identifier: LGPL-2.1-or-later

// Asks peers whether they have read what they were sent: a Ping call, which every implementation of
// D-Bus answers in the order of arrival. The bus lets the switch wait for few answers at a time,
// and a peer that hangs keeps its place until it leaves. So the users share the places: each may
// have up to half of what the others have left.
#pragma once

#include "platform/owners.hpp"
#include "switch/replybudget.hpp"

#include <systemd/sd-bus.h>

#include <glib.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

namespace qandor {

class Acknowledgements {
public:
    using Tell = std::function<void(const std::string &name)>;

    // Tells when a name is asked, and when it has answered: it has read all up to there.
    Acknowledgements(sd_bus *bus, Tell asked, Tell answered)
        : bus_(bus), tell_asked_(std::move(asked)), tell_answered_(std::move(answered))
    {
    }
    Acknowledgements(const Acknowledgements &) = delete;
    Acknowledgements &operator=(const Acknowledgements &) = delete;

    // Asks the name, unless it is being asked; later when no place is free.
    void ask(const std::string &name, guint32 uid);
    // The name has left.
    void forget(const std::string &name);
    // Asks those whose question the bus has refused, or that had no place.
    void ask_waiting();
    bool has_waiting() const { return !waiting_.empty(); }

private:
    struct Asking {
        Acknowledgements &owner;
        std::string name;
        guint32 uid;
        BusSlotOwner slot;
    };

    static int receive_answer(sd_bus_message *reply, void *asking, sd_bus_error *);

    bool has_place(guint32 uid) const;
    bool begin(const std::string &name, guint32 uid);
    void end(const std::string &name);

    sd_bus *bus_;
    Tell tell_asked_;
    Tell tell_answered_;
    std::unordered_map<std::string, Asking> askings_; // under way, by name
    std::unordered_map<guint32, std::size_t> places_; // by user
    std::map<std::string, guint32> waiting_;          // users of the names that wait for a place
    bool has_warned_ = false;
};

} // namespace qandor
