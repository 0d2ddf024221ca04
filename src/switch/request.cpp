// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/request.hpp"

#include <unistd.h>

namespace qandor {
namespace {

// What a record can say, so that a path travels whole in an expression.
constexpr std::size_t max_object = G_MAXUINT16;
// Records are forwarded inside others. The bus throws out whoever sends more than it carries.
constexpr std::size_t max_record = 256 << 10;

} // namespace

// sd-bus has checked the signature, so what is read here is there.

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
    refusal_ = sd_bus_reply_method_errorf(call_, error, "%s", reason.c_str());
    return false;
}

bool Request::read_peer(PeerAddress &peer)
{
    peer.name = sd_bus_message_get_sender(call_);
    peer.object = read_text();
    if (peer.object.size() <= max_object && sd_bus_object_path_is_valid(peer.object.c_str()) > 0)
        return true;
    return refuse(SD_BUS_ERROR_INVALID_ARGS, "The object is no object path");
}

bool Request::read_record(RecordKind kind)
{
    const void *data = nullptr;
    size_t size = 0;
    sd_bus_message_read_array(call_, 'y', &data, &size);
    if (size > max_record)
        return refuse(SD_BUS_ERROR_LIMITS_EXCEEDED,
                      "A record may have " + std::to_string(max_record) + " bytes");
    const auto *bytes = static_cast<const guint8 *>(data);
    if (auto fault = check_record(kind, bytes, size))
        return refuse(SD_BUS_ERROR_INVALID_ARGS, "Malformed record at byte " +
                                                     std::to_string(fault->offset) + ": " +
                                                     fault->what);
    record_.data = static_cast<gchar *>(const_cast<void *>(data));
    record_.len = static_cast<guint>(size);
    return true;
}

int Request::answer_bytes(const std::string &bytes)
{
    sd_bus_message *made = nullptr;
    int r = sd_bus_message_new_method_return(call_, &made);
    if (r < 0)
        return r;
    BusMessageOwner reply(made);
    r = sd_bus_message_append_array(made, 'y', bytes.data(), bytes.size());
    return r < 0 ? r : sd_bus_send(nullptr, made, nullptr);
}

bool Request::check_sender_is_trusted()
{
    sd_bus_creds *made = nullptr;
    uid_t uid = 0;
    int r = sd_bus_query_sender_creds(call_, SD_BUS_CREDS_EUID, &made);
    BusCredentialsOwner credentials(made);
    if (r >= 0)
        r = sd_bus_creds_get_euid(made, &uid);
    if (r >= 0 && (uid == 0 || uid == geteuid()))
        return true;
    return refuse(SD_BUS_ERROR_ACCESS_DENIED,
                  "Only root and the event switch's own user may add and remove types");
}

} // namespace qandor
