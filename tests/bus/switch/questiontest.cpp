// SPDX-License-Identifier: LGPL-2.1-or-later

// Questions for a property's state: producers that answer, that have none, that are silent, that
// leave; and strangers who would answer for them.

#include "rawpeer.hpp"
#include "rawrecords.hpp"
#include "strangeruser.hpp"

#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>

using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *not_found = "org.freedesktop.DBus.Error.FileNotFound";

class QuestionTest : public testing::Test {
protected:
    // A switch that leaks says so at its end, where the build looks for leaks.
    void TearDown() override
    {
        event_switch.process().signal(SIGTERM);
        EXPECT_EQ(event_switch.process().wait(), 0);
    }

    static void declare_property(RawPeer &peer, const char *topic, guint32 local_id = 1)
    {
        EXPECT_EQ(peer.call("Producer.Declare", "/p", "name",
                            Octets{declaration_bytes(topic, local_id, true)})
                      .error,
                  "");
        peer.take();
    }
    static Owned<subscribe_expression> expression_of(const Received &subscribe)
    {
        return Owned<subscribe_expression>(
            subscribe_expression_deserialize(array_from(subscribe.bytes).get()));
    }
    // Makes the peer answer with a state, as a producer does: the event first.
    static void answer_with(RawPeer &peer, const char *state)
    {
        peer.on_call = [&peer, state](const Received &received) {
            if (received.member == "Subscribe")
                send_state(peer, received, state);
            return true;
        };
    }
    static void send_state(RawPeer &peer, const Received &subscribe, const char *state)
    {
        send_to_subscriber(peer, subscribe.bytes, event_bytes("Power", state));
    }
    static void stay_silent(RawPeer &peer)
    {
        peer.on_call = [](const Received &received) { return received.member != "Subscribe"; };
    }
    void ask(RawPeer &peer, std::optional<Answer> &answer)
    {
        peer.call_later(answer, "Consumer.GetPropertyState", Octets{expression_bytes("Power")});
    }
    Answer ask()
    {
        std::optional<Answer> answer;
        ask(asker, answer);
        EXPECT_TRUE(run_until([&] { return answer.has_value(); }));
        return answer.value_or(Answer{"no answer", "", ""});
    }
    static std::string state_in(const Answer &answer)
    {
        if (!answer.error.empty())
            return answer.text;
        Owned<property_state> state(property_state_deserialize(array_from(answer.bytes).get()));
        inspectable *content = property_state_get_inspectable(state.get());
        EXPECT_STREQ(inspectable_get_value(content, "topic0"), "Power");
        EXPECT_TRUE(inspectable_has_keyvalue_with_tag(content, "property-state"));
        return inspectable_get_value(content, "state");
    }

    PrivateBus bus;
    SwitchProcess event_switch;
    RawPeer producer, asker;
};

TEST_F(QuestionTest, TheFirstEventIsTheAnswerAndTheSwitchUnsubscribes)
{
    declare_property(producer, "Power");
    answer_with(producer, "saving");
    EXPECT_EQ(state_in(ask()), "saving");
    std::vector<Received> told = producer.take();
    ASSERT_EQ(told.size(), 2u);
    EXPECT_EQ(told[1].member, "Unsubscribe");
    auto expression = expression_of(told[0]);
    EXPECT_TRUE(subscribe_expression_get_clandestine(expression.get()));
    EXPECT_EQ(subscribe_expression_get_dbus_service(expression.get())[0], ':');
    EXPECT_THAT(told[1].numbers, ElementsAre(subscribe_expression_get_id(expression.get()), 1u));
}

TEST_F(QuestionTest, WithoutAPropertyThatMatchesTheAnswerSaysSo)
{
    declare_property(producer, "Elsewhere");
    producer.call("Producer.Declare", "/p", "name", Octets{declaration_bytes("Power", 2)});
    Answer answer = ask();
    EXPECT_EQ(answer.error, not_found);
    EXPECT_EQ(answer.text, "No property matches the expression");
}

TEST_F(QuestionTest, AProducerWithoutAStateIsToldApartFromOneThatIsSilent)
{
    declare_property(producer, "Power");
    Answer answer = ask();
    EXPECT_EQ(answer.error, not_found);
    EXPECT_EQ(answer.text, "The property has no state");

    stay_silent(producer);
    gint64 begin = g_get_monotonic_time();
    answer = ask();
    EXPECT_EQ(answer.error, not_found);
    EXPECT_EQ(answer.text, "The producers did not answer in time");
    EXPECT_GE(g_get_monotonic_time() - begin, 2 * G_USEC_PER_SEC);
    EXPECT_THAT(producer.take_members().back(), testing::StartsWith("Unsubscribe"));
}

TEST_F(QuestionTest, OneProducerThatAnswersIsEnough)
{
    RawPeer silent, stateless;
    declare_property(silent, "Power");
    declare_property(stateless, "Power");
    declare_property(producer, "Power");
    stay_silent(silent);
    answer_with(producer, "on");
    EXPECT_EQ(state_in(ask()), "on");
    for (RawPeer *peer : {&silent, &stateless, &producer})
        EXPECT_THAT(peer->take_members().back(), testing::StartsWith("Unsubscribe"));
}

TEST_F(QuestionTest, AnEventBehindTheProducersAnswerStillCounts)
{
    declare_property(producer, "Power");
    std::optional<Received> asked;
    producer.on_call = [&asked](const Received &received) {
        if (received.member == "Subscribe")
            asked = received;
        return true;
    };
    std::optional<Answer> answer;
    ask(asker, answer);
    ASSERT_TRUE(run_until([&] { return asked.has_value(); }));
    send_state(producer, *asked, "late");
    ASSERT_TRUE(run_until([&] { return answer.has_value(); }));
    EXPECT_EQ(state_in(*answer), "late");
    // What comes when nobody asks any more is dropped.
    send_state(producer, *asked, "too late");
    EXPECT_TRUE(producer.call("Query.GetAllDeclarations").error.empty());
}

TEST_F(QuestionTest, ManyQuestionsAtOnceAreAllAnswered)
{
    declare_property(producer, "Power");
    answer_with(producer, "on");
    constexpr std::size_t count = 64; // as many as one user may ask
    std::list<RawPeer> askers(8);
    std::vector<std::optional<Answer>> answers(count);
    for (std::size_t i = 0; i < count; ++i)
        ask(*std::next(askers.begin(), i % askers.size()), answers[i]);
    ASSERT_TRUE(run_until([&] {
        return std::all_of(answers.begin(), answers.end(),
                           [](const auto &answer) { return answer.has_value(); });
    }));
    for (const auto &answer : answers)
        EXPECT_EQ(state_in(*answer), "on");
}

TEST_F(QuestionTest, SilentPropertiesDoNotKeepOthersFromAnswering)
{
    RawPeer silent;
    for (guint32 id = 1; id <= 200; ++id)
        declare_property(silent, "Power", id);
    stay_silent(silent);
    declare_property(producer, "Power");
    answer_with(producer, "on");
    for (int i = 0; i < 40; ++i)
        EXPECT_EQ(state_in(ask()), "on");
}

// More than the bus lets the switch wait for, at so many names that none is asked often.
TEST_F(QuestionTest, ManySilentProducersDoNotKeepOthersFromAnswering)
{
    std::list<RawPeer> silent(100);
    for (RawPeer &peer : silent) {
        declare_property(peer, "Power");
        stay_silent(peer);
    }
    declare_property(producer, "Power");
    answer_with(producer, "on");
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(state_in(ask()), "on");
}

// The silent ones are known as silent from the first question on, and are asked all the same.
TEST_F(QuestionTest, EachPropertyOfASilentNameIsAsked)
{
    constexpr guint32 count = 100;
    for (guint32 id = 1; id <= count; ++id)
        declare_property(producer, "Power", id);
    stay_silent(producer);
    EXPECT_EQ(ask().text, "The producers did not answer in time");
    producer.take();
    EXPECT_EQ(ask().text, "The producers did not answer in time");
    std::vector<std::string> told = producer.take_members();
    for (guint32 id = 1; id <= count; ++id)
        EXPECT_EQ(std::count(told.begin(), told.end(), "Subscribe(" + std::to_string(id) + ")"), 1);
}

// Another user's properties that nobody answers for, at one name or at many.
class QuestionOfStrangersTest : public QuestionTest {
protected:
    void SetUp() override
    {
        if (getuid() != 0)
            GTEST_SKIP() << "only root can be somebody else";
    }
    static void be_silent(std::list<RawPeer> &peers, const char *topic, guint32 count)
    {
        for (RawPeer &peer : peers) {
            for (guint32 id = 1; id <= count; ++id)
                declare_property(peer, topic, id);
            stay_silent(peer);
        }
    }
};

TEST_F(QuestionOfStrangersTest, SilentPropertiesDoNotKeepOthersFromAnswering)
{
    std::list<RawPeer> silent;
    StrangerProcess stranger(bus.address(), [&silent] {
        silent.resize(20);
        be_silent(silent, "Power", 20);
    });
    declare_property(producer, "Power");
    answer_with(producer, "on");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(state_in(ask()), "on");
}

TEST_F(QuestionOfStrangersTest, SilentProducersLeaveOthersTheTimeToSayThatTheyHaveNoState)
{
    std::list<RawPeer> silent;
    StrangerProcess stranger(bus.address(), [&silent] {
        silent.resize(60);
        be_silent(silent, "Silence", 1);
    });
    RawPeer another;
    std::optional<Answer> unanswered;
    another.call_later(unanswered, "Consumer.GetPropertyState",
                       Octets{expression_bytes("Silence")});
    ASSERT_TRUE(run_until([&] { return unanswered.has_value(); }));
    EXPECT_EQ(unanswered->text, "The producers did not answer in time");

    declare_property(producer, "Power");
    EXPECT_EQ(ask().text, "The property has no state");
}

TEST_F(QuestionTest, AProducerWithManyPropertiesIsAskedForEach)
{
    for (guint32 id = 1; id <= 100; ++id)
        declare_property(producer, "Power", id);
    EXPECT_EQ(ask().text, "The property has no state");
    std::vector<std::string> told = producer.take_members();
    EXPECT_EQ(std::count(told.begin(), told.end(), "Subscribe(100)"), 1);
    EXPECT_EQ(told.size(), 200u) << "and told that the switch does not want to know any more";
}

// It takes its turn behind others of its name; until then it is taken back.
TEST_F(QuestionTest, APropertyThatGoesBeforeItsTurnIsNotAskedForAndNotWaitedFor)
{
    constexpr guint32 count = 20;
    for (guint32 id = 1; id <= count; ++id)
        declare_property(producer, "Power", id);
    bool is_taken_back = false;
    producer.on_call = [&](const Received &received) {
        if (received.member != "Subscribe" || std::exchange(is_taken_back, true))
            return true;
        EXPECT_EQ(producer.call("Producer.Undeclare", "/p", count).error, "");
        return true;
    };
    EXPECT_EQ(ask().text, "The property has no state");
    std::vector<std::string> told = producer.take_members();
    EXPECT_EQ(std::count(told.begin(), told.end(), "Subscribe(19)"), 1);
    EXPECT_EQ(std::count(told.begin(), told.end(), "Subscribe(20)"), 0);
}

TEST_F(QuestionTest, WhoeverHasBeenSilentIsAskedAgain)
{
    for (guint32 id = 1; id <= 20; ++id)
        declare_property(producer, "Power", id);
    stay_silent(producer);
    EXPECT_EQ(ask().text, "The producers did not answer in time");
    producer.on_call = [this](const Received &received) {
        if (received.member == "Subscribe" && received.numbers[0] == 20)
            send_state(producer, received, "on");
        return false;
    };
    EXPECT_EQ(state_in(ask()), "on");
}

TEST_F(QuestionTest, NobodyAnswersForAProducer)
{
    declare_property(producer, "Power");
    RawPeer stranger;
    std::optional<Received> asked;
    producer.on_call = [&](const Received &received) {
        if (received.member != "Subscribe")
            return true;
        asked = received;
        send_state(stranger, received, "forged");
        stranger.take(); // the switch has read it
        send_state(producer, received, "true");
        return true;
    };
    EXPECT_EQ(state_in(ask()), "true");
    EXPECT_TRUE(asked.has_value());
}

TEST_F(QuestionTest, AProducerThatLeavesHasNoState)
{
    auto mortal = std::make_unique<RawPeer>();
    declare_property(*mortal, "Power");
    bool asked = false;
    mortal->on_call = [&asked](const Received &) {
        asked = true;
        return false;
    };
    std::optional<Answer> answer;
    ask(asker, answer);
    ASSERT_TRUE(run_until([&] { return asked; }));
    mortal->leave();
    ASSERT_TRUE(run_until([&] { return answer.has_value(); }));
    EXPECT_EQ(answer->text, "The property has no state");
}

TEST_F(QuestionTest, AnAskerThatLeavesTakesItsQuestionAlong)
{
    declare_property(producer, "Power");
    stay_silent(producer);
    RawPeer mortal;
    std::optional<Answer> answer;
    ask(mortal, answer);
    std::vector<std::string> told;
    auto hears = [&](const char *member) {
        for (const std::string &one : producer.take_members())
            told.push_back(one);
        return !told.empty() && told.back().starts_with(member);
    };
    ASSERT_TRUE(run_until([&] { return hears("Subscribe"); }));
    mortal.leave();
    // At once, not when the time is over.
    ASSERT_TRUE(run_until([&] { return hears("Unsubscribe"); }, 1.5));
}

TEST_F(QuestionTest, AMalformedEventIsRefusedAndIsNoAnswer)
{
    declare_property(producer, "Power");
    producer.on_call = [this](const Received &received) {
        if (received.member != "Subscribe")
            return true;
        std::string bytes = event_bytes("Power", "on");
        bytes.pop_back();
        send_to_subscriber(producer, received.bytes, bytes);
        return true;
    };
    EXPECT_EQ(ask().text, "The property has no state");
}

} // namespace
