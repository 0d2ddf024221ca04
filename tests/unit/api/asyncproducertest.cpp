// SPDX-License-Identifier: LGPL-2.1-or-later

// What the asynchronous producer checks at once, what it leaves for later, and what it tells in
// which order.

#include "unit/api/asynchandles.hpp"

#include <gmock/gmock.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Owned<event_declaration> new_declaration(bool external = false, bool property = false)
{
    Owned<event_declaration> declaration(event_declaration_new(!external));
    event_declaration_add_key(declaration.get(), "k", VALUE_TYPE_STRING);
    if (property)
        event_declaration_set_property(declaration.get(), "k", nullptr, nullptr);
    return declaration;
}

class AsyncProducerTest : public AsyncHandlesTest {
protected:
    ~AsyncProducerTest() override { async_producer_free(producer, nullptr, nullptr); }

    guint32 declare(const Owned<event_declaration> &declaration)
    {
        return async_producer_declare(producer, declaration.get(), Diary::declared, Diary::complete,
                                      &diary, &error);
    }
    // Declares and runs until that is done, so that events can be prepared.
    guint32 declare_and_run(bool property = false)
    {
        guint32 id = declare(new_declaration(false, property));
        run_pending();
        diary.lines.clear();
        return id;
    }
    Owned<event> prepare(guint32 id, const char *value)
    {
        Owned<event> event(async_producer_prepare_event(producer, id));
        if (value)
            event_set_value(event.get(), "k", value);
        return event;
    }
    void send(event *event) { async_producer_send_event(producer, event, Diary::sent, &diary); }

    event_producer *producer = async_producer_new("producer", Diary::setup, nullptr, &diary);
};

TEST_F(AsyncProducerTest, OnlyTheIdIsThereBeforeTheMainContextRuns)
{
    EXPECT_EQ(declare(new_declaration()), 1u);
    EXPECT_EQ(declare(new_declaration()), 2u);
    EXPECT_EQ(async_producer_prepare_event(producer, 1), nullptr);
    EXPECT_THAT(diary.lines, IsEmpty());

    run_pending();
    EXPECT_THAT(diary.lines,
                ElementsAre("setup: -2 Failed to connect to bus", "declared 1", "declared 2"));
    EXPECT_NE(prepare(1, nullptr), nullptr);
}

TEST_F(AsyncProducerTest, TheDeclaredCallbackCanPrepareAnEvent)
{
    struct Declared {
        event_producer *producer;
        Owned<event> prepared;
    } told{producer, nullptr};
    async_producer_declare(
        producer, new_declaration().get(),
        [](guint32 id, gpointer data) {
            auto *told = static_cast<Declared *>(data);
            told->prepared.reset(async_producer_prepare_event(told->producer, id));
        },
        nullptr, &told, nullptr);
    run_pending();
    EXPECT_NE(told.prepared, nullptr);
}

TEST_F(AsyncProducerTest, ARefusedDeclarationQueuesNothingAndCostsNoId)
{
    run_pending();
    diary.lines.clear();
    auto refuse = [&](event_producer *handle, event_declaration *declaration) {
        EXPECT_EQ(async_producer_declare(handle, declaration, Diary::declared, Diary::complete,
                                         &diary, &error),
                  0u);
        return take(std::exchange(error, nullptr));
    };
    Owned<event_declaration> external = new_declaration(true);
    EXPECT_EQ(refuse(producer, external.get()), "6 External event is missing topic");
    EXPECT_EQ(refuse(producer, nullptr), "0 NULL object supplied as declaration");
    EXPECT_EQ(refuse(nullptr, nullptr), "0 NULL object supplied as event producer");
    error = g_error_new_literal(g_quark_from_string("d"), 1, "old");
    EXPECT_EQ(refuse(nullptr, nullptr), "10 Error object already set");
    EXPECT_EQ(async_producer_declare(producer, external.get(), nullptr, nullptr, nullptr, nullptr),
              0u);
    EXPECT_FALSE(g_main_context_pending(nullptr));
    EXPECT_EQ(declare(new_declaration()), 1u);
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST_F(AsyncProducerTest, TheDeclarationIsCopiedAtOnce)
{
    Owned<event_declaration> declaration = new_declaration();
    guint32 id = declare(declaration);
    event_declaration_add_key(declaration.get(), "later", VALUE_TYPE_STRING);
    run_pending();
    EXPECT_EQ(event_get_key_count(prepare(id, nullptr).get()), 1u);
}

TEST_F(AsyncProducerTest, TheEventIsCopiedAtOnceAndItsPointerTellsWhichItWas)
{
    guint32 id = declare_and_run(true);
    Owned<event> state = prepare(id, "v");
    event *identity = state.get();
    send(identity);
    state.reset();
    run_pending();
    EXPECT_THAT(diary.lines, ElementsAre("sent 1: fine"));
    EXPECT_EQ(diary.sent_event, identity);
}

TEST_F(AsyncProducerTest, AnEventThatDoesNotPassTheChecksIsToldToItsCallback)
{
    guint32 plain = declare_and_run();
    guint32 property = declare_and_run(true);
    send(prepare(plain, "v").get());
    send(prepare(property, nullptr).get());
    EXPECT_THAT(diary.lines, IsEmpty());
    run_pending();
    EXPECT_THAT(diary.lines,
                ElementsAre("sent 1: 4 The event has not been declared to the event switch. (The "
                            "connection to the switch is likely to be broken)",
                            "sent 2: 6 The event has keys with unset values"));
}

TEST_F(AsyncProducerTest, AnEventThatIsNullIsToldToItsCallback)
{
    run_pending();
    diary.lines.clear();
    send(nullptr);
    run_pending();
    EXPECT_THAT(diary.lines, ElementsAre("sent 0: 0 NULL object supplied as event"));
    EXPECT_EQ(diary.sent_event, nullptr);
}

TEST_F(AsyncProducerTest, AnEventFollowedAtOnceByTheUndeclaringIsNotSent)
{
    guint32 id = declare_and_run(true);
    send(prepare(id, "v").get());
    async_producer_undeclare(producer, id, Diary::undeclared, &diary);
    run_pending();
    EXPECT_THAT(diary.lines,
                ElementsAre("sent 1: 4 The local declare id of the event is not registered.",
                            "undeclared 1: fine"));
}

TEST_F(AsyncProducerTest, UndeclaringTakesThePreparedEventAlongAndAnUnknownIdIsTold)
{
    run_pending();
    diary.lines.clear();
    guint32 id = declare(new_declaration());
    async_producer_undeclare(producer, id, Diary::undeclared, &diary);
    async_producer_undeclare(producer, id, Diary::undeclared, &diary);
    run_pending();
    EXPECT_THAT(diary.lines,
                ElementsAre("declared 1", "undeclared 1: fine",
                            "undeclared 1: 4 Could not find the declaration to undeclare."));
    EXPECT_EQ(async_producer_prepare_event(producer, id), nullptr);
}

TEST_F(AsyncProducerTest, WhatWasAskedBeforeTheFreeingIsDoneAndToldBeforeIt)
{
    guint32 id = declare(new_declaration());
    send(nullptr);
    async_producer_undeclare(producer, id, Diary::undeclared, &diary);
    async_producer_free(std::exchange(producer, nullptr), Diary::freed, &diary);
    run_pending();
    EXPECT_THAT(diary.lines, ElementsAre("setup: -2 Failed to connect to bus", "declared 1",
                                         "sent 0: 0 NULL object supplied as event",
                                         "undeclared 1: fine", "freed"));
}

TEST_F(AsyncProducerTest, NobodyHasToListen)
{
    event_producer *quiet = async_producer_new(nullptr, nullptr, nullptr, nullptr);
    guint32 id =
        async_producer_declare(quiet, new_declaration().get(), nullptr, nullptr, nullptr, nullptr);
    run_pending();
    EXPECT_THAT(log.criticals(),
                testing::Contains("Failed to setup dbus: Failed to connect to bus (-2)"));
    async_producer_send_event(quiet, Owned<event>(async_producer_prepare_event(quiet, id)).get(),
                              nullptr, nullptr);
    async_producer_undeclare(quiet, id, nullptr, nullptr);
    async_producer_undeclare(quiet, id, nullptr, nullptr);
    async_producer_free(quiet, nullptr, nullptr);
    run_pending();
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST_F(AsyncProducerTest, NullHandlesAreCriticalsThatNameTheFunction)
{
    run_pending();
    diary.lines.clear();
    async_producer_undeclare(nullptr, 1, Diary::undeclared, &diary);
    async_producer_undeclare(producer, 0, Diary::undeclared, &diary);
    async_producer_send_event(nullptr, nullptr, Diary::sent, &diary);
    EXPECT_EQ(async_producer_prepare_event(nullptr, 1), nullptr);
    async_producer_free(nullptr, Diary::freed, &diary);
    EXPECT_FALSE(g_main_context_pending(nullptr));
    EXPECT_THAT(diary.lines, IsEmpty());
    EXPECT_THAT(log.criticals(),
                ElementsAre("async_producer_undeclare: assertion 'event_producer != NULL' failed",
                            "async_producer_undeclare: assertion 'local_declare_id != 0' failed",
                            "async_producer_send_event: assertion 'event_producer != NULL' failed",
                            "event_producer_prepare_event: assertion 'event_producer != NULL' "
                            "failed"));
}

TEST_F(AsyncProducerTest, CallbacksRunOnTheMainContextsThreadWhoeverCalls)
{
    std::thread caller([&] {
        guint32 id = declare(new_declaration());
        send(nullptr);
        async_producer_undeclare(producer, id, Diary::undeclared, &diary);
        async_producer_free(std::exchange(producer, nullptr), Diary::freed, &diary);
    });
    EXPECT_TRUE(wait_until([&] { return !diary.lines.empty() && diary.lines.back() == "freed"; }));
    caller.join();
    EXPECT_EQ(diary.lines.size(), 5u);
}

} // namespace
