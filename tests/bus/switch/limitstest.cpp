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
    reload("[limits]\nstored_bytes=16384\n");
    const std::string path = "/" + std::string(8000, 'c');
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

// What is refused for its content or its size does not use up names either.
TEST_F(LimitsTest, ARefusedDeclarationUsesUpNoKeyNames)
{
    auto with_keys = [](const char *first, const char *second, guint32 local_id) {
        Owned<event_declaration> declaration(event_declaration_new(FALSE));
        event_declaration_add_key_value(declaration.get(), first, "value", VALUE_TYPE_STRING);
        event_declaration_add_key(declaration.get(), second, VALUE_TYPE_STRING);
        event_declaration_set_local_id(declaration.get(), local_id);
        return Octets{take_bytes(event_declaration_serialize(declaration.get()))};
    };
    auto declare = [&](const Octets &bytes) {
        return one.call("Producer.Declare", "/p", "name", bytes).error;
    };
    EXPECT_EQ(declare(with_keys("one", "two", 1)), "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(declare(with_keys("three", "four", 1)), "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(declare(with_keys("topic0", "five", 1)), "");
    EXPECT_EQ(declare(with_keys("topic0", "five", 2)), "");
    EXPECT_EQ(declare(with_keys("topic0", "six", 3)), limits_exceeded) << "a third declaration";
    EXPECT_EQ(declare(with_keys("topic0", "seven", 2)), "");
    EXPECT_EQ(declare(with_keys("topic0", "eight", 2)), "") << "the fourth name";
    EXPECT_EQ(declare(with_keys("topic0", "nine", 2)), limits_exceeded);
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

// Expressions and declarations of a shape that nobody needs.
class ShapeTest : public testing::Test {
protected:
    static Octets expression_with_alternatives(unsigned count, bool empty)
    {
        Owned<subscribe_expression> expression(subscribe_expression_new());
        for (unsigned i = 0; i < count; ++i) {
            if (i > 0)
                subscribe_expression_or(expression.get());
            if (!empty)
                subscribe_expression_add_key_not_value(expression.get(), "state", "");
        }
        return Octets{take_bytes(subscribe_expression_serialize(expression.get()))};
    }
    static Octets declaration_with_tags(unsigned count)
    {
        Owned<event_declaration> declaration(event_declaration_new(FALSE));
        event_declaration_add_key_value(declaration.get(), "topic0", "Power", VALUE_TYPE_STRING);
        for (unsigned i = 0; i < count; ++i)
            inspectable_add_tag(event_declaration_get_inspectable(declaration.get()), "");
        return Octets{take_bytes(event_declaration_serialize(declaration.get()))};
    }
    static Octets declaration_with_name(std::size_t length)
    {
        Owned<event_declaration> declaration(event_declaration_new(TRUE));
        event_declaration_add_key(declaration.get(), std::string(length, 'k').c_str(),
                                  VALUE_TYPE_STRING);
        return Octets{take_bytes(event_declaration_serialize(declaration.get()))};
    }
    void expect_refused(const Answer &answer, const char *reason)
    {
        EXPECT_EQ(answer.error, limits_exceeded);
        EXPECT_EQ(answer.text, reason);
        EXPECT_EQ(peer.call("Query.GetAllDeclarations").bytes, std::string(4, '\0'));
    }

    PrivateBus bus;
    SwitchProcess event_switch;
    RawPeer peer;
};

TEST_F(ShapeTest, OneEmptyAlternativeIsAllThatOneMaySay)
{
    EXPECT_EQ(peer.call("Consumer.Subscribe", "/c", "name", guint32(1),
                        expression_with_alternatives(1, true))
                  .error,
              "");
    const char *reason = "A record may have 1 alternative without a condition";
    for (unsigned count : {2u, 52000u}) {
        Octets expression = expression_with_alternatives(count, true);
        if (count <= 1024)
            expect_refused(peer.call("Consumer.Subscribe", "/c", "name", guint32(2), expression),
                           reason);
        EXPECT_EQ(peer.call("Consumer.GetPropertyState", expression).error, limits_exceeded);
    }
}

TEST_F(ShapeTest, ManyAlternativesAreRefused)
{
    EXPECT_EQ(peer.call("Consumer.Subscribe", "/c", "name", guint32(1),
                        expression_with_alternatives(1024, false))
                  .error,
              "");
    expect_refused(peer.call("Consumer.Subscribe", "/c", "name", guint32(1),
                             expression_with_alternatives(1025, false)),
                   "A record may have 1024 alternatives");
}

TEST_F(ShapeTest, ManyTagsAreRefused)
{
    expect_refused(peer.call("Producer.Declare", "/p", "name", declaration_with_tags(1025)),
                   "A record may have 1024 tags");
    expect_refused(peer.call("Producer.AddDeclaration", "type", declaration_with_tags(65000)),
                   "A record may have 1024 tags");
    EXPECT_TRUE(std::filesystem::is_empty(event_switch.writable_types()));
    EXPECT_EQ(peer.call("Producer.Declare", "/p", "name", declaration_with_tags(1024)).error, "");
}

TEST_F(ShapeTest, LongNamesOfKeysAreRefused)
{
    expect_refused(peer.call("Producer.Declare", "/p", "name", declaration_with_name(256)),
                   "The name of a key may have 255 bytes");
    EXPECT_EQ(peer.call("Producer.Declare", "/p", "name", declaration_with_name(255)).error, "");
}

// An event that would answer a question is held to the same.
TEST_F(ShapeTest, AnEventOfThatShapeIsNoAnswer)
{
    RawPeer asker;
    Octets property{declaration_bytes("Power", 1, true)};
    EXPECT_EQ(peer.call("Producer.Declare", "/p", "name", property).error, "");
    std::optional<Answer> event_answer, answer;
    peer.on_call = [&](const Received &received) {
        if (received.member != "Subscribe")
            return true;
        Owned<event> event(event_deserialize(array_from(event_bytes("Power", "on")).get()));
        for (int i = 0; i < 1025; ++i)
            inspectable_add_tag(event_get_inspectable(event.get()), "");
        Owned<subscribe_expression> expression(
            subscribe_expression_deserialize(array_from(received.bytes).get()));
        peer.event_later(event_answer, take_bytes(event_serialize(event.get())),
                         subscribe_expression_get_consumer_token(expression.get()));
        return true;
    };
    asker.call_later(answer, "Consumer.GetPropertyState", Octets{expression_bytes("Power")});
    ASSERT_TRUE(run_until([&] { return event_answer.has_value() && answer.has_value(); }));
    EXPECT_EQ(event_answer->error, limits_exceeded);
    EXPECT_EQ(answer->text, "The property has no state");
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
