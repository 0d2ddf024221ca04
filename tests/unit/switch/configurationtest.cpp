// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's configuration file, and what is said about a wrong one.

#include "switch/configuration.hpp"

#include "support/temporaryfolder.hpp"

#include <gtest/gtest.h>

#include <fstream>

using namespace qandor;

namespace {

class ConfigurationTest : public testing::Test {
protected:
    std::variant<Configuration, ConfigurationFault> read(const std::string &text)
    {
        std::ofstream(path) << text;
        return read_configuration(path);
    }
    Configuration accepted(const std::string &text)
    {
        auto result = read(text);
        if (const auto *fault = std::get_if<ConfigurationFault>(&result)) {
            ADD_FAILURE() << fault->text;
            return {};
        }
        return std::get<Configuration>(result);
    }
    // What is wrong, without the name of the file.
    std::string fault(const std::string &text)
    {
        auto result = read(text);
        const auto *fault = std::get_if<ConfigurationFault>(&result);
        if (!fault)
            return "";
        EXPECT_TRUE(fault->text.starts_with(path + ":"));
        return fault->text.substr(path.size() + 1);
    }

    test::TemporaryFolder folder;
    const std::string path = folder.path() / "event-switch.conf";
};

TEST_F(ConfigurationTest, AnEmptyFileChangesNothing)
{
    Configuration usual = accepted("");
    EXPECT_EQ(usual.types_read_only, "//usr/share/event/declarations.d");
    EXPECT_EQ(usual.types_writable, "//etc/event_switch/declarations.d");
    EXPECT_EQ(usual.limits.common.record_bytes, 262144u);
    EXPECT_EQ(usual.limits.common.peers, 512u);
    EXPECT_EQ(usual.limits.common.declarations, 4096u);
    EXPECT_EQ(usual.limits.common.subscriptions, 4096u);
    EXPECT_EQ(usual.limits.common.stored_bytes, 33554432u);
    EXPECT_EQ(usual.limits.common.questions, 64u);
    EXPECT_EQ(usual.limits.common.key_names, 16384u);
    EXPECT_EQ(usual.limits.common.total_stored_bytes, 25165824u);
}

TEST_F(ConfigurationTest, EachKeySetsItsOwn)
{
    Configuration configuration = accepted("# a comment\n"
                                           "[folders]\n"
                                           "read_only = /a\n"
                                           "writable=/b\n"
                                           "\n"
                                           "[limits]\n"
                                           "record_bytes=2001\n"
                                           "peers=2002\n"
                                           "declarations=2003\n"
                                           "subscriptions=2004\n"
                                           "stored_bytes=2005\n"
                                           "questions=2006\n"
                                           "key_names=2007\n"
                                           "total_stored_bytes=2008\n");
    EXPECT_EQ(configuration.types_read_only, "/a");
    EXPECT_EQ(configuration.types_writable, "/b");
    EXPECT_EQ(configuration.limits.common.record_bytes, 2001u);
    EXPECT_EQ(configuration.limits.common.peers, 2002u);
    EXPECT_EQ(configuration.limits.common.declarations, 2003u);
    EXPECT_EQ(configuration.limits.common.subscriptions, 2004u);
    EXPECT_EQ(configuration.limits.common.stored_bytes, 2005u);
    EXPECT_EQ(configuration.limits.common.questions, 2006u);
    EXPECT_EQ(configuration.limits.common.key_names, 2007u);
    EXPECT_EQ(configuration.limits.common.total_stored_bytes, 2008u);
}

TEST_F(ConfigurationTest, AWrongValueIsSaidWithItsLineAndWhatIsExpected)
{
    const std::string range = "questions: expected a whole number from 1 to 4294967295, got ";
    EXPECT_EQ(fault("[limits]\npeers=5\nquestions=many\n"), "3: " + range + "'many'");
    EXPECT_EQ(fault("[limits]\nquestions=0\n"), "2: " + range + "'0'");
    EXPECT_EQ(fault("[limits]\nquestions=-1\n"), "2: " + range + "'-1'");
    EXPECT_EQ(fault("[limits]\nquestions=\n"), "2: " + range + "''");
    EXPECT_EQ(fault("[limits]\nquestions=4294967296\n"), "2: " + range + "'4294967296'");
    EXPECT_EQ(fault("[limits]\nquestions=1\n\n  questions = x\n"), "4: " + range + "'x'");
    EXPECT_EQ(fault("[limits]\nrecord_bytes=33554432\n"),
              "2: record_bytes: expected a whole number from 1024 to 8388608, got '33554432'");
    EXPECT_EQ(fault("[folders]\nwritable=etc\n"),
              "2: writable: expected an absolute path, got 'etc'");
}

TEST_F(ConfigurationTest, AnUnknownKeyOrGroupIsSaidWithThoseThereAre)
{
    EXPECT_EQ(fault("[folders]\n\nreadonly=/a\n"),
              "3: unknown folder 'readonly': expected one of read_only, writable");
    EXPECT_EQ(fault("[limits]\npeer=4\n"),
              "2: unknown limit 'peer': expected one of record_bytes, peers, declarations, "
              "subscriptions, stored_bytes, questions, key_names, total_stored_bytes");
    EXPECT_EQ(fault("[limits]\npeers=4\n[limit]\npeers=4\n"),
              "3: unknown group 'limit': expected one of folders, limits, user NAME");
}

TEST_F(ConfigurationTest, ALineThatIsNoneIsSaid)
{
    EXPECT_EQ(fault("[limits]\npeers=4\nstray\n"),
              "3: expected a comment, a [group] or KEY=VALUE, got 'stray'");
    EXPECT_EQ(fault("peers=4\n"), "1: expected a comment, a [group] or KEY=VALUE, got 'peers=4'");
}

TEST_F(ConfigurationTest, AUserHasLimitsOfItsOwnAndTheCommonOnesElse)
{
    // The common limits count also where they come later.
    UserLimits limits = accepted("[user root]\npeers=7\n"
                                 "[user 4294967294]\nstored_bytes=2048\n"
                                 "[limits]\nquestions=9\npeers=5\n")
                            .limits;
    EXPECT_EQ(limits.of(0).peers, 7u);
    EXPECT_EQ(limits.of(0).questions, 9u);
    EXPECT_EQ(limits.of(4294967294).stored_bytes, 2048u);
    EXPECT_EQ(limits.of(4294967294).peers, 5u);
    EXPECT_EQ(limits.of(1).peers, 5u);
    EXPECT_EQ(limits.of(1).stored_bytes, 33554432u);
}

TEST_F(ConfigurationTest, AWrongUserOrAWrongLimitOfAUserIsSaid)
{
    const std::string expected = "expected the name of a user or a user id from 0 to 4294967294";
    EXPECT_EQ(fault("[limits]\n[user nobody-of-this-name]\npeers=1\n"),
              "2: unknown user 'nobody-of-this-name': " + expected);
    EXPECT_EQ(fault("[user -1]\n"), "1: unknown user '-1': " + expected);
    EXPECT_EQ(fault("[user 4294967295]\n"), "1: unknown user '4294967295': " + expected);
    EXPECT_EQ(fault("[user ]\n"), "1: unknown user '': " + expected);
    EXPECT_EQ(fault("[user root]\npeers=1\n[user 0]\n"),
              "3: the user '0' has another group already: expected one group for each user");
    EXPECT_EQ(fault("[user root]\n\npeers=0\n"),
              "3: peers: expected a whole number from 1 to 4294967295, got '0'");
    EXPECT_EQ(fault("[user root]\ntotal_stored_bytes=4096\n"),
              "2: unknown limit 'total_stored_bytes' of a user: expected one of record_bytes, "
              "peers, declarations, subscriptions, stored_bytes, questions, key_names");
    EXPECT_EQ(fault("[user]\n"), "1: unknown group 'user': expected one of folders, limits, "
                                 "user NAME");
}

TEST_F(ConfigurationTest, AFileThatIsNotThereIsAFaultWhenItIsAskedForByName)
{
    auto result = read_configuration(path);
    ASSERT_TRUE(std::holds_alternative<ConfigurationFault>(result));
    EXPECT_NE(std::get<ConfigurationFault>(result).text.find(path), std::string::npos);
}

TEST_F(ConfigurationTest, TheCommandLineGoesBeforeTheFile)
{
    std::ofstream(path) << "[folders]\nread_only=/a\nwritable=/b\n";
    Options options;
    options.configuration = path;
    options.types_writable = "/c";
    auto result = find_configuration(options);
    ASSERT_TRUE(std::holds_alternative<Configuration>(result));
    EXPECT_EQ(std::get<Configuration>(result).types_read_only, "/a");
    EXPECT_EQ(std::get<Configuration>(result).types_writable, "/c");
}

} // namespace
