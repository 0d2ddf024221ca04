// SPDX-License-Identifier: LGPL-2.1-or-later

// A consumer in C++: prints the events of one topic.
//
//     c++ watch-topic.cpp -o watch-topic $(pkg-config --cflags --libs qandor)
//     ./watch-topic Device

#include <qandor/qandor.h>

#include <glib-unix.h>

#include <csignal>
#include <iostream>
#include <memory>

namespace {

template <auto release> struct Release {
    template <class Record> void operator()(Record *record) const { release(record); }
};
using Event = std::unique_ptr<event, Release<event_free>>;
using Expression = std::unique_ptr<subscribe_expression, Release<subscribe_expression_free>>;
using Loop = std::unique_ptr<GMainLoop, Release<g_main_loop_unref>>;

void print_event(event *received, gpointer)
{
    Event event(received);
    for (guint i = 0; i < event_get_key_count(event.get()); ++i)
        std::cout << event_get_key_at(event.get(), i) << '=' << event_get_value_at(event.get(), i)
                  << ' ';
    std::cout << std::endl;
}

struct Application {
    Loop loop{g_main_loop_new(nullptr, FALSE)};
    event_consumer *consumer = event_consumer_new("watch-topic");

    // The loop has to go on until the consumer has said farewell.
    static gboolean stop(gpointer self)
    {
        auto *app = static_cast<Application *>(self);
        event_consumer_int_free(
            app->consumer,
            [](event_consumer *, gpointer loop) {
                g_main_loop_quit(static_cast<GMainLoop *>(loop));
            },
            app->loop.get());
        return G_SOURCE_REMOVE;
    }
};

} // namespace

int main(int count, char **words)
{
    if (count != 2) {
        std::cerr << "usage: watch-topic TOPIC\n";
        return EXIT_FAILURE;
    }
    Application app;
    Expression expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", words[1]);
    event_consumer_subscribe(app.consumer, expression.get(), print_event, nullptr);

    g_unix_signal_add(SIGINT, Application::stop, &app);
    g_unix_signal_add(SIGTERM, Application::stop, &app);
    g_main_loop_run(app.loop.get());
    return EXIT_SUCCESS;
}
