// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/subscribers.hpp"

#include <algorithm>
#include <set>
#include <unistd.h>

namespace qandor::cli {
namespace {

// Of either, those of this process.
std::set<guint32> own_ids(const std::vector<MonitoredPeer> &peers)
{
    std::set<guint32> ids;
    for (const MonitoredPeer &peer : peers)
        if (peer.pid == static_cast<guint32>(getpid()))
            ids.insert(peer.ids.begin(), peer.ids.end());
    return ids;
}

void count(Subscribers &counted, const MonitoredSubscription &subscription)
{
    ++(subscription.clandestine ? counted.clandestine : counted.visible);
}

bool wants(const MonitoredSubscription &subscription, const Event &event)
{
    auto parsed = parse_expression(subscription.expression);
    const auto *expression = std::get_if<Expression>(&parsed);
    return !expression || !expression->try_build() || event.matches(*expression);
}

} // namespace

std::optional<Subscribers> subscribers_of(const SwitchBus &bus, const Event &event)
{
    try {
        std::set<guint32> own = own_ids(list_producers(bus));
        Subscribers counted;
        for (const MonitoredSubscription &subscription : list_subscriptions(bus)) {
            const std::vector<guint32> &ids = subscription.declarations;
            bool is_ours =
                std::any_of(ids.begin(), ids.end(), [&](guint32 id) { return own.count(id) > 0; });
            if (is_ours && wants(subscription, event))
                count(counted, subscription);
        }
        return counted;
    } catch (const Failure &) {
        return std::nullopt;
    }
}

std::optional<std::map<guint32, Subscribers>> subscribers_by_declaration(const SwitchBus &bus)
{
    try {
        std::set<guint32> own = own_ids(list_consumers(bus));
        std::map<guint32, Subscribers> counted;
        for (const MonitoredSubscription &subscription : list_subscriptions(bus))
            if (own.count(subscription.id) == 0)
                for (guint32 id : subscription.declarations)
                    count(counted[id], subscription);
        return counted;
    } catch (const Failure &) {
        return std::nullopt;
    }
}

std::string text_of(const Subscribers &subscribers)
{
    std::size_t all = subscribers.visible + subscribers.clandestine;
    if (all == 0)
        return "to nobody: nobody subscribes to it";
    std::string text = "to " + std::to_string(all) + (all == 1 ? " subscriber" : " subscribers");
    if (subscribers.clandestine == 0)
        return text;
    if (all == 1)
        return text + ", a clandestine one";
    return text + ", " + std::to_string(subscribers.clandestine) + " of them clandestine";
}

} // namespace qandor::cli
