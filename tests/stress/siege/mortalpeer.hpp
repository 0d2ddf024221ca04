// SPDX-License-Identifier: LGPL-2.1-or-later

// A peer that plays its part message by message and leaves the bus at one of them.
#pragma once

#include "bus/switch/rawpeer.hpp"

#include <algorithm>
#include <list>
#include <stdexcept>

namespace qandor::test {

// How it leaves when it is to send or to hear its last message. What is sent is sent in each case.
enum class Leaving {
    AtOnce,     // without waiting for anything
    Unread,     // when the switch has done its work, which is left unread
    Unanswered, // after reading, without answering
};

class MortalPeer {
public:
    // Thrown by the peer's last message.
    struct Death {};

    // Dies at a message, counted from 1; at none, when there are not so many. The onlooker tells
    // when the switch has done what it was asked for.
    MortalPeer(RawPeer &onlooker, std::size_t last, Leaving leaving)
        : onlooker_(onlooker), last_(last), leaving_(leaving)
    {
        peer_.on_call = [this](const Received &received) {
            heard_.push_back(received);
            return !is_last() || leaving_ != Leaving::Unanswered;
        };
    }

    const std::string &name() const { return peer_.name(); }
    std::size_t messages() const { return messages_; }

    // Calls a method of the switch; the answer is a message of its own.
    template <class... Arguments> void ask(const std::string &method, const Arguments &...arguments)
    {
        begin_message();
        answer_.reset();
        peer_.call_later(answer_, method, arguments...);
        if (is_last())
            die();
    }
    template <class... Arguments>
    void call(const std::string &method, const Arguments &...arguments)
    {
        ask(method, arguments...);
        hear_answer();
    }
    void send_event(const char *destination, const char *path, const std::string &bytes,
                    guint32 token)
    {
        begin_message();
        peer_.send_event(destination, path, bytes, token);
        if (is_last())
            die();
    }

    Answer hear_answer()
    {
        begin_message();
        if (is_last())
            die();
        need(run_until([this] { return answer_.has_value(); }), "an answer");
        return *answer_;
    }
    // A call of that method, whatever else has come before it.
    Received hear(const std::string &member)
    {
        begin_message();
        if (is_last() && leaving_ != Leaving::Unanswered)
            die();
        auto found = heard_.end();
        need(run_until([&] {
                 found = std::find_if(heard_.begin(), heard_.end(), [&member](const Received &one) {
                     return one.member == member;
                 });
                 return found != heard_.end();
             }),
             member);
        Received received = *found;
        heard_.erase(found);
        if (is_last())
            die();
        return received;
    }

private:
    static void need(bool came, const std::string &what)
    {
        if (!came)
            throw std::runtime_error("waited in vain for " + what);
    }
    void begin_message() { ++messages_; }
    bool is_last() const { return messages_ == last_; }
    [[noreturn]] void die()
    {
        // The switch answers one after the other.
        if (leaving_ == Leaving::Unread) {
            sd_bus_flush(peer_.bus());
            onlooker_.call("Query.GetAllDeclarations");
        }
        peer_.leave();
        throw Death{};
    }

    RawPeer &onlooker_;
    std::size_t last_;
    Leaving leaving_;
    RawPeer peer_;
    std::size_t messages_ = 0;
    std::optional<Answer> answer_;
    std::list<Received> heard_;
};

} // namespace qandor::test
