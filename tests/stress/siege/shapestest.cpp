// SPDX-License-Identifier: LGPL-2.1-or-later

// Records whose shape makes them expensive, within the default limits. The switch's memory stays
// bounded and other users are served, whether the switch stores or refuses the records.

#include "stress/siege/costlyrecords.hpp"
#include "stress/siege/siege.hpp"

#include "bus/switch/rawpeer.hpp"
#include "bus/switch/rawrecords.hpp"

#include <functional>

using namespace qandor::test;

namespace {

using Record = CostlyRecord;

class Shapes : public Siege {
protected:
    using Part = std::function<void(RawPeer &)>;

    static void declare(RawPeer &peer, const std::string &declaration)
    {
        peer.call("Producer.Declare", "/p", "costly", Octets{declaration});
    }
    static void subscribe(RawPeer &peer, const std::string &expression, guint32 token = 1)
    {
        peer.call("Consumer.Subscribe", "/c", "costly", token, Octets{expression});
    }
    // An attacker prepares and strikes. A bystander must be served before, meanwhile and
    // afterwards.
    void besiege(const Part &prepare, const Part &strike)
    {
        OtherUser enemy(*bus, attacker, [&](OtherUser::Line &line) {
            RawPeer peer;
            prepare(peer);
            peer.take();
            line.say("prepared");
            while (!line.is_over(10) && !is_told_to_strike.get()) {
            }
            line.say("strikes");
            strike(peer);
            peer.remembers = false;
            line.say("struck");
            // Reads what the switch sends, so that only the records cost.
            run_until([&] { return line.is_over(); }, 600);
        });
        ASSERT_TRUE(enemy.says("prepared", 300));
        DailyLife life(*bus, false);
        EXPECT_TRUE(life.goes_on());
        is_told_to_strike.add();
        EXPECT_TRUE(enemy.says("struck", 120));
        EXPECT_TRUE(life.goes_on());
        EXPECT_TRUE(enemy.end());
        EXPECT_TRUE(life.goes_on());
        expect_served(life);
        expect_memory_bounded();
    }
    // Sends that number of records; the switch may refuse some.
    static Part store(int records, const std::function<void(RawPeer &, guint32)> &one)
    {
        return [=](RawPeer &peer) {
            peer.remembers = false;
            for (int i = 0; i < records; ++i)
                one(peer, static_cast<guint32>(i + 1));
        };
    }
    static void nothing(RawPeer &) {}

    SharedCount is_told_to_strike;
};

// One call beside many declarations.

void declare_many(RawPeer &peer)
{
    peer.remembers = false;
    for (int i = 0; i < scaled(1000, 4000); ++i)
        peer.call("Producer.Declare", "/p", "many",
                  Octets{declaration_bytes("Many", static_cast<guint32>(i + 1))});
}

TEST_F(Shapes, ASubscriptionOfEmptyAlternativesBesideManyDeclarations)
{
    besiege(declare_many,
            [](RawPeer &peer) { subscribe(peer, Record::empty_alternatives(52000)); });
}

TEST_F(Shapes, AQuestionOfEmptyAlternativesBesideManyDeclarations)
{
    besiege(
        [](RawPeer &peer) {
            peer.remembers = false;
            for (int i = 0; i < scaled(400, 4000); ++i)
                peer.call("Producer.Declare", "/p", "many",
                          Octets{declaration_bytes("Many", static_cast<guint32>(i + 1), true)});
        },
        [](RawPeer &peer) {
            std::optional<Answer> answer;
            peer.call_later(answer, "Consumer.GetPropertyState",
                            Octets{Record::empty_alternatives(52000)});
            run_until([&] { return answer.has_value(); }, 60);
        });
}

// As many records as the default limits allow one user to store.

TEST_F(Shapes, StoredExpressionsOfEmptyAlternatives)
{
    besiege(nothing, store(scaled(20, 64), [](RawPeer &peer, guint32 token) {
                subscribe(peer, Record::empty_alternatives(52000), token);
            }));
}

TEST_F(Shapes, StoredExpressionsOfNegatedAlternatives)
{
    besiege(nothing, store(64, [](RawPeer &peer, guint32 token) {
                subscribe(peer, Record::negated_alternatives(7500), token);
            }));
}

TEST_F(Shapes, StoredDeclarationsWithTagsOnAKey)
{
    besiege(nothing, store(128, [](RawPeer &peer, guint32 local_id) {
                declare(peer, Record::tagged_key(65000, local_id));
            }));
}

TEST_F(Shapes, StoredDeclarationsWithTagsOnThemselves)
{
    besiege(nothing, store(128, [](RawPeer &peer, guint32 local_id) {
                declare(peer, Record::tagged_object(65000, local_id));
            }));
}

TEST_F(Shapes, StoredDeclarationsOfLargeBuckets)
{
    besiege(nothing, store(64, [](RawPeer &peer, guint32 local_id) {
                declare(peer, Record::many_values(8500, local_id));
            }));
}

// Conditions and values that are compared pair by pair.

TEST_F(Shapes, ALargeBucketAgainstLargeBuckets)
{
    besiege(store(scaled(30, 70),
                  [](RawPeer &peer, guint32 local_id) {
                      declare(peer, Record::many_values(8500, local_id));
                  }),
            [](RawPeer &peer) { subscribe(peer, Record::many_conditions(8500)); });
}

TEST_F(Shapes, ManyKeyWildcardsAgainstLargeBuckets)
{
    besiege(store(scaled(30, 60),
                  [](RawPeer &peer, guint32 local_id) {
                      declare(peer, Record::many_values(7900, local_id));
                  }),
            [](RawPeer &peer) { subscribe(peer, Record::many_key_wildcards(7900)); });
}

} // namespace
