// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/formersubscribers.hpp"

#include <algorithm>

namespace qandor {
namespace {

constexpr gint64 longest_wait_usec = G_USEC_PER_SEC;

} // namespace

bool FormerSubscribers::Former::is(const subscribe_expression &subscription) const
{
    return token == subscription.consumer_token && path == subscription.dbus_object &&
           (name.empty() || name == subscription.dbus_service);
}

bool FormerSubscribers::knows(const subscribe_expression &subscription) const
{
    return std::any_of(former_.begin(), former_.end(),
                       [&](const Former &former) { return former.is(subscription); });
}

void FormerSubscribers::remember(const ForwardedSubscriptions &subscriptions)
{
    // Some are still waited for when the switch goes again before they are back.
    bool may_know_them = !former_.empty();
    subscriptions.for_each([&](const subscribe_expression &subscription) {
        if (!may_know_them || !knows(subscription))
            former_.push_back({subscription.dbus_service, subscription.dbus_object,
                               subscription.consumer_token, kept_.size()});
    });
    deadline_ = G_MAXINT64;
}

void FormerSubscribers::forget_names()
{
    for (Former &former : former_)
        former.name.clear();
}

void FormerSubscribers::wait()
{
    deadline_ = g_get_monotonic_time() + longest_wait_usec;
}

void FormerSubscribers::keep(const event &event, const std::shared_ptr<Backlog> &backlog)
{
    if (former_.empty())
        return;
    if (backlog && backlog->is_over())
        ++dropped_;
    else
        kept_.push(event, backlog);
}

std::optional<std::size_t> FormerSubscribers::take_back(const subscribe_expression &subscription)
{
    auto found = std::find_if(former_.begin(), former_.end(),
                              [&](const Former &former) { return former.is(subscription); });
    if (found == former_.end())
        return std::nullopt;
    std::size_t missed = found->missed;
    former_.erase(found);
    return missed;
}

guint FormerSubscribers::give_up()
{
    guint missed = dropped_ + (former_.empty() ? 0 : static_cast<guint>(kept_.size()));
    former_.clear();
    kept_ = {};
    dropped_ = 0;
    deadline_ = G_MAXINT64;
    return missed;
}

} // namespace qandor
