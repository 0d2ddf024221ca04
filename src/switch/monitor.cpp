// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/monitor.hpp"

#include "switch/listroom.hpp"
#include "switch/log.hpp"
#include "switch/request.hpp"
#include "switch/service.hpp"
#include "switch/subscriptionlist.hpp"

#include <qandor/switchbusclient.h>

#include <unistd.h>

#include <cstring>

namespace qandor {
namespace {

constexpr const char *interface = "com.vemo.Event.Switch.Monitor";
// Changes come in storms; this is soon enough for somebody who looks.
constexpr guint64 telling_usec = 100 * 1000;
constexpr const char *see_who_listens = "see who listens to what";

Service &service_of(void *userdata)
{
    return *static_cast<Service *>(userdata);
}

int get_count(sd_bus *, const char *, const char *, const char *property, sd_bus_message *reply,
              void *userdata, sd_bus_error *)
{
    Counts counts = service_of(userdata).counts();
    for (const CountProperty &one : count_properties)
        if (g_str_equal(property, one.name))
            return sd_bus_message_append(reply, "u", static_cast<guint32>(counts.*one.count));
    return -ENOENT;
}

// A list as the answer to a call: rows of the types, of about so many bytes together, each appended
// by the function when the answer goes out.
template <class Append>
int answer_list(sd_bus_message *call, Service &service, std::size_t bytes, const char *types,
                Append append)
{
    service.replies.answer_later(call, bytes, [=](sd_bus_message *reply) -> gint64 {
        ListRoom room;
        int r = sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, types);
        if (r >= 0)
            r = append(reply, room);
        if (r >= 0)
            r = sd_bus_message_close_container(reply);
        return r < 0 ? r : static_cast<gint64>(room.taken());
    });
    return 1;
}

// The ids of a table by local id or token.
template <class Table> std::vector<guint32> ids_in(const Table &table)
{
    std::vector<guint32> ids;
    ids.reserve(table.size());
    for (const auto &[key, id] : table)
        ids.push_back(id);
    return ids;
}

std::size_t texts_of(const Peer &peer)
{
    return peer.address.name.size() + peer.address.object.size() + peer.title.size();
}

int append_peer(sd_bus_message *reply, const Peer &peer)
{
    return sd_bus_message_append(reply, "sssuu", peer.address.name.c_str(),
                                 peer.address.object.c_str(), peer.title.c_str(), peer.pid,
                                 peer.uid);
}

int list_producers(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Service &service = service_of(userdata);
    const Book &book = service.book;
    std::size_t bytes = book.producers().size() * 128 + book.declarations().size() * 4;
    return answer_list(
        call, service, bytes, "(sssuuuau)", [&book](sd_bus_message *reply, ListRoom &room) {
            int r = 0;
            for (const auto &[address, producer] : book.producers()) {
                if (!room.take(texts_of(producer.peer), producer.global_ids.size()))
                    break;
                r = sd_bus_message_open_container(reply, SD_BUS_TYPE_STRUCT, "sssuuuau");
                if (r >= 0)
                    r = append_peer(reply, producer.peer);
                if (r >= 0)
                    r = sd_bus_message_append(reply, "u", producer.id);
                if (r >= 0)
                    r = append_ids(reply, ids_in(producer.global_ids));
                if (r >= 0)
                    r = sd_bus_message_close_container(reply);
                if (r < 0)
                    break;
            }
            return r;
        });
}

int list_consumers(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Service &service = service_of(userdata);
    Request request(call, &service);
    if (!request.check_sender_is_trusted(see_who_listens))
        return request.refusal();
    const Book &book = service.book;
    std::size_t bytes = book.consumers().size() * 128 + book.subscriptions().size() * 4;
    return answer_list(
        call, service, bytes, "(sssuuau)", [&book](sd_bus_message *reply, ListRoom &room) {
            int r = 0;
            for (const auto &[address, consumer] : book.consumers()) {
                if (!room.take(texts_of(consumer.peer), consumer.subscription_ids.size()))
                    break;
                r = sd_bus_message_open_container(reply, SD_BUS_TYPE_STRUCT, "sssuuau");
                if (r >= 0)
                    r = append_peer(reply, consumer.peer);
                if (r >= 0)
                    r = append_ids(reply, ids_in(consumer.subscription_ids));
                if (r >= 0)
                    r = sd_bus_message_close_container(reply);
                if (r < 0)
                    break;
            }
            return r;
        });
}

int list_subscriptions(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Service &service = service_of(userdata);
    Request request(call, &service);
    Sender sender{};
    if (!request.check_sender_is_trusted(see_who_listens) || !request.find_sender(sender))
        return request.refusal();
    service.jobs.add(sender.uid, Jobs::Lane::Lists,
                     std::make_unique<SubscriptionList>(service.book, service.replies, call));
    return 1;
}

struct LimitRow {
    const char *name;
    guint64 Usage::*usage;
    guint64 Limits::*limit;
};
constexpr LimitRow limit_rows[] = {
    {"peers", &Usage::peers, &Limits::peers},
    {"declarations", &Usage::declarations, &Limits::declarations},
    {"subscriptions", &Usage::subscriptions, &Limits::subscriptions},
    {"stored_bytes", &Usage::stored_bytes, &Limits::stored_bytes},
    {"questions", &Usage::questions, &Limits::questions},
    {"key_names", &Usage::key_names, &Limits::key_names},
};

int append_limits(sd_bus_message *reply, guint32 uid, const Usage &usage, const Limits &limits)
{
    int r = 0;
    for (const LimitRow &row : limit_rows)
        if (r >= 0)
            r = sd_bus_message_append(reply, "(ustt)", uid, row.name, usage.*row.usage,
                                      limits.*row.limit);
    return r;
}

// Everybody may see what he uses himself.
int list_limits(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Service &service = service_of(userdata);
    Request request(call, &service);
    Sender sender{};
    if (!request.find_sender(sender))
        return request.refusal();
    bool sees_all = sender.uid == 0 || sender.uid == geteuid();
    std::size_t bytes = service.accounts.usages().size() * 512;
    return answer_list(
        call, service, bytes, "(ustt)", [=, &service](sd_bus_message *reply, ListRoom &) {
            int r = 0;
            for (const auto &[uid, usage] : service.accounts.usages())
                if (r >= 0 && (sees_all || uid == sender.uid))
                    r = append_limits(reply, uid, usage, service.accounts.limits(uid));
            if (r >= 0 && sees_all)
                r = sd_bus_message_append(reply, "(ustt)", G_MAXUINT32, "total_stored_bytes",
                                          service.accounts.total().declared_bytes,
                                          service.accounts.total_limit());
            return r;
        });
}

const sd_bus_vtable vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Producers", "u", get_count, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("Consumers", "u", get_count, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("Declarations", "u", get_count, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("Subscriptions", "u", get_count, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_METHOD("ListProducers", "", "a(sssuuuau)", list_producers, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ListConsumers", "", "a(sssuuau)", list_consumers, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ListSubscriptions", "", "a(ussubsau)", list_subscriptions,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ListLimits", "", "a(ustt)", list_limits, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

} // namespace

Monitor::Monitor(Service &service)
    : service_(service), listeners_(service.bus, service.outbox, {DBUS_OBJECT_SWITCH, interface},
                                    [&service] { return service.counts(); }),
      watch_([&service] { return service.counts(); }, telling_usec, [this] { listeners_.tell(); })
{
}

int Monitor::serve()
{
    service_.methods.add({DBUS_OBJECT_SWITCH, interface, vtable});
    return watch_.begin(sd_bus_get_event(service_.bus));
}

void Monitor::note_reader(const char *read_interface, const char *name)
{
    if (g_str_equal(read_interface, interface))
        listeners_.add(name);
}

} // namespace qandor
