// SPDX-License-Identifier: LGPL-2.1-or-later

// How the calls for which the switch waits are shared out.

#include "switch/replybudget.hpp"

#include <gtest/gtest.h>

using namespace qandor;

namespace {

TEST(Askings, WhoeverAsksLeavesRoomForOthers)
{
    Askings askings;
    for (guint32 i = 0; i < max_askings_of_asker; ++i) {
        EXPECT_TRUE(askings.has_room(1, 100 + i));
        askings.begin(1, 100 + i);
    }
    EXPECT_FALSE(askings.has_room(1, 99));
    EXPECT_TRUE(askings.has_room(2, 99));
    askings.end(1, 100);
    EXPECT_TRUE(askings.has_room(1, 99));
}

TEST(Askings, WhoeverDoesNotAnswerLeavesRoomForOthers)
{
    Askings askings;
    for (guint32 i = 0; i < max_askings_of_declarer; ++i) {
        EXPECT_TRUE(askings.has_room(i, 7));
        askings.begin(i, 7);
    }
    EXPECT_FALSE(askings.has_room(99, 7));
    EXPECT_TRUE(askings.has_room(99, 8));
    askings.end(0, 7);
    EXPECT_TRUE(askings.has_room(99, 7));
}

TEST(Askings, AllTogetherHaveABoundToo)
{
    Askings askings;
    for (guint32 i = 0; i < max_askings; ++i) {
        EXPECT_TRUE(askings.has_room(i, 100 + i));
        askings.begin(i, 100 + i);
    }
    EXPECT_FALSE(askings.has_room(1000, 2000));
    askings.end(0, 100);
    EXPECT_TRUE(askings.has_room(1000, 2000));
}

} // namespace
