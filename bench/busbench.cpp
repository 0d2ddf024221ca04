// SPDX-License-Identifier: LGPL-2.1-or-later

// Events between processes: through the library, and beside it the same calls made with bare sd-bus
// and 64 under way. Each program is one end:
//
//   busbench library-consumer COUNT     busbench bare-consumer COUNT
//   busbench library-producer COUNT     busbench bare-producer COUNT NAME...
//   busbench burst-producer COUNT
//   busbench library-idle               busbench bare-idle
//
// A consumer says "ready", and "done" with the CPU time it took when COUNT events have come. A
// producer says "ready", begins with a line on standard input, and says "done" with its CPU time
// when all its calls are answered. An idle consumer says "ready" when it is connected and
// subscribed.

#include "bench/sample.hpp"

#include <glib-unix.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace qandor::bench;

namespace {

GMainLoop *loop;

double cpu_seconds()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double began_at;
bool has_begun;

void say(const char *line)
{
    std::puts(line);
    std::fflush(stdout);
}

void say_done()
{
    std::printf("done %.6f\n", cpu_seconds() - began_at);
    std::fflush(stdout);
}

[[noreturn]] void fail(const char *what, int r)
{
    std::fprintf(stderr, "busbench: %s: %s\n", what, std::strerror(-r));
    std::exit(EXIT_FAILURE);
}

void check(int r, const char *what)
{
    if (r < 0)
        fail(what, r);
}

// The textbook way to have GLib drive an sd-event loop.
struct EventSource {
    GSource source;
    GPollFD pollfd;
    sd_event *event;
};

sd_event *event_of(GSource *source)
{
    return reinterpret_cast<EventSource *>(source)->event;
}

GSourceFuncs event_functions = {
    [](GSource *source, gint *) -> gboolean { return sd_event_prepare(event_of(source)) > 0; },
    [](GSource *source) -> gboolean { return sd_event_wait(event_of(source), 0) > 0; },
    [](GSource *source, GSourceFunc, gpointer) -> gboolean {
        return sd_event_dispatch(event_of(source)) > 0;
    },
    nullptr,
    nullptr,
    nullptr,
};

sd_bus *connect_bare()
{
    sd_bus *bus = nullptr;
    sd_event *event = nullptr;
    check(sd_bus_open_system(&bus), "connect");
    check(sd_event_new(&event), "make a loop");
    check(sd_bus_attach_event(bus, event, 0), "attach");
    auto *source =
        reinterpret_cast<EventSource *>(g_source_new(&event_functions, sizeof(EventSource)));
    source->event = event;
    source->pollfd = {sd_event_get_fd(event), G_IO_IN | G_IO_ERR | G_IO_HUP, 0};
    g_source_add_poll(&source->source, &source->pollfd);
    g_source_attach(&source->source, nullptr);
    return bus;
}

int expected;
int received;

void count_event()
{
    if (received == 0)
        began_at = cpu_seconds();
    if (++received == expected)
        say_done();
}

int receive_bare(sd_bus_message *message, void *, sd_bus_error *)
{
    const void *bytes;
    size_t length;
    uint32_t token;
    check(sd_bus_message_read_array(message, 'y', &bytes, &length), "read");
    check(sd_bus_message_read(message, "u", &token), "read");
    count_event();
    return sd_bus_reply_method_return(message, nullptr);
}

const sd_bus_vtable consumer_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Event", "ayu", nullptr, receive_bare, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int ignore_signal(sd_bus_message *, void *, sd_bus_error *)
{
    return 0;
}

sd_bus *serve_bare()
{
    sd_bus *bus = connect_bare();
    check(sd_bus_add_object_vtable(bus, nullptr, "/consumer", "com.vemo.Event.Consumer",
                                   consumer_vtable, nullptr),
          "serve");
    check(sd_bus_add_match(bus, nullptr,
                           "type='signal',sender='org.freedesktop.DBus',"
                           "member='NameOwnerChanged',arg0='com.vemo.Event.Switch'",
                           ignore_signal, nullptr),
          "watch");
    return bus;
}

void run_bare_consumer()
{
    sd_bus *bus = serve_bare();
    const char *name;
    check(sd_bus_get_unique_name(bus, &name), "get the name");
    std::printf("ready %s\n", name);
    std::fflush(stdout);
}

// Sends the same bytes to each consumer in turn, 64 calls under way.
struct BareProducer {
    sd_bus *bus;
    std::vector<std::string> consumers;
    GArray *bytes;
    long left;
    long under_way = 0;
    std::size_t next = 0;

    static int receive_answer(sd_bus_message *answer, void *self, sd_bus_error *)
    {
        auto *producer = static_cast<BareProducer *>(self);
        if (sd_bus_message_is_method_error(answer, nullptr))
            fail(sd_bus_message_get_error(answer)->message, -EIO);
        --producer->under_way;
        producer->send();
        return 0;
    }

    void send()
    {
        while (left > 0 && under_way < 64) {
            const std::string &consumer = consumers[next];
            next = (next + 1) % consumers.size();
            sd_bus_message *call = nullptr;
            check(sd_bus_message_new_method_call(bus, &call, consumer.c_str(), "/consumer",
                                                 "com.vemo.Event.Consumer", "Event"),
                  "make a call");
            check(sd_bus_message_append_array(call, 'y', bytes->data, bytes->len), "append");
            check(sd_bus_message_append(call, "u", 1), "append");
            check(sd_bus_call_async(bus, nullptr, call, receive_answer, this, 60000000), "call");
            sd_bus_message_unref(call);
            --left;
            ++under_way;
        }
    }
};

template <class Begin> void begin_with_a_line(Begin *begin)
{
    g_unix_fd_add(
        STDIN_FILENO, G_IO_IN,
        [](gint, GIOCondition, gpointer data) -> gboolean {
            char line[16];
            if (read(STDIN_FILENO, line, sizeof line) <= 0)
                std::exit(EXIT_FAILURE);
            if (std::exchange(has_begun, true)) {
                say_done();
                return G_SOURCE_CONTINUE;
            }
            began_at = cpu_seconds();
            (*static_cast<Begin *>(data))();
            return G_SOURCE_CONTINUE;
        },
        begin);
    say("ready");
}

void run_bare_producer(long events, char **names, int count)
{
    static BareProducer producer{connect_bare(), {}, nullptr, events * count};
    for (int i = 0; i < count; ++i)
        producer.consumers.emplace_back(names[i]);
    event_declaration *declaration = new_declaration();
    event *event = event_declaration_generate_event(declaration);
    fill(event);
    producer.bytes = event_serialize(event);
    static auto begin = [] { producer.send(); };
    begin_with_a_line(&begin);
}

void receive_event(event *event, gpointer)
{
    event_free(event);
    count_event();
}

void say_subscribed(guint32, gpointer)
{
    say("ready");
}

// Ready when it has subscribed, which the bus serves in order.
void run_library_consumer()
{
    event_consumer *consumer = event_consumer_new("bench");
    subscribe_expression *expression = new_expression();
    guint32 token = event_consumer_int_generate_token(consumer, expression,
                                                      G_CALLBACK(receive_event), 0, nullptr);
    event_consumer_int_subscribe(consumer, token, expression, say_subscribed,
                                 G_CALLBACK(receive_event), nullptr, 0, nullptr);
    subscribe_expression_free(expression);
}

struct LibraryProducer {
    event_producer *producer;
    guint32 local_id;
    long to_send;
    long at_once; // events that are queued before the first one has gone
    long under_way = 0;

    static void count_sent(guint32, event *, gpointer self, GError *error)
    {
        if (error) {
            std::fprintf(stderr, "busbench: %s\n", error->message);
            std::exit(EXIT_FAILURE);
        }
        auto *producer = static_cast<LibraryProducer *>(self);
        --producer->under_way;
        producer->send();
    }

    // What an application does for each event.
    void send()
    {
        for (; to_send > 0 && under_way < at_once; --to_send, ++under_way) {
            event *event = event_producer_prepare_event(producer, local_id);
            fill(event);
            event_producer_int_send_event(producer, event, event_copy(event), count_sent, this,
                                          nullptr);
            event_free(event);
        }
    }
};

void run_library_producer(long events, long at_once)
{
    static LibraryProducer producer{event_producer_new("bench"), 0, events, at_once};
    event_declaration *declaration = new_declaration();
    static auto begin = [] { producer.send(); };
    producer.local_id = event_producer_declare_and_notify(
        producer.producer, declaration, [](guint32, gpointer) { begin_with_a_line(&begin); },
        nullptr);
    event_declaration_free(declaration);
}

} // namespace

int main(int count, char **arguments)
{
    std::string mode = count > 1 ? arguments[1] : "";
    expected = count > 2 ? std::atoi(arguments[2]) : 0;
    loop = g_main_loop_new(nullptr, FALSE);
    if (mode == "library-consumer" || mode == "library-idle")
        run_library_consumer();
    else if (mode == "bare-consumer" || mode == "bare-idle")
        run_bare_consumer();
    else if (mode == "library-producer")
        run_library_producer(expected, 64);
    else if (mode == "burst-producer")
        run_library_producer(expected, expected);
    else if (mode == "bare-producer" && count > 3)
        run_bare_producer(expected, arguments + 3, count - 3);
    else
        return EXIT_FAILURE;
    g_main_loop_run(loop);
}
