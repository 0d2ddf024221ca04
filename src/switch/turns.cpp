// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/turns.hpp"

#include <cstring>

namespace qandor {
namespace {

// What a message takes besides its arguments, about.
constexpr std::size_t overhead = 1024;

// What a call takes in memory, about.
std::size_t size_of(sd_bus_message *call)
{
    std::size_t size = overhead;
    char type = 0;
    while (sd_bus_message_peek_type(call, &type, nullptr) > 0) {
        const char *text = "";
        const void *bytes = nullptr;
        std::size_t count = 0;
        if (type == SD_BUS_TYPE_STRING && sd_bus_message_read_basic(call, type, &text) > 0)
            size += std::strlen(text);
        else if (type == SD_BUS_TYPE_ARRAY &&
                 sd_bus_message_read_array(call, 'y', &bytes, &count) > 0)
            size += count;
        else if (sd_bus_message_skip(call, nullptr) <= 0)
            break;
    }
    sd_bus_message_rewind(call, 1);
    return size;
}

int wake(sd_event_source *, void *)
{
    return 0;
}

} // namespace

int Turns::begin(sd_event *event)
{
    sd_event_source *made = nullptr;
    int r = sd_event_add_post(event, &made, after_work, this);
    after_work_.reset(made);
    if (r >= 0)
        r = sd_event_add_defer(event, &made, wake, nullptr);
    if (r < 0)
        return r;
    again_.reset(made);
    return sd_event_source_set_enabled(made, SD_EVENT_OFF);
}

int Turns::take(sd_bus_message *call, guint32 uid, sd_bus_message_handler_t handle, void *userdata)
{
    if (!waiting_.contains(uid) && !outbox_.holds(uid))
        return this->handle(call, uid, handle, userdata);
    Usage more;
    more.waiting_bytes = size_of(call);
    // What has no arguments asks, and is answered always: callers of the library rely on that. The
    // bus bounds how many may wait for their answers.
    bool only_asks = more.waiting_bytes == overhead;
    if (only_asks && sd_bus_message_get_expect_reply(call) == 0)
        return 1;
    auto reason = only_asks ? std::nullopt : accounts_.refusal(uid, more);
    if (reason)
        return sd_bus_reply_method_errorf(call, SD_BUS_ERROR_LIMITS_EXCEEDED, "%s",
                                          reason->c_str());
    waiting_[uid].push_back(
        {BusMessageOwner(sd_bus_message_ref(call)), handle, userdata, accounts_.charge(uid, more)});
    return 1;
}

int Turns::handle(sd_bus_message *call, guint32 uid, sd_bus_message_handler_t handle,
                  void *userdata)
{
    Outbox::Cause cause(outbox_, uid);
    int r = handle(call, userdata, nullptr);
    outbox_.add({}); // the answer may have to go out yet
    return r;
}

// The users take turns.
bool Turns::handle_next()
{
    auto at = waiting_.upper_bound(last_uid_);
    for (std::size_t left = waiting_.size(); left > 0; --left, ++at) {
        if (at == waiting_.end())
            at = waiting_.begin();
        if (outbox_.holds(at->first))
            continue;
        last_uid_ = at->first;
        Waiting next = std::move(at->second.front());
        at->second.pop_front();
        if (at->second.empty())
            waiting_.erase(at);
        int r = handle(next.call.get(), last_uid_, next.handle, next.userdata);
        if (r < 0)
            sd_bus_reply_method_errno(next.call.get(), r, nullptr);
        return true;
    }
    return false;
}

void Turns::forget_peer(const std::string &name)
{
    for (auto at = waiting_.begin(); at != waiting_.end();) {
        std::erase_if(at->second, [&name](const Waiting &waiting) {
            return name == sd_bus_message_get_sender(waiting.call.get());
        });
        at = at->second.empty() ? waiting_.erase(at) : std::next(at);
    }
}

int Turns::after_work(sd_event_source *, void *data)
{
    auto &self = *static_cast<Turns *>(data);
    self.outbox_.begin_round();
    for (guint left = Outbox::most_in_round; self.outbox_.send_next() || self.handle_next();)
        if (--left == 0)
            return sd_event_source_set_enabled(self.again_.get(), SD_EVENT_ONESHOT);
    return 0;
}

} // namespace qandor
