// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/formersubscribers.hpp"

#include <gtest/gtest.h>

using namespace qandor;

namespace {

std::unique_ptr<subscribe_expression> subscription_of(guint32 token)
{
    auto made = std::make_unique<subscribe_expression>(FALSE);
    made->consumer_token = token;
    made->dbus_service = ":1.1";
    made->dbus_object = "/consumer";
    return made;
}

class FormerSubscribersTest : public testing::Test {
protected:
    // The switch goes while these have subscribed.
    void lose_switch(const std::vector<guint32> &tokens)
    {
        ForwardedSubscriptions subscriptions;
        for (guint32 token : tokens)
            subscriptions.add(subscription_of(token));
        former.remember(subscriptions);
    }
    void keep(guint32 number)
    {
        std::unique_ptr<event> kept(event_new());
        event_set_local_id(kept.get(), number);
        former.keep(*kept, nullptr);
    }
    std::vector<guint32> missed_by(guint32 token)
    {
        std::vector<guint32> numbers;
        former.welcome(*subscription_of(token), [&](const event &missed) {
            numbers.push_back(event_get_local_id(&missed));
        });
        return numbers;
    }

    FormerSubscribers former;
};

using Numbers = std::vector<guint32>;

TEST_F(FormerSubscribersTest, OneThatIsBackGetsWhatItHasMissedOnce)
{
    lose_switch({1, 2});
    keep(10);
    keep(11);
    EXPECT_EQ(missed_by(1), (Numbers{10, 11}));
    EXPECT_EQ(missed_by(1), Numbers{}) << "it is back already";
    EXPECT_EQ(former.give_up(), 2u) << "the other one has missed both";
    EXPECT_TRUE(former.empty());
}

// What was kept for others has reached it before the switch went again.
TEST_F(FormerSubscribersTest, OneThatWasBackBeforeTheSwitchWentAgainGetsNothingTwice)
{
    lose_switch({1, 2});
    keep(10);
    EXPECT_EQ(missed_by(1), Numbers{10});
    keep(11);
    lose_switch({1});
    keep(12);
    EXPECT_EQ(missed_by(1), Numbers{12});
    EXPECT_EQ(missed_by(2), (Numbers{10, 11, 12})) << "it was away all the time";
}

} // namespace
