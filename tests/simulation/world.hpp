// SPDX-License-Identifier: LGPL-2.1-or-later

// The whole system in one process: the bus, the switch, and the library's handles on the default
// main context. Chance decides which of them takes the next step.
#pragma once

#include "simulation/random.hpp"
#include "simulation/simulatedbus.hpp"
#include "simulation/simulatedswitch.hpp"
#include "simulation/virtualclock.hpp"

namespace qandor::simulation {

class World {
public:
    explicit World(std::uint64_t seed);
    World(const World &) = delete;
    World &operator=(const World &) = delete;
    ~World();

    // The world that connections of the library are made in.
    static World &current();

    // One thing happens, or nothing is left to happen before the time moves on.
    bool step();
    void steps(std::size_t count);
    // The time moves on, with everything happening that falls due.
    void pass(Microseconds time);
    // All that can happen happens, and this much time passes in which nothing does.
    void settle(Microseconds quiet_time = 15'000'000);

    int connect() { return bus.connect(user); }

    Random random;
    SimulatedBus bus;
    SimulatedSwitch event_switch;
    uid_t user = 0; // whose the next connections are
    bool bus_is_down = false;

private:
    bool step_without_handles();
    static bool step_handles();
    std::optional<Microseconds> next_deadline() const;
};

} // namespace qandor::simulation
