// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/buspost.hpp"

#include <qandor/serialize.h>

#include <cerrno>

namespace qandor {
namespace {

constexpr const char *producer_interface = "com.vemo.Event.Producer";
constexpr const char *consumer_interface = "com.vemo.Event.Consumer";

// NULL when it cannot be made, as when memory is short.
BusMessageOwner new_call(sd_bus *bus, const PeerAddress &peer, const char *interface,
                         const char *member)
{
    sd_bus_message *made = nullptr;
    sd_bus_message_new_method_call(bus, &made, peer.name.c_str(), peer.object.c_str(), interface,
                                   member);
    return BusMessageOwner(made);
}

// Sends a call that has been made, with so many bytes.
gint64 send(sd_bus *bus, const BusMessageOwner &call, std::size_t bytes)
{
    int r = call ? sd_bus_message_set_expect_reply(call.get(), 0) : -ENOMEM;
    if (r >= 0)
        r = sd_bus_send(bus, call.get(), nullptr);
    return r < 0 ? r : static_cast<gint64>(bytes);
}

// Makes nothing of a call to which not everything can be appended.
BusMessageOwner with_bytes_and_number(BusMessageOwner call, std::string_view bytes, guint32 number)
{
    if (!call || sd_bus_message_append_array(call.get(), 'y', bytes.data(), bytes.size()) < 0 ||
        sd_bus_message_append(call.get(), "u", number) < 0)
        return nullptr;
    return call;
}

// A notification but for its records.
struct NotificationHead {
    gint64 time; // in microseconds
    guint32 subscription_id;
    guint32 global_id;
    notification_type type;
};

void append_nested(GArray *record, const std::string &nested)
{
    auto size = static_cast<guint32>(nested.size());
    serialize_32bit(record, size);
    serialize_blob(record, nested.data(), size);
}

// The records are serialized already and stand in it as they are.
ArrayOwner serialize(const NotificationHead &head, const std::string &expression,
                     const std::string &declaration)
{
    ArrayOwner record(serialize_create_array());
    serialize_8bit(record.get(), SERIALIZE_ID_NOTIFICATION);
    serialize_16bit(record.get(), 0); // no payload
    serialize_32bit(record.get(), static_cast<guint32>(head.time / G_USEC_PER_SEC));
    serialize_32bit(record.get(), static_cast<guint32>(head.time % G_USEC_PER_SEC));
    serialize_32bit(record.get(), head.subscription_id);
    serialize_32bit(record.get(), head.global_id);
    serialize_8bit(record.get(), head.type == NOTIFY_DECLARATION_REMOVED);
    append_nested(record.get(), expression);
    append_nested(record.get(), declaration);
    return record;
}

} // namespace

template <class... Arguments>
void BusPost::call_producer(const Declaration &declaration, const char *member, const char *types,
                            Arguments... arguments)
{
    constexpr std::size_t bytes = sizeof...(arguments) * sizeof(guint32);
    outbox_.add(declaration.producer.name, Outbox::Kind::Call, bytes,
                [=, bus = bus_, declared = declaration.shared_from_this()]() -> gint64 {
                    BusMessageOwner call =
                        new_call(bus, declared->producer, producer_interface, member);
                    if (call && sd_bus_message_append(call.get(), types, arguments...) < 0)
                        call.reset();
                    return send(bus, call, bytes);
                });
}

void BusPost::global_declare_id(const Declaration &declaration)
{
    call_producer(declaration, "GlobalDeclareId", "uuu", declaration.local_id,
                  declaration.global_id, declaration.producer_id);
}

void BusPost::declaration_complete(const Declaration &declaration)
{
    call_producer(declaration, "DeclarationComplete", "uu", declaration.local_id,
                  declaration.global_id);
}

void BusPost::unsubscribe(const Declaration &declaration, guint32 subscription_id)
{
    call_producer(declaration, "Unsubscribe", "uu", subscription_id, declaration.local_id);
}

void BusPost::refresh_property(const Declaration &declaration, guint32 subscription_id)
{
    call_producer(declaration, "RefreshProperty", "uu", subscription_id, declaration.local_id);
}

BusMessageOwner BusPost::new_subscribe_call(sd_bus *bus, const PeerAddress &producer,
                                            std::string_view expression, guint32 local_id)
{
    return with_bytes_and_number(new_call(bus, producer, producer_interface, "Subscribe"),
                                 expression, local_id);
}

void BusPost::subscribe(const Declaration &declaration, const Subscription &subscription)
{
    outbox_.add(declaration.producer.name, Outbox::Kind::Call, subscription.bytes.size(),
                [bus = bus_, declared = declaration.shared_from_this(),
                 subscribed = subscription.shared_from_this()] {
                    BusMessageOwner call = new_subscribe_call(
                        bus, declared->producer, subscribed->bytes, declared->local_id);
                    return send(bus, call, subscribed->bytes.size());
                });
}

void BusPost::notify(const Subscription &subscription, const Declaration &declaration,
                     notification_type type)
{
    std::size_t size = subscription.bytes.size() + declaration.bytes.size();
    outbox_.add(subscription.consumer.name, Outbox::Kind::Call, size,
                [bus = bus_, time = g_get_real_time(), type, size,
                 declared = declaration.shared_from_this(),
                 subscribed = subscription.shared_from_this()] {
                    NotificationHead head{time, subscribed->id, declared->global_id, type};
                    ArrayOwner bytes = serialize(head, subscribed->bytes, declared->bytes);
                    BusMessageOwner call = with_bytes_and_number(
                        new_call(bus, subscribed->consumer, consumer_interface, "Notification"),
                        {bytes->data, bytes->len}, subscribed->token);
                    return send(bus, call, size);
                });
}

} // namespace qandor
