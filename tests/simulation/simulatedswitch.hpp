// SPDX-License-Identifier: LGPL-2.1-or-later

// The event switch in this process, on the simulated bus, with an event loop of its own.
#pragma once

#include "platform/owners.hpp"
#include "simulation/simulatedbus.hpp"
#include "support/temporaryfolder.hpp"
#include "switch/service.hpp"

#include <memory>
#include <optional>

namespace qandor::simulation {

class SimulatedSwitch {
public:
    explicit SimulatedSwitch(SimulatedBus &bus) : simulated_bus_(bus) {}
    SimulatedSwitch(const SimulatedSwitch &) = delete;
    SimulatedSwitch &operator=(const SimulatedSwitch &) = delete;
    ~SimulatedSwitch() { kill(); }

    // Throws when a step of it fails. It has to be killed then.
    void start();
    bool runs() const { return service_ != nullptr; }
    // Its process is gone from one moment to the next.
    void kill();
    // Dispatches what is ready in its event loop; false when nothing is.
    bool step();
    // Its loop or its connection has ended, so that its process would exit.
    bool has_failed() const;

    // Where it keeps the declaration types that are added.
    const std::filesystem::path &added_types() const { return added_types_.path(); }

    Counts counts() const { return service_->counts(); }
    // Its unique name on the bus.
    const std::string &name() const { return name_; }

private:
    using BusOwner = Owner<sd_bus, sd_bus_close_unref>;

    SimulatedBus &simulated_bus_;
    test::TemporaryFolder installed_types_, added_types_;
    EventLoopOwner loop_;
    BusOwner bus_;
    std::string name_;
    bool has_failed_ = false;
    std::unique_ptr<Service> service_;
};

} // namespace qandor::simulation
