// SPDX-License-Identifier: LGPL-2.1-or-later

// The producer object: how it comes to the bus, its declarations and its types.

#include "bus/producerobject.hpp"
#include "support/busseam.hpp"
#include "support/logcapture.hpp"
#include "support/mainloop.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

using ProducerTest = ProducerObjectTest;
using ProducerDeclarationTest = ConnectedProducerTest;
using ProducerTypeTest = ConnectedProducerTest;

// Setting up.

TEST_F(ProducerTest, AFailedConnectionLeavesNothingToDisconnect)
{
    private_bus.kill();
    GError *error = nullptr;
    EXPECT_FALSE(producer_init_dbus(producer, &error));
    EXPECT_THAT(take_text(error),
                testing::MatchesRegex("libqandor -[0-9]+ Failed to connect to bus"));
    BusSeam seam;
    producer.free();
    EXPECT_THAT(seam.calls, IsEmpty());
}

TEST_F(ProducerTest, AConnectionThatFailsHalfwayLeavesNothingToDisconnectEither)
{
    BusSeam seam;
    seam.fail("sd_event_new", -EMFILE);
    GError *error = nullptr;
    EXPECT_FALSE(producer_init_dbus(producer, &error));
    EXPECT_EQ(take_text(error), "libqandor -24 Failed to get the default sd_event");
    seam.calls.clear();
    producer.free();
    EXPECT_THAT(seam.calls, IsEmpty());
}

TEST_F(ProducerTest, AnObjectThatCannotBeServedIsAnErrorAndTheConnectionIsClosedAtLast)
{
    BusSeam seam;
    seam.fail("sd_bus_add_object_vtable", -EEXIST);
    GError *error = nullptr;
    EXPECT_FALSE(producer_init_dbus(producer, &error));
    EXPECT_EQ(take_text(error), "libqandor -17 Failed to register producer server");
    EXPECT_EQ(seam.count("sd_bus_add_match"), 0u);
    producer.free();
    EXPECT_EQ(seam.count("sd_bus_close"), 1u);
}

// What was declared over a connection that is not whole would not be declared over the next one.
TEST_F(ProducerTest, AWatchThatCannotBeKeptIsAnErrorAndWhatIsDeclaredGoesOverTheNextConnection)
{
    BusSeam seam;
    seam.fail("sd_bus_add_match", -ENOMEM);
    GError *error = nullptr;
    EXPECT_FALSE(producer_init_dbus(producer, &error));
    EXPECT_EQ(take_text(error), "libqandor -12 Producer failed to watch bus driver");
    EXPECT_EQ(seam.count("sd_bus_close"), 1u);
    {
        LogCapture log;
        declare(1);
        EXPECT_EQ(log.criticals().size(), 1u);
    }
    EXPECT_TRUE(wait_until([this] { return event_switch.count("Declare") > 0; }));
    EXPECT_EQ(take_calls().size(), 1u);
}

TEST_F(ProducerTest, WhatWasFiledBeforeIsDeclaredAsItConnects)
{
    allocate(1);
    allocate(2);
    producer.connect(producer_init_dbus);
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_EQ(calls.size(), 2u);
    std::vector<std::string> declared;
    for (const SwitchCall &call : calls) {
        EXPECT_EQ(call.interface, "com.vemo.Event.Switch.Producer");
        EXPECT_EQ(call.member, "Declare");
        EXPECT_THAT(call.texts, ElementsAre(producer.address().path, "producer"));
        declared.push_back(call.bytes);
    }
    EXPECT_THAT(declared, UnorderedElementsAre(declaration_bytes("Device", 1),
                                               declaration_bytes("Device", 2)));
}

TEST_F(ProducerTest, WithoutAConnectionCallsAreCriticals)
{
    LogCapture log;
    declare(1);
    producer_send_disconnect(producer);
    EXPECT_THAT(log.criticals(),
                ElementsAre("com_vemo_Event_Switch_Producer_declare_async: assertion 'bus != NULL' "
                            "failed",
                            "com_vemo_Event_Switch_Producer_disconnect_async: assertion 'bus != "
                            "NULL' failed"));
}

TEST(ProducerDeathTest, IsSetUpWithAnErrorThatIsNotSet)
{
    BusObject<Producer> producer(producer_new("p", nullptr, nullptr));
    EXPECT_DEATH(producer_init_dbus(producer, nullptr), "error != NULL && \\*error == NULL");
    GError *error = g_error_new_literal(g_quark_from_string("d"), 1, "set");
    EXPECT_DEATH(producer_init_dbus(producer, &error), "error != NULL && \\*error == NULL");
    g_error_free(error);
}

TEST(ProducerDeathTest, FilesDeclarationsUnderNewIds)
{
    BusObject<Producer> producer(producer_new("p", nullptr, nullptr));
    auto file = [&](guint32 id, event_declaration *declaration) {
        producer_allocate_decl_data(producer, id, declaration, nullptr, nullptr);
    };
    EXPECT_DEATH(file(1, nullptr), "declaration != NULL");
    file(1, new_declaration("Device").release());
    EXPECT_DEATH(file(1, new_declaration("Device").release()),
                 "g_hash_table_lookup\\(prv->declared_events, GUINT_TO_POINTER\\(id\\)\\) == NULL");
    file(0, new_declaration("Device").release());
    EXPECT_DEATH(producer_send_declare(producer, 0),
                 "event_declaration_get_local_id\\(decl_data->declaration\\) != 0");
}

TEST_F(ProducerDeclarationTest, SaysFarewellWithItsPath)
{
    producer_send_disconnect(producer);
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].member, "Disconnect");
    EXPECT_EQ(calls[0].interface, "com.vemo.Event.Switch.Producer");
    EXPECT_THAT(calls[0].texts, ElementsAre(producer.address().path));
}

TEST_F(ProducerDeclarationTest, MayEndWhileItsCallsAreUnanswered)
{
    event_switch.answer("Declare", {.withheld = true});
    event_switch.answer("AddDeclaration", {.withheld = true});
    declare(1);
    producer_add_declaration(
        producer, "t", new_declaration("Device").get(),
        [](const gchar *, gpointer, GError *) { ADD_FAILURE() << "there was no answer"; }, nullptr);
    take_sent();
    producer.free();
    run_pending();
    EXPECT_EQ(event_switch.count("Declare"), 1u);
}

// Declarations.

TEST_F(ProducerDeclarationTest, AreDeclaredOnce)
{
    declare(1);
    producer_send_declare(producer, 1);
    EXPECT_THAT(take_sent(), ElementsAre("Declare()"));
    producer_send_declare(producer, 1);
    producer_send_declare(producer, 99);
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerDeclarationTest, ARefusalByTheSwitchIsFinalAndToldOnce)
{
    event_switch.answer("Declare", {.error = SD_BUS_ERROR_LIMITS_EXCEEDED, .text = "too many"});
    LogCapture log;
    declare(1);
    EXPECT_THAT(take_sent(), ElementsAre("Declare()"));
    EXPECT_TRUE(wait_until([&] { return !log.warnings().empty(); }));
    producer_send_declare(producer, 1);
    EXPECT_THAT(take_sent(), IsEmpty()) << "it counts as sent";
    EXPECT_THAT(log.warnings(), ElementsAre("The event switch refuses the declaration 1 "
                                            "(topic0=Device state): too many"));
}

TEST_F(ProducerDeclarationTest, AreCompleteOnceTheyHaveAGlobalId)
{
    declare(1);
    EXPECT_FALSE(producer_declaration_complete(producer, 1));
    make_known(1);
    EXPECT_TRUE(producer_declaration_complete(producer, 1));
    EXPECT_FALSE(producer_declaration_complete(producer, 99));
}

TEST_F(ProducerDeclarationTest, GiveTheirIdsToTheirEvents)
{
    declare(1);
    Owned<event> early(producer_prepare_event(producer, 1));
    EXPECT_EQ(event_get_global_id(early.get()), 0u);
    make_known(1);
    producer_fill_global_event_data(producer, early.get());
    EXPECT_EQ(event_get_global_id(early.get()), 10u);
    EXPECT_EQ(event_get_producer_id(early.get()), 500u);
    Owned<event> late(producer_prepare_event(producer, 1));
    EXPECT_EQ(event_get_local_id(late.get()), 1u);
    EXPECT_EQ(event_get_global_id(late.get()), 10u);
    EXPECT_EQ(producer_prepare_event(producer, 99), nullptr);

    release(1);
    producer_fill_global_event_data(producer, late.get());
    EXPECT_EQ(event_get_global_id(late.get()), 10u) << "left as it was";
}

TEST_F(ProducerDeclarationTest, UnknownOnesAreToBeForgottenByTheSwitch)
{
    event_switch.call(producer.address(), "com.vemo.Event.Producer.GlobalDeclareId", 99u, 990u, 5u);
    std::vector<SwitchCall> calls = take_calls();
    EXPECT_THAT(texts_of(calls), ElementsAre("Undeclare(990)"));
    EXPECT_THAT(calls.at(0).texts, ElementsAre(producer.address().path));
    event_switch.call(producer.address(), "com.vemo.Event.Producer.DeclarationComplete", 99u, 991u);
    calls = take_calls();
    EXPECT_THAT(texts_of(calls), ElementsAre("Undeclare(991)"));
    EXPECT_THAT(calls.at(0).texts, ElementsAre(producer.address().path));
}

TEST_F(ProducerDeclarationTest, SubscriptionsForUnknownOnesAreIgnored)
{
    subscribe(99, subscription(7, 9));
    unsubscribe(99, 7);
    refresh(99, 7);
    EXPECT_THAT(take_sent(), IsEmpty());
    EXPECT_THAT(changes, IsEmpty());
}

TEST_F(ProducerDeclarationTest, AReleasedOneIsGoneAtOnceAndUndeclaredByItsGlobalId)
{
    declare(1);
    make_known(1);
    Owned<event> event = new_event(1, "on");
    take_sent();
    decl_data *record = producer_release_declare_id(producer, 1);
    ASSERT_NE(record, nullptr);
    EXPECT_FALSE(producer_declaration_complete(producer, 1));
    EXPECT_EQ(producer_prepare_event(producer, 1), nullptr);
    GError *error = nullptr;
    EXPECT_FALSE(producer_send_event(producer, event.get(), &error));
    EXPECT_EQ(take_text(error),
              "event-error-quark 4 The local declare id of the event is not registered.");
    EXPECT_EQ(producer_release_declare_id(producer, 1), nullptr);
    EXPECT_THAT(take_sent(), IsEmpty());
    producer_send_undeclare(producer, record);
    std::vector<SwitchCall> calls = take_calls();
    EXPECT_THAT(texts_of(calls), ElementsAre("Undeclare(10)"));
    EXPECT_THAT(calls.at(0).texts, ElementsAre(producer.address().path));
}

TEST_F(ProducerDeclarationTest, WithoutAGlobalIdNothingIsUndeclared)
{
    declare(1);
    release(1);
    EXPECT_THAT(take_sent(), ElementsAre("Declare()"));
}

// Completion.

struct Completion {
    static void take(guint32 id, gpointer self)
    {
        auto *completion = static_cast<Completion *>(self);
        completion->ids.push_back(id);
        if (completion->on_complete)
            completion->on_complete();
    }
    std::vector<guint32> ids;
    std::function<void()> on_complete;
};

class ProducerCompletionTest : public ConnectedProducerTest {
protected:
    ProducerCompletionTest()
    {
        producer_allocate_decl_data(producer, 1, new_declaration("Device").release(),
                                    Completion::take, &completion);
        producer_send_declare(producer, 1);
        take_sent();
    }
    void complete(guint32 id)
    {
        event_switch.call(producer.address(), "com.vemo.Event.Producer.DeclarationComplete", id,
                          10 * id);
    }

    Completion completion;
};

TEST_F(ProducerCompletionTest, IsToldOnce)
{
    make_known(1);
    EXPECT_THAT(completion.ids, IsEmpty());
    complete(1);
    EXPECT_THAT(completion.ids, ElementsAre(1));
    complete(1);
    EXPECT_THAT(completion.ids, ElementsAre(1));
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerCompletionTest, NeedsNoFunction)
{
    declare(2);
    complete(2);
    EXPECT_THAT(take_sent(), ElementsAre("Declare()"));
}

TEST_F(ProducerCompletionTest, IsForgottenOnlyAfterItWasTold)
{
    completion.on_complete = [&] {
        completion.on_complete = nullptr;
        producer_receive_declaration_complete(producer, 1, 10);
    };
    complete(1);
    EXPECT_THAT(completion.ids, ElementsAre(1, 1));
    complete(1);
    EXPECT_THAT(completion.ids, ElementsAre(1, 1));
}

TEST_F(ProducerCompletionTest, ItsFunctionMaySendAndDeclareAnother)
{
    make_known(1);
    completion.on_complete = [&] {
        send(1, "on");
        declare(2);
    };
    complete(1);
    EXPECT_THAT(take_sent(), ElementsAre("Declare()"));
    EXPECT_FALSE(producer_declaration_complete(producer, 2));
}

TEST_F(ProducerCompletionTest, ItsFunctionMayUndeclare)
{
    make_known(1);
    completion.on_complete = [&] { release(1); };
    complete(1);
    EXPECT_THAT(completion.ids, ElementsAre(1));
    EXPECT_THAT(take_sent(), ElementsAre("Undeclare(10)"));
    complete(1);
    EXPECT_THAT(completion.ids, ElementsAre(1));
    EXPECT_THAT(take_sent(), ElementsAre("Undeclare(10)"));
}

TEST_F(ProducerCompletionTest, ItsFunctionMayUndeclareAndDeclareAnewUnderTheSameId)
{
    Completion second;
    completion.on_complete = [&] {
        release(1);
        producer_allocate_decl_data(producer, 1, new_declaration("Device").release(), nullptr,
                                    nullptr);
    };
    complete(1);
    EXPECT_THAT(completion.ids, ElementsAre(1));
    complete(1);
    EXPECT_THAT(completion.ids, ElementsAre(1)) << "the new declaration has no function";
}

TEST_F(ProducerCompletionTest, OfAReleasedDeclarationIsNotTold)
{
    release(1);
    complete(1);
    EXPECT_THAT(completion.ids, IsEmpty());
    EXPECT_THAT(take_sent(), ElementsAre("Undeclare(10)"));
}

// Types.

struct TypeOutcome {
    static void take(const gchar *type, gpointer self, GError *error)
    {
        auto *outcome = static_cast<TypeOutcome *>(self);
        outcome->texts.push_back(std::string(type) + ": " + take_text(error));
        if (outcome->on_outcome)
            outcome->on_outcome();
    }
    bool wait(std::size_t count = 1) const
    {
        return wait_until([&] { return texts.size() == count; });
    }
    std::vector<std::string> texts;
    std::function<void()> on_outcome;
};

TEST_F(ProducerTypeTest, AreAddedAndRemoved)
{
    TypeOutcome outcome;
    Owned<event_declaration> declaration = new_declaration("Device");
    producer_add_declaration(producer, "the.type", declaration.get(), TypeOutcome::take, &outcome);
    EXPECT_TRUE(outcome.wait());
    producer_remove_declaration(producer, "the.type", TypeOutcome::take, &outcome);
    EXPECT_TRUE(outcome.wait(2));
    EXPECT_THAT(outcome.texts, ElementsAre("the.type: none", "the.type: none"));

    std::vector<SwitchCall> calls = take_calls();
    ASSERT_THAT(texts_of(calls), ElementsAre("AddDeclaration()", "RemoveDeclaration()"));
    EXPECT_THAT(calls[0].texts, ElementsAre("the.type"));
    EXPECT_EQ(calls[0].bytes, take_bytes(event_declaration_serialize(declaration.get())));
    EXPECT_THAT(calls[1].texts, ElementsAre("the.type"));
}

TEST_F(ProducerTypeTest, AnErrorIsToldWithItsErrno)
{
    TypeOutcome outcome;
    event_switch.answer("AddDeclaration", {.error = SD_BUS_ERROR_FILE_EXISTS, .text = "is there"});
    event_switch.answer("RemoveDeclaration",
                        {.error = SD_BUS_ERROR_FILE_NOT_FOUND, .text = "is not there"});
    producer_add_declaration(producer, "a", new_declaration("Device").get(), TypeOutcome::take,
                             &outcome);
    EXPECT_TRUE(outcome.wait(1));
    producer_remove_declaration(producer, "b", TypeOutcome::take, &outcome);
    EXPECT_TRUE(outcome.wait(2));
    EXPECT_THAT(outcome.texts, ElementsAre("a: libqandor 17 Failed to add/remove declaration",
                                           "b: libqandor 2 Failed to add/remove declaration"));
}

TEST_F(ProducerTypeTest, WithoutASwitchTheyFail)
{
    event_switch.leave();
    TypeOutcome outcome;
    producer_remove_declaration(producer, "a", TypeOutcome::take, &outcome);
    EXPECT_TRUE(outcome.wait());
    EXPECT_THAT(outcome.texts, ElementsAre("a: libqandor 113 Failed to add/remove declaration"));
}

TEST_F(ProducerTypeTest, NeedNoFunction)
{
    event_switch.answer("RemoveDeclaration",
                        {.error = SD_BUS_ERROR_FILE_NOT_FOUND, .text = "is not there"});
    TypeOutcome outcome;
    producer_add_declaration(producer, "a", new_declaration("Device").get(), nullptr, nullptr);
    producer_remove_declaration(producer, "a", nullptr, nullptr);
    producer_remove_declaration(producer, "a", TypeOutcome::take, &outcome);
    EXPECT_TRUE(outcome.wait());
    EXPECT_EQ(take_sent().size(), 3u);
}

TEST_F(ProducerTypeTest, AreToldOfWithoutTheLock)
{
    TypeOutcome outcome;
    bool complete = true;
    outcome.on_outcome = [&] {
        std::thread other([&] { complete = producer_declaration_complete(producer, 1); });
        other.join();
    };
    producer_remove_declaration(producer, "a", TypeOutcome::take, &outcome);
    EXPECT_TRUE(outcome.wait());
    EXPECT_FALSE(complete);
}

} // namespace
