// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/request.hpp"

#include "switch/log.hpp"

#include <unistd.h>

#include <algorithm>

namespace qandor {
namespace {

// What a record can say, so that a path travels whole in an expression.
constexpr std::size_t max_object = G_MAXUINT16;
// Of the name that a peer gives itself, which is for people.
constexpr glong max_title = 256;

std::string shortened(const char *text)
{
    const char *end = g_utf8_offset_to_pointer(text, std::min(g_utf8_strlen(text, -1), max_title));
    return {text, end};
}

} // namespace

// The signature has been checked, so what is read here is there.

const char *Request::read_text()
{
    const char *text = "";
    sd_bus_message_read(call_, "s", &text);
    return text;
}

guint32 Request::read_number()
{
    guint32 number = 0;
    sd_bus_message_read(call_, "u", &number);
    return number;
}

bool Request::refuse(const char *error, const std::string &reason)
{
    log_line(LogLevel::Debug, "%s of %s is refused: %s", sd_bus_message_get_member(call_),
             sd_bus_message_get_sender(call_), reason.c_str());
    service_.replies.refuse(call_, error, reason);
    return false;
}

bool Request::read_object(PeerAddress &address)
{
    address.name = sd_bus_message_get_sender(call_);
    address.object = read_text();
    if (address.object.size() <= max_object &&
        sd_bus_object_path_is_valid(address.object.c_str()) > 0)
        return true;
    return refuse(SD_BUS_ERROR_INVALID_ARGS, "The object is no object path");
}

bool Request::read_peer(Peer &peer)
{
    Sender sender{};
    if (!read_object(peer.address))
        return false;
    peer.title = shortened(read_text());
    if (!find_sender(sender))
        return false;
    peer.uid = sender.uid;
    peer.pid = sender.pid;
    return true;
}

bool Request::read_record(RecordKind kind)
{
    const void *data = nullptr;
    size_t size = 0;
    sd_bus_message_read_array(call_, 'y', &data, &size);
    Sender sender{};
    if (!find_sender(sender))
        return false;
    guint64 limit = service_.accounts.limits(sender.uid).record_bytes;
    if (size > limit)
        return refuse(SD_BUS_ERROR_LIMITS_EXCEEDED,
                      "A record may have " + std::to_string(limit) + " bytes");
    const auto *bytes = static_cast<const guint8 *>(data);
    key_names_.clear();
    shape_ = {};
    if (auto fault = check_record(kind, bytes, size, &key_names_, &shape_))
        return refuse(SD_BUS_ERROR_INVALID_ARGS, "Malformed record at byte " +
                                                     std::to_string(fault->offset) + ": " +
                                                     fault->what);
    if (!admit(bound_passed_by(shape_, key_names_)))
        return false;
    record_.data = static_cast<gchar *>(const_cast<void *>(data));
    record_.len = static_cast<guint>(size);
    return true;
}

bool Request::has_key(std::string_view name) const
{
    return std::ranges::find(key_names_, name) != key_names_.end();
}

int Request::answer()
{
    return answer_with([](sd_bus_message *) { return 0; });
}

int Request::answer_with(const std::function<int(sd_bus_message *)> &append)
{
    service_.replies.answer(call_, append);
    return 1;
}

int Request::answer_later(std::size_t bytes, Replies::AppendMany append)
{
    service_.replies.answer_later(call_, bytes, std::move(append));
    return 1;
}

bool Request::find_sender(Sender &sender)
{
    std::optional<Sender> found = service_.senders.find_known(sd_bus_message_get_sender(call_));
    if (!found)
        return refuse(SD_BUS_ERROR_ACCESS_DENIED, "The bus does not tell who the caller is");
    sender = *found;
    return true;
}

bool Request::admit(const std::optional<std::string> &reason)
{
    return !reason || refuse(SD_BUS_ERROR_LIMITS_EXCEEDED, *reason);
}

bool Request::admit_key_names()
{
    Sender sender{};
    return find_sender(sender) && admit(service_.accounts.add_key_names(sender.uid, key_names_));
}

bool Request::check_sender_is_trusted(const char *to_do_what)
{
    Sender sender{};
    if (!find_sender(sender))
        return false;
    if (sender.uid == 0 || sender.uid == geteuid())
        return true;
    return refuse(SD_BUS_ERROR_ACCESS_DENIED,
                  std::string("Only root and the event switch's own user may ") + to_do_what);
}

} // namespace qandor
