// SPDX-License-Identifier: LGPL-2.1-or-later

// Which lines reach the switch's log, the library's included.

#include "switch/log.hpp"

#include <gtest/gtest.h>

using namespace qandor;

namespace {

// What a switch of that level writes of one line of each kind.
std::string written_at(LogLevel level)
{
    unsetenv("JOURNAL_STREAM");
    testing::internal::CaptureStderr();
    open_log(level);
    log_line(LogLevel::Error, "own error");
    log_line(LogLevel::Debug, "own debug");
    g_warning("warning");
    g_message("message");
    g_info("info");
    g_debug("debug");
    g_log_set_default_handler(g_log_default_handler, nullptr);
    return testing::internal::GetCapturedStderr();
}

TEST(Log, LinesOfTheLibraryAreHeldAgainstTheLevelAsTheSwitchsOwn)
{
    EXPECT_EQ(written_at(LogLevel::Error), "event-switch: own error\n");
    EXPECT_EQ(written_at(LogLevel::Info), "event-switch: own error\n"
                                          "event-switch: warning\n"
                                          "event-switch: message\n"
                                          "event-switch: info\n");
    EXPECT_EQ(written_at(LogLevel::Debug), "event-switch: own error\n"
                                           "event-switch: own debug\n"
                                           "event-switch: warning\n"
                                           "event-switch: message\n"
                                           "event-switch: info\n"
                                           "event-switch: debug\n");
}

} // namespace
