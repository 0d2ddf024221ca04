// SPDX-License-Identifier: LGPL-2.1-or-later

// What becomes of sends that fail, and of a bus that takes nothing.

#include "switch/outbox.hpp"

#include "bus/pairedbus.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

using namespace qandor;
using qandor::test::PairedBus;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr guint32 user = 1000;
constexpr guint64 bytes = 100;

gint64 the_time = 0;

gint64 tell_time()
{
    return the_time;
}

class OutboxTest : public testing::Test {
protected:
    void SetUp() override
    {
        outbox.know(":1.5", user);
        outbox.know(":1.6", user);
    }

    // Sends to the name, with this result.
    void send(const std::string &name, gint64 result = bytes)
    {
        outbox.add(name, Outbox::Kind::Call, bytes, [this, name, result] {
            sent.push_back(name);
            return result;
        });
    }
    // Gives the bus more than it takes.
    void fill_bus()
    {
        const std::string much(64 << 10, 'x');
        for (guint64 queued = 0; queued == 0; sd_bus_get_n_queued_write(bus.client(), &queued)) {
            sd_bus_message *made = nullptr;
            ASSERT_GE(sd_bus_message_new_method_call(bus.client(), &made, ":1.7", "/", "a.b", "C"),
                      0);
            BusMessageOwner call(made);
            ASSERT_GE(sd_bus_message_append_array(made, 'y', much.data(), much.size()), 0);
            ASSERT_GE(sd_bus_message_set_expect_reply(made, 0), 0);
            ASSERT_GE(sd_bus_send(bus.client(), made, nullptr), 0);
        }
    }
    void look_after(gint64 usec)
    {
        the_time += usec;
        outbox.look_again();
    }

    PairedBus bus;
    std::vector<std::string> sent;
    Outbox outbox{bus.client(), [](const std::string &, guint32) { return false; }, tell_time};
};

TEST_F(OutboxTest, ASendThatFailsLosesItsNameAndIsLogged)
{
    testing::internal::CaptureStderr();
    send(":1.5", -ENOBUFS);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "event-switch: :1.5 of user 1000 is dropped with all it has declared and subscribed: "
              "No buffer space available\n");
    EXPECT_THAT(outbox.take_lost(), ElementsAre(":1.5"));
    EXPECT_THAT(outbox.take_lost(), IsEmpty());
}

TEST_F(OutboxTest, TheOthersAreSentToAfterASendThatFails)
{
    send(":1.5", -ENOMEM);
    send(":1.5");
    send(":1.6");
    EXPECT_THAT(sent, ElementsAre(":1.5", ":1.6"));
}

TEST_F(OutboxTest, ALostNameIsSentToAgainOnceItIsCleared)
{
    send(":1.5", -ENOBUFS);
    outbox.clear(":1.5");
    send(":1.5");
    EXPECT_THAT(sent, ElementsAre(":1.5", ":1.5"));
    EXPECT_THAT(outbox.take_lost(), ElementsAre(":1.5"));
}

TEST_F(OutboxTest, WhatWaitsForANameIsGoneWhenASendToItFails)
{
    fill_bus();
    send(":1.5", -ENOBUFS);
    send(":1.5");
    send(":1.6");
    EXPECT_THAT(sent, IsEmpty());
    bus.process();
    while (outbox.send_next()) {
    }
    EXPECT_THAT(sent, ElementsAre(":1.5", ":1.6"));
    outbox.clear(":1.5");
    EXPECT_TRUE(outbox.is_empty());
}

TEST_F(OutboxTest, ABusThatTakesNothingForLongIsStuck)
{
    fill_bus();
    look_after(Outbox::stuck_usec);
    look_after(G_USEC_PER_SEC);
    EXPECT_FALSE(outbox.is_stuck()) << "the loop may have had no time to write";
    look_after(G_USEC_PER_SEC);
    EXPECT_TRUE(outbox.is_stuck());
}

TEST_F(OutboxTest, ABusThatTakesSomethingNowAndThenIsNotStuck)
{
    fill_bus();
    look_after(Outbox::stuck_usec - 1);
    EXPECT_FALSE(outbox.is_stuck());
    bus.process();
    look_after(G_USEC_PER_SEC);
    fill_bus();
    look_after(Outbox::stuck_usec - 1);
    look_after(1);
    EXPECT_FALSE(outbox.is_stuck());
}

TEST_F(OutboxTest, ABusThatNobodyGivesAnythingIsNotStuck)
{
    look_after(10 * Outbox::stuck_usec);
    look_after(G_USEC_PER_SEC);
    look_after(G_USEC_PER_SEC);
    EXPECT_FALSE(outbox.is_stuck());
}

} // namespace
