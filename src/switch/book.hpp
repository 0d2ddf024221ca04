// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's books: who declared what, who subscribed to what, and who has to be told when either
// changes. Knows nothing of a bus: what there is to tell goes out through a Post. Whom something
// concerns is found by indexes, so that the many whom it does not cost nothing.
//
// A call changes the books at once. Telling those whom the change concerns is a job, done in steps
// (walks.hpp): there may be millions of them.
#pragma once

#include "model/declarationindex.hpp"
#include "model/expressionindex.hpp"
#include "switch/accounts.hpp"
#include "switch/jobs.hpp"
#include "switch/post.hpp"
#include "switch/recordcost.hpp"
#include "switch/records.hpp"
#include "switch/told.hpp"

#include <compare>
#include <map>
#include <memory>
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

struct Producer;
struct Consumer;

// What waits to be told shares the records, also when they have gone from the books.
struct Declaration : std::enable_shared_from_this<Declaration> {
    bool is_live() const; // in the books, and its producer is not leaving
    Party party() const { return {global_id, begin}; }

    guint32 global_id;
    guint32 local_id;
    guint32 producer_id;
    guint32 uid; // of the producer
    PeerAddress producer;
    DeclarationOwner record;
    std::string bytes; // serialized with all its ids
    Charge charge;
    Producer *owner; // NULL when it has gone
    Begin begin = not_begun;
};

struct Subscription : std::enable_shared_from_this<Subscription> {
    bool is_live() const;
    Party party() const { return {id, begin}; }
    // Whether the pair had been told by then, and before the consumer left: announcements pass over
    // those who are leaving.
    bool was_told_of(const Declaration &declaration, const Cursors &cursors) const;

    guint32 id;
    guint32 token;
    guint32 uid; // of the consumer
    PeerAddress consumer;
    ExpressionOwner record; // with its id and the way to its consumer filled in
    std::string bytes;      // the same, serialized
    Charge charge;
    Consumer *owner;
    Begin begin = not_begun;
};

struct Producer {
    Peer peer;
    guint32 id;
    std::map<guint32, guint32> global_ids; // by local id
    Charge charge;
    // What had been told when it left: its declarations are removed step by step. NULL before.
    const Cursors *left = nullptr;
};

struct Consumer {
    Peer peer;
    std::map<guint32, guint32> subscription_ids; // by token
    Charge charge;
    const Cursors *left = nullptr; // likewise
};

using Declarations = std::map<guint32, std::shared_ptr<Declaration>>;   // by global id
using Subscriptions = std::map<guint32, std::shared_ptr<Subscription>>; // by id

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
    Book(Post &post, Accounts &accounts, Jobs &jobs) : post_(post), accounts_(accounts), jobs_(jobs)
    {
    }

    // Why a declaration, or a subscription, whose record costs so much goes beyond what its peer's
    // user may have; nothing when it may be filed.
    std::optional<std::string> refusal_to_declare(const Peer &peer, guint32 local_id,
                                                  const RecordCost &cost) const;
    std::optional<std::string> refusal_to_subscribe(const Peer &peer, guint32 token,
                                                    const RecordCost &cost) const;

    // Files a declaration, in the place of one with the same local id of the same peer. Its
    // producer and the subscribers it matches are told by a job, as with everything below.
    const Declaration &declare(const Peer &producer, DeclarationOwner record);
    void undeclare(const PeerAddress &producer, guint32 global_id);
    void disconnect_producer(const PeerAddress &producer);

    const Subscription &subscribe(const Peer &consumer, guint32 token, ExpressionOwner record);
    void unsubscribe(const PeerAddress &consumer, guint32 token);
    void refresh_property(const PeerAddress &consumer, guint32 token);
    void disconnect_consumer(const PeerAddress &consumer);

    // A name has left the bus, with all its objects. Nobody finds them from now on.
    void forget_peer(const std::string &name);
    // Whether objects of the name are still being forgotten.
    bool is_forgetting(const std::string &name) const;

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
    const Declarations &declarations() const { return declarations_; }
    const Subscriptions &subscriptions() const { return subscriptions_; }

private:
    class Walk;
    class DeclarationAnnouncement;
    class SubscriptionAnnouncement;
    class DeclarationRemoval;
    class SubscriptionRemoval;
    class Refreshing;
    class Leaving;

    // What has been taken out and is not taken back yet from all producers: a declaration that the
    // same local id replaces, or a subscription.
    template <class Record> struct TakenBack {
        std::shared_ptr<const Record> record;
        Cursors told;       // when it was taken out
        guint64 cursor = 0; // of the other side, smaller ids are dealt with
    };

    Producer &producer_at(const Peer &peer);
    Consumer &consumer_at(const Peer &peer);
    const Declaration *find_declaration_of(const PeerAddress &producer, guint32 local_id) const;
    const Subscription *find_subscription(const PeerAddress &consumer, guint32 token) const;

    // Whether the object is there and not leaving.
    bool has_producer(const PeerAddress &address) const;

    // Ids of those whom a record concerns, in order.
    std::vector<guint32> candidates_of(const Declaration &declaration) const;
    std::vector<guint32> candidates_of(const Subscription &subscription) const;

    // Takes a record out of the books; what was told of it stays as it is.
    std::shared_ptr<Declaration> take_out_declaration(guint32 global_id);
    std::shared_ptr<Subscription> take_out_subscription(guint32 id);
    // Which of the removals under way would not find each other any more.
    void take_back_from_replaced(const Subscription &gone);
    void take_back_from_replaced(const Declaration &gone);

    Post &post_;
    Accounts &accounts_;
    Jobs &jobs_;
    std::map<PeerAddress, Producer> producers_;
    std::map<PeerAddress, Consumer> consumers_;
    std::set<guint32> producer_ids_;
    Declarations declarations_;
    Subscriptions subscriptions_;
    DeclarationIndex declaration_index_;
    ExpressionIndex subscription_index_{ExpressionIndex::Containers::Declarations};
    Cursors cursors_;                                      // as they are now
    std::map<guint32, TakenBack<Declaration>> replaced_;   // removals under way, by global id
    std::map<guint32, TakenBack<Subscription>> taken_out_; // likewise, by subscription id
    guint32 last_producer_id_ = 0;
    guint32 last_global_id_ = 0;
    guint32 last_subscription_id_ = 0;
};

} // namespace qandor
