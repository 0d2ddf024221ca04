// SPDX-License-Identifier: LGPL-2.1-or-later

// A process of a crew (crew.hpp): a producer or a consumer of the library that does as signals say.
//
//   siegepeer producer NAME     declares the topics Kept.NAME.0 and on
//   siegepeer consumer NAME     subscribes to them in several ways; says "event SUBSCRIPTION TOPIC
//                               NUMBER" for each event with a number
//
// It says "resting" when it has begun, and then does as it is told:
//
//   SIGHUP    works: sends events without a number, declares and undeclares, subscribes and
//             unsubscribes, again and again; says "working"
//   SIGUSR1   rests, with what it keeps alone; says "resting"
//   SIGUSR2   a producer sends the next two numbers on each topic, when it knows all its
//             subscribers; says "sent"

#include "stress/siege/crew.hpp"

#include <qandor/qandor.h>

#include <glib-unix.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

using namespace qandor::test;

namespace {

constexpr guint tick_milliseconds = 5;

void say(const char *line)
{
    std::puts(line);
    std::fflush(stdout);
}

class Worker {
public:
    virtual ~Worker() = default;

    void obey()
    {
        g_unix_signal_add(SIGHUP, on_work, this);
        g_unix_signal_add(SIGUSR1, on_rest, this);
        g_unix_signal_add(SIGUSR2, on_send, this);
    }

protected:
    virtual void work() = 0;
    virtual void rest() = 0;
    virtual void send() {}

private:
    static gboolean on_work(gpointer self)
    {
        auto &peer = *static_cast<Worker *>(self);
        if (!peer.ticks_)
            peer.ticks_ = g_timeout_add(tick_milliseconds, on_tick, self);
        say("working");
        return G_SOURCE_CONTINUE;
    }
    static gboolean on_tick(gpointer self)
    {
        static_cast<Worker *>(self)->work();
        return G_SOURCE_CONTINUE;
    }
    static gboolean on_rest(gpointer self)
    {
        auto &peer = *static_cast<Worker *>(self);
        if (peer.ticks_)
            g_source_remove(std::exchange(peer.ticks_, 0));
        peer.rest();
        say("resting");
        return G_SOURCE_CONTINUE;
    }
    static gboolean on_send(gpointer self)
    {
        static_cast<Worker *>(self)->send();
        return G_SOURCE_CONTINUE;
    }

    guint ticks_ = 0;
};

class WorkingProducer : public Worker {
public:
    explicit WorkingProducer(const char *name)
        : producer_(event_producer_new(name)), passing_(std::string("Passing.") + name)
    {
        for (int i = 0; i < topics_of_producer; ++i)
            kept_.push_back(declare(topic_of(name, i)));
        marker_ = declare("Marker", begin_to_rest);
    }

private:
    guint32 declare(const std::string &topic, producer_complete_callback completed = nullptr)
    {
        event_declaration *declaration = event_declaration_new(FALSE);
        event_declaration_add_key_value(declaration, "topic0", topic.c_str(), VALUE_TYPE_STRING);
        event_declaration_add_key_value(declaration, "kind", "siege", VALUE_TYPE_STRING);
        event_declaration_add_key(declaration, "number", VALUE_TYPE_INT);
        guint32 id = event_producer_declare_and_notify(producer_, declaration, completed, this);
        event_declaration_free(declaration);
        return id;
    }
    // Without a switch an event is not sent.
    bool send(guint32 id, gint number)
    {
        event *event = event_producer_prepare_event(producer_, id);
        event_set_value(event, "number", &number);
        bool sent = event_producer_send_event(producer_, event, nullptr);
        event_free(event);
        return sent;
    }

    void work() override
    {
        send(kept_[work_done_ % kept_.size()], -1);
        if (++work_done_ % 8 == 0)
            toggle_passing();
    }
    void toggle_passing()
    {
        if (passing_id_)
            event_producer_undeclare(producer_, std::exchange(passing_id_, 0));
        else
            passing_id_ = declare(passing_);
    }
    void rest() override
    {
        if (passing_id_)
            toggle_passing();
    }
    static void begin_to_rest(guint32, gpointer data)
    {
        auto &self = *static_cast<WorkingProducer *>(data);
        event_producer_undeclare(self.producer_, self.marker_);
        say("resting");
    }
    // What the switch has to tell of subscribers stands in front of the completion.
    void send() override { marker_ = declare("Marker", send_numbers); }
    static void send_numbers(guint32, gpointer data)
    {
        auto &self = *static_cast<WorkingProducer *>(data);
        event_producer_undeclare(self.producer_, self.marker_);
        bool sent = true;
        for (int i = 0; i < 2; ++i, ++self.number_)
            for (guint32 id : self.kept_)
                sent = self.send(id, self.number_) && sent;
        say(sent ? "sent" : "an event could not be sent");
    }

    event_producer *producer_;
    std::vector<guint32> kept_;
    std::string passing_;
    guint32 passing_id_ = 0;
    guint32 marker_ = 0;
    guint work_done_ = 0;
    gint number_ = 0;
};

class WorkingConsumer : public Worker {
public:
    explicit WorkingConsumer(const char *name) : consumer_(event_consumer_new(name))
    {
        for (const auto &topics : subscribed_topics())
            subscribe(topics);
    }

private:
    void subscribe(const std::vector<std::string> &topics)
    {
        subscribe_expression *expression = subscribe_expression_new();
        if (topics.empty())
            subscribe_expression_add_key_value(expression, "kind", "siege");
        for (std::size_t i = 0; i < topics.size(); ++i) {
            if (i > 0)
                subscribe_expression_or(expression);
            subscribe_expression_add_key_value(expression, "topic0", topics[i].c_str());
        }
        auto *number = GSIZE_TO_POINTER(subscribed_++);
        event_consumer_subscribe_full(consumer_, expression, receive, begin_to_rest, number);
        subscribe_expression_free(expression);
    }
    // The switch knows a consumer when it tells it something.
    static void begin_to_rest(notification *notification, gpointer)
    {
        static bool rests = false;
        if (!std::exchange(rests, true))
            say("resting");
        notification_free(notification);
    }
    static void receive(event *event, gpointer subscription)
    {
        gint number = -1;
        event_get_typed_value(event, "number", &number);
        if (number >= 0) {
            std::printf("event %zu %s %d\n", GPOINTER_TO_SIZE(subscription),
                        event_get_value(event, "topic0"), number);
            std::fflush(stdout);
        }
        event_free(event);
    }

    void work() override
    {
        if (++work_done_ % 8 == 0)
            toggle_passing();
    }
    void toggle_passing()
    {
        if (passing_) {
            event_consumer_unsubscribe(consumer_, std::exchange(passing_, 0), nullptr);
            return;
        }
        subscribe_expression *expression = subscribe_expression_new();
        subscribe_expression_add_key(expression, "kind");
        passing_ = event_consumer_subscribe(
            consumer_, expression, [](event *event, gpointer) { event_free(event); }, nullptr);
        subscribe_expression_free(expression);
    }
    void rest() override
    {
        if (passing_)
            toggle_passing();
    }

    event_consumer *consumer_;
    std::size_t subscribed_ = 0;
    guint32 passing_ = 0;
    guint work_done_ = 0;
};

} // namespace

int main(int count, char **arguments)
{
    if (count != 3)
        return EXIT_FAILURE;
    std::unique_ptr<Worker> peer;
    if (std::strcmp(arguments[1], "producer") == 0)
        peer = std::make_unique<WorkingProducer>(arguments[2]);
    else
        peer = std::make_unique<WorkingConsumer>(arguments[2]);
    peer->obey();
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return EXIT_SUCCESS;
}
