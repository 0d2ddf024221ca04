// SPDX-License-Identifier: LGPL-2.1-or-later

#include "platform/check.hpp"
#include "platform/log.hpp"
#include "support/logcapture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;

namespace {

struct Record {
    static void set(const char *text) { RETURN_IF_FAIL(text != NULL); }
    static int length(const char *text)
    {
        RETURN_VALUE_IF_FAIL(text != NULL, -1);
        return static_cast<int>(std::strlen(text));
    }
    static void append(int size, int room) { CHECK(room >= size); }
    static void read(bool whole) { CHECK_TEXT(whole, "array->len >= *indx + size"); }
    static void end() { CHECK_NOT_REACHED(); }
};

TEST(CheckDeathTest, FatalChecksNameThePlainFunctionAndTheCondition)
{
    EXPECT_DEATH(Record::append(2, 1), ":append: assertion failed: \\(room >= size\\)");
    EXPECT_DEATH(Record::read(false),
                 ":read: assertion failed: \\(array->len >= \\*indx \\+ size\\)");
    EXPECT_DEATH(Record::end(), ":end: code should not be reached");
}

TEST(Check, WhatHoldsSaysNothing)
{
    LogCapture log;
    Record::append(1, 1);
    Record::read(true);
    Record::set("");
    EXPECT_EQ(Record::length("four"), 4);
    EXPECT_THAT(log.criticals(), ElementsAre());
}

TEST(Check, SoftChecksNameThePlainFunctionAndTheConditionAndReturn)
{
    LogCapture log;
    Record::set(nullptr);
    EXPECT_EQ(Record::length(nullptr), -1);
    EXPECT_THAT(log.criticals(), ElementsAre("set: assertion 'text != NULL' failed",
                                             "length: assertion 'text != NULL' failed"));
}

TEST(Log, LinesGoToTheDefaultDomain)
{
    std::vector<std::string> lines;
    auto receive = [](const gchar *domain, GLogLevelFlags level, const gchar *text, gpointer data) {
        EXPECT_EQ(domain, nullptr);
        static_cast<std::vector<std::string> *>(data)->push_back(std::to_string(level) + text);
    };
    guint handler =
        g_log_set_handler(nullptr,
                          static_cast<GLogLevelFlags>(G_LOG_LEVEL_MESSAGE | G_LOG_LEVEL_WARNING |
                                                      G_LOG_LEVEL_CRITICAL),
                          receive, &lines);
    log_message("%s %d", "one", 1);
    log_warning("%s %d", "two", 2);
    log_critical("%s %d", "three", 3);
    g_log_remove_handler(nullptr, handler);
    EXPECT_THAT(lines, ElementsAre(std::to_string(G_LOG_LEVEL_MESSAGE) + "one 1",
                                   std::to_string(G_LOG_LEVEL_WARNING) + "two 2",
                                   std::to_string(G_LOG_LEVEL_CRITICAL) + "three 3"));
}

} // namespace
