// SPDX-License-Identifier: LGPL-2.1-or-later

// What the handles check and say themselves. There is no bus here: what is queued fails, and the
// application hears of it as it would on a device.

#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/records.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

Owned<event_declaration> new_declaration(bool external = false, bool property = false)
{
    Owned<event_declaration> declaration(event_declaration_new(!external));
    event_declaration_add_key(declaration.get(), "k", VALUE_TYPE_STRING);
    if (property)
        event_declaration_set_property(declaration.get(), "k", nullptr, nullptr);
    return declaration;
}

struct Outcome {
    int calls = 0;
    int code = -1;
    std::string message;

    void take(GError *error)
    {
        ++calls;
        code = error ? error->code : -1;
        message = error ? error->message : "";
        g_clear_error(&error);
    }
};

// The text and the code of an error, which is cleared.
std::string text_of(GError *&error)
{
    std::string text =
        error ? std::to_string(error->code) + " " + error->message : std::string("none");
    g_clear_error(&error);
    return text;
}

class HandlesTest : public testing::Test {
protected:
    HandlesTest()
    {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
        producer = event_producer_new("producer");
        consumer = event_consumer_new("consumer");
    }
    ~HandlesTest() override
    {
        int freed = 0;
        event_producer_int_free(
            producer, [](event_producer *, gpointer count) { ++*static_cast<int *>(count); },
            &freed);
        event_consumer_int_free(
            consumer, [](event_consumer *, gpointer count) { ++*static_cast<int *>(count); },
            &freed);
        EXPECT_TRUE(wait_until([&] { return freed == 2; }));
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }

    static void ignore_event(event *event, gpointer) { event_free(event); }

    LogCapture log;
    event_producer *producer;
    event_consumer *consumer;
    GError *error = nullptr;
};

TEST_F(HandlesTest, AMissingBusIsLoggedWithItsCode)
{
    run_pending();
    EXPECT_THAT(log.criticals(),
                ElementsAre("Failed to setup dbus: Failed to connect to bus (-2)",
                            "Failed to setup dbus: Failed to connect to bus (-2)"));
}

TEST_F(HandlesTest, ASetupCallbackIsGivenTheErrorInTheLibrarysDomain)
{
    Outcome outcome;
    event_producer *other = event_producer_int_new_empty();
    event_producer_int_setup(
        other, "other",
        [](event_producer *, gpointer data, GError *error) {
            EXPECT_STREQ(g_quark_to_string(error->domain), "libqandor");
            static_cast<Outcome *>(data)->take(error);
        },
        nullptr, &outcome);
    EXPECT_TRUE(wait_until([&] { return outcome.calls == 1; }));
    EXPECT_EQ(outcome.message, "Failed to connect to bus");
    event_producer_free(other);
    run_pending();
}

TEST_F(HandlesTest, AnExternalDeclarationWithoutATopicIsRefusedAndCostsNoId)
{
    EXPECT_EQ(event_producer_declare(producer, new_declaration(true).get()), 0u);
    EXPECT_THAT(log.warnings(), ElementsAre("Failed to declare: External event is missing topic"));
    EXPECT_EQ(event_producer_declare(producer, new_declaration().get()), 1u);
    EXPECT_EQ(event_producer_declare(producer, nullptr), 0u);
    EXPECT_EQ(event_producer_declare(nullptr, new_declaration().get()), 0u);
    EXPECT_THAT(log.warnings(), Contains("Failed to declare: NULL object supplied as declaration"));
    EXPECT_THAT(log.warnings(),
                Contains("Failed to declare: NULL object supplied as event producer"));
}

TEST_F(HandlesTest, AnEventIsRefusedUntilTheSwitchKnowsItsDeclarationAndItsKeysAreSet)
{
    guint32 plain = event_producer_declare(producer, new_declaration().get());
    guint32 property = event_producer_declare(producer, new_declaration(false, true).get());
    Owned<event> event(event_producer_prepare_event(producer, plain));
    Owned<struct event> state(event_producer_prepare_event(producer, property));

    EXPECT_FALSE(event_producer_send_event(producer, event.get(), &error));
    EXPECT_EQ(text_of(error), "4 The event has not been declared to the event switch. (The "
                              "connection to the switch is likely to be broken)");
    EXPECT_FALSE(event_producer_send_event(producer, state.get(), &error));
    EXPECT_EQ(text_of(error), "6 The event has keys with unset values");
    event_set_value(state.get(), "k", "v");
    EXPECT_TRUE(event_producer_send_event(producer, state.get(), &error));
    EXPECT_FALSE(event_producer_send_event(producer, nullptr, &error));
    EXPECT_EQ(text_of(error), "0 NULL object supplied as event");
    EXPECT_FALSE(event_producer_send_event(nullptr, event.get(), &error));
    EXPECT_EQ(text_of(error), "0 NULL object supplied as event producer");
}

TEST_F(HandlesTest, AnErrorThatIsAlreadySetIsReplacedAndTheCallFails)
{
    auto already_set = [] { return g_error_new_literal(g_quark_from_string("d"), 1, "old"); };
    guint32 property = event_producer_declare(producer, new_declaration(false, true).get());
    Owned<event> state(event_producer_prepare_event(producer, property));
    event_set_value(state.get(), "k", "v");
    error = already_set();
    EXPECT_FALSE(event_producer_send_event(producer, state.get(), &error));
    EXPECT_EQ(text_of(error), "10 Error object already set");
    error = already_set();
    EXPECT_FALSE(event_consumer_refresh(consumer, 1, &error));
    EXPECT_EQ(text_of(error), "10 Error object already set");
    error = already_set();
    EXPECT_FALSE(event_consumer_unsubscribe(consumer, 1, &error));
    EXPECT_EQ(text_of(error), "10 Error object already set");
}

TEST_F(HandlesTest, UndeclaringTakesThePreparedEventAlongAndAnUnknownIdIsTold)
{
    guint32 id = event_producer_declare(producer, new_declaration().get());
    Owned<event> event(event_producer_prepare_event(producer, id));
    EXPECT_NE(event, nullptr);
    Outcome outcome;
    auto take = [](guint32, gpointer data, GError *error) {
        static_cast<Outcome *>(data)->take(error);
    };
    EXPECT_TRUE(event_producer_undeclare_and_notify(producer, id, take, &outcome));
    EXPECT_TRUE(wait_until([&] { return outcome.calls == 1; }));
    EXPECT_EQ(outcome.code, -1);
    EXPECT_EQ(event_producer_prepare_event(producer, id), nullptr);
    EXPECT_FALSE(event_producer_undeclare_and_notify(producer, id, take, &outcome));
    EXPECT_TRUE(wait_until([&] { return outcome.calls == 2; }));
    EXPECT_EQ(outcome.code, 4);
    EXPECT_EQ(outcome.message, "Could not find the declaration to undeclare.");
}

TEST_F(HandlesTest, ASentCallbackIsGivenTheEventsPointerAndTheErrorOfTheCheck)
{
    Outcome outcome;
    guint32 id = event_producer_declare(producer, new_declaration().get());
    Owned<event> event(event_producer_prepare_event(producer, id));
    struct event *identity = event.get();
    EXPECT_FALSE(event_producer_int_send_event(
        producer, identity, event_copy(identity),
        [](guint32 local_id, struct event *, gpointer data, GError *error) {
            EXPECT_EQ(local_id, 1u);
            static_cast<Outcome *>(data)->take(error);
        },
        &outcome, nullptr));
    EXPECT_TRUE(wait_until([&] { return outcome.calls == 1; }));
    EXPECT_EQ(outcome.code, 4);
}

TEST_F(HandlesTest, SubscribingChecksItsArgumentsInOrder)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    GCallback callback = G_CALLBACK(ignore_event);
    auto refuse = [&](event_consumer *handle, subscribe_expression *e, GCallback c, guint32 type) {
        EXPECT_EQ(event_consumer_int_generate_token(handle, e, c, type, &error), 0u);
        return text_of(error);
    };
    EXPECT_EQ(refuse(nullptr, nullptr, nullptr, 2), "0 Event consumer object was NULL");
    EXPECT_EQ(refuse(consumer, nullptr, nullptr, 2), "0 Subscribe expression was NULL");
    EXPECT_EQ(refuse(consumer, expression.get(), nullptr, 2), "0 Subscription callback was NULL");
    EXPECT_EQ(refuse(consumer, expression.get(), callback, 2), "11 Invalid subscription type");
    EXPECT_EQ(event_consumer_subscribe(consumer, nullptr, ignore_event, nullptr), 0u);
    EXPECT_THAT(log.warnings(), ElementsAre("Failed to subscribe: Subscribe expression was NULL"));
    EXPECT_EQ(event_consumer_subscribe(consumer, expression.get(), ignore_event, nullptr), 1u);
}

TEST_F(HandlesTest, AnUnknownTokenIsToldToTheCallerAndToTheCallback)
{
    EXPECT_FALSE(event_consumer_refresh(consumer, 9, &error));
    EXPECT_EQ(text_of(error), "3 Cannot find subscription token 9");
    EXPECT_FALSE(event_consumer_refresh(nullptr, 9, &error));
    EXPECT_EQ(text_of(error), "0 NULL object supplied");
    Outcome outcome;
    EXPECT_FALSE(event_consumer_unsubscribe_and_notify(
        consumer, 9,
        [](guint32, gpointer data, GError *error) { static_cast<Outcome *>(data)->take(error); },
        &outcome, &error));
    EXPECT_EQ(text_of(error), "3 Cannot find subscription token 9");
    EXPECT_TRUE(wait_until([&] { return outcome.calls == 1; }));
    EXPECT_EQ(outcome.code, 3);
}

TEST_F(HandlesTest, AnErrorThatIsSetAlreadyMakesAQuestionForAStateFail)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    error = g_error_new_literal(g_quark_from_string("other"), 1, "set before");
    EXPECT_EQ(event_consumer_get_property_state(consumer, expression.get(), &error), nullptr);
    EXPECT_STREQ(g_quark_to_string(error->domain), "event-error-quark");
    EXPECT_EQ(text_of(error), "10 Error object already set");
}

TEST_F(HandlesTest, NullHandlesAreCriticalsThatNameTheFunction)
{
    run_pending();
    std::size_t before = log.criticals().size();
    EXPECT_FALSE(event_producer_undeclare(nullptr, 1));
    EXPECT_FALSE(event_producer_undeclare(producer, 0));
    EXPECT_EQ(event_producer_prepare_event(nullptr, 1), nullptr);
    EXPECT_EQ(event_consumer_get_property_state(nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(event_consumer_get_property_state(consumer, nullptr, nullptr), nullptr);
    event_producer_free(nullptr);
    event_consumer_free(nullptr);
    std::vector<std::string> criticals = log.criticals();
    criticals.erase(criticals.begin(), criticals.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(criticals,
                ElementsAre(StartsWith("event_producer_undeclare: assertion 'event_producer != "
                                       "NULL' failed"),
                            "event_producer_undeclare: assertion 'local_declare_id != 0' failed",
                            StartsWith("event_producer_prepare_event: assertion"),
                            StartsWith("event_consumer_get_property_state: assertion "
                                       "'event_consumer != NULL'"),
                            StartsWith("event_consumer_get_property_state: assertion "
                                       "'subscribe_expression != NULL'")));
}

TEST(IdGenerator, CountsFromOneAndDoesNotGiveAReleasedIdOutAgain)
{
    idgenerator *ids = idgenerator_new();
    EXPECT_EQ(idgenerator_reserve(ids), 1u);
    EXPECT_EQ(idgenerator_reserve(ids), 2u);
    idgenerator_release(ids, 1);
    idgenerator_release(ids, 77);
    EXPECT_EQ(idgenerator_reserve(ids), 3u);
    idgenerator_free(ids);
    idgenerator_free(nullptr);
}

TEST(IdGeneratorDeathTest, WantsAGenerator)
{
    EXPECT_DEATH(idgenerator_reserve(nullptr), "idgen != NULL");
    EXPECT_DEATH(idgenerator_release(nullptr, 1), "idgen != NULL");
}

} // namespace
