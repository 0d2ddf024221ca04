// SPDX-License-Identifier: LGPL-2.1-or-later

// The command line of the switch.

#include "switch/options.hpp"

#include <gtest/gtest.h>

#include <vector>

using namespace qandor;

namespace {

bool parse(std::vector<std::string> words, Options &options)
{
    words.insert(words.begin(), "event-switch");
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    return parse_options(static_cast<int>(words.size()), arguments.data(), options);
}

struct Complaint {
    bool parsed;
    std::string text;
};

Complaint complaint_about(const std::vector<std::string> &words)
{
    Options options;
    testing::internal::CaptureStderr();
    bool parsed = parse(words, options);
    return {parsed, testing::internal::GetCapturedStderr()};
}

TEST(Options, TheFoldersAreTheSystemsUnlessOthersAreGiven)
{
    Options options;
    EXPECT_TRUE(parse({}, options));
    EXPECT_EQ(options.types_read_only, std::nullopt);
    EXPECT_EQ(options.types_writable, std::nullopt);
    EXPECT_EQ(options.configuration, std::nullopt);
    EXPECT_EQ(options.log_level, LogLevel::Info);
    EXPECT_TRUE(parse(
        {"--types-read-only", "/a", "--types-writable=/b", "--log-level=debug", "--config=/c"},
        options));
    EXPECT_EQ(options.configuration, "/c");
    EXPECT_EQ(options.types_read_only, "/a");
    EXPECT_EQ(options.types_writable, "/b");
    EXPECT_EQ(options.log_level, LogLevel::Debug);
}

TEST(Options, EachLevelOfTheLogHasItsName)
{
    for (const auto &[word, level] :
         std::vector<std::pair<std::string, LogLevel>>{{"error", LogLevel::Error},
                                                       {"warning", LogLevel::Warning},
                                                       {"info", LogLevel::Info},
                                                       {"debug", LogLevel::Debug}}) {
        Options options;
        EXPECT_TRUE(parse({"--log-level", word}, options));
        EXPECT_EQ(options.log_level, level) << word;
    }
}

TEST(Options, WhatIsWrongIsSaid)
{
    for (const auto &[words, expected] :
         std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--colour"}, "--colour"},
             {{"stray"}, "unexpected argument 'stray'"},
             {{"--log-level=loud"}, "'loud' is no log level"},
             {{"--types-writable"}, "--types-writable"}}) {
        Complaint complaint = complaint_about(words);
        EXPECT_FALSE(complaint.parsed);
        EXPECT_NE(complaint.text.find(expected), std::string::npos) << complaint.text;
    }
}

TEST(OptionsDeathTest, HelpAndVersionAreShownAndEndTheProgram)
{
    Options options;
    EXPECT_EXIT(parse({"--version"}, options), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(parse({"--help"}, options), testing::ExitedWithCode(0), "");
}

} // namespace
