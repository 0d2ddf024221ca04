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
    EXPECT_EQ(usual.limits.record_bytes, 262144u);
    EXPECT_EQ(usual.limits.peers, 512u);
    EXPECT_EQ(usual.limits.declarations, 4096u);
    EXPECT_EQ(usual.limits.subscriptions, 4096u);
    EXPECT_EQ(usual.limits.stored_bytes, 16777216u);
    EXPECT_EQ(usual.limits.questions, 64u);
    EXPECT_EQ(usual.limits.key_names, 16384u);
    EXPECT_EQ(usual.limits.total_stored_bytes, 25165824u);
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
    EXPECT_EQ(configuration.limits.record_bytes, 2001u);
    EXPECT_EQ(configuration.limits.peers, 2002u);
    EXPECT_EQ(configuration.limits.declarations, 2003u);
    EXPECT_EQ(configuration.limits.subscriptions, 2004u);
    EXPECT_EQ(configuration.limits.stored_bytes, 2005u);
    EXPECT_EQ(configuration.limits.questions, 2006u);
    EXPECT_EQ(configuration.limits.key_names, 2007u);
    EXPECT_EQ(configuration.limits.total_stored_bytes, 2008u);
}

TEST_F(ConfigurationTest, AWrongValueIsSaidWithItsLineAndWhatIsExpected)
{
    const std::string range = "questions: expected is a whole number from 1 to 4294967295, not ";
    EXPECT_EQ(fault("[limits]\npeers=5\nquestions=many\n"), "3: " + range + "'many'");
    EXPECT_EQ(fault("[limits]\nquestions=0\n"), "2: " + range + "'0'");
    EXPECT_EQ(fault("[limits]\nquestions=-1\n"), "2: " + range + "'-1'");
    EXPECT_EQ(fault("[limits]\nquestions=\n"), "2: " + range + "''");
    EXPECT_EQ(fault("[limits]\nquestions=4294967296\n"), "2: " + range + "'4294967296'");
    EXPECT_EQ(fault("[limits]\nquestions=1\n\n  questions = x\n"), "4: " + range + "'x'");
    EXPECT_EQ(fault("[limits]\nrecord_bytes=33554432\n"),
              "2: record_bytes: expected is a whole number from 1024 to 8388608, not '33554432'");
    EXPECT_EQ(fault("[folders]\nwritable=etc\n"),
              "2: writable: expected is a path that begins with '/', not 'etc'");
}

TEST_F(ConfigurationTest, AnUnknownKeyOrGroupIsSaidWithThoseThereAre)
{
    EXPECT_EQ(fault("[folders]\n\nreadonly=/a\n"),
              "3: 'readonly' is no folder; expected is one of read_only, writable");
    EXPECT_EQ(fault("[limits]\npeer=4\n"),
              "2: 'peer' is no limit; expected is one of record_bytes, peers, declarations, "
              "subscriptions, stored_bytes, questions, key_names, total_stored_bytes");
    EXPECT_EQ(fault("[limits]\npeers=4\n[limit]\npeers=4\n"),
              "3: 'limit' is no group; expected is one of folders, limits");
}

TEST_F(ConfigurationTest, ALineThatIsNoneIsSaid)
{
    EXPECT_EQ(fault("[limits]\npeers=4\nstray\n"),
              "3: 'stray' is neither a comment nor a [group] nor a key with its value");
    EXPECT_EQ(fault("peers=4\n"),
              "1: 'peers=4' is neither a comment nor a [group] nor a key with its value");
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
