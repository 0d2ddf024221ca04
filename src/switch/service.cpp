// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/service.hpp"

#include "switch/log.hpp"
#include "switch/request.hpp"

#include <qandor/consumerbusclient.h>
#include <qandor/switchbusclient.h>

#include <cstdlib>

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

// An event that somebody was asked for is handled at once: the answer to the question comes behind
// it, and would overtake it otherwise. There are no more of them than questions.
bool is_expected_event(sd_bus_message *call, const PropertyQuestions &questions)
{
    guint32 token = 0;
    if (!g_str_equal(sd_bus_message_get_path(call), PropertyQuestions::object) ||
        sd_bus_message_skip(call, "ay") < 0 || sd_bus_message_read(call, "u", &token) <= 0)
        token = 0;
    sd_bus_message_rewind(call, 1);
    return token != 0 && questions.expects(token, sd_bus_message_get_sender(call));
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
    static_cast<Service *>(userdata)->forget(name);
    return 0;
}

constexpr const char *leaving_rule =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
    "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg2=''";

} // namespace

Service::Service(sd_bus *bus, const Configuration &configuration)
    : bus(bus), accounts(configuration.limits),
      senders(bus, [this](sd_bus_message *call, guint32 uid) { take(call, uid); }),
      outbox(bus,
             [this](const std::string &name, guint32 uid) { return turns.has_call_of(name, uid); }),
      replies(outbox), post(bus, outbox), book(post, accounts, jobs),
      questions(bus, outbox, replies, post, book, accounts),
      folders(configuration.types_read_only, configuration.types_writable), type_changes(folders),
      turns(accounts, {[this](guint32 uid) { return !jobs.is_busy(uid); },
                       [this](const std::string &name) {
                           return outbox.is_read(name) && !book.is_forgetting(name);
                       },
                       [this](sd_bus_message *call, guint32 uid) { handle(call, uid); }}),
      rounds(
          {[this] { return step(); }, [this] { return has_waiting(); }, [this] { look_again(); }}),
      roll_call(
          {[this] { return senders.names(); }, [this](const std::string &name) { forget(name); }}),
      memory_return(
          [this] { return accounts.total().stored_bytes + accounts.total().waiting_bytes; }),
      monitor(*this)
{
}

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

// sd-bus would handle each call here and now; so none gets there.
int Service::receive(sd_bus_message *message, void *userdata, sd_bus_error *)
{
    auto &self = *static_cast<Service *>(userdata);
    self.roll_call.note(message);
    if (!sd_bus_message_is_method_call(message, nullptr, nullptr))
        return 0;
    self.senders.receive(message);
    return 1;
}

// What is none of the methods is refused at once, so that what waits is of known types.
void Service::take(sd_bus_message *call, guint32 uid)
{
    outbox.know(sd_bus_message_get_sender(call), uid);
    rounds.note_call(size_of(call));
    Outbox::Cause cause(outbox, uid);
    auto method = methods.find(call);
    if (const auto *fault = std::get_if<CallFault>(&method))
        replies.refuse(call, fault->error, fault->text);
    else if (is_expected_event(call, questions))
        handle(call, uid);
    else if (auto reason = turns.take(call, uid))
        replies.refuse(call, SD_BUS_ERROR_LIMITS_EXCEEDED, *reason);
    else
        outbox.note_waiting(sd_bus_message_get_sender(call));
}

void Service::handle(sd_bus_message *call, guint32 uid)
{
    Outbox::Cause cause(outbox, uid);
    auto method = methods.find(call);
    if (const auto *handler = std::get_if<sd_bus_message_handler_t>(&method))
        (*handler)(call, this, nullptr);
}

void Service::forget(const std::string &name)
{
    senders.forget(name);
    turns.forget_peer(name);
    outbox.forget(name);
    book.forget_peer(name);
    questions.forget_peer(name);
    monitor.forget(name);
}

// A name that reads nothing is still there: it may call again, as if it were new.
void Service::drop_lost()
{
    for (const std::string &name : outbox.take_lost()) {
        turns.forget_peer(name);
        outbox.clear(name);
        book.forget_peer(name);
        questions.forget_peer(name);
        monitor.forget(name);
    }
}

bool Service::step()
{
    drop_lost();
    bool has_sent = outbox.send_next();
    bool has_worked = !outbox.is_congested() && jobs.step();
    return turns.handle_next() || has_worked || has_sent;
}

bool Service::has_waiting() const
{
    return !outbox.is_empty() || !jobs.is_empty() || !turns.is_empty() || senders.has_held();
}

void Service::look_again()
{
    senders.look_again();
    outbox.look_again();
    if (!outbox.is_stuck())
        return;
    log_line(LogLevel::Error, "the bus takes nothing from the switch any more");
    sd_event_exit(sd_bus_get_event(bus), EXIT_FAILURE);
}

int Service::serve()
{
    methods.add({DBUS_OBJECT_SWITCH, DBUS_INTERFACE_SWITCH_PRODUCER, producer_vtable});
    methods.add({DBUS_OBJECT_SWITCH, DBUS_INTERFACE_SWITCH_CONSUMER, consumer_vtable});
    methods.add({DBUS_OBJECT_SWITCH, DBUS_INTERFACE_SWITCH_QUERY, query_vtable});
    methods.add({PropertyQuestions::object, DBUS_INTERFACE_CONSUMER, question_vtable});
    folders.watch(sd_bus_get_event(bus));
    int r = type_changes.begin(sd_bus_get_event(bus));
    if (r >= 0)
        r = memory_return.begin(sd_bus_get_event(bus));
    if (r >= 0)
        r = roll_call.begin(bus);
    if (r >= 0)
        r = monitor.serve();
    if (r >= 0)
        r = rounds.begin(bus);
    if (r >= 0)
        r = sd_bus_add_filter(bus, nullptr, receive, this);
    return r < 0 ? r : sd_bus_add_match(bus, nullptr, leaving_rule, name_owner_changed, this);
}

} // namespace qandor
