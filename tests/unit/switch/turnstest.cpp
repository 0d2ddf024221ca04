// SPDX-License-Identifier: LGPL-2.1-or-later

// Whose call is handled next, and what may wait.

#include "switch/turns.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sys/socket.h>
#include <unistd.h>

using namespace qandor;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using BusOwner = Owner<sd_bus, sd_bus_close_unref>;

constexpr guint32 one = 1001, other = 1002;

class TurnsTest : public testing::Test {
protected:
    // A call as it comes from the bus.
    BusMessageOwner new_call(const std::string &sender, const char *member, std::size_t size)
    {
        sd_bus_message *made = nullptr;
        EXPECT_GE(
            sd_bus_message_new_method_call(bus.get(), &made, nullptr, "/o", "test.Calls", member),
            0);
        EXPECT_GE(sd_bus_message_set_sender(made, sender.c_str()), 0);
        if (size > 0) {
            EXPECT_GE(sd_bus_message_append(made, "s", std::string(size, 's').c_str()), 0);
        }
        EXPECT_GE(sd_bus_message_seal(made, ++last_cookie, 0), 0);
        return BusMessageOwner(made);
    }
    std::string take(guint32 uid, const std::string &sender, const char *member,
                     std::size_t size = 1)
    {
        return turns.take(new_call(sender, member, size).get(), uid).value_or("");
    }
    std::vector<std::string> handle_all()
    {
        while (turns.handle_next()) {
        }
        return std::exchange(handled, {});
    }
    // Nobody is at the other end: calls are only made.
    BusOwner new_bus()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        other_end.emplace(ends[1]);
        sd_bus *made = nullptr;
        EXPECT_GE(sd_bus_new(&made), 0);
        EXPECT_GE(sd_bus_set_fd(made, ends[0], ends[0]), 0);
        EXPECT_GE(sd_bus_start(made), 0);
        return BusOwner(made);
    }

    std::optional<Descriptor> other_end;
    BusOwner bus = new_bus();
    guint64 last_cookie = 0;
    Accounts accounts;
    std::set<guint32> busy;
    std::set<std::string> unread;
    std::vector<std::string> handled;
    Turns turns{accounts,
                {[this](guint32 uid) { return !busy.contains(uid); },
                 [this](const std::string &name) { return !unread.contains(name); },
                 [this](sd_bus_message *call, guint32) {
                     handled.emplace_back(sd_bus_message_get_member(call));
                 }}};
};

TEST_F(TurnsTest, UsersTakeTurnsAndTheNamesOfAUser)
{
    take(one, ":1.1", "A1");
    take(one, ":1.1", "A2");
    take(one, ":1.2", "B1");
    take(other, ":1.3", "C1");
    take(other, ":1.3", "C2");
    EXPECT_THAT(handle_all(), ElementsAre("A1", "C1", "B1", "C2", "A2"));
}

TEST_F(TurnsTest, AUserWhoseLastCallStillMakesWorkWaitsAndTheOthersDoNot)
{
    busy.insert(one);
    take(one, ":1.1", "Mine");
    take(other, ":1.3", "Theirs");
    EXPECT_THAT(handle_all(), ElementsAre("Theirs"));
    busy.clear();
    EXPECT_THAT(handle_all(), ElementsAre("Mine"));
}

TEST_F(TurnsTest, WhatOnlyAsksWaitsForTheCallsBeforeItAlone)
{
    busy.insert(one);
    unread.insert(":1.2");
    take(one, ":1.1", "Change");
    take(one, ":1.1", "AskBehind", 0);
    take(one, ":1.2", "Ask", 0);
    EXPECT_TRUE(turns.has_call_of(":1.2", one));
    EXPECT_THAT(handle_all(), ElementsAre("Ask"));
    EXPECT_FALSE(turns.has_call_of(":1.2", one));
    busy.clear();
    EXPECT_THAT(handle_all(), ElementsAre("Change", "AskBehind"));
}

TEST_F(TurnsTest, ANameThatDoesNotReadWaitsAndTheUsersOthersDoNot)
{
    unread.insert(":1.1");
    take(one, ":1.1", "Deaf");
    take(one, ":1.2", "Reads");
    EXPECT_THAT(handle_all(), ElementsAre("Reads"));
    unread.clear();
    EXPECT_THAT(handle_all(), ElementsAre("Deaf"));
}

TEST_F(TurnsTest, CallsThatWaitAreChargedUntilTheyAreHandled)
{
    take(one, ":1.1", "Mine", 100000);
    EXPECT_GT(accounts.total().waiting_bytes, 100000u);
    handle_all();
    EXPECT_EQ(accounts.total().waiting_bytes, 0u);
}

TEST_F(TurnsTest, CallsBeyondTheLimitAreRefusedButQuestionsWithoutArguments)
{
    Limits limits;
    limits.stored_bytes = 3000;
    accounts.set_limits({limits, {}});
    EXPECT_EQ(take(one, ":1.1", "First"), "");
    EXPECT_EQ(take(one, ":1.1", "Large", 2000), "A user may have 3000 bytes of calls that wait");
    EXPECT_EQ(take(one, ":1.1", "Query", 0), "");
    EXPECT_EQ(take(other, ":1.3", "Alone", 4000), "");
    EXPECT_THAT(handle_all(), ElementsAre("First", "Alone", "Query"));
}

TEST_F(TurnsTest, TheCallsOfANameThatLeavesAreForgotten)
{
    take(one, ":1.1", "Gone");
    take(one, ":1.2", "There");
    turns.forget_peer(":1.1");
    EXPECT_THAT(handle_all(), ElementsAre("There"));
    EXPECT_TRUE(turns.is_empty());
    EXPECT_EQ(accounts.total().waiting_bytes, 0u);
}

} // namespace
