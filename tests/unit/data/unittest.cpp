// SPDX-License-Identifier: LGPL-2.1-or-later

// What starts the switch on a device: its unit and its activation file.

#include "installed.hpp"

#include "support/temporaryfolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::vector<std::string> service_values(const std::string &directive)
{
    return unit_values("Service", directive);
}

std::string activation_value(const char *key)
{
    qandor::Owner<GKeyFile, g_key_file_unref> file(g_key_file_new());
    EXPECT_TRUE(g_key_file_load_from_file(
        file.get(), QANDOR_BUILT_DATA "/com.vemo.Event.Switch.service", G_KEY_FILE_NONE, nullptr));
    qandor::TextOwner value(g_key_file_get_string(file.get(), "D-BUS Service", key, nullptr));
    return value ? value.get() : "";
}

// The unit with the program that has been built, as it is not installed.
std::string runnable_unit(const TemporaryFolder &folder)
{
    std::string unit = text_of(unit_file);
    const std::string program = QANDOR_INSTALLED_PROGRAM;
    unit.replace(unit.find(program), program.size(), QANDOR_SWITCH_PROGRAM);
    return folder.write("event-switch.service", unit);
}

TEST(ServiceUnit, SetsEachDirectiveOfItsSandbox)
{
    const std::pair<const char *, const char *> required[] = {
        {"AmbientCapabilities", ""},
        {"CapabilityBoundingSet", ""},
        {"DevicePolicy", "closed"},
        {"IPAddressDeny", "any"},
        {"KeyringMode", "private"},
        {"LockPersonality", "yes"},
        {"MemoryDenyWriteExecute", "yes"},
        {"NoNewPrivileges", "yes"},
        {"PrivateDevices", "yes"},
        {"PrivateMounts", "yes"},
        {"PrivateNetwork", "yes"},
        {"PrivateTmp", "yes"},
        {"PrivateUsers", "yes"},
        {"ProcSubset", "pid"},
        {"ProtectClock", "yes"},
        {"ProtectControlGroups", "yes"},
        {"ProtectHome", "yes"},
        {"ProtectHostname", "yes"},
        {"ProtectKernelLogs", "yes"},
        {"ProtectKernelModules", "yes"},
        {"ProtectKernelTunables", "yes"},
        {"ProtectProc", "invisible"},
        {"ProtectSystem", "strict"},
        {"RemoveIPC", "yes"},
        {"RestrictAddressFamilies", "AF_UNIX"},
        {"RestrictNamespaces", "yes"},
        {"RestrictRealtime", "yes"},
        {"RestrictSUIDSGID", "yes"},
        {"SystemCallArchitectures", "native"},
        {"SystemCallErrorNumber", "EPERM"},
        {"UMask", "0077"},
    };
    for (const auto &[directive, value] : required)
        EXPECT_THAT(service_values(directive), ElementsAre(value)) << directive;
    EXPECT_THAT(service_values("SystemCallFilter"),
                ElementsAre("@system-service",
                            "~@privileged @resources @setuid @aio @ipc @keyring @memlock",
                            "memfd_create"));
}

TEST(ServiceUnit, WritesNowhereButIntoTheFolderOfTypes)
{
    EXPECT_THAT(service_values("ReadWritePaths"), ElementsAre(std::string("-") + types_folder));
    for (const char *directive :
         {"BindPaths", "CacheDirectory", "ConfigurationDirectory", "LogsDirectory",
          "RuntimeDirectory", "StateDirectory", "TemporaryFileSystem"})
        EXPECT_THAT(service_values(directive), IsEmpty()) << directive;
}

TEST(ServiceUnit, IsBoundedWatchedOverAndNeverGivenUp)
{
    EXPECT_THAT(service_values("Type"), ElementsAre("notify"));
    EXPECT_THAT(service_values("WatchdogSec"), ElementsAre("30"));
    EXPECT_THAT(service_values("Restart"), ElementsAre("on-failure"));
    EXPECT_THAT(unit_values("Unit", "StartLimitIntervalSec"), ElementsAre("0"));
    EXPECT_THAT(service_values("ExecReload"), ElementsAre("kill -HUP $MAINPID"));
    EXPECT_THAT(service_values("MemoryMax"), ElementsAre("512M"));
    EXPECT_THAT(service_values("MemorySwapMax"), ElementsAre("0"));
    EXPECT_THAT(service_values("TasksMax"), ElementsAre("8"));
}

TEST(ServiceUnit, StartsTheInstalledProgramAfterTheBus)
{
    EXPECT_THAT(service_values("ExecStart"),
                ElementsAre(QANDOR_INSTALLED_PROGRAM QANDOR_INSTALLED_ARGUMENTS));
    EXPECT_THAT(unit_values("Unit", "Requires"), ElementsAre("dbus.socket"));
    EXPECT_THAT(unit_values("Unit", "After"), ElementsAre("dbus.socket"));
    EXPECT_THAT(unit_values("Install", "WantedBy"), ElementsAre("multi-user.target"));
}

TEST(ServiceUnit, IsAcceptedByTheServiceManager)
{
    if (!is_installed("systemd-analyze"))
        GTEST_SKIP() << "systemd is not installed";
    TemporaryFolder folder;
    Result result =
        run("systemd-analyze verify --man=no --recursive-errors=no " + runnable_unit(folder));
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 0);
}

TEST(ServiceUnit, IsExposedToHardlyAnything)
{
    if (!is_installed("systemd-analyze"))
        GTEST_SKIP() << "systemd is not installed";
    TemporaryFolder folder;
    Result result = run("systemd-analyze security --offline=true --no-pager --threshold=5 " +
                        runnable_unit(folder));
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_THAT(result.output, HasSubstr("Overall exposure level"));
}

TEST(ActivationFile, NamesTheUnitTheUserAndTheProgram)
{
    EXPECT_EQ(activation_value("Name"), "com.vemo.Event.Switch");
    EXPECT_EQ(activation_value("SystemdService"), "event-switch.service");
    EXPECT_EQ(activation_value("User"), switch_user);
    EXPECT_EQ(activation_value("Exec"), QANDOR_INSTALLED_PROGRAM QANDOR_INSTALLED_ARGUMENTS);
}

} // namespace
