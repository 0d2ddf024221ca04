// SPDX-License-Identifier: LGPL-2.1-or-later

// Questions for a property's state. The switch has no states of its own: it subscribes itself,
// clandestinely, with the producers that could have one. A producer that has a state sends it as an
// event before it answers the Subscribe call; the first event is the answer. When all producers
// have answered without an event, or the deadline is over, there is none.
//
// Each bus name has a share in each question: a few of its properties are asked at a time, the next
// when one of those has been answered, or sent without waiting for a reply. So properties that are
// never answered keep nobody from hearing the state of a property of another name.
#pragma once

#include "switch/book.hpp"
#include "switch/outbox.hpp"
#include "switch/replies.hpp"
#include "switch/replybudget.hpp"

#include <systemd/sd-bus.h>

#include <deque>
#include <list>
#include <set>
#include <unordered_map>

namespace qandor {

class PropertyQuestions {
public:
    // The path of the object on which the switch receives the events.
    static constexpr const char *object = "/com/vemo/Event/Switch/Questions";

    PropertyQuestions(sd_bus *bus, Outbox &outbox, Replies &replies, Post &post, Book &book,
                      Accounts &accounts);
    ~PropertyQuestions();
    PropertyQuestions(const PropertyQuestions &) = delete;
    PropertyQuestions &operator=(const PropertyQuestions &) = delete;

    // Why the user may not ask now, with an expression of so many bytes; nothing when it may.
    std::optional<std::string> refusal_to_ask(guint32 uid, std::size_t bytes) const;
    // Takes the question over: the answer to the call comes later.
    void ask(sd_bus_message *call, guint32 uid, const subscribe_expression *expression);

    // Whether an event for a question comes in time, from somebody who was asked.
    bool expects(guint32 token, const std::string &sender) const;
    // Such an event has come.
    void receive(const event *event, guint32 token);

    // The name has left, or is dropped: nobody waits for its answers, nor is it asked.
    void forget_peer(const std::string &name);

private:
    struct Question;
    struct Asking;
    struct Share;
    // A property, of a bus name, that a question is about to ask.
    struct Unasked {
        guint32 token;
        guint32 global_id;
        std::string name;
    };
    // A bus name that has not answered everything yet.
    struct Asked {
        bool must_queue() const;

        guint under_way = 0;
        bool silent = false; // a question was not answered in time, and nothing since
        std::deque<Unasked> queue{};
    };

    static int receive_subscribe_answer(sd_bus_message *reply, void *asking, sd_bus_error *);
    static int end_of_deadline(sd_event_source *, uint64_t, void *question);
    static int end_of_grace(sd_event_source *, uint64_t, void *question);

    void ask_more(Question &question, Share &share);
    bool ask_next(Question &question, Share &share);
    void ask_producer(Question &question, const Unasked &next);
    bool may_wait_for_answer(guint32 asker, guint32 declarer, const std::string &name) const;
    Asking &begin_asking(const Question &question, guint32 declarer, const std::string &name);
    bool subscribe(const Unasked &next, Asking *asking);
    int send(sd_bus_message *call, Asking *asking);
    void end_asking(Asking &asking);
    void ask_queued(const std::string &name);
    void count_answer(guint32 token, const std::string &name);
    void count_unanswerable(guint32 token, const std::string &name);
    void forget_if_idle(const std::string &name);
    void note_silence(const Question &question);
    std::set<std::string> forget_queued(const Question &question);
    void start_timer(Question &question, guint64 usec, sd_event_time_handler_t handler);
    void refuse(Question &question, const char *reason);
    BusMessageOwner end(Question &question);
    void forget_unsent(const std::string &name);

    sd_bus *bus_;
    Outbox &outbox_;
    Replies &replies_;
    Post &post_;
    Book &book_;
    Accounts &accounts_;
    std::unordered_map<guint32, std::unique_ptr<Question>> questions_; // by token
    std::list<Asking> askings_;                                        // Subscribe calls under way
    std::unordered_map<std::string, Asked> asked_;                     // by bus name
    Askings askings_under_way_;                                        // by the users concerned
    guint32 last_token_ = 0;
};

} // namespace qandor
