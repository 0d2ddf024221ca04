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
    std::size_t of_others = askings_.size() - of_user;
    std::size_t share = std::max<std::size_t>((acknowledgement_calls - of_others) / 2, 1);
    return askings_.size() < acknowledgement_calls && of_user < share;
}

void Acknowledgements::ask(const std::string &name, guint32 uid)
{
    if (askings_.contains(name) || waiting_.contains(name))
        return;
    if (!has_place(uid) || !begin(name, uid))
        waiting_.emplace(name, uid);
}

bool Acknowledgements::begin(const std::string &name, guint32 uid)
{
    sd_bus_message *made = nullptr;
    int r = sd_bus_message_new_method_call(bus_, &made, name.c_str(), "/",
                                           "org.freedesktop.DBus.Peer", "Ping");
    BusMessageOwner call(made);
    if (r < 0)
        return false;
    Asking &asking = askings_.emplace(name, Asking{*this, name, uid, nullptr}).first->second;
    ++places_[uid];
    sd_bus_slot *slot = nullptr;
    // The bus counts the call until the peer answers or leaves, however long that takes.
    r = sd_bus_call_async(bus_, &slot, made, receive_answer, &asking, G_MAXUINT64);
    asking.slot.reset(slot);
    if (r >= 0)
        tell_asked_(name);
    else
        end(name);
    return r >= 0;
}

void Acknowledgements::end(const std::string &name)
{
    auto asking = askings_.find(name);
    if (asking == askings_.end())
        return;
    auto places = places_.find(asking->second.uid);
    if (--places->second == 0)
        places_.erase(places);
    askings_.erase(asking);
}

int Acknowledgements::receive_answer(sd_bus_message *reply, void *data, sd_bus_error *)
{
    auto &asking = *static_cast<Asking *>(data);
    Acknowledgements &self = asking.owner;
    std::string name = asking.name;
    guint32 uid = asking.uid;
    self.end(name);
    if (is_forbidden(reply) && !std::exchange(self.has_warned_, true))
        log_line(LogLevel::Warning,
                 "the bus does not allow the switch to call org.freedesktop.DBus.Peer: it cannot "
                 "see whether peers read");
    else if (is_refused(reply) && !is_forbidden(reply))
        self.waiting_.emplace(name, uid);
    if (!self.waiting_.contains(name))
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

void Acknowledgements::forget(const std::string &name)
{
    waiting_.erase(name);
    end(name);
    ask_waiting();
}

} // namespace qandor
