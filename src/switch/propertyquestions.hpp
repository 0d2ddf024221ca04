// SPDX-License-Identifier: LGPL-2.1-or-later

// Questions for a property's state. The switch has no states of its own: it subscribes itself,
// clandestinely, with the producers that could have one. A producer that has a state sends it as an
// event before it answers the Subscribe call; the first event is the answer. When all producers
// have answered without an event, or the deadline is over, there is none.
#pragma once

#include "switch/book.hpp"

#include <systemd/sd-bus.h>

#include <list>
#include <set>
#include <unordered_map>

namespace qandor {

class PropertyQuestions {
public:
    // The path of the object on which the switch receives the events.
    static constexpr const char *object = "/com/vemo/Event/Switch/Questions";

    PropertyQuestions(sd_bus *bus, Book &book, Accounts &accounts);
    ~PropertyQuestions();
    PropertyQuestions(const PropertyQuestions &) = delete;
    PropertyQuestions &operator=(const PropertyQuestions &) = delete;

    // Why the user may not ask now; nothing when it may.
    std::optional<std::string> refusal_to_ask(guint32 uid) const;
    // Takes the question over: the answer to the call comes later.
    void ask(sd_bus_message *call, guint32 uid, const subscribe_expression *expression);

    // Whether an event for a question comes in time, from somebody who was asked.
    bool expects(guint32 token, const std::string &sender) const;
    // Such an event has come.
    void receive(const event *event, guint32 token);

    // Nobody waits for an answer any more.
    void forget_peer(const std::string &name);

private:
    struct Question;
    struct Asking;
    struct Unasked {
        guint32 token;
        guint32 global_id;
    };

    static int receive_subscribe_answer(sd_bus_message *reply, void *asking, sd_bus_error *);
    static int end_of_deadline(sd_event_source *, uint64_t, void *question);
    static int end_of_grace(sd_event_source *, uint64_t, void *question);

    void ask_next();
    void ask_producer(Question &question, const Declaration &declaration);
    void count_answer(Question &question);
    bool may_be_asked(const std::string &name) const;
    void settle(Asking &asking);
    void start_timer(Question &question, guint64 usec, sd_event_time_handler_t handler);
    void refuse(Question &question, const char *reason);
    BusMessageOwner end(Question &question);

    sd_bus *bus_;
    Book &book_;
    Accounts &accounts_;
    std::unordered_map<guint32, std::unique_ptr<Question>> questions_; // by token
    std::list<Unasked> unasked_; // Subscribe calls that wait for their turn
    std::list<Asking> askings_;  // Subscribe calls under way, by name beside
    std::map<std::string, guint> askings_of_;
    guint32 last_token_ = 0;
};

} // namespace qandor
