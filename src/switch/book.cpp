// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/book.hpp"

#include "model/footprint.hpp"

#include <qandor/serialize.h>

#include <algorithm>

namespace qandor {
namespace {

const inspectable &content_of(const DeclarationOwner &record)
{
    return *event_declaration_get_inspectable(record.get());
}

// The getter is for those who change things, too.
const inspectable &content_of(const subscribe_expression *expression)
{
    return *subscribe_expression_get_inspectable(const_cast<subscribe_expression *>(expression));
}

// What was found, by id. The index has it by age, which is the same until ids come round.
template <class Record>
std::vector<const Record *> by_id(const std::map<guint32, Record> &records, Matches &matches)
{
    std::ranges::sort(matches, {}, &Match::id);
    std::vector<const Record *> found;
    found.reserve(matches.size());
    for (const Match &match : matches)
        found.push_back(&records.at(match.id));
    return found;
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

Book::Producer &Book::producer_at(const Peer &peer)
{
    auto known = producers_.find(peer.address);
    if (known != producers_.end())
        return known->second;
    guint32 id = next_id(last_producer_id_, producer_ids_);
    producer_ids_.insert(id);
    Producer producer{peer, id, {}, accounts_.charge(peer.uid, usage_of_peer(peer))};
    return producers_.emplace(peer.address, std::move(producer)).first->second;
}

Book::Consumer &Book::consumer_at(const Peer &peer)
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
    if (replaced != producer.global_ids.end())
        remove_declaration(replaced->second);

    guint32 global_id = next_id(last_global_id_, declarations_);
    event_declaration_set_global_id(record.get(), global_id);
    event_declaration_set_producer_id(record.get(), producer.id);
    std::string bytes = take(event_declaration_serialize(record.get()));
    RecordCost cost{bytes.size(), memory_of(content_of(record))};
    Charge charge = accounts_.charge(peer.uid, usage_of_declaration(cost));
    producer.global_ids[local_id] = global_id;
    Declaration declaration{
        global_id,         local_id,         producer.id,      producer.peer.address,
        std::move(record), std::move(bytes), std::move(charge)};
    declaration_index_.add(global_id, content_of(declaration.record));
    return declarations_.emplace(global_id, std::move(declaration)).first->second;
}

void Book::announce(const Declaration &declaration)
{
    post_.global_declare_id(declaration);
    for (const Subscription *subscription : find_subscriptions(declaration)) {
        post_.subscribe(declaration, *subscription);
        post_.notify(*subscription, declaration, NOTIFY_DECLARATION_ADDED);
    }
    post_.declaration_complete(declaration);
}

void Book::remove_declaration(guint32 global_id)
{
    auto node = declarations_.extract(global_id);
    const Declaration &declaration = node.mapped();
    declaration_index_.remove(global_id);
    producers_.at(declaration.producer).global_ids.erase(declaration.local_id);
    for (const Subscription *subscription : find_subscriptions(declaration))
        post_.notify(*subscription, declaration, NOTIFY_DECLARATION_REMOVED);
}

void Book::undeclare(const PeerAddress &producer, guint32 global_id)
{
    auto found = declarations_.find(global_id);
    if (found != declarations_.end() && found->second.producer == producer)
        remove_declaration(global_id);
}

void Book::disconnect_producer(const PeerAddress &address)
{
    auto found = producers_.find(address);
    if (found == producers_.end())
        return;
    while (!found->second.global_ids.empty())
        remove_declaration(found->second.global_ids.begin()->second);
    producer_ids_.erase(found->second.id);
    producers_.erase(found);
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
    if (replaced != consumer.subscription_ids.end())
        remove_subscription(replaced->second);

    guint32 id = new_subscription_id();
    subscribe_expression_set_id(record.get(), id);
    subscribe_expression_set_dbus_service(record.get(), address.name.c_str());
    subscribe_expression_set_dbus_object(record.get(), address.object.c_str());
    subscribe_expression_set_consumer_token(record.get(), token);
    consumer.subscription_ids[token] = id;
    std::string bytes = take(subscribe_expression_serialize(record.get()));
    RecordCost cost{bytes.size() - size_of(address), memory_of(content_of(record.get()))};
    Charge charge = accounts_.charge(peer.uid, usage_of_subscription(cost, address));
    Subscription subscription{
        id, token, consumer.peer.address, std::move(record), std::move(bytes), std::move(charge)};
    subscription_index_.add(id, content_of(subscription.record.get()));
    return subscriptions_.emplace(id, std::move(subscription)).first->second;
}

void Book::announce(const Subscription &subscription)
{
    for (const Declaration *declaration : find_declarations(subscription.record.get())) {
        post_.subscribe(*declaration, subscription);
        post_.notify(subscription, *declaration, NOTIFY_DECLARATION_ADDED);
    }
}

void Book::remove_subscription(guint32 id)
{
    auto node = subscriptions_.extract(id);
    const Subscription &subscription = node.mapped();
    subscription_index_.remove(id);
    consumers_.at(subscription.consumer).subscription_ids.erase(subscription.token);
    for (const Declaration *declaration : find_declarations(subscription.record.get()))
        post_.unsubscribe(*declaration, id);
}

const Subscription *Book::find_subscription(const PeerAddress &address, guint32 token) const
{
    auto consumer = consumers_.find(address);
    if (consumer == consumers_.end())
        return nullptr;
    auto id = consumer->second.subscription_ids.find(token);
    return id == consumer->second.subscription_ids.end() ? nullptr : &subscriptions_.at(id->second);
}

void Book::unsubscribe(const PeerAddress &consumer, guint32 token)
{
    if (const Subscription *subscription = find_subscription(consumer, token))
        remove_subscription(subscription->id);
}

void Book::refresh_property(const PeerAddress &consumer, guint32 token)
{
    const Subscription *subscription = find_subscription(consumer, token);
    if (!subscription)
        return;
    for (const Declaration *declaration : find_properties(subscription->record.get()))
        post_.refresh_property(*declaration, subscription->id);
}

void Book::disconnect_consumer(const PeerAddress &address)
{
    auto found = consumers_.find(address);
    if (found == consumers_.end())
        return;
    while (!found->second.subscription_ids.empty())
        remove_subscription(found->second.subscription_ids.begin()->second);
    consumers_.erase(found);
}

void Book::forget_peer(const std::string &name)
{
    // The objects of one name stand side by side.
    auto of_name = [&name](auto &peers) { return peers.lower_bound(PeerAddress{name, ""}); };
    for (auto at = of_name(producers_); at != producers_.end() && at->first.name == name;
         at = of_name(producers_))
        disconnect_producer(PeerAddress(at->first));
    for (auto at = of_name(consumers_); at != consumers_.end() && at->first.name == name;
         at = of_name(consumers_))
        disconnect_consumer(PeerAddress(at->first));
}

const Declaration *Book::find_declaration(guint32 global_id) const
{
    auto found = declarations_.find(global_id);
    return found == declarations_.end() ? nullptr : &found->second;
}

std::vector<const Declaration *>
Book::find_declarations(const subscribe_expression *expression) const
{
    declaration_index_.find(content_of(expression), matches_);
    return by_id(declarations_, matches_);
}

std::vector<const Subscription *> Book::find_subscriptions(const Declaration &declaration) const
{
    subscription_index_.find(content_of(declaration.record), matches_);
    return by_id(subscriptions_, matches_);
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
    guint32 count = GUINT32_TO_LE(static_cast<guint32>(declarations_.size()));
    std::string list(reinterpret_cast<const char *>(&count), sizeof count);
    list.reserve(list.size() + accounts_.total().declared_bytes);
    for (const auto &[global_id, declaration] : declarations_)
        list += declaration.bytes;
    return list;
}

} // namespace qandor
