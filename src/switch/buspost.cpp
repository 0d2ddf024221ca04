// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/buspost.hpp"

#include "switch/log.hpp"

#include <qandor/serialize.h>

#include <cstring>

namespace qandor {
namespace {

constexpr const char *producer_interface = "com.vemo.Event.Producer";
constexpr const char *consumer_interface = "com.vemo.Event.Consumer";

// NULL when it cannot be made, as when memory is short: the peer misses one message then.
BusMessageOwner new_call(sd_bus *bus, const PeerAddress &peer, const char *interface,
                         const char *member)
{
    sd_bus_message *made = nullptr;
    sd_bus_message_new_method_call(bus, &made, peer.name.c_str(), peer.object.c_str(), interface,
                                   member);
    return BusMessageOwner(made);
}

void send(sd_bus *bus, BusMessageOwner call)
{
    int r = call ? sd_bus_message_set_expect_reply(call.get(), 0) : -ENOMEM;
    if (r >= 0)
        r = sd_bus_send(bus, call.get(), nullptr);
    if (r < 0)
        log_line(LogLevel::Warning, "cannot tell a peer: %s", std::strerror(-r));
}

void append_bytes_and_number(sd_bus_message *call, std::string_view bytes, guint32 number)
{
    if (!call)
        return;
    sd_bus_message_append_array(call, 'y', bytes.data(), bytes.size());
    sd_bus_message_append(call, "u", number);
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
    outbox_.add([=, bus = bus_, producer = producers_.of(declaration.producer)] {
        BusMessageOwner call = new_call(bus, *producer, producer_interface, member);
        if (call)
            sd_bus_message_append(call.get(), types, arguments...);
        send(bus, std::move(call));
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
    BusMessageOwner call = new_call(bus, producer, producer_interface, "Subscribe");
    append_bytes_and_number(call.get(), expression, local_id);
    return call;
}

void BusPost::subscribe(const Declaration &declaration, const Subscription &subscription)
{
    outbox_.add([bus = bus_, producer = producers_.of(declaration.producer),
                 expression = subscriptions_.of(subscription.bytes),
                 local_id = declaration.local_id] {
        send(bus, new_subscribe_call(bus, *producer, *expression, local_id));
    });
}

void BusPost::notify(const Subscription &subscription, const Declaration &declaration,
                     notification_type type)
{
    NotificationHead head{g_get_real_time(), subscription.id, declaration.global_id, type};
    outbox_.add([bus = bus_, head, consumer = consumers_.of(subscription.consumer),
                 expression = subscriptions_.of(subscription.bytes),
                 declared = declarations_.of(declaration.bytes), token = subscription.token] {
        ArrayOwner bytes = serialize(head, *expression, *declared);
        BusMessageOwner call = new_call(bus, *consumer, consumer_interface, "Notification");
        append_bytes_and_number(call.get(), {bytes->data, bytes->len}, token);
        send(bus, std::move(call));
    });
}

} // namespace qandor
