// SPDX-License-Identifier: LGPL-2.1-or-later

#include "stress/handleuse.hpp"

#include "support/mainloop.hpp"
#include "support/records.hpp"

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <thread>

using namespace qandor::test;

namespace {

void wait_for(const char *what, const std::function<bool()> &condition)
{
    if (!wait_until(condition))
        throw std::runtime_error(std::string("waited in vain for ") + what);
}

// Runs what waits for the main context, which goes on meanwhile.
void run_aside(const std::function<void()> &work)
{
    std::atomic<bool> done = false;
    std::thread thread([&] {
        work();
        done = true;
    });
    bool came = wait_until([&] { return done.load(); }, 120);
    thread.join();
    if (!came)
        throw std::runtime_error("waited in vain for a thread");
}

Owned<event_declaration> new_declaration(const char *topic, bool property)
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", topic, VALUE_TYPE_STRING);
    event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
    if (property)
        event_declaration_set_property(declaration.get(), "state", nullptr, nullptr);
    return declaration;
}

Owned<subscribe_expression> new_expression(const char *topic)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", topic);
    return expression;
}

Owned<event> new_event(event_producer *producer, guint32 id)
{
    Owned<event> event(event_producer_prepare_event(producer, id));
    event_set_value(event.get(), "state", "on");
    return event;
}

// What one round was told, counted.
struct Told {
    int setup = 0, audience = 0, declared = 0, complete = 0, sent = 0, events = 0;
    int notifications = 0, done = 0, failed = 0, freed = 0;

    static Told &of(gpointer self) { return *static_cast<Told *>(self); }
    static void take(gpointer self, GError *error)
    {
        if (error)
            ++of(self).failed;
        g_clear_error(&error);
    }
    template <class Handle> static void set_up(Handle *, gpointer self, GError *error)
    {
        ++of(self).setup;
        take(self, error);
    }
    static void listen(GArray *, gpointer self) { ++of(self).audience; }
    static void declare(guint32, gpointer self) { ++of(self).declared; }
    static void complete_one(guint32, gpointer self) { ++of(self).complete; }
    static void send(guint32, event *, gpointer self, GError *error)
    {
        ++of(self).sent;
        take(self, error);
    }
    static void finish(guint32, gpointer self, GError *error)
    {
        ++of(self).done;
        take(self, error);
    }
    static void receive(event *event, gpointer self)
    {
        ++of(self).events;
        event_free(event);
    }
    static void receive_secure(event *event, guint32, gpointer self) { receive(event, self); }
    static void notice(notification *notification, gpointer self)
    {
        ++of(self).notifications;
        notification_free(notification);
    }
    template <class Handle> static void free(Handle *, gpointer self) { ++of(self).freed; }
};

} // namespace

void qandor::test::use_plain_handles()
{
    Told told;
    event_producer *producer = event_producer_new_full("producer", Told::listen, &told);
    event_consumer *consumer = event_consumer_new("consumer");
    guint32 id = event_producer_declare_and_notify(producer, new_declaration("Plain", false).get(),
                                                   Told::complete_one, &told);
    guint32 state = event_producer_declare_and_notify(
        producer, new_declaration("State", true).get(), Told::complete_one, &told);
    event_producer_register_and_notify(producer, "installed", Told::complete_one, &told, "state",
                                       "on", VALUE_TYPE_STRING, NULL);
    guint32 token = event_consumer_subscribe_full(consumer, new_expression("Plain").get(),
                                                  Told::receive, Told::notice, &told);
    event_consumer_subscribe_secure(consumer, new_expression("State").get(), Told::receive_secure,
                                    &told);
    wait_for("the switch",
             [&] { return told.complete == 3 && told.audience == 3 && told.notifications == 1; });
    event_producer_send_event(producer, new_event(producer, id).get(), nullptr);
    event_producer_send_event(producer, new_event(producer, state).get(), nullptr);
    wait_for("all events", [&] { return told.events == 3; });
    event_consumer_refresh(consumer, token, nullptr);
    run_aside([&] {
        property_state_free(
            event_consumer_get_property_state(consumer, new_expression("Peer").get(), nullptr));
        GError *error = nullptr;
        event_consumer_get_property_state(consumer, new_expression("Nowhere").get(), &error);
        Told::take(&told, error);
    });
    event_consumer_unsubscribe(consumer, token, nullptr);
    event_producer_undeclare(producer, id);
    event_producer_undeclare(producer, id);
    event_producer_int_free(producer, Told::free, &told);
    event_consumer_int_free(consumer, Told::free, &told);
    wait_for("the farewell", [&] { return told.freed == 2; });
}

void qandor::test::use_async_handles()
{
    Told told;
    auto plain = new_expression("Plain"), state_of = new_expression("State");
    event_producer *producer = async_producer_new("producer", Told::set_up, Told::listen, &told);
    event_consumer *consumer = async_consumer_new("consumer", Told::set_up, &told);
    guint32 id = async_producer_declare(producer, new_declaration("Plain", false).get(),
                                        Told::declare, Told::complete_one, &told, nullptr);
    guint32 state = async_producer_declare(producer, new_declaration("State", true).get(),
                                           Told::declare, Told::complete_one, &told, nullptr);
    async_producer_register(producer, "installed", Told::declare, Told::complete_one, &told,
                            nullptr, "state", "on", VALUE_TYPE_STRING, NULL);
    guint32 token = async_consumer_subscribe(consumer, plain.get(), Told::declare,
                                             G_CALLBACK(Told::receive), G_CALLBACK(Told::notice),
                                             &told, SUBSCRIPTION_TYPE_NORMAL, nullptr);
    async_consumer_subscribe(consumer, state_of.get(), Told::declare,
                             G_CALLBACK(Told::receive_secure), nullptr, &told,
                             SUBSCRIPTION_TYPE_SECURE, nullptr);
    wait_for("the switch",
             [&] { return told.complete == 3 && told.audience == 3 && told.notifications == 1; });
    async_producer_send_event(producer, new_event(producer, id).get(), Told::send, &told);
    async_producer_send_event(producer, new_event(producer, state).get(), Told::send, &told);
    wait_for("all events", [&] { return told.events == 3; });
    async_consumer_refresh(consumer, token, Told::finish, &told);
    async_consumer_unsubscribe(consumer, token, Told::finish, &told);
    async_consumer_unsubscribe(consumer, token, Told::finish, &told);
    async_producer_undeclare(producer, id, Told::finish, &told);
    async_producer_undeclare(producer, id, nullptr, nullptr);
    async_producer_free(producer, Told::free, &told);
    async_consumer_free(consumer, Told::free, &told);
    wait_for("the farewell", [&] { return told.freed == 2; });
}

void qandor::test::use_query()
{
    event_query *query = event_query_new();
    run_aside([&] {
        auto free_declaration = reinterpret_cast<GDestroyNotify>(event_declaration_free);
        g_list_free_full(event_query_get_declarations(query), free_declaration);
        g_list_free_full(event_query_get_declaration_types(query), free_declaration);
        event_query_free_topic_tree(event_query_get_topic_tree(query));
        event_query_free_declaration_tree(event_query_get_declaration_type_tree(query));
    });
    event_query_free(query);
    run_pending();
}

void qandor::test::use_handles_without_bus(const std::string &address)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    Told told;
    auto plain = new_expression("Plain");
    event_producer *producer = async_producer_new("producer", Told::set_up, nullptr, &told);
    event_consumer *consumer = async_consumer_new("consumer", Told::set_up, &told);
    async_producer_declare(producer, new_declaration("Plain", false).get(), Told::declare,
                           Told::complete_one, &told, nullptr);
    async_consumer_subscribe(consumer, plain.get(), Told::declare, G_CALLBACK(Told::receive),
                             nullptr, &told, SUBSCRIPTION_TYPE_NORMAL, nullptr);
    async_producer_free(producer, Told::free, &told);
    async_consumer_free(consumer, Told::free, &told);
    wait_for("the farewell without a bus", [&] { return told.freed == 2 && told.failed == 2; });
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
}
