// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's books: who declared what, who subscribed to what, and who has to be told when either
// changes. Knows nothing of a bus: what there is to tell goes out through a Post.
#pragma once

#include "switch/post.hpp"
#include "switch/records.hpp"

#include <compare>
#include <map>
#include <string>
#include <vector>

namespace qandor {

// An object of a process on the bus. The name is the one the bus gives the sender, so that nobody
// can speak for another.
struct PeerAddress {
    std::string name;
    std::string object;
    auto operator<=>(const PeerAddress &) const = default;
};

struct Declaration {
    guint32 global_id;
    guint32 local_id;
    guint32 producer_id;
    PeerAddress producer;
    DeclarationOwner record;
    std::string bytes; // serialized with all its ids
};

struct Subscription {
    guint32 id;
    guint32 token;
    PeerAddress consumer;
    ExpressionOwner record; // with its id and the way to its consumer filled in
};

// Ids from 1 up; 0 is skipped, and so is what is in use when the counter comes round.
template <class InUse> guint32 next_id(guint32 &last, const InUse &in_use)
{
    do
        ++last;
    while (last == 0 || in_use.count(last) > 0);
    return last;
}

class Book {
public:
    explicit Book(Post &post) : post_(post) {}

    // Whether a declaration of so many bytes still fits into the answer that lists them all.
    bool has_room_for(std::size_t bytes) const;

    // Files a declaration, in the place of one with the same local id of the same peer. Its
    // producer and the subscribers it matches are told by announce().
    const Declaration &declare(const PeerAddress &producer, DeclarationOwner record);
    void announce(const Declaration &declaration);
    void undeclare(const PeerAddress &producer, guint32 global_id);
    void disconnect_producer(const PeerAddress &producer);

    const Subscription &subscribe(const PeerAddress &consumer, guint32 token,
                                  ExpressionOwner record);
    void announce(const Subscription &subscription);
    void unsubscribe(const PeerAddress &consumer, guint32 token);
    void refresh_property(const PeerAddress &consumer, guint32 token);
    void disconnect_consumer(const PeerAddress &consumer);

    // A name has left the bus, with all its objects.
    void forget_peer(const std::string &name);

    // NULL when there is none (any more).
    const Declaration *find_declaration(guint32 global_id) const;

    // The property declarations whose events can satisfy the expression, by global id.
    std::vector<const Declaration *> find_properties(const subscribe_expression *expression) const;
    guint32 new_subscription_id();

    // All declarations as a serialized list, by global id.
    std::string list_declarations() const;

    std::size_t declaration_count() const { return declarations_.size(); }
    std::size_t subscription_count() const { return subscriptions_.size(); }
    std::size_t producer_count() const { return producers_.size(); }
    std::size_t consumer_count() const { return consumers_.size(); }

private:
    struct Producer {
        guint32 id;
        std::map<guint32, guint32> global_ids; // by local id
    };
    struct Consumer {
        std::map<guint32, guint32> subscription_ids; // by token
    };

    Producer &producer_at(const PeerAddress &address);
    const Subscription *find_subscription(const PeerAddress &consumer, guint32 token) const;
    void remove_declaration(guint32 global_id);
    void remove_subscription(guint32 id);

    Post &post_;
    std::map<PeerAddress, Producer> producers_;
    std::map<PeerAddress, Consumer> consumers_;
    std::map<guint32, PeerAddress> producer_ids_;
    std::map<guint32, Declaration> declarations_;   // by global id
    std::map<guint32, Subscription> subscriptions_; // by id
    std::size_t stored_bytes_ = 0;
    guint32 last_producer_id_ = 0;
    guint32 last_global_id_ = 0;
    guint32 last_subscription_id_ = 0;
};

} // namespace qandor
