// SPDX-License-Identifier: LGPL-2.1-or-later

// Two users of one switch: what one may not do to the other, and that a flood of the one leaves the
// other served.

#include "stress/siege/census.hpp"
#include "stress/siege/flood.hpp"

#include "bus/switch/rawrecords.hpp"
#include "bus/switch/strangeruser.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gtest/gtest.h>

#include <deque>
#include <fstream>

using namespace qandor::test;

namespace {

constexpr const char *access_denied = "org.freedesktop.DBus.Error.AccessDenied";
constexpr const char *switch_name = "com.vemo.Event.Switch";
constexpr const char *switch_object = "/com/vemo/Event/Switch";
constexpr const char *producer_interface = "com.vemo.Event.Producer";
constexpr const char *consumer_interface = "com.vemo.Event.Consumer";

struct Call {
    std::string destination, path, interface, member, types;
};

// The error that a call is answered with, with numbers and bytes of no meaning as arguments.
std::string error_of(RawPeer &peer, const Call &call)
{
    sd_bus_message *made = nullptr;
    sd_bus_message_new_method_call(peer.bus(), &made, call.destination.c_str(), call.path.c_str(),
                                   call.interface.c_str(), call.member.c_str());
    qandor::BusMessageOwner message(made);
    for (std::size_t i = 0; i < call.types.size(); ++i) {
        if (call.types[i] == 'u')
            sd_bus_message_append(made, "u", 1);
        else if (call.types[i] == 's')
            sd_bus_message_append(made, "s", "/p");
        else if (call.types[i] == 'a') // of bytes
            sd_bus_message_append_array(made, call.types[++i], "?", 1);
    }
    qandor::BusError error;
    int r = sd_bus_call(peer.bus(), made, 0, error.get(), nullptr);
    return r < 0 ? error.get()->name : "";
}

class UsersTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (getuid() != 0)
            GTEST_SKIP() << "only root can be somebody else";
        producer.on_call = [this](const Received &received) {
            if (received.member == "Subscribe")
                send_to_subscriber(producer, received.bytes, event_bytes("Power", "on"));
            return true;
        };
        join();
    }
    // A switch that leaks says so at its end, where the build looks for leaks.
    void TearDown() override
    {
        event_switch.process().signal(SIGTERM);
        EXPECT_EQ(event_switch.process().wait(), 0);
    }

    void join()
    {
        EXPECT_EQ(called(producer, "Producer.Declare", "/p", "mine",
                         Octets{declaration_bytes("Power", 1, true)})
                      .error,
                  "");
        EXPECT_EQ(called(consumer, "Consumer.Subscribe", "/c", "mine", guint32(1),
                         Octets{expression_bytes("Power")})
                      .error,
                  "");
        settle();
    }
    // All peers live while one of them waits for its answer.
    template <class... Arguments>
    Answer called(RawPeer &peer, const std::string &method, const Arguments &...arguments)
    {
        auto &answer = answers.emplace_back(); // stays for an answer that comes too late
        peer.call_later(answer, method, arguments...);
        EXPECT_TRUE(run_until([&] { return answer.has_value(); })) << method;
        return answer.value_or(Answer{"no answer", "", ""});
    }
    void settle()
    {
        producer.take();
        consumer.take();
    }

    // Everything that one may want of the switch.
    void live(guint32 round)
    {
        Octets declaration{declaration_bytes("Mine", round)};
        Octets expression{expression_bytes("Mine")};
        EXPECT_EQ(called(producer, "Producer.Declare", "/q", "mine", declaration).error, "");
        EXPECT_EQ(called(consumer, "Consumer.Subscribe", "/d", "mine", round, expression).error,
                  "");
        Answer state =
            called(onlooker, "Consumer.GetPropertyState", Octets{expression_bytes("Power")});
        EXPECT_EQ(state.error + state.text, "");
        EXPECT_EQ(called(onlooker, "Query.GetAllDeclarations").error, "");
        EXPECT_EQ(called(consumer, "Consumer.Unsubscribe", "/d", round).error, "");
        EXPECT_EQ(called(consumer, "Consumer.Disconnect", "/d").error, "");
        EXPECT_EQ(called(producer, "Producer.Disconnect", "/q").error, "");
        settle();
    }
    // The flood goes on all the while, and nothing is left of it.
    void live_through(const Flood::Call &call, const Flood::Prepare &prepare = {})
    {
        live(1);
        std::string before = take_census(onlooker.bus());
        Flood flood(bus.address(), 3, call, prepare);
        ASSERT_TRUE(run_until([&] { return flood.answered() > 0; }));
        for (guint32 round = 2; round < 22 && !HasFailure(); ++round) {
            guint64 answered = flood.answered();
            live(round);
            EXPECT_TRUE(run_until([&] { return flood.answered() > answered; }))
                << "there is no flood";
        }
        EXPECT_TRUE(flood.stop());
        EXPECT_TRUE(run_until([&] { return without_stranger() == before; })) << without_stranger();
    }
    // The other user's account stays, with nothing on it.
    std::string without_stranger()
    {
        std::string census = take_census(onlooker.bus());
        for (std::size_t at; (at = census.find("ListLimits (65534 ")) != std::string::npos;)
            census.erase(at, census.find('\n', at) + 1 - at);
        return census;
    }

    static void forget(RawPeer &peer, guint32) { peer.remembers = false; }
    // The most that the switch has ever had.
    void expect_memory_below(long mib)
    {
        if (!memory_tells())
            return;
        std::ifstream status("/proc/" + std::to_string(event_switch.process().pid()) + "/status");
        long kib = -1;
        for (std::string line; kib < 0 && std::getline(status, line);)
            std::sscanf(line.c_str(), "VmHWM: %ld kB", &kib);
        RecordProperty("most_resident_kib", std::to_string(kib));
        EXPECT_GT(kib, 0);
        EXPECT_LT(kib, mib * 1024);
    }

    PrivateBus bus;
    SwitchProcess event_switch;
    std::deque<std::optional<Answer>> answers;
    RawPeer producer, consumer, onlooker;
};

TEST_F(UsersTest, NobodyElseSpeaksForTheSwitch)
{
    std::string p = producer.name(), c = consumer.name();
    const std::vector<Call> forbidden = {
        {p, "/p", producer_interface, "GlobalDeclareId", "uuu"},
        {p, "/p", producer_interface, "DeclarationComplete", "uu"},
        {p, "/p", producer_interface, "Subscribe", "ayu"},
        {p, "/p", producer_interface, "Unsubscribe", "uu"},
        {p, "/p", producer_interface, "RefreshProperty", "uu"},
        {c, "/c", consumer_interface, "Notification", "ayu"},
        {c, "/c", "org.freedesktop.DBus.Properties", "GetAll", "s"},
        {switch_name, switch_object, "com.vemo.Event.Switch.Producer", "AddDeclaration", "say"},
        {switch_name, switch_object, "com.vemo.Event.Switch.Producer", "RemoveDeclaration", "s"},
        {switch_name, switch_object, "com.vemo.Event.Switch.Monitor", "ListConsumers", ""},
        {switch_name, switch_object, "com.vemo.Event.Switch.Monitor", "ListSubscriptions", ""},
        {switch_name, "/com/vemo/Event/Switch/Questions", producer_interface, "Subscribe", "ayu"},
    };
    int refused = as_stranger(bus.address(), [&] {
        RawPeer stranger;
        bool all = sd_bus_request_name(stranger.bus(), switch_name, 0) == -EACCES;
        for (const Call &call : forbidden) {
            std::string error = error_of(stranger, call);
            if (error != access_denied)
                std::fprintf(stderr, "%s: %s\n", call.member.c_str(), error.c_str());
            all = all && error == access_denied;
        }
        return all;
    });
    EXPECT_EQ(refused, 0);
    EXPECT_TRUE(producer.take().empty());
    EXPECT_TRUE(consumer.take().empty());
}

TEST_F(UsersTest, WhatAStrangerSaysOfOthersObjectsIsSaidOfHisOwn)
{
    std::string before = take_census(onlooker.bus());
    int unheard = as_stranger(bus.address(), [] {
        RawPeer stranger;
        return stranger.call("Producer.Undeclare", "/p", guint32(1)).error.empty() &&
               stranger.call("Producer.Disconnect", "/p").error.empty() &&
               stranger.call("Consumer.Unsubscribe", "/c", guint32(1)).error.empty() &&
               stranger.call("Consumer.RefreshProperty", "/c", guint32(1)).error.empty() &&
               stranger.call("Consumer.Disconnect", "/c").error.empty();
    });
    EXPECT_EQ(unheard, 0);
    EXPECT_EQ(without_stranger(), before);
    EXPECT_TRUE(producer.take().empty());
}

TEST_F(UsersTest, AFloodOfDeclarationsLeavesOthersServed)
{
    live_through([](RawPeer &peer, std::optional<Answer> &answer, guint32 number) {
        peer.call_later(answer, "Producer.Declare", "/p" + std::to_string(number % 200), "flood",
                        Octets{declaration_bytes("Power", number % 5000, false)});
    });
}

TEST_F(UsersTest, AFloodOfSubscriptionsLeavesOthersServed)
{
    live_through([](RawPeer &peer, std::optional<Answer> &answer, guint32 number) {
        peer.call_later(answer, "Consumer.Subscribe", "/c" + std::to_string(number % 200), "flood",
                        number % 50, Octets{expression_bytes("Mine")});
    });
}

TEST_F(UsersTest, AFloodOfQuestionsLeavesOthersServed)
{
    live_through([](RawPeer &peer, std::optional<Answer> &answer, guint32) {
        peer.call_later(answer, "Consumer.GetPropertyState", Octets{expression_bytes("Power")});
    });
}

// One of each connection asks, the others talk of nothing.
TEST_F(UsersTest, QuestionsThatNobodyAnswersLeaveOthersServed)
{
    Flood flood(
        bus.address(), 30,
        [](RawPeer &peer, std::optional<Answer> &answer, guint32 number) {
            if (number % 60 == 0)
                peer.call_later(answer, "Consumer.GetPropertyState",
                                Octets{expression_bytes("Silent")});
            else
                peer.call_later(answer, "Consumer.Disconnect", "/nobody");
        },
        [](RawPeer &peer, guint32) {
            peer.on_call = [](const Received &) { return false; };
            peer.call("Producer.Declare", "/p", "silent",
                      Octets{declaration_bytes("Silent", 1, true)});
        });
    ASSERT_TRUE(run_until([&] { return flood.answered() > 30 * 60; })) << "the first are over";
    live(1);
}

TEST_F(UsersTest, AFloodOfLargeRecordsLeavesOthersServed)
{
    // They do not match: what each is told of the others is another flood.
    std::string large(60000, 'a');
    Octets declaration{declaration_bytes(large.c_str(), 1)};
    large.back() = 'b';
    Octets expression{expression_bytes(large.c_str())};
    live_through([&](RawPeer &peer, std::optional<Answer> &answer, guint32 number) {
        std::string path = "/x" + std::to_string(number % 300);
        if (number % 2)
            peer.call_later(answer, "Producer.Declare", path, "flood", declaration);
        else
            peer.call_later(answer, "Consumer.Subscribe", path, "flood", guint32(1), expression);
    });
}

// Each call makes the switch say a hundred times as much.
TEST_F(UsersTest, LargeRecordsThatMatchLeaveOthersServedAndMemoryBounded)
{
    std::string large(60000, 'a');
    Octets declaration{declaration_bytes(large.c_str(), 1)};
    Octets expression{expression_bytes(large.c_str())};
    Flood flood(
        bus.address(), 3,
        [&](RawPeer &peer, std::optional<Answer> &answer, guint32 number) {
            std::string path = "/x" + std::to_string(number % 60);
            if (number % 2)
                peer.call_later(answer, "Producer.Declare", path, "flood", declaration);
            else
                peer.call_later(answer, "Consumer.Subscribe", path, "flood", guint32(1),
                                expression);
        },
        forget);
    ASSERT_TRUE(run_until([&] { return flood.answered() > 0; }));
    gint64 longest_wait = 0;
    for (int i = 0; i < 5; ++i) {
        gint64 begin = g_get_monotonic_time();
        EXPECT_EQ(called(onlooker, "Consumer.Disconnect", "/nobody").error, "");
        longest_wait = std::max(longest_wait, g_get_monotonic_time() - begin);
    }
    RecordProperty("longest_wait_ms", std::to_string(longest_wait / 1000));
    live(1);
    expect_memory_below(128);
}

TEST_F(UsersTest, AFloodOfLargeListsLeavesOthersServedAndMemoryBounded)
{
    std::string large(60000, 'a');
    Flood flood(
        bus.address(), 3,
        [](RawPeer &peer, std::optional<Answer> &answer, guint32) {
            peer.call_later(answer, "Query.GetAllDeclarations");
        },
        [&](RawPeer &peer, guint32) {
            for (guint32 i = 0; i < 5; ++i)
                peer.call("Producer.Declare", "/p", "flood",
                          Octets{declaration_bytes(large.c_str(), i)});
        });
    ASSERT_TRUE(run_until([&] { return flood.answered() > 0; }));
    live(1);
    expect_memory_below(64);
}

// The bus keeps what it is told until it is read, and reads nothing more from the switch when that
// is too much. So the switch keeps it back.
TEST_F(UsersTest, AUserWhoDoesNotReadHoldsNobodyUp)
{
    std::string large(60000, 'a');
    Octets declaration{declaration_bytes(large.c_str(), 1)};
    Octets expression{expression_bytes(large.c_str())};
    Flood deaf(bus.address(), 1, {}, [&](RawPeer &peer, guint32) {
        for (guint32 i = 0; i < 20; ++i)
            peer.call("Consumer.Subscribe", "/c", "deaf", i, expression);
        for (int i = 0; i < 100; ++i)
            peer.tell("Producer.Declare", "/p", "deaf", declaration);
    });
    ASSERT_TRUE(run_until([&] { return deaf.answered() > 0; }));
    for (guint32 round = 1; round < 20 && !HasFailure(); ++round)
        live(round);
    EXPECT_TRUE(event_switch.process().is_running());
    expect_memory_below(64);
}

// Its own calls are refused in the end, and what others tell it makes it lost.
TEST_F(UsersTest, APeerThatNeverReadsWhatOthersTellItIsDropped)
{
    Octets expression{expression_bytes("Mine")};
    Flood deaf(bus.address(), 1, {}, [&](RawPeer &peer, guint32) {
        for (guint32 i = 0; i < 200; ++i)
            peer.call("Consumer.Subscribe", "/c", "deaf", i, expression);
    });
    ASSERT_TRUE(run_until([&] { return deaf.answered() > 0; }));
    auto is_dropped = [&] {
        return take_census(onlooker.bus()).find("ListSubscriptions (2 ") == std::string::npos;
    };
    EXPECT_FALSE(is_dropped());
    Octets declaration{declaration_bytes("Mine", 1)};
    for (int i = 0; i < 400 && !HasFailure() && !is_dropped(); ++i) {
        EXPECT_EQ(called(producer, "Producer.Declare", "/q", "mine", declaration).error, "");
        producer.take();
    }
    EXPECT_TRUE(is_dropped());
    live(1);
    expect_memory_below(64);
}

TEST_F(UsersTest, AFloodOfBytesThatAreNoRecordsLeavesOthersServed)
{
    std::string cut = declaration_bytes("Power", 1);
    cut.pop_back();
    live_through([&](RawPeer &peer, std::optional<Answer> &answer, guint32) {
        peer.call_later(answer, "Producer.Declare", "/p", "flood", Octets{cut});
    });
}

TEST_F(UsersTest, AFloodOfQueriesLeavesOthersServed)
{
    live_through([](RawPeer &peer, std::optional<Answer> &answer,
                    guint32) { peer.call_later(answer, "Query.GetAllDeclarations"); },
                 [](RawPeer &peer, guint32) {
                     std::string large(4000, 'a');
                     for (guint32 i = 0; i < 20; ++i)
                         peer.call("Producer.Declare", "/p", "flood",
                                   Octets{declaration_bytes(large.c_str(), i)});
                 });
}

} // namespace
