// SPDX-License-Identifier: LGPL-2.1-or-later

// What the bus tells of a caller, who may live in namespaces of its own.

#include "switch/senders.hpp"

#include <gtest/gtest.h>

#include <sys/socket.h>

using namespace qandor;

namespace {

using BusOwner = Owner<sd_bus, sd_bus_close_unref>;

class SendersTest : public testing::Test {
protected:
    SendersTest()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        other_end.emplace(ends[1]);
        sd_bus *made = nullptr;
        EXPECT_GE(sd_bus_new(&made), 0);
        bus.reset(made);
        EXPECT_GE(sd_bus_set_fd(made, ends[0], ends[0]), 0);
        EXPECT_GE(sd_bus_start(made), 0);
    }
    template <class... Arguments> std::optional<Sender> read(const char *types, Arguments... values)
    {
        sd_bus_message *made = nullptr;
        EXPECT_GE(sd_bus_message_new_signal(bus.get(), &made, "/o", "test.I", "Credentials"), 0);
        BusMessageOwner message(made);
        EXPECT_GE(sd_bus_message_append(made, types, values...), 0);
        EXPECT_GE(sd_bus_message_seal(made, 1, 0), 0);
        return sender_from(made);
    }

    std::optional<Descriptor> other_end;
    BusOwner bus;
};

TEST_F(SendersTest, UserAndProcessAreReadWhateverElseThereIs)
{
    auto sender = read("a{sv}", 4, "LinuxSecurityLabel", "ay", 2, 1, 2, "ProcessID", "u", 42,
                       "UnixGroupIDs", "au", 1, 5, "UnixUserID", "u", 1000);
    ASSERT_TRUE(sender);
    EXPECT_EQ(sender->uid, 1000u);
    EXPECT_EQ(sender->pid, 42u);
}

TEST_F(SendersTest, AProcessOfAnotherNamespaceHasNoProcessId)
{
    auto sender = read("a{sv}", 1, "UnixUserID", "u", 1000);
    ASSERT_TRUE(sender);
    EXPECT_EQ(sender->uid, 1000u);
    EXPECT_EQ(sender->pid, 0u);
}

TEST_F(SendersTest, WithoutAUserNobodyIsKnown)
{
    EXPECT_FALSE(read("a{sv}", 1, "ProcessID", "u", 42));
    EXPECT_FALSE(read("a{sv}", 1, "UnixUserID", "s", "root"));
    EXPECT_FALSE(read("s", "credentials"));
}

} // namespace
