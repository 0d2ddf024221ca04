// SPDX-License-Identifier: LGPL-2.1-or-later

// Which lines reach the switch's log, the library's included.

#include "switch/log.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

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

// What reaches standard error while the environment says that it leads to the journal: as the
// file that it is, or as another one.
std::string written_with_journal(bool is_behind_it)
{
    testing::internal::CaptureStderr();
    struct stat status = {};
    EXPECT_EQ(fstat(STDERR_FILENO, &status), 0);
    std::string stream =
        std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino + !is_behind_it);
    setenv("JOURNAL_STREAM", stream.c_str(), 1);
    open_log(LogLevel::Info);
    log_line(LogLevel::Info, "line");
    unsetenv("JOURNAL_STREAM");
    open_log(LogLevel::Info);
    g_log_set_default_handler(g_log_default_handler, nullptr);
    return testing::internal::GetCapturedStderr();
}

TEST(Log, LinesGoToTheJournalOnlyWhereStandardErrorDoes)
{
    EXPECT_EQ(written_with_journal(true), "");
    EXPECT_EQ(written_with_journal(false), "event-switch: line\n");
}

TEST(Log, WhatIsCriticalToTheLibraryIsAnErrorOfTheSwitch)
{
    unsetenv("JOURNAL_STREAM");
    testing::internal::CaptureStderr();
    open_log(LogLevel::Error);
    g_critical("critical");
    g_warning("warning");
    open_log(LogLevel::Info);
    g_log_set_default_handler(g_log_default_handler, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "event-switch: critical\n");
}

} // namespace
