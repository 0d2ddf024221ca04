// SPDX-License-Identifier: LGPL-2.1-or-later

// The calls to the switch and to consumers, as they are on the wire.

#include "support/busseam.hpp"
#include "support/fakeswitch.hpp"
#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "unit/messages/criticals.hpp"

#include <qandor/busconnection.h>
#include <qandor/consumerbusclient.h>
#include <qandor/switchbusclient.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

using namespace qandor;
using namespace qandor::test;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr guint64 minute = 60000000;
constexpr const char *producer_interface = "com.vemo.Event.Switch.Producer";
constexpr const char *consumer_interface = "com.vemo.Event.Switch.Consumer";
constexpr const char *query_interface = "com.vemo.Event.Switch.Query";

const guint8 bytes[] = {0x07, 0x00, 0xff, 0x80};
const std::string bytes_sent("\x07\x00\xff\x80", 4);

// What callbacks were told.
struct Answers {
    std::vector<std::string> errors; // their names, "" for an answer that is none

    static int receive(sd_bus_message *reply, void *self, sd_bus_error *)
    {
        const sd_bus_error *error = sd_bus_message_get_error(reply);
        static_cast<Answers *>(self)->errors.emplace_back(error ? error->name : "");
        return 0;
    }
};

class SwitchStubsTest : public testing::Test {
protected:
    SwitchStubsTest()
    {
        GError *error = nullptr;
        connect_to_bus_and_attach_events(&source, &bus, &error);
    }
    ~SwitchStubsTest() override { disconnect_from_bus_and_detach_events(source, bus); }

    // The one call that the switch was given, once it is answered.
    SwitchCall sent()
    {
        EXPECT_TRUE(wait_until([&] { return answers.errors.size() == 1; }));
        EXPECT_THAT(answers.errors, ElementsAre(""));
        answers.errors.clear();
        std::vector<SwitchCall> calls = event_switch.take();
        EXPECT_EQ(calls.size(), 1u);
        if (calls.empty())
            return {};
        EXPECT_TRUE(calls[0].wants_answer);
        return calls[0];
    }
    static void expect_method(const SwitchCall &call, const char *interface, const char *member,
                              const char *signature)
    {
        EXPECT_EQ(call.path, "/com/vemo/Event/Switch");
        EXPECT_EQ(call.interface, interface);
        EXPECT_EQ(call.member, member);
        EXPECT_EQ(call.signature, signature);
    }
    // Every asynchronous call once.
    void call_all(sd_bus *on)
    {
        auto *take = Answers::receive;
        com_vemo_Event_Switch_Producer_declare_async(on, "/o", "n", bytes, 4, take, &answers);
        com_vemo_Event_Switch_Producer_undeclare_async(on, "/o", 1, take, &answers);
        com_vemo_Event_Switch_Producer_add_declaration_async(on, "t", bytes, 4, take, &answers);
        com_vemo_Event_Switch_Producer_remove_declaration_async(on, "t", take, &answers);
        com_vemo_Event_Switch_Producer_disconnect_async(on, "/o", take, &answers);
        com_vemo_Event_Switch_Consumer_subscribe_async(on, "/o", "n", 1, bytes, 4, take, &answers);
        com_vemo_Event_Switch_Consumer_unsubscribe_async(on, "/o", 1, take, &answers);
        com_vemo_Event_Switch_Consumer_refresh_property_async(on, "/o", 1, take, &answers);
        com_vemo_Event_Switch_Consumer_disconnect_async(on, "/o", take, &answers);
        com_vemo_Event_Consumer_event_async_(on, event_switch.unique_name().c_str(), "/c", bytes, 4,
                                             1, take, &answers);
    }
    static constexpr std::size_t stubs = 10;

    PrivateBus private_bus;
    FakeSwitch event_switch;
    GSource *source = nullptr;
    sd_bus *bus = nullptr;
    Answers answers;
};

using SwitchStubsDeathTest = SwitchStubsTest;

TEST_F(SwitchStubsTest, Declare)
{
    com_vemo_Event_Switch_Producer_declare_async(bus, "/the/object", "the name", bytes, 4,
                                                 Answers::receive, &answers);
    SwitchCall call = sent();
    expect_method(call, producer_interface, "Declare", "ssay");
    EXPECT_THAT(call.texts, ElementsAre("/the/object", "the name"));
    EXPECT_EQ(call.bytes, bytes_sent);
}

TEST_F(SwitchStubsTest, Undeclare)
{
    com_vemo_Event_Switch_Producer_undeclare_async(bus, "/the/object", 4294967295, Answers::receive,
                                                   &answers);
    SwitchCall call = sent();
    expect_method(call, producer_interface, "Undeclare", "su");
    EXPECT_THAT(call.texts, ElementsAre("/the/object"));
    EXPECT_THAT(call.numbers, ElementsAre(4294967295));
}

TEST_F(SwitchStubsTest, AddDeclaration)
{
    com_vemo_Event_Switch_Producer_add_declaration_async(bus, "the.type", bytes, 4,
                                                         Answers::receive, &answers);
    SwitchCall call = sent();
    expect_method(call, producer_interface, "AddDeclaration", "say");
    EXPECT_THAT(call.texts, ElementsAre("the.type"));
    EXPECT_EQ(call.bytes, bytes_sent);
}

TEST_F(SwitchStubsTest, RemoveDeclaration)
{
    com_vemo_Event_Switch_Producer_remove_declaration_async(bus, "the.type", Answers::receive,
                                                            &answers);
    SwitchCall call = sent();
    expect_method(call, producer_interface, "RemoveDeclaration", "s");
    EXPECT_THAT(call.texts, ElementsAre("the.type"));
}

TEST_F(SwitchStubsTest, ProducerDisconnect)
{
    com_vemo_Event_Switch_Producer_disconnect_async(bus, "/the/object", Answers::receive, &answers);
    SwitchCall call = sent();
    expect_method(call, producer_interface, "Disconnect", "s");
    EXPECT_THAT(call.texts, ElementsAre("/the/object"));
}

TEST_F(SwitchStubsTest, Subscribe)
{
    com_vemo_Event_Switch_Consumer_subscribe_async(bus, "/the/object", "the name", 9, bytes, 4,
                                                   Answers::receive, &answers);
    SwitchCall call = sent();
    expect_method(call, consumer_interface, "Subscribe", "ssuay");
    EXPECT_THAT(call.texts, ElementsAre("/the/object", "the name"));
    EXPECT_THAT(call.numbers, ElementsAre(9));
    EXPECT_EQ(call.bytes, bytes_sent);
}

TEST_F(SwitchStubsTest, Unsubscribe)
{
    com_vemo_Event_Switch_Consumer_unsubscribe_async(bus, "/the/object", 9, Answers::receive,
                                                     &answers);
    SwitchCall call = sent();
    expect_method(call, consumer_interface, "Unsubscribe", "su");
    EXPECT_THAT(call.texts, ElementsAre("/the/object"));
    EXPECT_THAT(call.numbers, ElementsAre(9));
}

TEST_F(SwitchStubsTest, RefreshProperty)
{
    com_vemo_Event_Switch_Consumer_refresh_property_async(bus, "/the/object", 9, Answers::receive,
                                                          &answers);
    SwitchCall call = sent();
    expect_method(call, consumer_interface, "RefreshProperty", "su");
    EXPECT_THAT(call.texts, ElementsAre("/the/object"));
    EXPECT_THAT(call.numbers, ElementsAre(9));
}

TEST_F(SwitchStubsTest, ConsumerDisconnect)
{
    com_vemo_Event_Switch_Consumer_disconnect_async(bus, "/the/object", Answers::receive, &answers);
    SwitchCall call = sent();
    expect_method(call, consumer_interface, "Disconnect", "s");
    EXPECT_THAT(call.texts, ElementsAre("/the/object"));
}

TEST_F(SwitchStubsTest, AnEventGoesToTheConsumerAndNotToTheSwitch)
{
    FakeSwitch consumer(FakeSwitch::Name::NotTaken);
    com_vemo_Event_Consumer_event_async_(bus, consumer.unique_name().c_str(), "/the/consumer",
                                         bytes, 4, 9, Answers::receive, &answers);
    EXPECT_TRUE(wait_until([&] { return answers.errors.size() == 1; }));
    EXPECT_THAT(event_switch.calls(), IsEmpty());
    ASSERT_EQ(consumer.calls().size(), 1u);
    SwitchCall call = consumer.calls()[0];
    EXPECT_EQ(call.path, "/the/consumer");
    EXPECT_EQ(call.interface, "com.vemo.Event.Consumer");
    EXPECT_EQ(call.member, "Event");
    EXPECT_EQ(call.signature, "ayu");
    EXPECT_EQ(call.bytes, bytes_sent);
    EXPECT_THAT(call.numbers, ElementsAre(9));
    EXPECT_TRUE(call.wants_answer);
}

TEST_F(SwitchStubsTest, ArraysWithoutBytesAreSentAsSuch)
{
    auto *take = Answers::receive;
    com_vemo_Event_Switch_Producer_declare_async(bus, "/o", "n", nullptr, 0, take, &answers);
    EXPECT_EQ(sent().bytes, "");
    com_vemo_Event_Switch_Producer_add_declaration_async(bus, "t", nullptr, 0, take, &answers);
    EXPECT_EQ(sent().bytes, "");
    com_vemo_Event_Switch_Consumer_subscribe_async(bus, "/o", "n", 1, bytes, 0, take, &answers);
    SwitchCall call = sent();
    EXPECT_EQ(call.signature, "ssuay");
    EXPECT_EQ(call.bytes, "");
    com_vemo_Event_Consumer_event_async_(bus, event_switch.unique_name().c_str(), "/c", bytes, 0, 1,
                                         take, &answers);
    call = sent();
    EXPECT_EQ(call.signature, "ayu");
    EXPECT_EQ(call.bytes, "");
}

// The bus takes such a call for one to itself.
TEST_F(SwitchStubsTest, AnEventsDestinationIsNotChecked)
{
    com_vemo_Event_Consumer_event_async_(bus, nullptr, "/consumer", bytes, 4, 1, Answers::receive,
                                         &answers);
    EXPECT_TRUE(wait_until([&] { return answers.errors.size() == 1; }));
    EXPECT_NE(answers.errors[0], "");
}

TEST_F(SwitchStubsTest, AnErrorReachesTheCallback)
{
    event_switch.answer("Undeclare", {.error = "com.vemo.Refused", .text = "no"});
    com_vemo_Event_Switch_Producer_undeclare_async(bus, "/o", 1, Answers::receive, &answers);
    EXPECT_TRUE(wait_until([&] { return answers.errors.size() == 1; }));
    EXPECT_THAT(answers.errors, ElementsAre("com.vemo.Refused"));
}

TEST_F(SwitchStubsTest, EveryCallThatWaitsDoesSoForAMinute)
{
    BusSeam seam;
    call_all(bus);
    EXPECT_TRUE(wait_until([&] { return answers.errors.size() == stubs; }));
    EXPECT_THAT(seam.timeouts, AllOf(SizeIs(stubs), Each(G_MAXUINT64)))
        << "the window keeps the time: a late answer is still received";
    seam.timeouts.clear();
    guint8 *data = nullptr;
    gsize length = 0;
    sd_bus_message *reply = nullptr;
    event_switch.answer("GetPropertyState", {.bytes = bytes_sent});
    event_switch.answer("GetAllDeclarations", {.bytes = bytes_sent});
    com_vemo_Event_Switch_Consumer_get_property_state(bus, bytes, 4, nullptr, &data, &length);
    g_free(data);
    com_vemo_Event_Switch_Query_get_all_declarations(bus, nullptr, &data, &length);
    g_free(data);
    com_vemo_Event_Switch_Query_get_declaration_types(bus, nullptr, &reply);
    sd_bus_message_unref(reply);
    EXPECT_THAT(seam.timeouts, AllOf(SizeIs(3), Each(minute)));
}

TEST_F(SwitchStubsTest, AnAnswerThatDoesNotComeInTimeIsAnErrorForTheCallback)
{
    event_switch.answer("Undeclare", {.withheld = true});
    BusSeam seam;
    seam.timeout = 50000;
    com_vemo_Event_Switch_Producer_undeclare_async(bus, "/o", 1, Answers::receive, &answers);
    EXPECT_TRUE(wait_until([&] { return answers.errors.size() == 1; }));
    EXPECT_EQ(seam.timeouts.size(), 1u);
    EXPECT_THAT(answers.errors, ElementsAre(SD_BUS_ERROR_NO_REPLY));
    EXPECT_EQ(event_switch.count("Undeclare"), 1u);
}

TEST_F(SwitchStubsTest, OnlyWhatMeansSomethingToANewSwitchMayStartOne)
{
    call_all(bus);
    EXPECT_TRUE(wait_until([&] { return answers.errors.size() == stubs; }));
    std::set<std::string> starting;
    for (const SwitchCall &call : event_switch.take())
        if (call.may_start)
            starting.insert(call.member);
    EXPECT_THAT(starting, ElementsAre("AddDeclaration", "Declare", "Event", "RemoveDeclaration",
                                      "Subscribe"));
}

const char *const full_names[] = {
    "com.vemo.Event.Switch.Producer.Declare",
    "com.vemo.Event.Switch.Producer.Undeclare",
    "com.vemo.Event.Switch.Producer.AddDeclaration",
    "com.vemo.Event.Switch.Producer.RemoveDeclaration",
    "com.vemo.Event.Switch.Producer.Disconnect",
    "com.vemo.Event.Switch.Consumer.Subscribe",
    "com.vemo.Event.Switch.Consumer.Unsubscribe",
    "com.vemo.Event.Switch.Consumer.RefreshProperty",
    "com.vemo.Event.Switch.Consumer.Disconnect",
    "com.vemo.Event.Consumer.Event",
};

std::vector<std::string> failures_with(int result)
{
    std::vector<std::string> texts;
    for (const char *name : full_names)
        texts.push_back(std::string("Failed to call ") + name + ": " + std::to_string(result));
    return texts;
}

TEST_F(SwitchStubsTest, ACallThatCannotBeSentIsAWarningAndItsCallbackNeverRuns)
{
    sd_bus_close(bus);
    LogCapture log;
    call_all(bus);
    EXPECT_EQ(log.warnings(), failures_with(-ENOTCONN));
    run_pending();
    EXPECT_THAT(answers.errors, IsEmpty());
}

TEST_F(SwitchStubsTest, TheSameHoldsForAConnectionThatTheLibraryHasNotMade)
{
    sd_bus *own = nullptr;
    ASSERT_GE(sd_bus_open_system(&own), 0);
    BusSeam seam;
    call_all(own);
    EXPECT_THAT(seam.timeouts, AllOf(SizeIs(stubs), Each(minute)));
    EXPECT_TRUE(wait_until([&] {
        while (sd_bus_process(own, nullptr) > 0) {
        }
        return answers.errors.size() == stubs;
    }));
    EXPECT_EQ(event_switch.calls().size(), stubs);

    sd_bus_close(own);
    LogCapture log;
    call_all(own);
    EXPECT_EQ(log.warnings(), failures_with(-ENOTCONN));
    EXPECT_EQ(answers.errors.size(), stubs);
    sd_bus_unref(own);
}

TEST_F(SwitchStubsTest, ANullArgumentIsACriticalThatNamesIt)
{
#define EXPECT_STUB_REFUSAL(stub, condition, ...)                                                  \
    EXPECT_VOID_REFUSAL(stub, (__VA_ARGS__, Answers::receive, nullptr), condition)
    constexpr sd_bus *no_bus = nullptr;
    constexpr const char *none = nullptr;
    constexpr const guint8 *nothing = nullptr;

    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_declare_async, "bus != NULL", no_bus, "/o",
                        "n", bytes, 4);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_declare_async, "object != NULL", bus, none,
                        "n", bytes, 4);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_declare_async, "name != NULL", bus, "/o",
                        none, bytes, 4);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_undeclare_async, "bus != NULL", no_bus, "/o",
                        1);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_undeclare_async, "object != NULL", bus, none,
                        1);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_add_declaration_async, "bus != NULL", no_bus,
                        "t", bytes, 4);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_add_declaration_async, "type != NULL", bus,
                        none, bytes, 4);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_remove_declaration_async, "bus != NULL",
                        no_bus, "t");
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_remove_declaration_async, "type != NULL",
                        bus, none);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_disconnect_async, "bus != NULL", no_bus,
                        "/o");
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Producer_disconnect_async, "object != NULL", bus,
                        none);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Consumer_subscribe_async, "bus != NULL", no_bus, "/o",
                        "n", 1, bytes, 4);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Consumer_subscribe_async, "object != NULL", bus, none,
                        "n", 1, bytes, 4);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Consumer_subscribe_async, "name != NULL", bus, "/o",
                        none, 1, bytes, 4);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Consumer_subscribe_async,
                        "subscribe_expression_data != NULL", bus, "/o", "n", 1, nothing, 0);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Consumer_unsubscribe_async, "bus != NULL", no_bus,
                        "/o", 1);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Consumer_unsubscribe_async, "object != NULL", bus,
                        none, 1);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Consumer_refresh_property_async, "bus != NULL",
                        no_bus, "/o", 1);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Consumer_refresh_property_async, "object != NULL",
                        bus, none, 1);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Consumer_disconnect_async, "bus != NULL", no_bus,
                        "/o");
    EXPECT_STUB_REFUSAL(com_vemo_Event_Switch_Consumer_disconnect_async, "object != NULL", bus,
                        none);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Consumer_event_async_, "bus != NULL", no_bus, ":1.1", "/c",
                        bytes, 4, 1);
    EXPECT_STUB_REFUSAL(com_vemo_Event_Consumer_event_async_, "event != NULL", bus, ":1.1", "/c",
                        nothing, 0, 1);
#undef EXPECT_STUB_REFUSAL
    // Nothing was sent: the first call that the switch gets is this one.
    com_vemo_Event_Switch_Producer_undeclare_async(bus, "/o", 1, Answers::receive, &answers);
    EXPECT_EQ(sent().member, "Undeclare");
}

// The connections that a death test's child makes for itself.

sd_bus *open_bare()
{
    sd_bus *own = nullptr;
    sd_bus_open_system(&own);
    return own;
}

sd_bus *open_from_the_main_loop()
{
    GSource *source = nullptr;
    sd_bus *own = nullptr;
    connect_to_bus_and_attach_events(&source, &own, nullptr);
    return own;
}

TEST_F(SwitchStubsDeathTest, ACallThatCannotBeBuiltEndsTheProcess)
{
    auto *take = Answers::receive;
    for (auto open : {open_bare, open_from_the_main_loop}) {
        auto declare = [&](const guint8 *data) {
            com_vemo_Event_Switch_Producer_declare_async(open(), "/o", "n", data, 4, take, nullptr);
        };
        auto remove = [&](const char *type) {
            com_vemo_Event_Switch_Producer_remove_declaration_async(open(), type, take, nullptr);
        };
        auto deliver = [&](const char *name, const char *path) {
            com_vemo_Event_Consumer_event_async_(open(), name, path, bytes, 4, 1, take, nullptr);
        };
        EXPECT_DEATH(
            declare(nullptr),
            "com_vemo_Event_Switch_Producer_declare_async: assertion failed: \\(r >= 0\\)");
        EXPECT_DEATH(remove("\xff"), "com_vemo_Event_Switch_Producer_remove_declaration_async: "
                                     "assertion failed: \\(r >= 0\\)");
        EXPECT_DEATH(deliver(":1.1", "no path"),
                     "com_vemo_Event_Consumer_event_async_: assertion failed: \\(r >= 0\\)");
        EXPECT_DEATH(deliver(":1.1", nullptr),
                     "com_vemo_Event_Consumer_event_async_: assertion failed: \\(r >= 0\\)");
        EXPECT_DEATH(deliver("no name", "/c"),
                     "com_vemo_Event_Consumer_event_async_: assertion failed: \\(r >= 0\\)");
    }
}

// The calls that wait.

class SwitchQuestionsTest : public SwitchStubsTest {
protected:
    int ask_state() { return get_state(bus); }
    int get_state(sd_bus *on)
    {
        return com_vemo_Event_Switch_Consumer_get_property_state(on, bytes, 4, error.get(), &data,
                                                                 &length);
    }
    int get_all(sd_bus *on)
    {
        return com_vemo_Event_Switch_Query_get_all_declarations(on, error.get(), &data, &length);
    }
    std::string take_data()
    {
        BytesOwner owner(std::exchange(data, nullptr));
        return {reinterpret_cast<const char *>(owner.get()), length};
    }

    BusError error;
    guint8 *data = nullptr;
    gsize length = 0;
};

using SwitchQuestionsDeathTest = SwitchQuestionsTest;

TEST_F(SwitchQuestionsTest, GetPropertyState)
{
    event_switch.answer("GetPropertyState", {.bytes = std::string("\0state", 6)});
    EXPECT_GE(ask_state(), 0);
    EXPECT_EQ(take_data(), std::string("\0state", 6));
    SwitchCall call = event_switch.calls().at(0);
    expect_method(call, consumer_interface, "GetPropertyState", "ay");
    EXPECT_EQ(call.bytes, bytes_sent);
}

TEST_F(SwitchQuestionsTest, AStateThatCannotBeHadIsTheSwitchsErrorAndNothingIsWritten)
{
    event_switch.answer("GetPropertyState", {.error = "com.vemo.Refused", .text = "none known"});
    EXPECT_LT(ask_state(), 0);
    EXPECT_STREQ(error.get()->name, "com.vemo.Refused");
    EXPECT_STREQ(error.message(), "none known");
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0u);
}

TEST_F(SwitchQuestionsTest, AStateIsAskedForWithABusAndAnExpression)
{
    LogCapture log;
    EXPECT_EQ(get_state(nullptr), -1);
    EXPECT_EQ(com_vemo_Event_Switch_Consumer_get_property_state(bus, nullptr, 0, error.get(), &data,
                                                                &length),
              -1);
    const char *text = "Assertion failed 'bus == NULL || subscribe_expression_data == NULL'";
    EXPECT_THAT(log.criticals(), ElementsAre(text, text));
    EXPECT_THAT(event_switch.calls(), IsEmpty());
}

TEST_F(SwitchQuestionsDeathTest, AnEmptyOrUnreadableStateEndsTheProcess)
{
    event_switch.answer("GetPropertyState", {.bytes = ""});
    EXPECT_DEATH(get_state(open_bare()), "'dest' should not be NULL");
    event_switch.answer("GetPropertyState", {.text = "no bytes"});
    EXPECT_DEATH(get_state(open_bare()), "assertion failed: \\(r >= 0\\)");
    event_switch.answer("GetPropertyState", {});
    EXPECT_DEATH(get_state(open_bare()), "assertion failed: \\(r >= 0\\)");
}

TEST_F(SwitchQuestionsTest, GetAllDeclarations)
{
    event_switch.answer("GetAllDeclarations", {.bytes = bytes_sent});
    EXPECT_GE(get_all(bus), 0);
    EXPECT_EQ(take_data(), bytes_sent);
    expect_method(event_switch.calls().at(0), query_interface, "GetAllDeclarations", "");
    event_switch.answer("GetAllDeclarations", {.bytes = ""});
    EXPECT_GE(get_all(bus), 0);
    EXPECT_EQ(length, 0u);
    g_free(data);
}

TEST_F(SwitchQuestionsTest, QueriesWantABus)
{
    LogCapture log;
    sd_bus_message *reply = nullptr;
    EXPECT_EQ(get_all(nullptr), -1);
    EXPECT_EQ(com_vemo_Event_Switch_Query_get_declaration_types(nullptr, error.get(), &reply), -1);
    EXPECT_EQ(reply, nullptr);
    EXPECT_THAT(log.criticals(),
                ElementsAre("Assertion failed 'bus == NULL'", "Assertion failed 'bus == NULL'"));
}

TEST_F(SwitchQuestionsDeathTest, DeclarationsThatCannotBeHadEndTheProcess)
{
    event_switch.answer("GetAllDeclarations", {.error = "com.vemo.Refused", .text = "no"});
    EXPECT_DEATH(get_all(open_bare()), "assertion failed: \\(r >= 0\\)");
    event_switch.answer("GetAllDeclarations", {.text = "no bytes"});
    EXPECT_DEATH(get_all(open_bare()), "assertion failed: \\(r >= 0\\)");
    event_switch.leave();
    EXPECT_DEATH(get_all(open_bare()), "assertion failed: \\(r >= 0\\)");
}

TEST_F(SwitchQuestionsTest, GetDeclarationTypes)
{
    event_switch.answer("GetDeclarationTypes", {.bytes = bytes_sent});
    sd_bus_message *made = nullptr;
    ASSERT_GE(com_vemo_Event_Switch_Query_get_declaration_types(bus, error.get(), &made), 0);
    BusMessageOwner reply(made);
    const void *array = nullptr;
    size_t size = 0;
    ASSERT_GE(sd_bus_message_read_array(made, 'y', &array, &size), 0);
    EXPECT_EQ(std::string(static_cast<const char *>(array), size), bytes_sent);
    expect_method(event_switch.calls().at(0), query_interface, "GetDeclarationTypes", "");
}

TEST_F(SwitchQuestionsTest, DeclarationTypesThatCannotBeHadAreAnError)
{
    event_switch.leave();
    sd_bus_message *reply = nullptr;
    EXPECT_LT(com_vemo_Event_Switch_Query_get_declaration_types(bus, error.get(), &reply), 0);
    EXPECT_STREQ(error.get()->name, SD_BUS_ERROR_SERVICE_UNKNOWN);
    EXPECT_EQ(reply, nullptr);
}

} // namespace
