// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/acknowledgements.hpp"

#include "switch/log.hpp"

#include <algorithm>
#include <cstring>

namespace qandor {
namespace {

bool is_from_bus(sd_bus_message *reply)
{
    return g_strcmp0(sd_bus_message_get_sender(reply), "org.freedesktop.DBus") == 0;
}

// A bus whose policy does not let the switch ask.
bool is_forbidden(sd_bus_message *reply)
{
    return is_from_bus(reply) &&
           sd_bus_message_is_method_error(reply, SD_BUS_ERROR_ACCESS_DENIED) > 0;
}

// A bus that is full now, or a peer that is leaving.
bool is_refused(sd_bus_message *reply)
{
    return is_from_bus(reply) && sd_bus_message_is_method_error(reply, nullptr) > 0;
}

} // namespace

bool Acknowledgements::has_place(guint32 uid) const
{
    auto own = places_.find(uid);
    std::size_t of_user = own == places_.end() ? 0 : own->second;
    std::size_t of_others = taken_places_ - of_user;
    std::size_t share = std::max<std::size_t>((acknowledgement_calls - of_others) / 2, 1);
    return taken_places_ < acknowledgement_calls && of_user < share;
}

void Acknowledgements::ask(const std::string &name, guint32 uid)
{
    auto known = names_.find(name);
    if ((known != names_.end() && known->second.is_being_asked) || waiting_.contains(name))
        return;
    if (!has_place(uid) || !begin(name, uid))
        waiting_.emplace(name, uid);
}

bool Acknowledgements::begin(const std::string &called, guint32 uid)
{
    Name &name = names_.try_emplace(called, Name{*this, called, uid}).first->second;
    ++name.round;
    name.pause = first_pause_usec;
    name.is_being_asked = send_question(name);
    if (!name.is_being_asked) {
        if (name.questions.empty())
            names_.erase(called);
        return false;
    }
    tell_asked_(called);
    return true;
}

// The bus counts the call until the peer answers or leaves, however long that takes.
bool Acknowledgements::send_question(Name &name)
{
    sd_bus_message *made = nullptr;
    int r = sd_bus_message_new_method_call(bus_, &made, name.name.c_str(), "/",
                                           "org.freedesktop.DBus.Peer", "Ping");
    BusMessageOwner call(made);
    if (r < 0)
        return false;
    Question &question = name.questions.emplace_back(Question{name, name.round});
    ++places_[name.uid];
    ++taken_places_;
    sd_bus_slot *slot = nullptr;
    r = sd_bus_call_async(bus_, &slot, made, receive_answer, &question, G_MAXUINT64);
    question.slot.reset(slot);
    if (r < 0)
        end(question);
    else
        name.repeat_at = clock_() + name.pause;
    return r >= 0;
}

void Acknowledgements::end(Question &question)
{
    Name &name = question.name;
    name.questions.remove_if([&question](const Question &one) { return &one == &question; });
    --taken_places_;
    auto places = places_.find(name.uid);
    if (--places->second == 0)
        places_.erase(places);
}

int Acknowledgements::receive_answer(sd_bus_message *reply, void *data, sd_bus_error *)
{
    auto &question = *static_cast<Question *>(data);
    Name &asked = question.name;
    Acknowledgements &self = asked.owner;
    const std::string name = asked.name;
    const guint32 uid = asked.uid;
    bool is_news = asked.is_being_asked && question.round == asked.round;
    self.end(question);
    if (is_news)
        asked.is_being_asked = false;
    if (asked.questions.empty())
        self.names_.erase(name);

    if (is_forbidden(reply) && !std::exchange(self.has_warned_, true))
        log_line(LogLevel::Warning,
                 "the bus does not allow the switch to call org.freedesktop.DBus.Peer: it cannot "
                 "see whether peers read");
    bool is_to_ask_again = is_refused(reply) && !is_forbidden(reply);
    if (is_news && is_to_ask_again)
        self.waiting_.emplace(name, uid);
    else if (is_news)
        self.tell_answered_(name);
    if (!is_refused(reply))
        self.ask_waiting();
    return 0;
}

void Acknowledgements::ask_waiting()
{
    for (auto at = waiting_.begin(); at != waiting_.end();) {
        auto next = std::next(at);
        if (has_place(at->second)) {
            auto [name, uid] = *at;
            waiting_.erase(at);
            if (!begin(name, uid))
                waiting_.emplace(name, uid);
        }
        at = next;
    }
}

void Acknowledgements::repeat(Name &name)
{
    bool is_due = name.is_being_asked && clock_() >= name.repeat_at;
    if (!is_due || name.questions.size() >= most_questions || !has_place(name.uid))
        return;
    name.pause *= 4;
    send_question(name);
}

void Acknowledgements::look_again()
{
    ask_waiting();
    for (auto &[name, asked] : names_)
        repeat(asked);
}

void Acknowledgements::forget(const std::string &name)
{
    waiting_.erase(name);
    auto known = names_.find(name);
    if (known != names_.end()) {
        while (!known->second.questions.empty())
            end(known->second.questions.front());
        names_.erase(known);
    }
    ask_waiting();
}

} // namespace qandor
