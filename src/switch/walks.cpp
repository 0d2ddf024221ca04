// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/walks.hpp"

#include "switch/content.hpp"

namespace qandor {

Job::Progress Book::Walk::step()
{
    book_.post_.set_cause(uid_);
    if (!has_begun_) {
        auto ids = is_over() ? std::nullopt : begin();
        if (!ids)
            return Progress::Done;
        ids_ = std::move(*ids);
        has_begun_ = true;
        return Progress::More;
    }
    if (is_over())
        return Progress::Done;
    if (next_ == ids_.size()) {
        end();
        return Progress::Done;
    }
    if (!visit(ids_[next_]))
        return Progress::Waits;
    pass(guint64(ids_[next_++]) + 1);
    return Progress::More;
}

Declaration *Book::Walk::find_declaration(guint32 id) const
{
    auto found = book_.declarations_.find(id);
    return found == book_.declarations_.end() ? nullptr : found->second.get();
}

Subscription *Book::Walk::find_subscription(guint32 id) const
{
    auto found = book_.subscriptions_.find(id);
    return found == book_.subscriptions_.end() ? nullptr : found->second.get();
}

std::optional<std::vector<guint32>> Book::DeclarationAnnouncement::begin()
{
    declaration_->begin = ++book_.cursors_.last;
    pass(0);
    book_.post_.global_declare_id(*declaration_);
    return book_.candidates_of(*declaration_);
}

void Book::DeclarationAnnouncement::pass(guint64 cursor)
{
    book_.cursors_.of_declarations[declaration_->global_id] = cursor;
}

bool Book::DeclarationAnnouncement::visit(guint32 id)
{
    const Subscription *subscription = find_subscription(id);
    if (!subscription || !subscription->is_live() || subscription->begin > declaration_->begin ||
        !concerns(*declaration_, *subscription))
        return true;
    if (!has_room(*declaration_, *subscription))
        return false;
    book_.post_.subscribe(*declaration_, *subscription);
    book_.post_.notify(*subscription, *declaration_, NOTIFY_DECLARATION_ADDED);
    return true;
}

void Book::DeclarationAnnouncement::end()
{
    book_.cursors_.of_declarations.erase(declaration_->global_id);
    book_.post_.declaration_complete(*declaration_);
}

std::optional<std::vector<guint32>> Book::SubscriptionAnnouncement::begin()
{
    subscription_->begin = ++book_.cursors_.last;
    pass(0);
    return book_.candidates_of(*subscription_);
}

void Book::SubscriptionAnnouncement::pass(guint64 cursor)
{
    book_.cursors_.of_subscriptions[subscription_->id] = cursor;
}

bool Book::SubscriptionAnnouncement::visit(guint32 id)
{
    const Declaration *declaration = find_declaration(id);
    if (!declaration || !declaration->is_live() || declaration->begin > subscription_->begin ||
        !concerns(*declaration, *subscription_))
        return true;
    if (!has_room(*declaration, *subscription_))
        return false;
    book_.post_.subscribe(*declaration, *subscription_);
    book_.post_.notify(*subscription_, *declaration, NOTIFY_DECLARATION_ADDED);
    return true;
}

void Book::SubscriptionAnnouncement::end()
{
    book_.cursors_.of_subscriptions.erase(subscription_->id);
}

std::optional<std::vector<guint32>> Book::DeclarationRemoval::begin()
{
    return book_.candidates_of(*gone_);
}

void Book::DeclarationRemoval::pass(guint64 cursor)
{
    auto replaced = book_.replaced_.find(gone_->global_id);
    if (replaced != book_.replaced_.end())
        replaced->second.cursor = cursor;
}

// The producer of a replaced declaration keeps the subscriptions of the local id unless they are
// taken back. That of any other has forgotten them with the declaration.
bool Book::DeclarationRemoval::visit(guint32 id)
{
    const Subscription *subscription = find_subscription(id);
    if (!subscription || !subscription->was_told_of(*gone_, told_) ||
        !concerns(*gone_, *subscription))
        return true;
    if (!has_room(*gone_, *subscription))
        return false;
    if (subscription->is_live())
        book_.post_.notify(*subscription, *gone_, NOTIFY_DECLARATION_REMOVED);
    if (book_.replaced_.contains(gone_->global_id) && book_.has_producer(gone_->producer))
        book_.post_.unsubscribe(*gone_, subscription->id);
    return true;
}

void Book::DeclarationRemoval::end()
{
    book_.replaced_.erase(gone_->global_id);
}

Book::SubscriptionRemoval::SubscriptionRemoval(Book &book, std::shared_ptr<Subscription> gone,
                                               Cursors told)
    : Walk(book, gone->uid), gone_(std::move(gone)), told_(std::move(told))
{
    book_.taken_out_.emplace(gone_->id, TakenBack<Subscription>{gone_, told_});
}

void Book::SubscriptionRemoval::pass(guint64 cursor)
{
    book_.taken_out_.at(gone_->id).cursor = cursor;
}

void Book::SubscriptionRemoval::end()
{
    book_.taken_out_.erase(gone_->id);
}

std::optional<std::vector<guint32>> Book::SubscriptionRemoval::begin()
{
    return book_.candidates_of(*gone_);
}

bool Book::SubscriptionRemoval::visit(guint32 id)
{
    const Declaration *declaration = find_declaration(id);
    if (!declaration || !declaration->is_live() ||
        !was_told(declaration->party(), gone_->party(), told_) || !concerns(*declaration, *gone_))
        return true;
    if (!book_.post_.has_room(declaration->producer))
        return false;
    book_.post_.unsubscribe(*declaration, gone_->id);
    return true;
}

std::optional<std::vector<guint32>> Book::Refreshing::begin()
{
    return book_.candidates_of(*subscription_);
}

bool Book::Refreshing::visit(guint32 id)
{
    const Declaration *declaration = find_declaration(id);
    if (!declaration || !declaration->is_live() ||
        !event_declaration_is_property(declaration->record.get()) ||
        !was_told(declaration->party(), subscription_->party(), book_.cursors_) ||
        !concerns(*declaration, *subscription_))
        return true;
    if (!book_.post_.has_room(declaration->producer))
        return false;
    book_.post_.refresh_property(*declaration, subscription_->id);
    return true;
}

void Book::Leaving::add(Producer &producer)
{
    producer.left = &told_;
    producers_.push_back(&producer);
}

void Book::Leaving::add(Consumer &consumer)
{
    consumer.left = &told_;
    consumers_.push_back(&consumer);
}

// False when nothing is left.
bool Book::Leaving::take_next()
{
    if (!producers_.empty()) {
        Producer &producer = *producers_.front();
        if (!producer.global_ids.empty()) {
            removal_ = std::make_unique<DeclarationRemoval>(
                book_, book_.take_out_declaration(producer.global_ids.begin()->second), told_);
            return true;
        }
        producers_.pop_front();
        book_.producer_ids_.erase(producer.id);
        book_.producers_.erase(PeerAddress(producer.peer.address));
        return true;
    }
    if (!consumers_.empty()) {
        Consumer &consumer = *consumers_.front();
        if (!consumer.subscription_ids.empty()) {
            removal_ = std::make_unique<SubscriptionRemoval>(
                book_, book_.take_out_subscription(consumer.subscription_ids.begin()->second),
                told_);
            return true;
        }
        consumers_.pop_front();
        book_.consumers_.erase(PeerAddress(consumer.peer.address));
        return true;
    }
    return false;
}

Job::Progress Book::Leaving::step()
{
    if (!removal_)
        return take_next() ? Progress::More : Progress::Done;
    Progress progress = removal_->step();
    if (progress != Progress::Done)
        return progress;
    removal_.reset();
    return Progress::More;
}

} // namespace qandor
