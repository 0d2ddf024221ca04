// SPDX-License-Identifier: LGPL-2.1-or-later

// What the handles' functions refuse before they look at anything else: each names itself and what
// it expected, and has changed nothing.

#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/records.hpp"
#include "unit/messages/criticals.hpp"

#include <gtest/gtest.h>

using namespace qandor::test;

namespace {

constexpr const char *no_producer = "event_producer != NULL";
constexpr const char *no_consumer = "event_consumer != NULL";

void take_event(event *event, gpointer)
{
    event_free(event);
}

// Without a bus, which the log says once for each.
class ArgumentsTest : public testing::Test {
protected:
    ArgumentsTest()
    {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
        LogCapture log;
        producer = event_producer_new("producer");
        consumer = event_consumer_new("consumer");
        run_pending();
    }
    ~ArgumentsTest() override
    {
        LogCapture log;
        event_producer_free(producer);
        event_consumer_free(consumer);
        run_pending();
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }

    event_producer *producer;
    event_consumer *consumer;
    Owned<event_declaration> declaration{event_declaration_new(TRUE)};
    Owned<subscribe_expression> expression{subscribe_expression_new()};
};

using ArgumentsDeathTest = ArgumentsTest;

TEST_F(ArgumentsTest, AProducersFunctionsNeedAHandle)
{
    EXPECT_REFUSAL(event_producer_declaration_complete, (nullptr, 1), FALSE, no_producer);
    EXPECT_REFUSAL(event_producer_undeclare, (nullptr, 1), FALSE, no_producer);
    EXPECT_REFUSAL(event_producer_undeclare_and_notify, (nullptr, 1, nullptr, nullptr), FALSE,
                   no_producer);
    EXPECT_REFUSAL(event_producer_prepare_event, (nullptr, 1), nullptr, no_producer);
    EXPECT_REFUSAL(event_producer_add_declaration,
                   (nullptr, "type", declaration.get(), nullptr, nullptr), FALSE, no_producer);
    EXPECT_REFUSAL(event_producer_remove_declaration, (nullptr, "type", nullptr, nullptr), FALSE,
                   no_producer);
    EXPECT_REFUSAL(event_producer_int_undeclare, (nullptr, 1, nullptr, nullptr), FALSE,
                   no_producer);
}

TEST_F(ArgumentsTest, ADeclarationsIdIsNeverZero)
{
    constexpr const char *zero = "local_declare_id != 0";
    EXPECT_REFUSAL(event_producer_declaration_complete, (producer, 0), FALSE, zero);
    EXPECT_REFUSAL(event_producer_undeclare, (producer, 0), FALSE, zero);
    EXPECT_REFUSAL(event_producer_undeclare_and_notify, (producer, 0, nullptr, nullptr), FALSE,
                   zero);
    EXPECT_REFUSAL(event_producer_prepare_event, (producer, 0), nullptr, zero);
    EXPECT_REFUSAL(event_producer_int_undeclare, (producer, 0, nullptr, nullptr), FALSE, zero);
}

TEST_F(ArgumentsTest, ATypeIsAddedUnderItsNameAndWithADeclaration)
{
    EXPECT_REFUSAL(event_producer_add_declaration,
                   (producer, nullptr, declaration.get(), nullptr, nullptr), FALSE, "type != NULL");
    EXPECT_REFUSAL(event_producer_add_declaration, (producer, "type", nullptr, nullptr, nullptr),
                   FALSE, "declaration != NULL");
    EXPECT_REFUSAL(event_producer_remove_declaration, (producer, nullptr, nullptr, nullptr), FALSE,
                   "type != NULL");
}

TEST_F(ArgumentsTest, ASubscriptionNeedsAHandleATokenAnExpressionAndACallback)
{
    auto *callback = G_CALLBACK(take_event);
    EXPECT_VOID_REFUSAL(event_consumer_int_subscribe,
                        (nullptr, 1, expression.get(), nullptr, callback, nullptr,
                         SUBSCRIPTION_TYPE_NORMAL, nullptr),
                        no_consumer);
    EXPECT_VOID_REFUSAL(event_consumer_int_subscribe,
                        (consumer, 0, expression.get(), nullptr, callback, nullptr,
                         SUBSCRIPTION_TYPE_NORMAL, nullptr),
                        "token != 0");
    EXPECT_VOID_REFUSAL(
        event_consumer_int_subscribe,
        (consumer, 1, nullptr, nullptr, callback, nullptr, SUBSCRIPTION_TYPE_NORMAL, nullptr),
        "expression != NULL");
    EXPECT_VOID_REFUSAL(event_consumer_int_subscribe,
                        (consumer, 1, expression.get(), nullptr, nullptr, nullptr,
                         SUBSCRIPTION_TYPE_NORMAL, nullptr),
                        "event_callback != NULL");
}

TEST_F(ArgumentsTest, ARefusedCallLeavesTheIdsAsTheyWere)
{
    critical_of([&] { event_producer_undeclare(producer, 0); });
    critical_of(
        [&] { event_producer_add_declaration(producer, "type", nullptr, nullptr, nullptr); });
    EXPECT_EQ(event_producer_declare(producer, declaration.get()), 1u);
}

// The older name of sending: what is wrong is told by the result alone.
TEST_F(ArgumentsTest, SendingWithoutAnErrorSaysNoForWhatIsNotDeclared)
{
    Owned<event> event(event_new());
    EXPECT_FALSE(event_producer_send_event_async(nullptr, event.get()));
    EXPECT_FALSE(event_producer_send_event_async(producer, event.get()));
}

TEST_F(ArgumentsDeathTest, NothingIsFreedWithoutAHandle)
{
    EXPECT_DEATH(event_producer_int_free(nullptr, nullptr, nullptr),
                 "event_producer_int_free: assertion failed: \\(event_producer != NULL\\)");
    EXPECT_DEATH(event_consumer_int_free(nullptr, nullptr, nullptr),
                 "event_consumer_int_free: assertion failed: \\(event_consumer != NULL\\)");
}

TEST_F(ArgumentsDeathTest, ASubscriptionIsOfAKnownType)
{
    EXPECT_DEATH(event_consumer_int_subscribe(consumer, 1, expression.get(), nullptr,
                                              G_CALLBACK(take_event), nullptr, 77, nullptr),
                 "subscription_type == SUBSCRIPTION_TYPE_NORMAL");
}

TEST_F(ArgumentsDeathTest, RefreshingAndUnsubscribingNeedAHandleAndAnErrorThatIsNotSet)
{
    GError *set = g_error_new(g_quark_from_static_string("test"), 1, "set before");
    EXPECT_DEATH(event_consumer_int_refresh(consumer, 1, nullptr, nullptr, &set),
                 "error == NULL \\|\\| \\*error == NULL");
    EXPECT_DEATH(event_consumer_int_unsubscribe(consumer, 1, nullptr, nullptr, &set),
                 "error == NULL \\|\\| \\*error == NULL");
    EXPECT_DEATH(event_consumer_int_refresh(nullptr, 1, nullptr, nullptr, nullptr),
                 "event_consumer != NULL");
    EXPECT_DEATH(event_consumer_int_unsubscribe(nullptr, 1, nullptr, nullptr, nullptr),
                 "event_consumer != NULL");
    g_error_free(set);
}

} // namespace
