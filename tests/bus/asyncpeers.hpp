// SPDX-License-Identifier: LGPL-2.1-or-later

// Asynchronous producers and consumers that keep what they are told, and a fixture with a bus.
#pragma once

#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "support/records.hpp"
#include "support/switchprocess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace qandor::test {

inline Owned<event_declaration> new_declaration(const char *topic, bool property = false)
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", topic, VALUE_TYPE_STRING);
    event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
    if (property)
        event_declaration_set_property(declaration.get(), "state", nullptr, nullptr);
    return declaration;
}

inline Owned<subscribe_expression> new_expression(const char *topic)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", topic);
    return expression;
}

inline std::string outcome(const char *what, GError *error)
{
    Owned<GError> owner(error);
    return what + (error ? ": " + std::string(error->message) : std::string());
}

// A producer or a consumer, and what it was told, in order.
template <class Handle> struct Teller {
    Teller() = default;
    Teller(const Teller &) = delete;
    Teller &operator=(const Teller &) = delete;

    static void tell(gpointer self, std::string line)
    {
        static_cast<Teller *>(self)->told.push_back(std::move(line));
    }
    static void setup(Handle *, gpointer self, GError *error)
    {
        tell(self, outcome("setup", error));
    }
    static void freed(Handle *, gpointer self) { tell(self, "freed"); }

    long count(const char *what) const { return std::count(told.begin(), told.end(), what); }
    bool wait_for(const char *what, long times = 1)
    {
        return wait_until([&] { return count(what) == times; });
    }

    std::vector<std::string> told;
    Handle *handle = nullptr;
};

struct Sender : Teller<event_producer> {
    // "heard" and the ids of the declarations that have subscribers.
    static void ids(GArray *local_ids, gpointer self)
    {
        std::string line = local_ids->len > 0 ? "heard" : "unheard";
        for (guint i = 0; i < local_ids->len; ++i)
            line += " " + std::to_string(g_array_index(local_ids, guint32, i));
        tell(self, line);
    }
    static void declared(guint32, gpointer self) { tell(self, "declared"); }
    static void complete(guint32, gpointer self) { tell(self, "complete"); }
    static void undeclared(guint32, gpointer self, GError *error)
    {
        tell(self, outcome("undeclared", error));
    }
    static void sent(guint32, event *, gpointer self, GError *error)
    {
        tell(self, outcome("sent", error));
    }

    Sender() { handle = async_producer_new("producer", setup, ids, this); }
    ~Sender()
    {
        free();
        EXPECT_TRUE(wait_for("freed"));
    }
    void free()
    {
        if (handle)
            async_producer_free(std::exchange(handle, nullptr), freed, this);
    }
    guint32 declare(const char *topic, bool property = false)
    {
        return async_producer_declare(handle, new_declaration(topic, property).get(), declared,
                                      complete, this, nullptr);
    }
    void send(guint32 id, const std::string &state)
    {
        Owned<event> event(async_producer_prepare_event(handle, id));
        event_set_value(event.get(), "state", state.c_str());
        async_producer_send_event(handle, event.get(), sent, this);
    }
    void undeclare(guint32 id) { async_producer_undeclare(handle, id, undeclared, this); }
};

// An event is told as "= state", declarations that are there and that go as "+" and "-".
struct Receiver : Teller<event_consumer> {
    static void subscribed(guint32, gpointer self) { tell(self, "subscribed"); }
    static void refreshed(guint32, gpointer self, GError *error)
    {
        tell(self, outcome("refreshed", error));
    }
    static void unsubscribed(guint32, gpointer self, GError *error)
    {
        tell(self, outcome("unsubscribed", error));
    }
    static void receive_event(event *received, gpointer self)
    {
        Owned<event> owner(received);
        tell(self, std::string("= ") + event_get_value(received, "state"));
    }
    static void receive_secure_event(event *received, guint32 uid, gpointer self)
    {
        Owned<event> owner(received);
        tell(self, uid == geteuid() ? "= from this user" : "= from another user");
    }
    static void receive_notification(notification *received, gpointer self)
    {
        Owned<notification> owner(received);
        tell(self, notification_is_type_deleted(received) ? "-" : "+");
    }

    Receiver() { handle = async_consumer_new("consumer", setup, this); }
    ~Receiver()
    {
        free();
        EXPECT_TRUE(wait_for("freed"));
    }
    void free()
    {
        if (handle)
            async_consumer_free(std::exchange(handle, nullptr), freed, this);
    }
    // The expression lives longer than it has to.
    guint32 subscribe(const char *topic)
    {
        expressions.push_back(new_expression(topic));
        return async_consumer_subscribe(handle, expressions.back().get(), subscribed,
                                        G_CALLBACK(receive_event), G_CALLBACK(receive_notification),
                                        this, SUBSCRIPTION_TYPE_NORMAL, nullptr);
    }
    void refresh(guint32 token) { async_consumer_refresh(handle, token, refreshed, this); }
    void unsubscribe(guint32 token)
    {
        async_consumer_unsubscribe(handle, token, unsubscribed, this);
    }

    std::vector<Owned<subscribe_expression>> expressions;
};

class AsyncTest : public testing::Test {
protected:
    ~AsyncTest() override
    {
        EXPECT_THAT(log.warnings(), testing::IsEmpty());
        EXPECT_THAT(log.criticals(), testing::IsEmpty());
    }

    LogCapture log;
    PrivateBus bus;
    SwitchProcess event_switch;
};

} // namespace qandor::test
