// SPDX-License-Identifier: LGPL-2.1-or-later

// Connections on the main context, when things around them go wrong.

#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"

#include <qandor/busconnection.h>

#include <glib-unix.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <unistd.h>

using namespace qandor::test;

namespace {

class EventSourceTest : public testing::Test {
protected:
    EventSourceTest()
    {
        GError *error = nullptr;
        EXPECT_GE(connect_to_bus_and_attach_events(&source, &bus, &error), 0);
    }
    ~EventSourceTest() override { disconnect_from_bus_and_detach_events(source, bus); }

    // Asks the bus driver, and counts the answers.
    void ask()
    {
        sd_bus_call_method_async(bus, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus", "GetId", count_answer, &answers, nullptr);
    }
    static int count_answer(sd_bus_message *, void *count, sd_bus_error *)
    {
        ++*static_cast<int *>(count);
        return 0;
    }

    PrivateBus private_bus;
    GSource *source = nullptr;
    sd_bus *bus = nullptr;
    int answers = 0;
};

TEST_F(EventSourceTest, ABusThatIsGoneLeavesTheMainContextInPeace)
{
    ask();
    EXPECT_TRUE(wait_until([&] { return answers == 1; }));
    private_bus.kill();
    EXPECT_TRUE(wait_until([&] { return sd_bus_is_open(bus) <= 0; }));
    run_pending();
    int ready = 0;
    for (int i = 0; i < 100; ++i)
        ready += g_main_context_iteration(nullptr, FALSE);
    EXPECT_EQ(ready, 0);
}

TEST_F(EventSourceTest, DescriptorsThatComeAndGoOnAnotherThreadDoNotDisturbIt)
{
    LogCapture log;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::atomic<bool> stop = false;
    std::thread disturbing([&] {
        while (!stop) {
            GSource *other = g_unix_fd_source_new(ends[0], G_IO_IN);
            g_source_attach(other, nullptr);
            std::this_thread::yield();
            g_source_destroy(other);
            g_source_unref(other);
        }
    });
    for (int i = 0; i < 2000; ++i) {
        ask();
        ASSERT_TRUE(wait_until([&] { return answers == i + 1; })) << i;
    }
    stop = true;
    disturbing.join();
    close(ends[0]);
    close(ends[1]);
    EXPECT_TRUE(log.warnings().empty());
}

TEST_F(EventSourceTest, MessagesReadAheadDuringASynchronousCallAreDeliveredWithoutFurtherTraffic)
{
    for (int i = 0; i < 20; ++i)
        ask();
    // Its answer comes behind the twenty others, which are read on the way.
    sd_bus_message *reply = nullptr;
    ASSERT_GE(sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus", "GetId", nullptr, &reply, nullptr),
              0);
    sd_bus_message_unref(reply);
    EXPECT_EQ(answers, 0);
    EXPECT_TRUE(wait_until([&] { return answers == 20; }, 5));
}

} // namespace
