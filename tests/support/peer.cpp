// SPDX-License-Identifier: LGPL-2.1-or-later

// A process that takes part in the events, for tests that need more than one:
//
//   peer property TOPIC STATE      declares a property, sends its state and says "ready"
//   peer consumer TOPIC COUNT      says "ready" for an event with the number -1, and "all COUNT in
//                                  order" when the events with the numbers 0 to COUNT - 1 have come
//   peer deaf TOPIC COUNT          subscribes with so many consumers, says "ready" when a producer
//                                  knows of all, and never does anything again

#include <qandor/qandor.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

void say(const char *line)
{
    std::puts(line);
    std::fflush(stdout);
}

struct Property {
    event_producer *producer;
    const char *state;
};

void send_state(guint32 local_id, gpointer data)
{
    auto *property = static_cast<Property *>(data);
    event *event = event_producer_prepare_event(property->producer, local_id);
    event_set_value(event, "state", property->state);
    event_producer_send_event(property->producer, event, nullptr);
    event_free(event);
    say("ready");
}

void run_property(const char *topic, const char *state)
{
    static Property property = {event_producer_new("peer"), state};
    event_declaration *declaration = event_declaration_new(FALSE);
    event_declaration_add_key_value(declaration, "topic0", topic, VALUE_TYPE_STRING);
    event_declaration_add_key(declaration, "state", VALUE_TYPE_STRING);
    event_declaration_set_property(declaration, "state", nullptr, nullptr);
    event_producer_declare_and_notify(property.producer, declaration, send_state, &property);
    event_declaration_free(declaration);
}

struct Counter {
    gint expected;
    gint next = 0;
};

void count_event(event *event, gpointer data)
{
    auto *counter = static_cast<Counter *>(data);
    gint number = -1;
    event_get_typed_value(event, "number", &number);
    event_free(event);
    if (number < 0) {
        say("ready");
        return;
    }
    if (number != counter->next++) {
        std::printf("number %d came in the place of %d\n", number, counter->next - 1);
        std::fflush(stdout);
    }
    if (counter->next == counter->expected) {
        std::printf("all %d in order\n", counter->expected);
        std::fflush(stdout);
    }
}

void run_consumer(const char *topic, const char *count)
{
    static Counter counter{std::atoi(count)};
    event_consumer *consumer = event_consumer_new("peer");
    subscribe_expression *expression = subscribe_expression_new();
    subscribe_expression_add_key_value(expression, "topic0", topic);
    event_consumer_subscribe(consumer, expression, count_event, &counter);
    subscribe_expression_free(expression);
}

void count_notification(notification *notification, gpointer count)
{
    notification_free(notification);
    ++*static_cast<gint *>(count);
}

void drop_event(event *event, gpointer)
{
    event_free(event);
}

[[noreturn]] void run_deaf(const char *topic, const char *count)
{
    gint told = 0;
    for (gint i = 0; i < std::atoi(count); ++i) {
        subscribe_expression *expression = subscribe_expression_new();
        subscribe_expression_add_key_value(expression, "topic0", topic);
        event_consumer_subscribe_full(event_consumer_new("deaf"), expression, drop_event,
                                      count_notification, &told);
        subscribe_expression_free(expression);
    }
    while (told < std::atoi(count))
        g_main_context_iteration(nullptr, TRUE);
    say("ready");
    for (;;)
        pause();
}

} // namespace

int main(int count, char **arguments)
{
    if (count != 4)
        return EXIT_FAILURE;
    if (std::strcmp(arguments[1], "deaf") == 0)
        run_deaf(arguments[2], arguments[3]);
    if (std::strcmp(arguments[1], "property") == 0)
        run_property(arguments[2], arguments[3]);
    else
        run_consumer(arguments[2], arguments[3]);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return EXIT_SUCCESS;
}
