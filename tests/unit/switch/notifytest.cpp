// SPDX-License-Identifier: LGPL-2.1-or-later

// What a service manager hears from the switch.

#include "switch/notify.hpp"

#include "bus/switch/manager.hpp"

#include <gtest/gtest.h>

using namespace qandor;

namespace {

class NotifierTest : public testing::Test {
protected:
    NotifierTest()
    {
        sd_event *made = nullptr;
        EXPECT_GE(sd_event_new(&made), 0);
        event_.reset(made);
    }

    // Something that the loop has to do.
    void work()
    {
        auto nothing = [](sd_event_source *, void *) { return 0; };
        sd_event_source *source = nullptr;
        ASSERT_GE(sd_event_add_defer(event_.get(), &source, nothing, nullptr), 0);
        while (sd_event_source_get_enabled(source, nullptr) > 0)
            ASSERT_GE(sd_event_run(event_.get(), 0), 0);
        sd_event_source_unref(source);
    }

    // Goes round until a message has come.
    std::string next_message()
    {
        const gint64 bound = g_get_monotonic_time() + 20 * G_USEC_PER_SEC;
        while (g_get_monotonic_time() < bound) {
            if (auto message = manager_.message())
                return *message;
            sd_event_run(event_.get(), 20000);
        }
        return "nothing";
    }

    test::Manager manager_;
    EventLoopOwner event_;
    Counts counts_ = {1, 2, 3, 1};
};

TEST_F(NotifierTest, TheManagerHearsThatTheSwitchServesAndHowMuchItKeeps)
{
    Notifier notifier(event_.get(), [this] { return counts_; });
    notifier.ready();
    EXPECT_EQ(next_message(),
              "READY=1\nSTATUS=2 declarations of 1 producer, 1 subscription of 3 consumers");
}

TEST_F(NotifierTest, ABurstOfChangesIsToldOnceWithWhatHasComeOfIt)
{
    Notifier notifier(event_.get(), [this] { return counts_; });
    notifier.ready();
    next_message();
    for (counts_.declarations = 3; counts_.declarations < 6; ++counts_.declarations)
        work();
    EXPECT_EQ(next_message(), "STATUS=6 declarations of 1 producer, 1 subscription of 3 consumers");
    counts_.subscriptions = 0;
    work();
    EXPECT_EQ(next_message(),
              "STATUS=6 declarations of 1 producer, 0 subscriptions of 3 consumers");
}

TEST_F(NotifierTest, AReloadIsToldWithItsTimeAndItsEnd)
{
    Notifier notifier(event_.get(), [this] { return counts_; });
    const gint64 before = g_get_monotonic_time();
    notifier.reloading();
    const std::string message = next_message(), begin = "RELOADING=1\nMONOTONIC_USEC=";
    ASSERT_EQ(message.substr(0, begin.size()), begin);
    const gint64 time = std::stoll(message.substr(begin.size()));
    EXPECT_GE(time, before);
    EXPECT_LE(time, g_get_monotonic_time());
    notifier.ready();
    EXPECT_EQ(next_message().substr(0, 8), "READY=1\n");
}

TEST_F(NotifierTest, TheEndIsTold)
{
    Notifier notifier(event_.get(), [this] { return counts_; });
    notifier.stopping();
    EXPECT_EQ(next_message().substr(0, 11), "STOPPING=1\n");
}

TEST_F(NotifierTest, TheLoopAnswersTheWatchdogOnceTheSwitchServes)
{
    setenv("WATCHDOG_USEC", "100000", 1);
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    Notifier notifier(event_.get(), [this] { return counts_; });
    work();
    EXPECT_EQ(manager_.message(), std::nullopt);
    notifier.ready();
    next_message();
    for (int i = 0; i < 3; ++i) // the first one is not the loop's
        EXPECT_EQ(next_message(), "WATCHDOG=1");
    unsetenv("WATCHDOG_USEC");
    unsetenv("WATCHDOG_PID");
}

TEST_F(NotifierTest, WithoutAManagerNothingIsCounted)
{
    unsetenv("NOTIFY_SOCKET");
    int counted = 0;
    Notifier notifier(event_.get(), [&] {
        ++counted;
        return counts_;
    });
    notifier.ready();
    work();
    EXPECT_EQ(counted, 0);
}

} // namespace
