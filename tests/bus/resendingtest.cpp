// SPDX-License-Identifier: LGPL-2.1-or-later

// Declarations and subscriptions that did not reach the switch, because the bus or the process
// itself could not pass them on.

#include "bus/busobjects.hpp"
#include "support/busseam.hpp"
#include "support/logcapture.hpp"
#include "support/privatebus.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

void ignore_event(event *event, gpointer)
{
    event_free(event);
}

// A producer and a consumer with some declarations and subscriptions each.
struct Pair {
    BusObject<Producer> producer{producer_new("producer", nullptr, nullptr)};
    BusObject<Consumer> consumer{consumer_new("consumer")};

    void announce(guint32 count)
    {
        producer.connect(producer_init_dbus);
        consumer.connect(consumer_init_dbus);
        for (guint32 id = 1; id <= count; ++id) {
            producer_allocate_decl_data(producer, id, new_declaration("Device").release(), nullptr,
                                        nullptr);
            producer_send_declare(producer, id);
            subscribe(id);
        }
    }
    void subscribe(guint32 token)
    {
        consumer_prepare_subscribe(consumer, token, new_expression("Device").get(),
                                   G_CALLBACK(ignore_event), nullptr, nullptr,
                                   SUBSCRIPTION_TYPE_NORMAL);
        consumer_send_subscribe(consumer, token);
    }
};

// Whether the switch has been told so many declarations and subscriptions, each of them once.
bool has_all(const FakeSwitch &event_switch, std::size_t count)
{
    return event_switch.count("Declare") == count && event_switch.count("Subscribe") == count;
}

TEST(Resending, WhatTheBusRefusesForItsLimitsIsSentAgain)
{
    PrivateBus private_bus(chosen_bus(), "<limit name='max_replies_per_connection'>2</limit>");
    LogCapture log;
    FakeSwitch event_switch;
    Pair pair;
    pair.announce(10);
    EXPECT_TRUE(wait_until([&] { return has_all(event_switch, 10); }));
    EXPECT_THAT(log.criticals(), IsEmpty());
}

void take_back_all(const Pair &pair, guint32 count)
{
    for (guint32 id = 1; id <= count; ++id) {
        producer_receive_global_declare_id(pair.producer, id, 100 + id, 1);
        producer_send_undeclare(pair.producer, producer_release_declare_id(pair.producer, id));
        consumer_send_unsubscribe(pair.consumer,
                                  consumer_send_unsubscribe_prepare(pair.consumer, id));
    }
}

TEST(Resending, WhatTheBusRefusesToTakeBackIsTakenBackLater)
{
    PrivateBus private_bus(chosen_bus(), "<limit name='max_replies_per_connection'>2</limit>");
    LogCapture log;
    FakeSwitch event_switch;
    Pair pair;
    pair.announce(10);
    ASSERT_TRUE(wait_until([&] { return has_all(event_switch, 10); }));
    take_back_all(pair, 10);
    EXPECT_TRUE(wait_until([&] {
        return event_switch.count("Undeclare") == 10 && event_switch.count("Unsubscribe") == 10;
    }));
    EXPECT_THAT(log.criticals(), IsEmpty());
}

TEST(Resending, WhatCannotBeTakenBackNowIsTakenBackLater)
{
    PrivateBus private_bus;
    LogCapture log;
    FakeSwitch event_switch;
    Pair pair;
    pair.announce(2);
    ASSERT_TRUE(wait_until([&] { return has_all(event_switch, 2); }));
    BusSeam seam;
    for (int i = 0; i < 4; ++i)
        seam.fail("sd_bus_call_async", -ENOBUFS);
    take_back_all(pair, 2);
    EXPECT_TRUE(wait_until([&] {
        return event_switch.count("Undeclare") == 2 && event_switch.count("Unsubscribe") == 2;
    }));
    EXPECT_THAT(log.warnings(),
                ElementsAre("Failed to call com.vemo.Event.Switch.Producer.Undeclare: -105",
                            "Failed to call com.vemo.Event.Switch.Consumer.Unsubscribe: -105"));
}

// Otherwise the switch would take the late Unsubscribe for one of the new subscription.
TEST(Resending, ATokenIsUsedAgainWhenTheSwitchHasForgottenIt)
{
    PrivateBus private_bus;
    LogCapture log;
    FakeSwitch event_switch;
    Pair pair;
    pair.announce(1);
    ASSERT_TRUE(wait_until([&] { return has_all(event_switch, 1); }));
    event_switch.take();
    BusSeam seam;
    seam.fail("sd_bus_call_async", -ENOBUFS);
    consumer_send_unsubscribe(pair.consumer, consumer_send_unsubscribe_prepare(pair.consumer, 1));
    pair.subscribe(1);
    EXPECT_TRUE(wait_until([&] { return event_switch.count("Subscribe") == 2; }));
    std::vector<std::string> members;
    for (const SwitchCall &call : event_switch.take())
        members.push_back(call.member);
    EXPECT_THAT(members, ElementsAre("Unsubscribe", "Subscribe"));
}

TEST(Resending, ASwitchThatComesIsNotToldToForgetWhatItHasNeverKnown)
{
    PrivateBus private_bus;
    LogCapture log;
    FakeSwitch event_switch;
    Pair pair;
    pair.announce(1);
    ASSERT_TRUE(wait_until([&] { return has_all(event_switch, 1); }));
    {
        BusSeam seam;
        for (int i = 0; i < 2; ++i)
            seam.fail("sd_bus_call_async", -ENOBUFS);
        take_back_all(pair, 1);
        event_switch.leave();
    }
    Pair other;
    other.announce(1);
    event_switch.come();
    EXPECT_TRUE(wait_until([&] { return has_all(event_switch, 2); }));
    // What is repeated from now on comes behind what would have been repeated from before.
    BusSeam seam;
    for (int i = 0; i < 2; ++i)
        seam.fail("sd_bus_call_async", -ENOBUFS);
    take_back_all(other, 1);
    auto is_told = [&] {
        return event_switch.count("Undeclare") > 0 && event_switch.count("Unsubscribe") > 0;
    };
    EXPECT_TRUE(wait_until(is_told));
    EXPECT_EQ(event_switch.count("Undeclare"), 1u);
    EXPECT_EQ(event_switch.count("Unsubscribe"), 1u);
}

// How the bus starts the switch: "first" is what the first start does, and "later" the others.
std::string activation(const TemporaryFolder &folder, const std::string &first,
                       const std::string &later)
{
    std::string path = folder.path().string();
    std::string script =
        folder.write("start", "#!/bin/sh\nif mkdir " + path + "/was-started 2>/dev/null; then\n" +
                                  first + "\nelse\n" + later + "\nfi\n");
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    folder.write("com.vemo.Event.Switch.service",
                 "[D-BUS Service]\nName=com.vemo.Event.Switch\nExec=" + script + "\n");
    return "<servicedir>" + path + "</servicedir>";
}

std::string start_switch(const TemporaryFolder &folder)
{
    std::string types = folder.path().string();
    return "DBUS_SYSTEM_BUS_ADDRESS=\"$DBUS_STARTER_ADDRESS\" exec " QANDOR_SWITCH
           " --log-level=warning --types-read-only=" +
           types + " --types-writable=" + types;
}

TEST(Resending, AStartThatFailsDoesNotKeepASwitchThatComesFromKnowing)
{
    TemporaryFolder folder;
    PrivateBus private_bus(chosen_bus(), activation(folder, "exit 1", "exit 1"));
    LogCapture log;
    Pair pair;
    pair.announce(5);
    EXPECT_TRUE(wait_until([&] { return log.warnings().size() == 2; }));
    EXPECT_THAT(
        log.warnings(),
        testing::UnorderedElementsAre(
            HasSubstr("The bus did not deliver com.vemo.Event.Switch.Producer.Declare: "),
            HasSubstr("The bus did not deliver com.vemo.Event.Switch.Consumer.Subscribe: ")));
    FakeSwitch event_switch;
    EXPECT_TRUE(wait_until([&] { return has_all(event_switch, 5); }));
    EXPECT_EQ(log.warnings().size(), 2u) << "one for each of them";
}

// Whether the real switch has given all of them their ids.
bool are_complete(const BusObject<Producer> &producer, guint32 count)
{
    for (guint32 id = 1; id <= count; ++id)
        if (!producer_declaration_complete(producer, id))
            return false;
    return true;
}

TEST(Resending, AStartThatFailsIsTriedAgain)
{
    TemporaryFolder folder;
    PrivateBus private_bus(chosen_bus(), activation(folder, "exit 1", start_switch(folder)));
    LogCapture log;
    Pair pair;
    pair.announce(5);
    EXPECT_TRUE(wait_until([&] { return are_complete(pair.producer, 5); }));
}

TEST(Resending, ASwitchThatStartsSlowlyKnowsEverybodyInTheEnd)
{
    TemporaryFolder folder;
    std::string slow = "sleep 1\n" + start_switch(folder);
    PrivateBus private_bus(chosen_bus(), activation(folder, slow, slow) +
                                             "<limit name='max_pending_service_starts'>20</limit>");
    LogCapture log;
    std::vector<std::unique_ptr<Pair>> pairs;
    for (int i = 0; i < 10; ++i)
        pairs.emplace_back(std::make_unique<Pair>())->announce(10);
    for (const auto &pair : pairs)
        EXPECT_TRUE(wait_until([&] { return are_complete(pair->producer, 10); }));
}

TEST(Resending, WhatCannotLeaveTheProcessIsSentAgain)
{
    PrivateBus private_bus;
    LogCapture log;
    FakeSwitch event_switch;
    Pair pair;
    BusSeam seam;
    for (int i = 0; i < 4; ++i)
        seam.fail("sd_bus_call_async", -ENOBUFS);
    pair.announce(2);
    EXPECT_TRUE(wait_until([&] { return has_all(event_switch, 2); }));
    EXPECT_THAT(log.warnings(),
                ElementsAre("Failed to call com.vemo.Event.Switch.Producer.Declare: -105",
                            "Failed to call com.vemo.Event.Switch.Consumer.Subscribe: -105"));
}

bool has_nothing_under_way(const Pair &pair)
{
    for (const auto &[id, data] : state_of(pair.producer).declared_events)
        if (data->declared)
            return false;
    for (const auto &[token, subscription] : state_of(pair.consumer).subscriptions)
        if (subscription->subscribed)
            return false;
    return true;
}

TEST(Resending, OneCallTriesForAll)
{
    PrivateBus private_bus;
    LogCapture log;
    Pair pair;
    pair.announce(30);
    ASSERT_TRUE(wait_until([&] { return has_nothing_under_way(pair); }));
    BusSeam seam;
    EXPECT_TRUE(wait_until([&] { return seam.timeouts.size() >= 2; }));
    EXPECT_EQ(seam.timeouts.size(), 2u) << "one of the producer and one of the consumer";
    EXPECT_THAT(log.warnings(), IsEmpty()) << "that there is no switch is no fault";
}

} // namespace
