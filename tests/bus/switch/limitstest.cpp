// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's limits, from a configuration that is read again while it runs.

#include "rawpeer.hpp"
#include "rawrecords.hpp"
#include "strangeruser.hpp"

#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

using namespace qandor::test;
using testing::HasSubstr;

namespace {

constexpr const char *limits_exceeded = "org.freedesktop.DBus.Error.LimitsExceeded";

std::string write_file(const std::filesystem::path &path, const std::string &text)
{
    std::ofstream(path) << text;
    return path;
}

class LimitsTest : public testing::Test {
protected:
    static Answer declare(RawPeer &peer, guint32 local_id, const char *topic = "Device",
                          const char *path = "/p")
    {
        return peer.call("Producer.Declare", path, "name",
                         Octets{declaration_bytes(topic, local_id, true)});
    }
    static Answer subscribe(RawPeer &peer, guint32 token, const char *path = "/c")
    {
        return peer.call("Consumer.Subscribe", path, "name", token,
                         Octets{expression_bytes("Device")});
    }
    static std::string with_key(const std::string &key)
    {
        Owned<subscribe_expression> expression(subscribe_expression_new());
        subscribe_expression_add_key(expression.get(), key.c_str());
        return take_bytes(subscribe_expression_serialize(expression.get()));
    }
    void reload(const std::string &text)
    {
        write_file(folder.path() / "conf", text);
        event_switch.process().signal(SIGHUP);
    }
    // Limits as they are at some time after a reload.
    bool becomes(const std::function<bool()> &condition) { return run_until(condition); }

    TemporaryFolder folder;
    PrivateBus bus;
    SwitchProcess event_switch{
        {"--config=" + write_file(folder.path() / "conf", "[limits]\n"
                                                          "record_bytes=1024\n"
                                                          "peers=3\n"
                                                          "declarations=2\n"
                                                          "subscriptions=2\n"
                                                          "questions=1\n"
                                                          "key_names=4\n")}};
    RawPeer one, other;
};

TEST_F(LimitsTest, DeclarationsAndSubscriptionsOfAUserAreCountedOverItsConnections)
{
    EXPECT_EQ(declare(one, 1).error, "");
    EXPECT_EQ(declare(other, 1).error, "");
    Answer refused = declare(one, 2);
    EXPECT_EQ(refused.error, limits_exceeded);
    EXPECT_EQ(refused.text, "A user may have 2 declarations");
    EXPECT_EQ(declare(one, 1).error, "") << "it takes the place of the old one";
    EXPECT_EQ(one.call("Producer.Undeclare", "/p", guint32(3)).error, "");
    EXPECT_EQ(declare(one, 2).error, "");

    EXPECT_EQ(subscribe(one, 1).error, "");
    EXPECT_EQ(subscribe(one, 2).error, "");
    EXPECT_EQ(subscribe(one, 3).error, limits_exceeded);
    EXPECT_EQ(one.call("Consumer.Unsubscribe", "/c", guint32(1)).error, "");
    EXPECT_EQ(subscribe(one, 3).error, "");
}

TEST_F(LimitsTest, PeerObjectsAreCountedAndLeaveWithTheirConnection)
{
    EXPECT_EQ(declare(one, 1, "Device", "/p1").error, "");
    EXPECT_EQ(declare(one, 1, "Device", "/p2").error, "");
    EXPECT_EQ(subscribe(other, 1, "/c1").error, "");
    EXPECT_EQ(subscribe(other, 1, "/c2").error, limits_exceeded);
    one.leave();
    EXPECT_TRUE(becomes([&] { return subscribe(other, 1, "/c2").error.empty(); }));
}

TEST_F(LimitsTest, ARecordOfTooManyBytesChangesNothing)
{
    std::string topic(2000, 'a');
    EXPECT_EQ(declare(one, 1, topic.c_str()).error, limits_exceeded);
    EXPECT_EQ(other.call("Query.GetAllDeclarations").bytes, std::string(4, '\0'));
}

TEST_F(LimitsTest, TheWayToAConsumerIsCountedBeforeItIsStored)
{
    reload("[limits]\nstored_bytes=1024\n");
    const std::string path = "/" + std::string(2000, 'c');
    EXPECT_TRUE(becomes([&] { return subscribe(one, 1, path.c_str()).error == limits_exceeded; }));
    EXPECT_EQ(subscribe(one, 1).error, "");
}

TEST_F(LimitsTest, QuestionsUnderWayAreCounted)
{
    one.on_call = [](const Received &) { return false; }; // it never answers
    EXPECT_EQ(declare(one, 1).error, "");
    std::optional<Answer> first, second;
    other.call_later(first, "Consumer.GetPropertyState", Octets{expression_bytes("Device")});
    other.call_later(second, "Consumer.GetPropertyState", Octets{expression_bytes("Device")});
    EXPECT_TRUE(run_until([&] { return second.has_value(); }));
    EXPECT_EQ(second->error, limits_exceeded);
    EXPECT_FALSE(first.has_value());
    EXPECT_TRUE(run_until([&] { return first.has_value(); })) << "the deadline ends it";
    second.reset();
    other.call_later(second, "Consumer.GetPropertyState", Octets{expression_bytes("Device")});
    EXPECT_TRUE(run_until([&] { return second.has_value(); }));
    EXPECT_NE(second->error, limits_exceeded);
}

TEST_F(LimitsTest, NewKeyNamesAreCountedForEver)
{
    EXPECT_EQ(declare(one, 1).error, ""); // two names
    for (const char *key : {"three", "four"})
        EXPECT_EQ(other.call("Consumer.GetPropertyState", Octets{with_key(key)}).error,
                  "org.freedesktop.DBus.Error.FileNotFound");
    EXPECT_EQ(other.call("Consumer.GetPropertyState", Octets{with_key("five")}).error,
              limits_exceeded);
    EXPECT_EQ(
        other.call("Consumer.Subscribe", "/c", "name", guint32(1), Octets{with_key("five")}).error,
        limits_exceeded);
    one.leave();
    EXPECT_EQ(other.call("Consumer.GetPropertyState", Octets{with_key("five")}).error,
              limits_exceeded);
    EXPECT_EQ(subscribe(other, 1).error, "") << "known names stay in use";
}

TEST_F(LimitsTest, ANewConfigurationHoldsFromTheReloadOn)
{
    EXPECT_EQ(declare(one, 1).error, "");
    EXPECT_EQ(declare(one, 2).error, "");
    EXPECT_EQ(declare(one, 3).error, limits_exceeded);
    reload("[limits]\ndeclarations=3\n");
    EXPECT_TRUE(becomes([&] { return declare(one, 3).error.empty(); }));
    EXPECT_EQ(declare(one, 4).error, limits_exceeded);
    reload("[limits]\ndeclarations=1\n");
    EXPECT_TRUE(becomes([&] { return declare(one, 4).text == "A user may have 1 declarations"; }));
    EXPECT_EQ(read_list(other.call("Query.GetAllDeclarations").bytes).size(), 3u)
        << "what is over the limit stays";
}

TEST_F(LimitsTest, AWrongConfigurationLeavesTheOldOneInForce)
{
    EXPECT_EQ(declare(one, 1).error, "");
    EXPECT_EQ(declare(one, 2).error, "");
    reload("[limits]\ndeclarations=many\n");
    // The next reload shows that this one is over.
    EXPECT_EQ(declare(one, 3).error, limits_exceeded);
    reload("[limits]\ndeclarations=3\n");
    EXPECT_TRUE(becomes([&] { return declare(one, 3).error.empty(); }));
}

TEST_F(LimitsTest, AUsersOwnLimitsAreReadAgainToo)
{
    const std::string own = "[limits]\ndeclarations=1\n[user " + std::to_string(getuid()) + "]\n";
    reload(own + "declarations=3\n");
    EXPECT_TRUE(becomes([&] {
        return declare(one, 3).error.empty() && declare(one, 1).error.empty() &&
               declare(one, 2).error.empty();
    }));
    EXPECT_EQ(declare(one, 4).text, "A user may have 3 declarations");
    reload(own + "declarations=4\n");
    EXPECT_TRUE(becomes([&] { return declare(one, 4).error.empty(); }));
}

TEST_F(LimitsTest, OneUsersFloodLeavesTheOthersServed)
{
    if (getuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";
    int flooded = as_stranger(bus.address(), [] {
        RawPeer stranger;
        guint32 accepted = 0;
        for (guint32 i = 0; i < 100; ++i)
            accepted += declare(stranger, i).error.empty();
        return accepted == 2;
    });
    EXPECT_EQ(flooded, 0);
    int flooding = as_stranger(bus.address(), [&] {
        RawPeer stranger;
        declare(stranger, 1);
        declare(stranger, 2);
        RawPeer second; // of the same user: has nothing left
        return declare(second, 1).error == limits_exceeded;
    });
    EXPECT_EQ(flooding, 0);
    EXPECT_EQ(declare(one, 1).error, "");
}

TEST(Configuration, AWrongFileIsToldAndNothingIsServed)
{
    TemporaryFolder folder;
    PrivateBus bus;
    std::string path = write_file(folder.path() / "conf", "[limits]\npeers=few\n");
    ChildProcess process(
        {"/bin/sh", "-c", std::string(QANDOR_SWITCH_PROGRAM) + " --config=" + path + " 2>&1"});
    EXPECT_THAT(process.read_line().value_or(""),
                HasSubstr(path + ":2: peers: expected a whole number from 1 to 4294967295"));
    EXPECT_EQ(process.wait(), 1);
}

} // namespace
