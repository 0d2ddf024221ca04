// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/sendercredentials.hpp"

#include "bus/heldsignals.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

#include <cerrno>

namespace {

// Nobody can be asked about a sender that has left the bus, nor when the bus itself has gone, nor
// while it is too busy to answer. All of these are other processes' doing.
bool cannot_be_asked(int r)
{
    return r == -ENXIO || r == -ENOTCONN || r == -ECONNRESET || r == -EPIPE || r == -ESHUTDOWN ||
           r == -ETIMEDOUT || r == -ESRCH || r == -ENOBUFS;
}

void warn_of_missing_id(int r)
{
    qandor::log_warning("Failed to retireve UID of the connection: %d", r);
}

} // namespace

guint32 qandor::get_uid_from_message(sd_bus_message *call)
{
    CHECK(call);
    HeldSignals held;
    sd_bus_creds *creds = nullptr;
    int r = sd_bus_query_sender_creds(call, SD_BUS_CREDS_UID | SD_BUS_CREDS_EUID, &creds);
    if (cannot_be_asked(r)) {
        warn_of_missing_id(r);
        return unknown_uid;
    }
    CHECK_TEXT(r >= 0,
               "sd_bus_query_sender_creds(call, SD_BUS_CREDS_UID|SD_BUS_CREDS_EUID, &creds) >= 0");
    BusCredentialsOwner owner(creds);

    uid_t uid = unknown_uid;
    r = sd_bus_creds_get_euid(creds, &uid);
    if (r < 0)
        r = sd_bus_creds_get_uid(creds, &uid);
    if (r < 0)
        warn_of_missing_id(r);
    return uid;
}
