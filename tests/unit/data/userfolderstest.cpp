// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's own user and its folder, and what the tools make of the files that describe them.

#include "installed.hpp"

#include "support/temporaryfolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace qandor::test;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char *users_file = QANDOR_DATA "/event-switch.sysusers.conf";
constexpr const char *folders_file = QANDOR_DATA "/event-switch.tmpfiles.conf";

TEST(SwitchUser, IsTheSameInAllFiles)
{
    ASSERT_EQ(lines_of(users_file).size(), 1u);
    std::vector<std::string> entry = words_of(lines_of(users_file).front());
    EXPECT_EQ(entry.at(0), "u"); // a static one
    EXPECT_EQ(entry.at(1), switch_user);
    EXPECT_THAT(unit_values("Service", "User"), ElementsAre(switch_user));
    EXPECT_THAT(unit_values("Service", "Group"), ElementsAre(switch_user));
    EXPECT_THAT(unit_values("Service", "DynamicUser"), IsEmpty());
    EXPECT_THAT(lines_of(QANDOR_DATA "/com.vemo.Event.Switch.conf"),
                Contains(HasSubstr(std::string("<policy user=\"") + switch_user + "\">")));
}

TEST(TypesFolder, AloneBelongsToTheSwitchsUser)
{
    std::vector<std::vector<std::string>> entries;
    for (const std::string &line : lines_of(folders_file))
        entries.push_back(words_of(line));
    EXPECT_THAT(entries,
                ElementsAre(ElementsAre("d", "/etc/event_switch", "0755", "root", "root", "-"),
                            ElementsAre("d", types_folder, "0755", switch_user, switch_user, "-"),
                            ElementsAre("r!", std::string(types_folder) + "/.new-*")));
}

// Root alone may make users and folders of others.
class InstalledFiles : public testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0 || !is_installed("systemd-sysusers") ||
            !is_installed("systemd-tmpfiles"))
            GTEST_SKIP() << "systemd is not installed, or the test is not run by root";
        std::filesystem::create_directory(under_root("/etc"));
        make("systemd-sysusers", users_file);
    }

    // Under the folder in the place of the root.
    void make(const std::string &tool, const std::string &file) const
    {
        Result result = run(tool + " --root=" + root_.path().string() + " " + file);
        EXPECT_EQ(result.code, 0) << result.output;
    }
    std::filesystem::path under_root(const std::string &path) const
    {
        return root_.path().string() + path;
    }
    struct stat status_of(const std::string &path) const
    {
        struct stat status = {};
        EXPECT_EQ(lstat(under_root(path).c_str(), &status), 0) << path;
        return status;
    }
    uid_t uid_of_switch() const
    {
        for (const std::string &line : lines_of(under_root("/etc/passwd")))
            if (line.starts_with(std::string(switch_user) + ":x:"))
                return static_cast<uid_t>(std::stoul(line.substr(line.find(":x:") + 3)));
        return 0;
    }

    TemporaryFolder root_;
};

TEST_F(InstalledFiles, MakeASystemUserWithoutAShell)
{
    EXPECT_GT(uid_of_switch(), 0u);
    EXPECT_LT(uid_of_switch(), 1000u);
    EXPECT_THAT(
        lines_of(under_root("/etc/passwd")),
        Contains(AllOf(testing::StartsWith("event-switch:"), testing::EndsWith("/nologin"))));
}

TEST_F(InstalledFiles, MakeTheFolderOfTypesForTheUserAndNotTheOneAbove)
{
    make("systemd-tmpfiles --create", folders_file);
    EXPECT_EQ(status_of("/etc/event_switch").st_uid, 0u);
    EXPECT_EQ(status_of("/etc/event_switch").st_mode & 07777, 0755u);
    EXPECT_EQ(status_of(types_folder).st_uid, uid_of_switch());
    EXPECT_EQ(status_of(types_folder).st_mode & 07777, 0755u);
}

TEST_F(InstalledFiles, CleanUpAtBootWhatWasHalfWritten)
{
    make("systemd-tmpfiles --create", folders_file);
    for (const char *name : {"/.new-a1B2c3", "/door-moved.xml"})
        std::ofstream(under_root(types_folder + std::string(name))) << "<declare/>";
    make("systemd-tmpfiles --remove", folders_file);
    EXPECT_TRUE(exists(under_root(types_folder + std::string("/.new-a1B2c3"))));
    make("systemd-tmpfiles --remove --boot", folders_file);
    EXPECT_FALSE(exists(under_root(types_folder + std::string("/.new-a1B2c3"))));
    EXPECT_TRUE(exists(under_root(types_folder + std::string("/door-moved.xml"))));
}

} // namespace
