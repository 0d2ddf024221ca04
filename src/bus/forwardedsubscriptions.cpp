// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/forwardedsubscriptions.hpp"

#include <algorithm>

namespace qandor {
namespace {

// With more than so many the index is faster.
constexpr std::size_t few = 4;

} // namespace

std::vector<ForwardedSubscriptions::Filed>::const_iterator
ForwardedSubscriptions::first_of(guint32 id) const
{
    return std::find_if(filed_.begin(), filed_.end(),
                        [id](const Filed &filed) { return filed.id == id; });
}

const subscribe_expression *ForwardedSubscriptions::find(guint32 id) const
{
    auto found = first_of(id);
    return found == filed_.end() ? nullptr : found->subscription.get();
}

const subscribe_expression *ForwardedSubscriptions::at(guint32 number) const
{
    auto found =
        std::lower_bound(filed_.begin(), filed_.end(), number,
                         [](const Filed &filed, guint32 wanted) { return filed.number < wanted; });
    return found->subscription.get();
}

void ForwardedSubscriptions::begin_index()
{
    index_ = std::make_unique<ExpressionIndex>(ExpressionIndex::Containers::Events);
    for (const Filed &filed : filed_)
        index_->add(filed.number, filed.subscription->content);
}

void ForwardedSubscriptions::add(std::unique_ptr<subscribe_expression> subscription)
{
    visible_ += subscription->clandestine ? 0 : 1;
    guint32 id = subscription->id;
    const inspectable &content = subscription->content;
    filed_.push_back({++last_number_, id, std::move(subscription)});
    if (index_)
        index_->add(last_number_, content);
    else if (filed_.size() > few)
        begin_index();
}

void ForwardedSubscriptions::remove(guint32 id)
{
    auto gone = first_of(id);
    if (gone == filed_.end())
        return;
    visible_ -= gone->subscription->clandestine ? 0 : 1;
    if (index_)
        index_->remove(gone->number);
    filed_.erase(gone);
}

void ForwardedSubscriptions::clear()
{
    index_.reset();
    filed_.clear();
    visible_ = 0;
}

} // namespace qandor
