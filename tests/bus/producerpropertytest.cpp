// SPDX-License-Identifier: LGPL-2.1-or-later

// Properties of a producer: the state that it remembers, and who is told it when.

#include "bus/producerobject.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ProducerPropertyTest : public ConnectedProducerTest {
protected:
    void declare_known(guint32 id, bool property = true)
    {
        declare(id, property);
        make_known(id);
        take_sent();
    }
    Forwarded wanting(const char *state, guint32 id, guint32 token) const
    {
        Forwarded forwarded = subscription(id, token);
        forwarded.state = state;
        return forwarded;
    }
    void declare_with_callback(guint32 id, event_declaration_property_callback callback)
    {
        Owned<event_declaration> declaration = new_declaration("Device");
        event_declaration_set_property(declaration.get(), "state", callback, this);
        producer_allocate_decl_data(producer, id, declaration.release(), nullptr, nullptr);
        producer_send_declare(producer, id);
    }

    static gboolean expect_nothing_sent(event *event, gpointer self)
    {
        EXPECT_THAT(static_cast<ProducerPropertyTest *>(self)->take_sent(), IsEmpty());
        return event_set_value(event, "state", "waking");
    }
    static gboolean undeclare(event *event, gpointer self)
    {
        static_cast<ProducerPropertyTest *>(self)->release(1);
        return event_set_value(event, "state", "waking");
    }
};

gboolean say_waking(event *event, gpointer)
{
    return event_set_value(event, "state", "waking");
}

gboolean say_nothing(event *, gpointer)
{
    return TRUE;
}

TEST_F(ProducerPropertyTest, ASubscriberIsToldTheStateThatWasSentBefore)
{
    declare_known(1);
    send(1, "off");
    send(1, "on");
    EXPECT_THAT(take_sent(), IsEmpty());
    subscribe(1, subscription(7, 9));
    EXPECT_THAT(take_states(), ElementsAre("9:on"));
    subscribe(1, subscription(8, 10));
    EXPECT_THAT(take_states(), ElementsAre("10:on")) << "the one that came is told alone";
}

TEST_F(ProducerPropertyTest, AClandestineSubscriberIsToldToo)
{
    declare_known(1);
    send(1, "on");
    subscribe_clandestinely(1, 7);
    EXPECT_THAT(take_states(), ElementsAre("7:on"));
    EXPECT_THAT(changes, IsEmpty());
}

TEST_F(ProducerPropertyTest, ThePlainDeclarationsLastEventIsNotRemembered)
{
    declare_known(1, false);
    send(1, "on");
    subscribe(1, subscription(7, 9));
    refresh(1, 7);
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerPropertyTest, WithoutAStateThereIsNothingToTell)
{
    declare_known(1);
    subscribe(1, subscription(7, 9));
    refresh(1, 7);
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerPropertyTest, ANewSubscriberIsToldOnlyAStateThatItWants)
{
    declare_known(1);
    send(1, "on");
    subscribe(1, wanting("off", 7, 9));
    EXPECT_THAT(take_sent(), IsEmpty());
    subscribe(1, wanting("on", 8, 10));
    EXPECT_THAT(take_states(), ElementsAre("10:on"));
}

TEST_F(ProducerPropertyTest, ARefreshTellsTheOneSubscriptionAndChecksTheMatchAgain)
{
    declare_known(1);
    subscribe(1, wanting("on", 7, 9));
    subscribe(1, wanting("off", 8, 10));
    send(1, "on");
    EXPECT_THAT(take_states(), ElementsAre("9:on"));
    refresh(1, 7);
    EXPECT_THAT(take_states(), ElementsAre("9:on"));
    refresh(1, 8);
    EXPECT_THAT(take_sent(), IsEmpty());
    send(1, "off");
    EXPECT_THAT(take_states(), ElementsAre("10:off"));
    refresh(1, 7);
    EXPECT_THAT(take_sent(), IsEmpty());
    refresh(1, 8);
    EXPECT_THAT(take_states(), ElementsAre("10:off"));
}

TEST_F(ProducerPropertyTest, ARefreshOfAnUnknownSubscriptionIsIgnored)
{
    declare_known(1);
    declare_known(2);
    send(1, "on");
    subscribe(1, subscription(7, 9));
    take_sent();
    refresh(1, 99);
    refresh(2, 7);
    refresh(99, 7);
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerPropertyTest, OfTwoSubscriptionsWithOneIdTheFirstIsTold)
{
    declare_known(1);
    subscribe(1, subscription(7, 1));
    subscribe(1, subscription(7, 2));
    send(1, "on");
    take_sent();
    refresh(1, 7);
    EXPECT_THAT(take_states(), ElementsAre("1:on"));
}

TEST_F(ProducerPropertyTest, WithoutAGlobalIdTheStateWaits)
{
    declare(1, true);
    send(1, "on");
    take_sent();
    subscribe(1, subscription(7, 9));
    EXPECT_THAT(take_sent(), IsEmpty());
    make_known(1);
    EXPECT_THAT(take_sent(), IsEmpty()) << "the id alone tells nobody";
    refresh(1, 7);
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_THAT(texts_of(calls), ElementsAre("Event(9)"));
    Owned<event> told = read_event(calls[0].bytes);
    EXPECT_EQ(event_get_global_id(told.get()), 10u);
    EXPECT_EQ(event_get_producer_id(told.get()), 500u);
    EXPECT_EQ(event_get_local_id(told.get()), 1u);
}

TEST_F(ProducerPropertyTest, TheDeclarationsOwnFunctionGivesTheFirstState)
{
    declare_with_callback(1, say_waking);
    make_known(1);
    subscribe(1, subscription(7, 9));
    EXPECT_THAT(take_states(), ElementsAre("9:waking"));
    send(1, "awake");
    EXPECT_THAT(take_states(), ElementsAre("9:awake"));
    refresh(1, 7);
    EXPECT_THAT(take_states(), ElementsAre("9:awake"));
}

TEST_F(ProducerPropertyTest, AFunctionThatLeavesTheStateOpenChangesNothing)
{
    Owned<event_declaration> declaration = new_declaration("Device");
    event_declaration_set_property(declaration.get(), "state", say_nothing, nullptr);
    producer_allocate_decl_data(producer, 1, declaration.release(), nullptr, nullptr);
    send(1, "on");
    producer_send_declare(producer, 1);
    make_known(1);
    subscribe(1, subscription(7, 9));
    EXPECT_THAT(take_states(), ElementsAre("9:on"));
}

TEST_F(ProducerPropertyTest, TheFunctionIsAskedBeforeTheDeclarationIsSent)
{
    declare_with_callback(1, expect_nothing_sent);
    EXPECT_THAT(take_sent(), ElementsAre("Declare()"));
}

TEST_F(ProducerPropertyTest, TheFunctionMayUndeclare)
{
    declare_with_callback(1, undeclare);
    EXPECT_THAT(take_sent(), IsEmpty());
    EXPECT_EQ(producer_prepare_event(producer, 1), nullptr);
}

TEST_F(ProducerPropertyTest, APairOfKeyAndValueGivesTheState)
{
    declare_known(1);
    callback_params *pair = callback_params_new("state", "ready");
    producer_add_callback_params(producer, 1, pair);
    producer_add_callback_params(producer, 99, pair);
    callback_params_free(pair);
    subscribe(1, subscription(7, 9));
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_THAT(texts_of(calls), ElementsAre("Event(9)"));
    Owned<event> told = read_event(calls[0].bytes);
    EXPECT_STREQ(event_get_value(told.get(), "state"), "ready");
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    EXPECT_NE(event_get_timestamp(told.get()).tv_sec, 0) << "it is stamped";
    G_GNUC_END_IGNORE_DEPRECATIONS
}

TEST_F(ProducerPropertyTest, APlainDeclarationHasNoStateToTellEvenIfItIsGivenOne)
{
    declare_known(1, false);
    callback_params *pair = callback_params_new("state", "ready");
    producer_add_callback_params(producer, 1, pair);
    callback_params_free(pair);
    subscribe(1, subscription(7, 9));
    refresh(1, 7);
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerPropertyTest, OnlyStatesMustBeComplete)
{
    declare_known(1, false);
    Owned<event> open(producer_prepare_event(producer, 1));
    EXPECT_TRUE(producer_send_event(producer, open.get(), nullptr));
}

TEST_F(ProducerPropertyTest, AReleasedOneIsToldNobody)
{
    declare_known(1);
    send(1, "on");
    release(1);
    take_sent();
    subscribe(1, subscription(7, 9));
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerPropertyTest, AnApplicationMayUndeclareItAsItsFirstSubscriberComes)
{
    declare_known(1);
    send(1, "on");
    on_change = [&] {
        on_change = nullptr;
        release(1);
    };
    subscribe(1, subscription(7, 9));
    EXPECT_THAT(take_sent(), ElementsAre("Undeclare(10)"));
}

TEST(ProducerPropertyDeathTest, AStateIsComplete)
{
    BusObject<Producer> producer(producer_new("p", nullptr, nullptr));
    producer_allocate_decl_data(producer, 1, new_declaration("Device", true).release(), nullptr,
                                nullptr);
    Owned<event> open(producer_prepare_event(producer, 1));
    EXPECT_DEATH(producer_send_event(producer, open.get(), nullptr),
                 "event_is_complete\\(event\\)");
    callback_params *empty = callback_params_new(nullptr, nullptr);
    EXPECT_DEATH(producer_add_callback_params(producer, 1, empty), "event_is_complete\\(event\\)");
    callback_params_free(empty);
}

} // namespace
