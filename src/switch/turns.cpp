// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/turns.hpp"

#include "switch/senders.hpp"

namespace qandor {

std::optional<std::string> Turns::take(sd_bus_message *call, guint32 uid)
{
    Usage more;
    more.waiting_bytes = size_of(call);
    // What has no arguments asks, and is answered always: callers of the library rely on that. The
    // bus bounds how many may wait for their answers.
    bool asks = only_asks(call);
    if (asks && sd_bus_message_get_expect_reply(call) == 0)
        return std::nullopt;
    // A user's only call takes no more than the bus has let through.
    if (!asks && waiting_.contains(uid))
        if (auto reason = accounts_.refusal(uid, more))
            return reason;
    waiting_[uid].calls[sd_bus_message_get_sender(call)].push_back(
        {BusMessageOwner(sd_bus_message_ref(call)), accounts_.charge(uid, more), asks});
    return std::nullopt;
}

bool Turns::has_call_of(const std::string &name, guint32 uid) const
{
    auto user = waiting_.find(uid);
    return user != waiting_.end() && user->second.calls.contains(name);
}

bool Turns::may_serve(guint32 uid, const std::string &name, const Waiting &first) const
{
    return first.only_asks || (service_.may_serve_user(uid) && service_.may_serve_name(name));
}

bool Turns::handle_next_of(guint32 uid, User &user)
{
    auto at = user.calls.upper_bound(user.last_name);
    for (std::size_t left = user.calls.size(); left > 0; --left, ++at) {
        if (at == user.calls.end())
            at = user.calls.begin();
        if (!may_serve(uid, at->first, at->second.front()))
            continue;
        user.last_name = at->first;
        Waiting next = std::move(at->second.front());
        at->second.pop_front();
        if (at->second.empty())
            user.calls.erase(at);
        if (user.calls.empty())
            waiting_.erase(uid);
        service_.handle(next.call.get(), uid);
        return true;
    }
    return false;
}

bool Turns::handle_next()
{
    auto at = waiting_.upper_bound(last_uid_);
    for (std::size_t left = waiting_.size(); left > 0; --left, ++at) {
        if (at == waiting_.end())
            at = waiting_.begin();
        guint32 uid = at->first;
        if (handle_next_of(uid, at->second)) {
            last_uid_ = uid;
            return true;
        }
    }
    return false;
}

void Turns::forget_peer(const std::string &name)
{
    for (auto at = waiting_.begin(); at != waiting_.end();) {
        at->second.calls.erase(name);
        at = at->second.calls.empty() ? waiting_.erase(at) : std::next(at);
    }
}

} // namespace qandor
