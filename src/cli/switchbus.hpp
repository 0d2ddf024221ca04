// SPDX-License-Identifier: LGPL-2.1-or-later

// The system bus and the event switch on it, as a tool asks them: every failure is a Failure with a
// code and something to do about it, and nothing ends the process.
#pragma once

#include "cli/failure.hpp"
#include "cli/owners.hpp"

#include <qandor/qandor.hpp>

#include <optional>
#include <string>
#include <vector>

namespace qandor::cli {

// A process on the bus.
struct BusPeer {
    std::string name; // its unique name
    std::optional<guint32> pid;
    std::optional<guint32> uid;
    std::string program; // "" when it is not known
};

class SwitchBus {
public:
    // Connects; a Failure when there is no bus.
    SwitchBus();

    // Who has the switch's name; nobody is nothing.
    std::optional<BusPeer> owner() const;
    // Sees to it that there is a switch, which the bus may have to start. A Failure when there is
    // none.
    void require_switch() const;

    // A call of the switch, to be filled in.
    Message new_call(const char *interface, const char *member) const;
    // Calls the switch; a Failure for an error.
    Message call(const Message &call) const;
    // The same for a call without arguments.
    Message call(const char *interface, const char *member) const
    {
        return call(new_call(interface, member));
    }
    // A count among the properties of the switch's monitor.
    guint32 count(const char *property) const;

    // What producers have declared, and what types are installed.
    std::vector<Declaration> declarations() const;
    std::vector<Declaration> types() const;

private:
    std::vector<Declaration> list(const char *member) const;
    // The connection, ready for a call that waits.
    sd_bus *asking_bus() const;

    Bus bus_;
};

inline constexpr const char *monitor_interface = "com.vemo.Event.Switch.Monitor";

// "name" of a user id, or the number.
std::string user_name(guint32 uid);

} // namespace qandor::cli
