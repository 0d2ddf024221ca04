// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/book.hpp"

#include "model/footprint.hpp"
#include "switch/content.hpp"
#include "switch/walks.hpp"

#include <qandor/serialize.h>

#include <algorithm>
#include <cstring>

namespace qandor {
namespace {

// What was found, by id. The index has it by age, which is the same until ids come round.
std::vector<guint32> ids_of(const Matches &matches)
{
    std::vector<guint32> ids;
    ids.reserve(matches.size());
    for (const Match &match : matches)
        ids.push_back(match.id);
    if (!std::is_sorted(ids.begin(), ids.end()))
        std::sort(ids.begin(), ids.end());
    return ids;
}

std::string take(GArray *bytes)
{
    ArrayOwner owner(bytes);
    return {bytes->data, bytes->len};
}

// What the books keep for anything, beside its record and its texts.
constexpr std::size_t own_record = 512;

std::size_t size_of(const PeerAddress &address)
{
    return address.name.size() + address.object.size();
}

// The address is in the peer, and the key under which it is found.
Usage usage_of_peer(const Peer &peer)
{
    return {.peers = 1, .stored_bytes = 2 * size_of(peer.address) + peer.title.size() + own_record};
}

Usage usage_of_declaration(const RecordCost &cost)
{
    return {.declarations = 1,
            .stored_bytes = cost.memory + cost.bytes + own_record,
            .declared_bytes = cost.bytes};
}

// The way to the consumer stands in the record and in its bytes.
Usage usage_of_subscription(const RecordCost &cost, const PeerAddress &consumer)
{
    return {.subscriptions = 1,
            .stored_bytes = cost.memory + cost.bytes + 2 * size_of(consumer) + own_record};
}

} // namespace

bool Declaration::is_live() const
{
    return owner && !owner->left;
}

bool Subscription::is_live() const
{
    return owner && !owner->left;
}

bool Subscription::was_told_of(const Declaration &declaration, const Cursors &cursors) const
{
    bool is_left = owner && owner->left;
    return was_told(declaration.party(), party(), cursors) &&
           (!is_left || was_told(declaration.party(), party(), *owner->left));
}

Producer &Book::producer_at(const Peer &peer)
{
    auto known = producers_.find(peer.address);
    if (known != producers_.end())
        return known->second;
    guint32 id = next_id(last_producer_id_, producer_ids_);
    producer_ids_.insert(id);
    Producer producer{peer, id, {}, accounts_.charge(peer.uid, usage_of_peer(peer))};
    return producers_.emplace(peer.address, std::move(producer)).first->second;
}

Consumer &Book::consumer_at(const Peer &peer)
{
    auto known = consumers_.find(peer.address);
    if (known != consumers_.end())
        return known->second;
    Consumer consumer{peer, {}, accounts_.charge(peer.uid, usage_of_peer(peer))};
    return consumers_.emplace(peer.address, std::move(consumer)).first->second;
}

const Declaration *Book::find_declaration_of(const PeerAddress &address, guint32 local_id) const
{
    auto producer = producers_.find(address);
    if (producer == producers_.end())
        return nullptr;
    auto id = producer->second.global_ids.find(local_id);
    return id == producer->second.global_ids.end() ? nullptr : find_declaration(id->second);
}

std::optional<std::string> Book::refusal_to_declare(const Peer &peer, guint32 local_id,
                                                    const RecordCost &cost) const
{
    Usage more = usage_of_declaration(cost);
    if (!producers_.contains(peer.address))
        more += usage_of_peer(peer);
    const Declaration *replaced = find_declaration_of(peer.address, local_id);
    return accounts_.refusal(peer.uid, more, replaced ? replaced->charge.usage() : Usage{});
}

std::optional<std::string> Book::refusal_to_subscribe(const Peer &peer, guint32 token,
                                                      const RecordCost &cost) const
{
    Usage more = usage_of_subscription(cost, peer.address);
    if (!consumers_.contains(peer.address))
        more += usage_of_peer(peer);
    const Subscription *replaced = find_subscription(peer.address, token);
    return accounts_.refusal(peer.uid, more, replaced ? replaced->charge.usage() : Usage{});
}

const Declaration &Book::declare(const Peer &peer, DeclarationOwner record)
{
    Producer &producer = producer_at(peer);
    guint32 local_id = event_declaration_get_local_id(record.get());
    auto replaced = producer.global_ids.find(local_id);
    if (replaced != producer.global_ids.end()) {
        const Cursors told = cursors_;
        auto gone = take_out_declaration(replaced->second);
        take_back_from_replaced(*gone);
        replaced_.emplace(gone->global_id, TakenBack<Declaration>{gone, told});
        jobs_.add(peer.uid, Jobs::Lane::Calls,
                  std::make_unique<DeclarationRemoval>(*this, std::move(gone), told));
    }

    guint32 global_id = next_id(last_global_id_, declarations_);
    event_declaration_set_global_id(record.get(), global_id);
    event_declaration_set_producer_id(record.get(), producer.id);
    std::string bytes = take(event_declaration_serialize(record.get()));
    RecordCost cost{bytes.size(), memory_of(*event_declaration_get_inspectable(record.get()))};
    Charge charge = accounts_.charge(peer.uid, usage_of_declaration(cost));
    producer.global_ids[local_id] = global_id;
    auto declaration = std::make_shared<Declaration>();
    declaration->global_id = global_id;
    declaration->local_id = local_id;
    declaration->producer_id = producer.id;
    declaration->uid = peer.uid;
    declaration->producer = peer.address;
    declaration->record = std::move(record);
    declaration->bytes = std::move(bytes);
    declaration->charge = std::move(charge);
    declaration->owner = &producer;
    declaration_index_.add(global_id, content_of(*declaration));
    declarations_.emplace(global_id, declaration);
    jobs_.add(peer.uid, Jobs::Lane::Calls,
              std::make_unique<DeclarationAnnouncement>(*this, declaration));
    return *declaration;
}

std::shared_ptr<Declaration> Book::take_out_declaration(guint32 global_id)
{
    std::shared_ptr<Declaration> gone = std::move(declarations_.extract(global_id).mapped());
    declaration_index_.remove(global_id);
    cursors_.of_declarations.erase(global_id);
    gone->owner->global_ids.erase(gone->local_id);
    gone->owner = nullptr;
    gone->charge = {};
    return gone;
}

void Book::undeclare(const PeerAddress &producer, guint32 global_id)
{
    const Declaration *found = find_declaration(global_id);
    if (!found || found->producer != producer)
        return;
    const Cursors told = cursors_;
    jobs_.add(found->uid, Jobs::Lane::Calls,
              std::make_unique<DeclarationRemoval>(*this, take_out_declaration(global_id), told));
}

void Book::disconnect_producer(const PeerAddress &address)
{
    auto found = producers_.find(address);
    if (found == producers_.end() || found->second.left)
        return;
    auto leaving = std::make_unique<Leaving>(*this);
    leaving->add(found->second);
    jobs_.add(found->second.peer.uid, Jobs::Lane::Calls, std::move(leaving));
}

guint32 Book::new_subscription_id()
{
    return next_id(last_subscription_id_, subscriptions_);
}

const Subscription &Book::subscribe(const Peer &peer, guint32 token, ExpressionOwner record)
{
    const PeerAddress &address = peer.address;
    Consumer &consumer = consumer_at(peer);
    auto replaced = consumer.subscription_ids.find(token);
    if (replaced != consumer.subscription_ids.end()) {
        const Cursors told = cursors_;
        jobs_.add(peer.uid, Jobs::Lane::Calls,
                  std::make_unique<SubscriptionRemoval>(
                      *this, take_out_subscription(replaced->second), told));
    }

    guint32 id = new_subscription_id();
    subscribe_expression_set_id(record.get(), id);
    subscribe_expression_set_dbus_service(record.get(), address.name.c_str());
    subscribe_expression_set_dbus_object(record.get(), address.object.c_str());
    subscribe_expression_set_consumer_token(record.get(), token);
    consumer.subscription_ids[token] = id;
    std::string bytes = take(subscribe_expression_serialize(record.get()));
    RecordCost cost{bytes.size() - size_of(address),
                    memory_of(*subscribe_expression_get_inspectable(record.get()))};
    auto subscription = std::make_shared<Subscription>();
    subscription->id = id;
    subscription->token = token;
    subscription->uid = peer.uid;
    subscription->consumer = address;
    subscription->record = std::move(record);
    subscription->bytes = std::move(bytes);
    subscription->charge = accounts_.charge(peer.uid, usage_of_subscription(cost, address));
    subscription->owner = &consumer;
    subscription_index_.add(id, content_of(*subscription));
    subscriptions_.emplace(id, subscription);
    jobs_.add(peer.uid, Jobs::Lane::Calls,
              std::make_unique<SubscriptionAnnouncement>(*this, subscription));
    return *subscription;
}

std::shared_ptr<Subscription> Book::take_out_subscription(guint32 id)
{
    std::shared_ptr<Subscription> gone = std::move(subscriptions_.extract(id).mapped());
    subscription_index_.remove(id);
    take_back_from_replaced(*gone);
    cursors_.of_subscriptions.erase(id);
    gone->owner->subscription_ids.erase(gone->token);
    gone->owner = nullptr;
    gone->charge = {};
    return gone;
}

void Book::take_back_from_replaced(const Subscription &gone)
{
    for (const auto &[global_id, replaced] : replaced_)
        if (replaced.cursor <= gone.id && has_producer(replaced.record->producer) &&
            gone.was_told_of(*replaced.record, replaced.told) && concerns(*replaced.record, gone))
            post_.unsubscribe(*replaced.record, gone.id);
}

void Book::take_back_from_replaced(const Declaration &gone)
{
    for (const auto &[id, taken_out] : taken_out_)
        if (taken_out.cursor <= gone.global_id &&
            was_told(gone.party(), taken_out.record->party(), taken_out.told) &&
            concerns(gone, *taken_out.record))
            post_.unsubscribe(gone, id);
}

const Subscription *Book::find_subscription(const PeerAddress &address, guint32 token) const
{
    auto consumer = consumers_.find(address);
    if (consumer == consumers_.end())
        return nullptr;
    auto id = consumer->second.subscription_ids.find(token);
    return id == consumer->second.subscription_ids.end() ? nullptr
                                                         : subscriptions_.at(id->second).get();
}

void Book::unsubscribe(const PeerAddress &consumer, guint32 token)
{
    const Subscription *found = find_subscription(consumer, token);
    if (!found)
        return;
    const Cursors told = cursors_;
    jobs_.add(found->uid, Jobs::Lane::Calls,
              std::make_unique<SubscriptionRemoval>(*this, take_out_subscription(found->id), told));
}

void Book::refresh_property(const PeerAddress &consumer, guint32 token)
{
    if (const Subscription *found = find_subscription(consumer, token))
        jobs_.add(found->uid, Jobs::Lane::Calls,
                  std::make_unique<Refreshing>(*this, subscriptions_.at(found->id)));
}

void Book::disconnect_consumer(const PeerAddress &address)
{
    auto found = consumers_.find(address);
    if (found == consumers_.end() || found->second.left)
        return;
    auto leaving = std::make_unique<Leaving>(*this);
    leaving->add(found->second);
    jobs_.add(found->second.peer.uid, Jobs::Lane::Calls, std::move(leaving));
}

namespace {

// The objects of one name stand side by side.
template <class Parties, class Look>
void for_each_of(Parties &parties, const std::string &name, Look look)
{
    for (auto at = parties.lower_bound(PeerAddress{name, ""});
         at != parties.end() && at->first.name == name; ++at)
        look(at->second);
}

} // namespace

void Book::forget_peer(const std::string &name)
{
    auto leaving = std::make_unique<Leaving>(*this);
    guint32 uid = 0;
    auto leave = [&](auto &party) {
        uid = party.peer.uid;
        if (!party.left)
            leaving->add(party);
    };
    for_each_of(producers_, name, leave);
    for_each_of(consumers_, name, leave);
    if (!leaving->is_empty())
        jobs_.add(uid, Jobs::Lane::Deaths, std::move(leaving));
}

bool Book::is_forgetting(const std::string &name) const
{
    bool is_leaving = false;
    auto look = [&](const auto &party) { is_leaving = is_leaving || party.left; };
    for_each_of(producers_, name, look);
    for_each_of(consumers_, name, look);
    return is_leaving;
}

const Declaration *Book::find_declaration(guint32 global_id) const
{
    auto found = declarations_.find(global_id);
    return found == declarations_.end() || !found->second->is_live() ? nullptr
                                                                     : found->second.get();
}

bool Book::has_producer(const PeerAddress &address) const
{
    auto found = producers_.find(address);
    return found != producers_.end() && !found->second.left;
}

std::vector<guint32> Book::candidates_of(const Declaration &declaration) const
{
    Matches matches;
    subscription_index_.find_candidates(content_of(declaration), matches);
    return ids_of(matches);
}

std::vector<guint32> Book::candidates_of(const Subscription &subscription) const
{
    Matches matches;
    declaration_index_.find_candidates(content_of(subscription), matches);
    return ids_of(matches);
}

std::vector<const Declaration *>
Book::find_declarations(const subscribe_expression *expression) const
{
    Matches matches;
    declaration_index_.find(content_of(expression), matches);
    std::vector<const Declaration *> found;
    for (guint32 id : ids_of(matches))
        if (const Declaration *declaration = find_declaration(id))
            found.push_back(declaration);
    return found;
}

std::vector<const Declaration *> Book::find_properties(const subscribe_expression *expression) const
{
    std::vector<const Declaration *> found = find_declarations(expression);
    std::erase_if(found, [](const Declaration *declaration) {
        return !event_declaration_is_property(declaration->record.get());
    });
    return found;
}

std::string Book::list_declarations() const
{
    guint32 count = 0;
    std::string list(sizeof count, '\0');
    list.reserve(list.size() + accounts_.total().declared_bytes);
    for (const auto &[global_id, declaration] : declarations_) {
        if (!declaration->is_live())
            continue;
        list += declaration->bytes;
        ++count;
    }
    count = GUINT32_TO_LE(count);
    std::memcpy(list.data(), &count, sizeof count);
    return list;
}

} // namespace qandor
