// SPDX-License-Identifier: LGPL-2.1-or-later

#include "ledger.hpp"

namespace qandor::faults {

bool Part::has(const std::string &who, guint number) const
{
    auto received = received_.find(who);
    return received != received_.end() && received->second.contains(number);
}

int Part::known(const std::string &who) const
{
    auto found = announced.find(who);
    return found == announced.end() ? 0 : found->second;
}

void Part::receive_event(event *event, gpointer data)
{
    Part &part = *static_cast<Part *>(data);
    std::string who = event_get_value(event, "who");
    auto number = static_cast<guint>(std::stoul(event_get_value(event, "n")));
    bool is_property = event_is_property(event);
    event_free(event);
    std::set<guint> &received = part.received_[who];
    guint last = received.empty() ? 0 : *received.rbegin();
    std::string came = "event " + std::to_string(number) + " of " + who + " came ";
    require(part.lives, came + "after the subscription had ended");
    require(is_property ? number >= last : number > last, came + "after " + std::to_string(last));
    received.insert(number);
}

void Part::receive_secure_event(event *event, guint32, gpointer data)
{
    receive_event(event, data);
}

void Part::receive_notification(notification *notification, gpointer data)
{
    Part &part = *static_cast<Part *>(data);
    std::string who = notification_get_value(notification, "who");
    part.announced[who] += notification_is_type_deleted(notification) ? -1 : 1;
    notification_free(notification);
}

} // namespace qandor::faults
