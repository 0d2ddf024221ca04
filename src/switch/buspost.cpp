// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/buspost.hpp"

#include "switch/log.hpp"

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

template <class... Arguments>
BusMessageOwner new_producer_call(sd_bus *bus, const Declaration &declaration, const char *member,
                                  const char *types, Arguments... arguments)
{
    BusMessageOwner call = new_call(bus, declaration.producer, producer_interface, member);
    if (call)
        sd_bus_message_append(call.get(), types, arguments...);
    return call;
}

GArray *serialize_notification(const Subscription &subscription, const Declaration &declaration,
                               notification_type type)
{
    NotificationOwner notification(notification_new());
    gint64 now = g_get_real_time();
    notification_set_timestamp(notification.get(), static_cast<glong>(now / G_USEC_PER_SEC),
                               static_cast<glong>(now % G_USEC_PER_SEC));
    notification_set_subscription_id(notification.get(), subscription.id);
    notification_set_declaration_id(notification.get(), declaration.global_id);
    notification_set_type(notification.get(), type);
    notification_set_subscribe_expression(notification.get(), subscription.record.get());
    notification_set_declaration(notification.get(), declaration.record.get());
    return notification_serialize(notification.get());
}

} // namespace

void BusPost::send(BusMessageOwner message)
{
    int r = message ? sd_bus_message_set_expect_reply(message.get(), 0) : -ENOMEM;
    if (r >= 0)
        r = sd_bus_send(bus_, message.get(), nullptr);
    if (r < 0)
        log_line(LogLevel::Warning, "cannot tell a peer: %s", std::strerror(-r));
}

void BusPost::global_declare_id(const Declaration &declaration)
{
    send(new_producer_call(bus_, declaration, "GlobalDeclareId", "uuu", declaration.local_id,
                           declaration.global_id, declaration.producer_id));
}

void BusPost::declaration_complete(const Declaration &declaration)
{
    send(new_producer_call(bus_, declaration, "DeclarationComplete", "uu", declaration.local_id,
                           declaration.global_id));
}

BusMessageOwner BusPost::new_subscribe_call(sd_bus *bus, const Declaration &declaration,
                                            std::string_view expression)
{
    BusMessageOwner call = new_call(bus, declaration.producer, producer_interface, "Subscribe");
    if (call) {
        sd_bus_message_append_array(call.get(), 'y', expression.data(), expression.size());
        sd_bus_message_append(call.get(), "u", declaration.local_id);
    }
    return call;
}

void BusPost::subscribe(const Declaration &declaration, const Subscription &subscription)
{
    send(new_subscribe_call(bus_, declaration, subscription.bytes));
}

void BusPost::unsubscribe(const Declaration &declaration, guint32 subscription_id)
{
    send(new_producer_call(bus_, declaration, "Unsubscribe", "uu", subscription_id,
                           declaration.local_id));
}

void BusPost::refresh_property(const Declaration &declaration, guint32 subscription_id)
{
    send(new_producer_call(bus_, declaration, "RefreshProperty", "uu", subscription_id,
                           declaration.local_id));
}

void BusPost::notify(const Subscription &subscription, const Declaration &declaration,
                     notification_type type)
{
    BusMessageOwner call =
        new_call(bus_, subscription.consumer, consumer_interface, "Notification");
    ArrayOwner bytes(serialize_notification(subscription, declaration, type));
    if (call) {
        sd_bus_message_append_array(call.get(), 'y', bytes->data, bytes->len);
        sd_bus_message_append(call.get(), "u", subscription.token);
    }
    send(std::move(call));
}

} // namespace qandor
