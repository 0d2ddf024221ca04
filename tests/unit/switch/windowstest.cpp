// SPDX-License-Identifier: LGPL-2.1-or-later

// How much may be on the way to peers who have not read it, however many of them read nothing.

#include "switch/windows.hpp"

#include <gtest/gtest.h>

using namespace qandor;
using Way = Windows::Way;

namespace {

constexpr guint64 stock_bus = 127 << 20;

class WindowsTest : public testing::Test {
protected:
    struct User {
        Unread unread;
    };

    // Sends to a name of the user until no more may go.
    Unread fill(User &user, guint64 bytes, bool is_waited_for)
    {
        Unread name;
        for (;;) {
            Way way = windows.way_for(bytes, is_waited_for, name, user.unread);
            if (way == Way::None)
                return name;
            Unread more = way == Way::Small ? Unread{bytes, 0} : Unread{0, bytes};
            name += more;
            user.unread += more;
            windows.add(more);
        }
    }

    Windows windows;
};

TEST_F(WindowsTest, ANameThatReadsNothingGetsItsWindow)
{
    User user;
    Unread name = fill(user, 1000, false);
    EXPECT_LE(name.small, Windows::of_name);
    EXPECT_GT(name.small, Windows::of_name - 2000);
}

TEST_F(WindowsTest, ALargeMessageGoesWhenAllBeforeItIsRead)
{
    Unread nothing, little{100, 0};
    EXPECT_EQ(windows.way_for(28 << 20, false, nothing, nothing), Way::Large);
    EXPECT_EQ(windows.way_for(28 << 20, false, little, little), Way::None);
    EXPECT_EQ(windows.way_for(28 << 20, true, little, little), Way::Large);
}

TEST_F(WindowsTest, HoweverManyReadNothingTheBusKeepsLessThanItBounds)
{
    for (int uid = 0; uid < 64; ++uid) {
        User user;
        for (int name = 0; name < 32; ++name) // together as many as a stock bus has connections
            fill(user, name % 2 ? 1000 : 30000, name % 3 == 0);
    }
    EXPECT_LT(windows.all().total(), stock_bus - (20 << 20));
}

TEST_F(WindowsTest, ThereIsSomethingLeftForThoseWhoComeLater)
{
    for (int uid = 0; uid < 20; ++uid) {
        User user;
        for (int name = 0; name < 100; ++name)
            fill(user, 1000, true);
    }
    User late;
    EXPECT_GE(fill(late, 1000, false).small, Windows::own_of_name - 1000);
    EXPECT_NE(windows.way_for(10000, true, {}, {}), Way::None);
}

} // namespace
