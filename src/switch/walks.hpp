// SPDX-License-Identifier: LGPL-2.1-or-later

// The jobs of the books. Each walks over the ids of those whom one record concerns, an id a step:
// the ids are taken when it begins, and whoever has gone by the time is passed over. The order in
// which a peer is told is the one of the steps.
//
//     Declare           [removal of the replaced one] -> announcement:
//                           GlobalDeclareId, pairs by subscription id, DeclarationComplete
//     Undeclare         removal: each consumer that was told of the declaration
//     Subscribe         [removal of the replaced one] -> announcement: pairs by global id
//     Unsubscribe       removal: each producer that was told of the subscription
//     a name leaves     its records one after another, each taken out and then removed
//
// Which of two records announces their pair, and whom a removal tells: see told.hpp. Besides:
// - a record that goes while it is being announced ends that: the next step finds it gone;
// - nothing is announced of records whose owner is leaving, though they still stand in the books;
// - when a subscription goes while a replaced declaration is still being removed, or the other way
//   round, it is taken back from the producer at once: neither removal will find the other's
//   record.
#pragma once

#include "switch/book.hpp"

namespace qandor {

class Book::Walk : public Job {
public:
    Walk(Book &book, guint32 uid) : book_(book), uid_(uid) {}
    Progress step() override;

protected:
    // Says the first thing, and whom to walk over; nothing when there is no more to do.
    virtual std::optional<std::vector<guint32>> begin() = 0;
    // Whether the one with the id is dealt with; false when somebody has to read first.
    virtual bool visit(guint32 id) = 0;
    // What has smaller ids is dealt with.
    virtual void pass(guint64) {}
    // Whether the walk has become pointless.
    virtual bool is_over() const { return false; }
    virtual void end() {}

    // Whether both may be told more.
    bool has_room(const Declaration &declaration, const Subscription &subscription) const
    {
        return book_.post_.has_room(declaration.producer) &&
               book_.post_.has_room(subscription.consumer);
    }
    Declaration *find_declaration(guint32 id) const;
    Subscription *find_subscription(guint32 id) const;

    Book &book_;
    const guint32 uid_; // who causes it

private:
    bool has_begun_ = false;
    std::vector<guint32> ids_;
    std::size_t next_ = 0;
};

class Book::DeclarationAnnouncement : public Walk {
public:
    DeclarationAnnouncement(Book &book, std::shared_ptr<Declaration> declaration)
        : Walk(book, declaration->uid), declaration_(std::move(declaration))
    {
    }

private:
    std::optional<std::vector<guint32>> begin() override;
    bool visit(guint32 id) override;
    void pass(guint64 cursor) override;
    bool is_over() const override { return !declaration_->is_live(); }
    void end() override;

    const std::shared_ptr<Declaration> declaration_;
};

class Book::SubscriptionAnnouncement : public Walk {
public:
    SubscriptionAnnouncement(Book &book, std::shared_ptr<Subscription> subscription)
        : Walk(book, subscription->uid), subscription_(std::move(subscription))
    {
    }

private:
    std::optional<std::vector<guint32>> begin() override;
    bool visit(guint32 id) override;
    void pass(guint64 cursor) override;
    bool is_over() const override { return !subscription_->is_live(); }
    void end() override;

    const std::shared_ptr<Subscription> subscription_;
};

class Book::DeclarationRemoval : public Walk {
public:
    DeclarationRemoval(Book &book, std::shared_ptr<Declaration> gone, Cursors told)
        : Walk(book, gone->uid), gone_(std::move(gone)), told_(std::move(told))
    {
    }

private:
    std::optional<std::vector<guint32>> begin() override;
    bool visit(guint32 id) override;
    void pass(guint64 cursor) override;
    void end() override;

    const std::shared_ptr<Declaration> gone_;
    const Cursors told_;
};

class Book::SubscriptionRemoval : public Walk {
public:
    SubscriptionRemoval(Book &book, std::shared_ptr<Subscription> gone, Cursors told);

private:
    std::optional<std::vector<guint32>> begin() override;
    bool visit(guint32 id) override;
    void pass(guint64 cursor) override;
    void end() override;

    const std::shared_ptr<Subscription> gone_;
    const Cursors told_;
};

class Book::Refreshing : public Walk {
public:
    Refreshing(Book &book, std::shared_ptr<Subscription> subscription)
        : Walk(book, subscription->uid), subscription_(std::move(subscription))
    {
    }

private:
    std::optional<std::vector<guint32>> begin() override;
    bool visit(guint32 id) override;
    bool is_over() const override { return !subscription_->is_live(); }

    const std::shared_ptr<Subscription> subscription_;
};

// Objects that leave: what they have filed is taken out and removed, one record after another.
class Book::Leaving : public Job {
public:
    explicit Leaving(Book &book) : book_(book), told_(book.cursors_) {}

    void add(Producer &producer);
    void add(Consumer &consumer);
    bool is_empty() const { return producers_.empty() && consumers_.empty(); }
    Progress step() override;

private:
    bool take_next();

    Book &book_;
    const Cursors told_; // when they left
    std::deque<Producer *> producers_;
    std::deque<Consumer *> consumers_;
    std::unique_ptr<Walk> removal_; // of the record taken out last
};

} // namespace qandor
