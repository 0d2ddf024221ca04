// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/senders.hpp"

#include "switch/log.hpp"

#include <cstring>

namespace qandor {
namespace {

// What a message takes besides its arguments, about.
constexpr std::size_t overhead = 1024;

} // namespace

bool only_asks(sd_bus_message *call)
{
    return sd_bus_message_is_empty(call) > 0;
}

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

std::optional<Sender> sender_from(sd_bus_message *credentials)
{
    std::optional<guint32> uid;
    guint32 pid = 0;
    if (sd_bus_message_enter_container(credentials, SD_BUS_TYPE_ARRAY, "{sv}") <= 0)
        return std::nullopt;
    while (sd_bus_message_enter_container(credentials, SD_BUS_TYPE_DICT_ENTRY, "sv") > 0) {
        const char *key = "";
        guint32 number = 0;
        sd_bus_message_read_basic(credentials, SD_BUS_TYPE_STRING, &key);
        bool is_uid = std::strcmp(key, "UnixUserID") == 0;
        bool is_pid = std::strcmp(key, "ProcessID") == 0;
        if (!is_uid && !is_pid)
            sd_bus_message_skip(credentials, "v");
        else if (sd_bus_message_read(credentials, "v", "u", &number) <= 0)
            return std::nullopt;
        else if (is_uid)
            uid = number;
        else
            pid = number;
        sd_bus_message_exit_container(credentials);
    }
    return uid ? std::optional<Sender>({*uid, pid}) : std::nullopt;
}

void Senders::receive(sd_bus_message *call)
{
    const char *sender = sd_bus_message_get_sender(call);
    if (!sender)
        return;
    auto [at, is_new] = names_.try_emplace(sender, *this, sender);
    Name &name = at->second;
    if (name.is_known) {
        take_(call, name.sender ? name.sender->uid : nobody_known);
        return;
    }
    hold(name, call);
    if (is_new)
        ask(name);
}

void Senders::hold(Name &name, sd_bus_message *call)
{
    std::size_t size = size_of(call);
    bool is_too_much = name.held.size() >= most_held_calls ||
                       name.held_bytes + size > most_held_bytes ||
                       held_bytes_ + size > most_held_bytes_of_all;
    if (is_too_much && (!only_asks(call) || sd_bus_message_get_expect_reply(call) == 0)) {
        // It is not known yet whose queue the answer would wait in.
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_LIMITS_EXCEEDED,
                                   "Too many calls wait for the bus to tell who the caller is");
        return;
    }
    name.held_bytes += size;
    held_bytes_ += size;
    name.held.emplace_back(sd_bus_message_ref(call));
}

// The answer may take any time: the bus has much to do, and nobody else waits for it.
void Senders::ask(Name &name)
{
    sd_bus_message *made = nullptr;
    int r =
        sd_bus_message_new_method_call(bus_, &made, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                       "org.freedesktop.DBus", "GetConnectionCredentials");
    BusMessageOwner question(made);
    sd_bus_slot *slot = nullptr;
    if (r >= 0)
        r = sd_bus_message_append(made, "s", name.name.c_str());
    if (r >= 0)
        r = sd_bus_call_async(bus_, &slot, made, receive_credentials, &name, G_MAXUINT64);
    name.asking.reset(slot);
    name.ask_again_at = g_get_monotonic_time() + patience_usec;
    if (r >= 0)
        return;
    log_line(LogLevel::Warning, "cannot ask who %s is: %s", name.name.c_str(), std::strerror(-r));
    hand_on(name);
}

int Senders::receive_credentials(sd_bus_message *reply, void *data, sd_bus_error *)
{
    auto &name = *static_cast<Name *>(data);
    if (sd_bus_message_is_method_error(reply, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0) {
        name.owner.forget(std::string(name.name)); // it has left
        return 0;
    }
    if (!sd_bus_message_is_method_error(reply, nullptr))
        name.sender = sender_from(reply);
    name.owner.hand_on(name);
    return 0;
}

void Senders::hand_on(Name &name)
{
    name.is_known = true;
    held_bytes_ -= std::exchange(name.held_bytes, 0);
    std::deque<BusMessageOwner> held = std::exchange(name.held, {});
    guint32 uid = name.sender ? name.sender->uid : nobody_known;
    for (const BusMessageOwner &call : held)
        take_(call.get(), uid);
}

void Senders::look_again()
{
    gint64 now = g_get_monotonic_time();
    std::vector<Name *> late;
    for (auto &[called, name] : names_)
        if (!name.is_known && now >= name.ask_again_at)
            late.push_back(&name);
    for (Name *name : late)
        ask(*name);
}

std::vector<std::string> Senders::names() const
{
    std::vector<std::string> names;
    for (const auto &[called, name] : names_)
        names.push_back(called);
    return names;
}

void Senders::forget(const std::string &name)
{
    auto found = names_.find(name);
    if (found == names_.end())
        return;
    held_bytes_ -= found->second.held_bytes;
    names_.erase(found);
}

std::optional<Sender> Senders::find_known(const std::string &name) const
{
    auto known = names_.find(name);
    return known == names_.end() ? std::nullopt : known->second.sender;
}

} // namespace qandor
