// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/sendercredentials.hpp"

#include "bus/heldsignals.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

guint32 qandor::get_uid_from_message(sd_bus_message *call)
{
    CHECK(call);
    HeldSignals held;
    sd_bus_creds *creds = nullptr;
    int r = sd_bus_query_sender_creds(call, SD_BUS_CREDS_UID | SD_BUS_CREDS_EUID, &creds);
    CHECK_TEXT(r >= 0,
               "sd_bus_query_sender_creds(call, SD_BUS_CREDS_UID|SD_BUS_CREDS_EUID, &creds) >= 0");
    BusCredentialsOwner owner(creds);

    uid_t uid = unknown_uid;
    r = sd_bus_creds_get_euid(creds, &uid);
    if (r < 0)
        r = sd_bus_creds_get_uid(creds, &uid);
    if (r < 0)
        log_warning("Failed to retireve UID of the connection: %d", r);
    return uid;
}
