// SPDX-License-Identifier: LGPL-2.1-or-later

// The library's handles in processes of a test: a producer and a consumer of numbered events, and a
// counter of the losses that the library reports.
#pragma once

#include "stress/siege/sharedcount.hpp"
#include "support/mainloop.hpp"
#include "support/records.hpp"

#include <functional>
#include <regex>
#include <string>
#include <utility>

namespace qandor::test {

// A producer of one declaration.
class SendingHandle {
public:
    // Declares, and waits for the declaration's completion: then it knows the subscriptions that
    // the switch knows.
    explicit SendingHandle(const char *topic, std::size_t payload = 0)
        : producer_(event_producer_new(topic)), payload_(payload, 'x')
    {
        Owned<event_declaration> declaration(event_declaration_new(FALSE));
        event_declaration_add_key_value(declaration.get(), "topic0", topic, VALUE_TYPE_STRING);
        event_declaration_add_key(declaration.get(), "number", VALUE_TYPE_INT);
        id_ = event_producer_declare_and_notify(
            producer_, declaration.get(),
            [](guint32, gpointer self) { static_cast<SendingHandle *>(self)->complete_ = true; },
            this);
        wait_until([this] { return complete_; }, 60);
    }
    SendingHandle(const SendingHandle &) = delete;
    SendingHandle &operator=(const SendingHandle &) = delete;

    // Returns whether the event was accepted. May be called from any thread.
    bool send(gint number) const
    {
        Owned<event> event(event_producer_prepare_event(producer_, id_));
        event_set_value(event.get(), "number", &number);
        if (!payload_.empty())
            event_set_user_data(event.get(), const_cast<char *>(payload_.data()),
                                static_cast<guint32>(payload_.size()));
        return event_producer_send_event(producer_, event.get(), nullptr);
    }
    bool is_complete() const { return complete_; }
    // Frees the handle and waits for the callback.
    bool free(double seconds = 60)
    {
        bool freed = false;
        event_producer_int_free(
            producer_, [](event_producer *, gpointer data) { *static_cast<bool *>(data) = true; },
            &freed);
        return wait_until([&] { return freed; }, seconds);
    }

private:
    event_producer *producer_;
    std::string payload_;
    guint32 id_;
    bool complete_ = false;
};

class ReceivingHandle {
public:
    using Receive = std::function<void(gint number)>;

    ReceivingHandle(const char *topic, Receive receive, bool secure = false)
        : receive_(std::move(receive)), consumer_(event_consumer_new(topic))
    {
        Owned<subscribe_expression> expression(subscribe_expression_new());
        subscribe_expression_add_key_value(expression.get(), "topic0", topic);
        if (secure)
            event_consumer_subscribe_secure(
                consumer_, expression.get(),
                [](event *event, guint32, gpointer self) { receive_event(event, self); }, this);
        else
            event_consumer_subscribe(consumer_, expression.get(), receive_event, this);
    }
    ReceivingHandle(const ReceivingHandle &) = delete;
    ReceivingHandle &operator=(const ReceivingHandle &) = delete;

private:
    static void receive_event(event *event, gpointer data)
    {
        Owned<::event> owner(event);
        auto &self = *static_cast<ReceivingHandle *>(data);
        gint number = -1;
        event_get_typed_value(event, "number", &number);
        self.receive_(number);
    }

    Receive receive_;
    event_consumer *consumer_;
};

// Calls a function periodically on the default main context, with the number of the call.
class Beat {
public:
    Beat(guint milliseconds, std::function<void(gint number)> act) : act_(std::move(act))
    {
        source_ = g_timeout_add(
            milliseconds,
            [](gpointer self) -> gboolean {
                auto &beat = *static_cast<Beat *>(self);
                beat.act_(beat.number_++);
                return G_SOURCE_CONTINUE;
            },
            this);
    }
    Beat(const Beat &) = delete;
    Beat &operator=(const Beat &) = delete;
    ~Beat() { g_source_remove(source_); }

private:
    std::function<void(gint)> act_;
    gint number_ = 0;
    guint source_;
};

// Adds up the numbers of lost events in the library's warnings: the number before "event" or
// "events" in each warning about dropped, lost, refused or undelivered events.
class ToldLosses {
public:
    explicit ToldLosses(SharedCount &told) : told_(told)
    {
        g_log_set_default_handler(
            [](const gchar *, GLogLevelFlags level, const gchar *text, gpointer self) {
                static_cast<ToldLosses *>(self)->receive(level, text);
            },
            this);
    }
    ToldLosses(const ToldLosses &) = delete;
    ToldLosses &operator=(const ToldLosses &) = delete;
    ~ToldLosses() { g_log_set_default_handler(g_log_default_handler, nullptr); }

private:
    void receive(GLogLevelFlags level, const std::string &text)
    {
        static const std::regex number("([0-9]+) (events|deliveries)\\b");
        static const std::regex loss("were dropped|could not be made|missed");
        bool tells = (level & G_LOG_LEVEL_WARNING) && std::regex_search(text, loss);
        std::sregex_iterator found(text.begin(), text.end(), number), end;
        if (!tells && lines_++ < 5) // further lines repeat them
            std::fprintf(stderr, "%s\n", text.c_str());
        for (; tells && found != end; ++found)
            told_.add(std::stoull((*found)[1]));
    }

    SharedCount &told_;
    int lines_ = 0;
};

} // namespace qandor::test
