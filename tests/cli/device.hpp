// SPDX-License-Identifier: LGPL-2.1-or-later

// A device for the tool to look at: a bus, a switch, the project's own types installed.
#pragma once

#include "tool.hpp"

#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace qandor::test {

class Device : public testing::Test {
protected:
    Device()
    {
        install("power-saving", event_switch.read_only_types());
        install("system-load", event_switch.read_only_types());
        install("door-moved", event_switch.writable_types());
    }

    static std::string type_file(const std::string &type)
    {
        return std::string(QANDOR_TYPES) + "/" + type + ".xml";
    }
    static void install(const std::string &type, const std::filesystem::path &folder)
    {
        std::filesystem::copy_file(type_file(type), folder / (type + ".xml"));
    }
    // The options that say where the types of this device are.
    std::vector<std::string> with_types(std::vector<std::string> arguments) const
    {
        arguments.push_back("--types-read-only=" + event_switch.read_only_types().string());
        arguments.push_back("--types-writable=" + event_switch.writable_types().string());
        return arguments;
    }

    // A property that is there until the result ends.
    ChildProcess keep_state(const std::string &state) const
    {
        ChildProcess producer = start_tool(
            with_types({"send", "power-saving", "--stay", "state=" + state, "reason=low battery"}));
        EXPECT_TRUE(producer.wait_for("sent"));
        return producer;
    }
    ToolRun send_load(const std::string &load) const
    {
        return tool(with_types({"send", "system-load", "available=512", "load=" + load}));
    }

    // Whether the switch comes to know so many: from then on their events arrive.
    static bool wait_for_subscriptions(int count)
    {
        for (int tries = 0; tries < 1000; ++tries)
            if (tool({"status", "--json"}).json()["subscriptions"] == count)
                return true;
        return false;
    }

    PrivateBus bus;
    SwitchProcess event_switch;
};

} // namespace qandor::test
