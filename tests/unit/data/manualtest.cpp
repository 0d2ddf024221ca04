// SPDX-License-Identifier: LGPL-2.1-or-later

// The installed configuration and the manual pages, held against the program that they describe.

#include "installed.hpp"

#include "support/temporaryfolder.hpp"
#include "switch/configuration.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr const char *configuration_file = QANDOR_DATA "/event-switch.conf";
constexpr const char *program_page = QANDOR_MANUAL "/event-switch.8";
constexpr const char *configuration_page = QANDOR_MANUAL "/event-switch.conf.5";

// In front of the lines of an example.
constexpr std::string_view example_sign = "#   ";

std::vector<std::string> all_lines_of(const char *file)
{
    std::istringstream stream(text_of(file));
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// A line "#key=value"; what explains a key has a space behind the sign.
bool is_commented_key(const std::string &line)
{
    return line.size() > 1 && line[0] == '#' && line[1] != ' ';
}

std::string with_keys_in_force(const std::string &text)
{
    std::istringstream stream(text);
    std::string result;
    for (std::string line; std::getline(stream, line);)
        result += (is_commented_key(line) ? line.substr(1) : line) + "\n";
    return result;
}

// As a page writes what must not be broken into lines.
std::string escaped(const std::string &text)
{
    std::string result;
    for (char character : text)
        result += character == '-' ? "\\-" : std::string(1, character);
    return result;
}

// What a page says of a key, up to the next one.
std::string entry_of(const std::string &key)
{
    const std::string page = text_of(configuration_page);
    const std::size_t begin = page.find("\n.B " + key + "\n");
    if (begin == std::string::npos)
        return "";
    return page.substr(begin, page.find("\n.TP", begin) - begin);
}

std::string plain(const std::string &folder)
{
    return folder.substr(folder.find_first_not_of('/') - 1);
}

TEST(InstalledConfiguration, LeavesEverythingAsItIsByDefault)
{
    EXPECT_THAT(lines_of(configuration_file), ElementsAre("[folders]", "[limits]"));
}

TEST(InstalledConfiguration, HasEachKeyWithItsDefaultForWhoeverTakesTheSignAway)
{
    TemporaryFolder folder;
    const std::string text = with_keys_in_force(text_of(configuration_file));
    for (const LimitName &limit : limit_names)
        EXPECT_THAT(text, HasSubstr("\n" + std::string(limit.name) + "="));
    EXPECT_THAT(text, HasSubstr("\nread_only="));
    EXPECT_THAT(text, HasSubstr("\nwritable="));

    auto read = read_configuration(folder.write("event-switch.conf", text));
    ASSERT_TRUE(std::holds_alternative<Configuration>(read))
        << std::get<ConfigurationFault>(read).text;
    const auto &configuration = std::get<Configuration>(read);
    for (const LimitName &limit : limit_names)
        EXPECT_EQ(configuration.limits.common.*limit.value, Limits().*limit.value) << limit.name;
    EXPECT_EQ(configuration.types_read_only, plain(Configuration().types_read_only));
    EXPECT_EQ(configuration.types_writable, plain(Configuration().types_writable));
}

TEST(InstalledConfiguration, ExplainsEachKeyInTheLineBeforeIt)
{
    std::istringstream stream(text_of(configuration_file));
    std::string before;
    for (std::string line; std::getline(stream, line); before = line) {
        const bool is_explained = before.starts_with("# ");
        EXPECT_TRUE(is_explained || !is_commented_key(line)) << line;
    }
}

TEST(InstalledConfiguration, HasAnExampleOfAUsersLimitsThatReads)
{
    std::string example;
    for (const std::string &line : all_lines_of(configuration_file))
        if (line.starts_with(example_sign))
            example += line.substr(example_sign.size()) + "\n";
    const std::string user = "[user event-gateway]";
    ASSERT_THAT(example, testing::StartsWith(user));
    example.replace(0, user.size(), "[user 0]"); // a build machine does not have that user
    TemporaryFolder folder;
    auto read = read_configuration(folder.write("event-switch.conf", example));
    ASSERT_TRUE(std::holds_alternative<Configuration>(read))
        << std::get<ConfigurationFault>(read).text;
    EXPECT_GT(std::get<Configuration>(read).limits.of(0).declarations, Limits().declarations);
}

TEST(ManualPages, SayOfEachLimitItsDefault)
{
    for (const LimitName &limit : limit_names)
        EXPECT_THAT(entry_of(limit.name),
                    HasSubstr("\nDefault: " + std::to_string(Limits().*limit.value)))
            << limit.name;
}

TEST(ManualPages, SayOfEachFolderItsDefault)
{
    EXPECT_THAT(entry_of("read_only"), HasSubstr(plain(Configuration().types_read_only)));
    EXPECT_THAT(entry_of("writable"), HasSubstr(plain(Configuration().types_writable)));
}

TEST(ManualPages, SayEachOptionOfTheProgram)
{
    const std::string page = text_of(program_page);
    int options = 0;
    for (const std::string &word : words_of(run(QANDOR_SWITCH_PROGRAM " --help").output)) {
        if (!word.starts_with("--"))
            continue;
        ++options;
        EXPECT_THAT(page, HasSubstr(escaped(word.substr(0, word.find('='))))) << word;
    }
    EXPECT_GE(options, 5);
}

TEST(ManualPages, AreWellFormed)
{
    if (!is_installed("groff"))
        GTEST_SKIP() << "groff is not installed";
    for (const char *page : {program_page, configuration_page}) {
        Result result = run(std::string("groff -man -ww -z ") + page);
        EXPECT_EQ(result.output, "") << page;
        EXPECT_EQ(result.code, 0) << page;
    }
}

} // namespace
