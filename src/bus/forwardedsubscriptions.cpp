// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/forwardedsubscriptions.hpp"

#include <algorithm>

namespace qandor {
namespace {

// With more than so many the index is faster.
constexpr std::size_t few = 4;

} // namespace

ForwardedSubscriptions::Place ForwardedSubscriptions::place_of(guint32 number)
{
    return std::lower_bound(
        filed_.begin(), filed_.end(), number,
        [](const Filed &filed, guint32 wanted) { return filed.number < wanted; });
}

ForwardedSubscriptions::Place ForwardedSubscriptions::first_of(guint32 id)
{
    if (!index_)
        return std::find_if(filed_.begin(), filed_.end(),
                            [id](const Filed &filed) { return filed.id == id; });
    auto number = numbers_.lower_bound(id);
    bool is_there = number != numbers_.end() && number->first == id;
    return is_there ? place_of(number->second) : filed_.end();
}

const subscribe_expression *ForwardedSubscriptions::find(guint32 id)
{
    auto found = first_of(id);
    return found == filed_.end() ? nullptr : found->subscription.get();
}

void ForwardedSubscriptions::begin_index()
{
    index_ = std::make_unique<ExpressionIndex>(ExpressionIndex::Containers::Events);
    for (const Filed &filed : filed_) {
        index_->add(filed.number, filed.subscription->content);
        numbers_.emplace(filed.id, filed.number);
    }
}

void ForwardedSubscriptions::add(std::unique_ptr<subscribe_expression> subscription)
{
    visible_ += subscription->clandestine ? 0 : 1;
    guint32 id = subscription->id;
    const inspectable &content = subscription->content;
    filed_.push_back({++last_number_, id, std::move(subscription)});
    if (index_) {
        index_->add(last_number_, content);
        numbers_.emplace(id, last_number_);
    } else if (filed_.size() > few) {
        begin_index();
    }
}

// Closing the gap at once would move all that came later.
void ForwardedSubscriptions::drop(Place gone)
{
    gone->subscription.reset();
    if (++gone_ <= filed_.size() / 2)
        return;
    std::erase_if(filed_, [](const Filed &filed) { return !filed.subscription; });
    gone_ = 0;
}

void ForwardedSubscriptions::remove(guint32 id)
{
    Place gone = first_of(id);
    if (gone == filed_.end())
        return;
    visible_ -= gone->subscription->clandestine ? 0 : 1;
    if (!index_) {
        filed_.erase(gone);
        return;
    }
    index_->remove(gone->number);
    numbers_.erase(numbers_.lower_bound(id));
    drop(gone);
}

void ForwardedSubscriptions::clear()
{
    index_.reset();
    numbers_.clear();
    filed_.clear();
    gone_ = 0;
    visible_ = 0;
}

} // namespace qandor
