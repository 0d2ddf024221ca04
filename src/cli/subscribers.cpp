// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/subscribers.hpp"

#include <algorithm>
#include <set>
#include <unistd.h>

namespace qandor::cli {
namespace {

std::set<guint32> own_declarations(const SwitchBus &bus)
{
    std::set<guint32> ids;
    for (const MonitoredPeer &producer : list_producers(bus))
        if (producer.pid == static_cast<guint32>(getpid()))
            ids.insert(producer.ids.begin(), producer.ids.end());
    return ids;
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
        std::set<guint32> own = own_declarations(bus);
        Subscribers counted;
        for (const MonitoredSubscription &subscription : list_subscriptions(bus)) {
            const std::vector<guint32> &ids = subscription.declarations;
            bool is_ours =
                std::any_of(ids.begin(), ids.end(), [&](guint32 id) { return own.count(id) > 0; });
            if (is_ours && wants(subscription, event))
                ++(subscription.clandestine ? counted.clandestine : counted.visible);
        }
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
