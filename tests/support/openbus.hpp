// SPDX-License-Identifier: LGPL-2.1-or-later

// A bus that lets everybody own and say everything, for what the stock policy keeps from being
// tried: reading properties, names of others.
#pragma once

#include "support/childprocess.hpp"
#include "support/temporaryfolder.hpp"

#include <cstdlib>
#include <optional>

namespace qandor::test {

class OpenBus {
public:
    // Starts it and makes it this process's system bus.
    OpenBus()
    {
        std::string config = folder_.write(
            "bus.conf", "<busconfig><listen>unix:path=" + (folder_.path() / "bus").string() +
                            "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                            "<allow user=\"*\"/><allow own=\"*\"/><allow send_destination=\"*\"/>"
                            "<allow receive_sender=\"*\"/></policy></busconfig>");
        daemon_.emplace(std::vector<std::string>{"dbus-daemon", "--nofork", "--nopidfile",
                                                 "--config-file=" + config, "--print-address=1"});
        std::optional<std::string> address = daemon_->read_line();
        if (!address)
            throw std::runtime_error("dbus-daemon does not start");
        setenv("DBUS_SYSTEM_BUS_ADDRESS", address->c_str(), 1);
    }
    ~OpenBus() { unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

private:
    TemporaryFolder folder_;
    std::optional<ChildProcess> daemon_;
};

} // namespace qandor::test
