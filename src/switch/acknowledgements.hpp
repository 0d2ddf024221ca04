// SPDX-License-Identifier: LGPL-2.1-or-later

// Asks peers whether they have read what they were sent: a Ping call, which every implementation of
// D-Bus answers in the order of arrival. The bus lets the switch wait for few answers at a time,
// and a peer that hangs keeps its place until it leaves. So the users share the places: each may
// have up to half of what the others have left.
//
// dbus-daemon drops answers while too much waits for the switch, and nobody is told. So a question
// that stays without an answer is repeated. The switch cannot see whether an answer was dropped or
// is late, so each question keeps its place, and a name has few of them.
#pragma once

#include "platform/owners.hpp"
#include "switch/replybudget.hpp"

#include <systemd/sd-bus.h>

#include <glib.h>

#include <functional>
#include <list>
#include <map>
#include <string>
#include <unordered_map>

namespace qandor {

class Acknowledgements {
public:
    using Tell = std::function<void(const std::string &name)>;

    // Microseconds of a clock that never goes back.
    using Clock = gint64 (*)();

    // Tells when a name is asked, and when it has answered: it has read all up to there.
    Acknowledgements(sd_bus *bus, Tell asked, Tell answered, Clock clock = g_get_monotonic_time)
        : bus_(bus), tell_asked_(std::move(asked)), tell_answered_(std::move(answered)),
          clock_(clock)
    {
    }
    Acknowledgements(const Acknowledgements &) = delete;
    Acknowledgements &operator=(const Acknowledgements &) = delete;

    // Asks the name, unless it is being asked; later when no place is free.
    void ask(const std::string &name, guint32 uid);
    // The name has left.
    void forget(const std::string &name);
    // Asks those whose question the bus has refused, or that had no place, and once more those that
    // have not answered for long.
    void look_again();

    // A first question and its repetitions, which come after this pause and then after pauses that
    // are four times as long.
    static constexpr std::size_t most_questions = 5;
    static constexpr gint64 first_pause_usec = 4 * G_USEC_PER_SEC;

private:
    struct Name;
    struct Question {
        Name &name;
        guint round; // see Name
        BusSlotOwner slot{};
    };
    struct Name {
        Acknowledgements &owner;
        const std::string name;
        const guint32 uid;
        // Those of former rounds, whose answers tell nothing new, hold places still.
        std::list<Question> questions{};
        // An answer to one of the questions of a round is an answer to all of them.
        guint round = 0;
        bool is_being_asked = false; // in the present round
        gint64 repeat_at = 0;        // by the clock
        gint64 pause = first_pause_usec;
    };

    static int receive_answer(sd_bus_message *reply, void *question, sd_bus_error *);

    bool has_place(guint32 uid) const;
    void ask_waiting();
    bool begin(const std::string &name, guint32 uid);
    bool send_question(Name &name);
    void repeat(Name &name);
    void end(Question &question);

    sd_bus *bus_;
    Tell tell_asked_;
    Tell tell_answered_;
    const Clock clock_;
    std::unordered_map<std::string, Name> names_;     // that have questions
    std::unordered_map<guint32, std::size_t> places_; // by user
    std::size_t taken_places_ = 0;
    std::map<std::string, guint32> waiting_; // users of the names that wait for a place
    bool has_warned_ = false;
};

} // namespace qandor
