// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/service.hpp"

#include "switch/request.hpp"

#include <qandor/consumerbusclient.h>
#include <qandor/switchbusclient.h>

namespace qandor {
namespace {

// The event that answers a question for a property's state.
int receive_event(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    if (!request.read_record(RecordKind::Event))
        return request.refusal();
    guint32 token = request.read_number();
    PropertyQuestions &questions = request.service().questions;
    if (!questions.expects(token, sd_bus_message_get_sender(call)))
        return request.answer();
    if (!request.admit_key_names())
        return request.refusal();
    EventOwner event(event_deserialize(request.record()));
    int r = request.answer();
    questions.receive(event.get(), token);
    return r;
}

const sd_bus_vtable question_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Event", "ayu", nullptr, receive_event, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

// Names that lose their owner: connections that are gone. The match does not keep out a signal that
// somebody sends to the switch alone, so the sender is checked here.
int name_owner_changed(sd_bus_message *signal, void *userdata, sd_bus_error *)
{
    const char *name, *old_owner, *new_owner;
    if (g_strcmp0(sd_bus_message_get_sender(signal), "org.freedesktop.DBus") != 0)
        return 0;
    if (sd_bus_message_read(signal, "sss", &name, &old_owner, &new_owner) < 0)
        return 0;
    if (name[0] != ':' || *new_owner)
        return 0;
    auto &service = *static_cast<Service *>(userdata);
    std::optional<Sender> sender = service.senders.find_known(name);
    Outbox::Cause cause(service.outbox, sender ? sender->uid : G_MAXUINT32);
    service.turns.forget_peer(name);
    service.questions.forget_peer(name);
    service.book.forget_peer(name);
    service.senders.forget(name);
    return 0;
}

constexpr const char *leaving_rule =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
    "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg2=''";

} // namespace

void Service::configure(const Configuration &configuration)
{
    accounts.set_limits(configuration.limits);
    folders = TypeFolders(configuration.types_read_only, configuration.types_writable);
    folders.watch(sd_bus_get_event(bus));
}

Counts Service::counts() const
{
    return {book.producers().size(), book.declarations().size(), book.consumers().size(),
            book.subscriptions().size()};
}

// A sender who has left is told so by whoever handles his call.
int Service::take(sd_bus_message *call, sd_bus_message_handler_t handle)
{
    std::optional<Sender> sender = senders.find(call);
    return sender ? turns.take(call, sender->uid, handle, this) : handle(call, this, nullptr);
}

int Service::serve()
{
    struct {
        const char *object;
        const char *interface;
        const sd_bus_vtable *vtable;
    } served[] = {
        {DBUS_OBJECT_SWITCH, DBUS_INTERFACE_SWITCH_PRODUCER, producer_vtable},
        {DBUS_OBJECT_SWITCH, DBUS_INTERFACE_SWITCH_CONSUMER, consumer_vtable},
        {DBUS_OBJECT_SWITCH, DBUS_INTERFACE_SWITCH_QUERY, query_vtable},
        {PropertyQuestions::object, DBUS_INTERFACE_CONSUMER, question_vtable},
    };
    for (const auto &one : served) {
        int r = sd_bus_add_object_vtable(bus, nullptr, one.object, one.interface, one.vtable, this);
        if (r < 0)
            return r;
    }
    folders.watch(sd_bus_get_event(bus));
    int r = type_changes.begin(sd_bus_get_event(bus));
    if (r >= 0)
        r = outbox.watch(sd_bus_get_event(bus));
    if (r >= 0)
        r = turns.begin(sd_bus_get_event(bus));
    if (r >= 0)
        r = monitor.serve();
    if (r >= 0)
        r = memory_return.begin(sd_bus_get_event(bus));
    return r < 0 ? r : sd_bus_add_match(bus, nullptr, leaving_rule, name_owner_changed, this);
}

} // namespace qandor
