// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/replies.hpp"

#include "platform/owners.hpp"

#include <cerrno>

namespace qandor {
namespace {

// A small reply, about.
constexpr std::size_t small_bytes = 64;

using SharedMessage = std::shared_ptr<sd_bus_message>;

SharedMessage share(sd_bus_message *message)
{
    return {message ? sd_bus_message_ref(message) : nullptr, sd_bus_message_unref};
}

// An error when it cannot be made. Returns how many bytes were appended.
gint64 make_reply(sd_bus_message *call, BusMessageOwner &reply, const Replies::AppendMany &append)
{
    sd_bus_message *made = nullptr;
    int r = sd_bus_message_new_method_return(call, &made);
    reply.reset(made);
    gint64 bytes = r < 0 ? r : append(made);
    if (bytes >= 0)
        return bytes;
    made = nullptr;
    sd_bus_message_new_method_errno(call, &made, static_cast<int>(bytes), nullptr);
    reply.reset(made);
    return small_bytes;
}

gint64 send(sd_bus_message *reply, gint64 bytes)
{
    int r = reply ? sd_bus_send(nullptr, reply, nullptr) : -ENOMEM;
    return r < 0 ? r : bytes;
}

} // namespace

void Replies::send_later(sd_bus_message *call, sd_bus_message *reply)
{
    outbox_.add(sd_bus_message_get_sender(call), Outbox::Kind::Reply, small_bytes,
                [reply = share(reply)] { return send(reply.get(), small_bytes); });
}

void Replies::answer(sd_bus_message *call, const Append &append)
{
    if (sd_bus_message_get_expect_reply(call) <= 0)
        return;
    BusMessageOwner reply;
    make_reply(call, reply, append);
    send_later(call, reply.get());
}

void Replies::refuse(sd_bus_message *call, const char *error, const std::string &reason)
{
    if (sd_bus_message_get_expect_reply(call) <= 0)
        return;
    sd_bus_message *made = nullptr;
    sd_bus_message_new_method_errorf(call, &made, error, "%s", reason.c_str());
    send_later(call, BusMessageOwner(made).get());
}

void Replies::answer_later(sd_bus_message *call, std::size_t bytes, AppendMany append)
{
    if (sd_bus_message_get_expect_reply(call) <= 0)
        return;
    outbox_.add(sd_bus_message_get_sender(call), Outbox::Kind::Reply, bytes,
                [call = share(call), append = std::move(append)] {
                    BusMessageOwner reply;
                    gint64 made = make_reply(call.get(), reply, append);
                    return send(reply.get(), made);
                });
}

} // namespace qandor
