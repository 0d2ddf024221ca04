// SPDX-License-Identifier: LGPL-2.1-or-later

#include "support/switchprocess.hpp"

#include "platform/owners.hpp"

#include <stdexcept>
#include <unistd.h>

namespace qandor::test {
namespace {

using BusOwner = Owner<sd_bus, sd_bus_flush_close_unref>;

bool has_owner(sd_bus *bus)
{
    sd_bus_creds *made = nullptr;
    int r = sd_bus_get_name_creds(bus, "com.vemo.Event.Switch", 0, &made);
    BusCredentialsOwner owner(made);
    return r >= 0;
}

} // namespace

SwitchProcess::SwitchProcess(std::vector<std::string> arguments) : arguments_(std::move(arguments))
{
    start();
}

void SwitchProcess::kill()
{
    process_->signal(SIGKILL);
    process_->wait();
}

void SwitchProcess::start()
{
    std::vector<std::string> command{QANDOR_SWITCH, "--log-level=warning",
                                     "--types-read-only=" + read_only_types().string(),
                                     "--types-writable=" + writable_types().string()};
    command.insert(command.end(), arguments_.begin(), arguments_.end());
    process_.emplace(command);
    sd_bus *made = nullptr;
    if (sd_bus_open_system(&made) < 0)
        throw std::runtime_error("there is no bus for the switch");
    BusOwner bus(made);
    for (int i = 0; i < 2000 && process_->is_running(); ++i) {
        if (has_owner(bus.get()))
            return;
        usleep(10000);
    }
    throw std::runtime_error("the switch does not start");
}

} // namespace qandor::test
