// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's books: who declared what, who subscribed to what, and who has to be told when either
// changes. Knows nothing of a bus: what there is to tell goes out through a Post. Whom something
// concerns is found by indexes, so that the many whom it does not cost nothing.
#pragma once

#include "model/declarationindex.hpp"
#include "model/expressionindex.hpp"
#include "switch/accounts.hpp"
#include "switch/post.hpp"
#include "switch/recordcost.hpp"
#include "switch/records.hpp"

#include <compare>
#include <map>
#include <optional>
#include <set>
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

// A peer object as it shows itself in a call, and who is behind it.
struct Peer {
    Peer() = default;
    Peer(PeerAddress address, guint32 uid = 0, guint32 pid = 0, std::string title = {})
        : address(std::move(address)), uid(uid), pid(pid), title(std::move(title))
    {
    }

    PeerAddress address;
    guint32 uid = 0;
    guint32 pid = 0;   // 0 when the bus does not tell
    std::string title; // the name that it gives itself
};

struct Declaration {
    guint32 global_id;
    guint32 local_id;
    guint32 producer_id;
    const PeerAddress &producer; // as it stands with the producer
    DeclarationOwner record;
    std::string bytes; // serialized with all its ids
    Charge charge;
};

struct Subscription {
    guint32 id;
    guint32 token;
    const PeerAddress &consumer; // likewise
    ExpressionOwner record;      // with its id and the way to its consumer filled in
    std::string bytes;           // the same, serialized
    Charge charge;
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
    struct Producer {
        Peer peer;
        guint32 id;
        std::map<guint32, guint32> global_ids; // by local id
        Charge charge;
    };
    struct Consumer {
        Peer peer;
        std::map<guint32, guint32> subscription_ids; // by token
        Charge charge;
    };

    Book(Post &post, Accounts &accounts) : post_(post), accounts_(accounts) {}

    // Why a declaration, or a subscription, whose record costs so much goes beyond what its peer's
    // user may have; nothing when it may be filed.
    std::optional<std::string> refusal_to_declare(const Peer &peer, guint32 local_id,
                                                  const RecordCost &cost) const;
    std::optional<std::string> refusal_to_subscribe(const Peer &peer, guint32 token,
                                                    const RecordCost &cost) const;

    // Files a declaration, in the place of one with the same local id of the same peer. Its
    // producer and the subscribers it matches are told by announce().
    const Declaration &declare(const Peer &producer, DeclarationOwner record);
    void announce(const Declaration &declaration);
    void undeclare(const PeerAddress &producer, guint32 global_id);
    void disconnect_producer(const PeerAddress &producer);

    const Subscription &subscribe(const Peer &consumer, guint32 token, ExpressionOwner record);
    void announce(const Subscription &subscription);
    void unsubscribe(const PeerAddress &consumer, guint32 token);
    void refresh_property(const PeerAddress &consumer, guint32 token);
    void disconnect_consumer(const PeerAddress &consumer);

    // A name has left the bus, with all its objects.
    void forget_peer(const std::string &name);

    // NULL when there is none (any more).
    const Declaration *find_declaration(guint32 global_id) const;

    // The declarations whose events can satisfy the expression, by global id.
    std::vector<const Declaration *>
    find_declarations(const subscribe_expression *expression) const;
    // Those of them that are properties.
    std::vector<const Declaration *> find_properties(const subscribe_expression *expression) const;
    guint32 new_subscription_id();

    // All declarations as a serialized list, by global id.
    std::string list_declarations() const;

    const std::map<PeerAddress, Producer> &producers() const { return producers_; }
    const std::map<PeerAddress, Consumer> &consumers() const { return consumers_; }
    const std::map<guint32, Declaration> &declarations() const { return declarations_; }
    const std::map<guint32, Subscription> &subscriptions() const { return subscriptions_; }

private:
    Producer &producer_at(const Peer &peer);
    Consumer &consumer_at(const Peer &peer);
    const Declaration *find_declaration_of(const PeerAddress &producer, guint32 local_id) const;
    const Subscription *find_subscription(const PeerAddress &consumer, guint32 token) const;
    // Those whose expression the declaration's events can satisfy, by id.
    std::vector<const Subscription *> find_subscriptions(const Declaration &declaration) const;
    void remove_declaration(guint32 global_id);
    void remove_subscription(guint32 id);

    Post &post_;
    Accounts &accounts_;
    std::map<PeerAddress, Producer> producers_;
    std::map<PeerAddress, Consumer> consumers_;
    std::set<guint32> producer_ids_;
    std::map<guint32, Declaration> declarations_;   // by global id
    std::map<guint32, Subscription> subscriptions_; // by id
    DeclarationIndex declaration_index_;
    ExpressionIndex subscription_index_{ExpressionIndex::Containers::Declarations};
    mutable Matches matches_;
    guint32 last_producer_id_ = 0;
    guint32 last_global_id_ = 0;
    guint32 last_subscription_id_ = 0;
};

} // namespace qandor
