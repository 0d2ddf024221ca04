// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/senders.hpp"

#include "platform/owners.hpp"

namespace qandor {

std::optional<Sender> Senders::find(sd_bus_message *call)
{
    std::string name = sd_bus_message_get_sender(call);
    if (std::optional<Sender> known = find_known(name))
        return known;

    sd_bus_creds *made = nullptr;
    int r = sd_bus_query_sender_creds(call, SD_BUS_CREDS_EUID | SD_BUS_CREDS_PID, &made);
    BusCredentialsOwner credentials(made);
    uid_t uid = 0;
    pid_t pid = 0;
    if (r < 0 || sd_bus_creds_get_euid(made, &uid) < 0)
        return std::nullopt;
    if (sd_bus_creds_get_pid(made, &pid) < 0)
        pid = 0;
    return known_.emplace(name, Sender{uid, static_cast<guint32>(pid)}).first->second;
}

std::optional<Sender> Senders::find_known(const std::string &name) const
{
    auto known = known_.find(name);
    return known == known_.end() ? std::nullopt : std::optional<Sender>(known->second);
}

} // namespace qandor
