// SPDX-License-Identifier: LGPL-2.1-or-later

// What waits for a bus that takes nothing: messages, and the calls of those who have caused them.

#include "switch/turns.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>

using namespace qandor;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using BusOwner = Owner<sd_bus, sd_bus_close_unref>;

constexpr guint32 one = 1001, other = 1002;

std::vector<std::string> handled;

class TurnsTest : public testing::Test {
protected:
    TurnsTest()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        sd_event *made = nullptr;
        EXPECT_GE(sd_event_new(&made), 0);
        event.reset(made);
        bus = open(ends[0], false);
        peer = open(ends[1], true);
        EXPECT_GE(sd_bus_attach_event(bus.get(), made, SD_EVENT_PRIORITY_NORMAL), 0);
        EXPECT_TRUE(run_until([this] {
            sd_bus_process(peer.get(), nullptr);
            return sd_bus_is_ready(bus.get()) > 0 && sd_bus_is_ready(peer.get()) > 0;
        }));
        outbox.emplace(bus.get());
        turns.emplace(*outbox, accounts);
        EXPECT_GE(outbox->watch(made), 0);
        EXPECT_GE(turns->begin(made), 0);
        handled.clear();
    }

    static BusOwner open(int end, bool is_server)
    {
        sd_bus *made = nullptr;
        EXPECT_GE(sd_bus_new(&made), 0);
        BusOwner owner(made);
        EXPECT_GE(sd_bus_set_fd(made, end, end), 0);
        if (is_server) {
            EXPECT_GE(sd_bus_set_server(made, 1,
                                        SD_ID128_MAKE(01, 02, 03, 04, 05, 06, 07, 10, 11, 12, 13,
                                                      14, 15, 16, 17, 20)),
                      0);
            EXPECT_GE(sd_bus_set_anonymous(made, 1), 0);
        }
        EXPECT_GE(sd_bus_set_anonymous(made, 1), 0);
        EXPECT_GE(sd_bus_start(made), 0);
        return owner;
    }
    bool run_until(const std::function<bool()> &condition) const
    {
        const gint64 bound = g_get_monotonic_time() + 20 * G_USEC_PER_SEC;
        while (!condition()) {
            if (g_get_monotonic_time() > bound)
                return false;
            sd_event_run(event.get(), 1000);
        }
        return true;
    }

    BusMessageOwner new_signal(const std::string &name, std::size_t size) const
    {
        sd_bus_message *made = nullptr;
        EXPECT_GE(sd_bus_message_new_signal(bus.get(), &made, "/o", "test.Signals", name.c_str()),
                  0);
        const std::string bytes(size, 'b');
        EXPECT_GE(sd_bus_message_append_array(made, 'y', bytes.data(), bytes.size()), 0);
        return BusMessageOwner(made);
    }
    void send_later(guint32 uid, const std::string &name, std::size_t size = 1)
    {
        Outbox::Cause cause(*outbox, uid);
        outbox->add(
            [this, name, size] { sd_bus_send(bus.get(), new_signal(name, size).get(), nullptr); });
    }
    // More than a socket holds.
    void block(guint32 uid) { send_later(uid, "Large", 40 << 20); }
    // What the peer hears until the name comes.
    std::vector<std::string> hear_until(const std::string &last) const
    {
        std::vector<std::string> heard;
        EXPECT_TRUE(run_until([&] {
            sd_bus_message *made = nullptr;
            while (sd_bus_process(peer.get(), &made) > 0)
                if (BusMessageOwner message(made); made && sd_bus_message_get_member(made))
                    heard.emplace_back(sd_bus_message_get_member(made));
            return !heard.empty() && heard.back() == last;
        }));
        return heard;
    }

    // A call, as if the peer had made it.
    BusMessageOwner new_call(const char *member, std::size_t size) const
    {
        sd_bus_message *made = nullptr;
        EXPECT_GE(
            sd_bus_message_new_method_call(bus.get(), &made, nullptr, "/o", "test.Calls", member),
            0);
        if (size > 0) {
            EXPECT_GE(sd_bus_message_append(made, "s", std::string(size, 's').c_str()), 0);
        }
        EXPECT_GE(sd_bus_message_seal(made, 1, 0), 0);
        return BusMessageOwner(made);
    }
    int take(guint32 uid, const char *member, std::size_t size = 1)
    {
        return turns->take(new_call(member, size).get(), uid, note, nullptr);
    }
    static int note(sd_bus_message *call, void *, sd_bus_error *)
    {
        handled.emplace_back(sd_bus_message_get_member(call));
        return 1;
    }

    EventLoopOwner event;
    BusOwner bus, peer;
    Accounts accounts;
    std::optional<Outbox> outbox;
    std::optional<Turns> turns;
};

TEST_F(TurnsTest, WhatTheBusDoesNotTakeYetIsMadeLaterAndInOrder)
{
    block(one);
    bool made = false;
    outbox->add([&made] { made = true; });
    send_later(one, "First");
    send_later(other, "Second");
    EXPECT_FALSE(made);
    EXPECT_TRUE(outbox->holds(one));
    EXPECT_THAT(hear_until("Second"), ElementsAre("Large", "First", "Second"));
    EXPECT_TRUE(made);
    EXPECT_FALSE(outbox->holds(one));
    EXPECT_FALSE(outbox->holds(other));
}

TEST_F(TurnsTest, AUserWhoHasCausedMuchWaitsAndTheOthersDoNot)
{
    block(one);
    send_later(one, "Rest");
    take(one, "Mine");
    take(one, "MineToo");
    take(other, "Theirs");
    EXPECT_THAT(handled, ElementsAre("Theirs"));
    hear_until("Rest");
    EXPECT_TRUE(run_until([] { return handled.size() == 3; }));
    EXPECT_THAT(handled, ElementsAre("Theirs", "Mine", "MineToo"));
}

TEST_F(TurnsTest, CallsThatWaitAreChargedUntilTheyAreHandled)
{
    block(one);
    send_later(one, "Rest");
    take(one, "Mine", 100000);
    EXPECT_GT(accounts.total().waiting_bytes, 100000u);
    hear_until("Rest");
    EXPECT_TRUE(run_until([] { return !handled.empty(); }));
    EXPECT_EQ(accounts.total().waiting_bytes, 0u);
}

TEST_F(TurnsTest, CallsBeyondTheLimitAreRefusedButQuestionsWithoutArguments)
{
    Limits limits;
    limits.stored_bytes = 3000;
    accounts.set_limits({limits, {}});
    block(one);
    send_later(one, "Rest");
    take(one, "First");
    take(one, "Large", 2000);
    take(one, "Query", 0);
    hear_until("Rest");
    EXPECT_TRUE(run_until([] { return handled.size() == 2; }));
    EXPECT_THAT(handled, ElementsAre("First", "Query"));
}

} // namespace
