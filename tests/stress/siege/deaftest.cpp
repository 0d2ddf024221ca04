// SPDX-License-Identifier: LGPL-2.1-or-later

// Connections that do not read what the switch sends, and calls that make it send very much. Other
// users are served, the switch stays alive, and a connection that reads late has lost nothing.

#include "stress/siege/costlyrecords.hpp"
#include "stress/siege/siege.hpp"

#include "bus/switch/rawpeer.hpp"
#include "bus/switch/rawrecords.hpp"

#include <map>
#include <set>

using namespace qandor::test;

namespace {

class Deaf : public Siege {
protected:
    // A bystander must be served while the user does not read, and after it reads or leaves.
    void live_beside(OtherUser &user)
    {
        ASSERT_TRUE(user.says("deaf", 120));
        DailyLife life(*bus);
        EXPECT_TRUE(life.goes_on(50, 30));
        user.ask_to_end();
        EXPECT_TRUE(life.goes_on(50, 30));
        expect_served(life);
        expect_memory_bounded();
    }
};

// 100 declarations of 60 KB, each announced to 20 subscriptions of 60 KB: 360 MB are not read.
TEST_F(Deaf, AConnectionThatIsToldMoreThanTheBusHolds)
{
    std::string large(60000, 'a');
    Octets declaration{declaration_bytes(large.c_str(), 1)};
    Octets expression{expression_bytes(large.c_str())};
    OtherUser user(*bus, attacker, [&](OtherUser::Line &line) {
        RawPeer peer;
        for (guint32 i = 0; i < 20; ++i)
            peer.call("Consumer.Subscribe", "/c", "deaf", i, expression);
        for (int i = 0; i < 100; ++i)
            peer.tell("Producer.Declare", "/p", "deaf", declaration);
        line.say("deaf");
        line.wait_for_end();
    });
    live_beside(user);
}

// The calls that a peer has received from the switch.
struct Hearing {
    std::set<guint32> subscribed; // the local ids of the declarations
    unsigned notified = 0, twice = 0;

    void hear(const Received &received)
    {
        if (received.member == "Notification")
            ++notified;
        else if (received.member == "Subscribe")
            twice += !subscribed.insert(received.numbers.at(0)).second;
    }
    bool is_complete(unsigned declarations) const
    {
        return subscribed.size() == declarations && notified == declarations;
    }
};

// One subscription of 240 KB matches 600 declarations: 300 MB, which are read late.
TEST_F(Deaf, WhoReadsLateHasLostNothing)
{
    constexpr unsigned declarations = 600;
    using Record = CostlyRecord;
    std::string alternatives =
        Record::and_list(Record::bucket(Record::key_value({"topic0", "Late"})), 1);
    for (char letter : {'a', 'b', 'c', 'd'})
        alternatives += Record::and_list(
            Record::bucket(Record::key_value({"topic0", std::string(59000, letter)})), 1);
    Octets expression{Record::expression(alternatives, 5)};
    SharedCount subscribed, notified;
    OtherUser user(*bus, attacker, [&](OtherUser::Line &line) {
        RawPeer peer;
        for (guint32 i = 1; i <= declarations; ++i)
            peer.call("Producer.Declare", "/p", "late", Octets{declaration_bytes("Late", i)});
        peer.take();
        Hearing heard;
        peer.remembers = false;
        peer.on_call = [&](const Received &received) {
            heard.hear(received);
            return true;
        };
        peer.tell("Consumer.Subscribe", "/c", "late", guint32(1), expression);
        line.say("deaf");
        line.wait_for_end();
        run_until([&] { return heard.is_complete(declarations); }, 20);
        subscribed.add(heard.subscribed.size());
        notified.add(heard.notified);
    });
    live_beside(user);
    EXPECT_TRUE(user.end());
    tell_figure("subscriptions told late", static_cast<double>(subscribed.get()), "of 600");
    tell_figure("notifications told late", static_cast<double>(notified.get()), "of 600");
    EXPECT_EQ(subscribed.get(), declarations);
    EXPECT_EQ(notified.get(), declarations);
}

// Each declaration of one producer matches each subscription of one consumer.
class DeafMany : public Deaf {
protected:
    // The consumer is told of each pair, and then the producer leaves when it is told to.
    OtherUser::Part match_all()
    {
        return [this](OtherUser::Line &line) {
            RawPeer producer, consumer;
            producer.remembers = consumer.remembers = false;
            guint64 added = 0;
            consumer.on_call = [&](const Received &received) {
                Owned<notification> told(
                    notification_deserialize(array_from(received.bytes).get()));
                if (notification_is_type_deleted(told.get()))
                    removed.add();
                else
                    ++added;
                return true;
            };
            for (guint32 token = 1; token <= subscriptions; ++token)
                consumer.call("Consumer.Subscribe", "/c", "many", token,
                              Octets{expression_bytes("Many")});
            for (guint32 id = 1; id <= declarations; ++id) {
                producer.tell("Producer.Declare", "/p", "many",
                              Octets{declaration_bytes("Many", id)});
                guint64 told = static_cast<guint64>(id) * subscriptions;
                run_until([&] { return added == told; }, 60);
            }
            producer.take();
            line.say("matched");
            run_until([&] { return leaves.get() > 0; }, 600);
            producer.leave();
            run_until([&] { return line.is_over(); }, 600);
        };
    }

    const guint32 declarations = static_cast<guint32>(scaled(200, 1000));
    const guint32 subscriptions = static_cast<guint32>(scaled(500, 2000));
    SharedCount leaves, removed;
};

// The consumer is told of the removal once for each pair.
TEST_F(DeafMany, TheDeathOfAProducerThatManySubscriptionsMatched)
{
    OtherUser user(*bus, attacker, match_all());
    ASSERT_TRUE(user.says("matched", 600));
    DailyLife life(*bus);
    leaves.add();
    bool told = removed.reaches(static_cast<guint64>(declarations) * subscriptions, 120);
    EXPECT_TRUE(told) << removed.get();
    EXPECT_TRUE(life.goes_on());
    expect_served(life);
    expect_memory_bounded();
}

// Each row of the list has the ids of all declarations.
TEST_F(DeafMany, NobodyWaitsForTheListOfAllSubscriptions)
{
    OtherUser user(*bus, attacker, match_all());
    ASSERT_TRUE(user.says("matched", 600));
    RawPeer onlooker;
    DailyLife life(*bus);
    for (int i = 0; i < 5; ++i) {
        gint64 begin = g_get_monotonic_time();
        EXPECT_GE(list_rows(onlooker.bus(), "ListSubscriptions").size(), subscriptions);
        tell_figure("a list takes", static_cast<double>(g_get_monotonic_time() - begin) / 1000,
                    "ms");
    }
    EXPECT_TRUE(life.goes_on());
    expect_served(life);
    expect_memory_bounded();
}

} // namespace
