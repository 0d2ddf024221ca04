// SPDX-License-Identifier: LGPL-2.1-or-later

#include "simulation/world.hpp"

#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace qandor::simulation {
namespace {

World *the_world = nullptr;

} // namespace

World::World(std::uint64_t seed) : random(seed), bus(random), event_switch(bus)
{
    the_world = this;
    virtual_clock::install(
        {[this] { return step_without_handles(); }, [this] { return bus.next_thaw(); }});
}

World::~World()
{
    the_world = nullptr;
}

World &World::current()
{
    return *the_world;
}

// A call that waits for its answer stands on the thread of the handles, which wait with it.
bool World::step_without_handles()
{
    if (random.one_in(2) && event_switch.step())
        return true;
    return bus.step() || event_switch.step();
}

bool World::step_handles()
{
    return g_main_context_iteration(nullptr, FALSE);
}

bool World::step()
{
    switch (random.below(3)) {
    case 0:
        return step_handles() || step_without_handles();
    case 1:
        return event_switch.step() || step_handles() || bus.step();
    default:
        return bus.step() || step_handles() || event_switch.step();
    }
}

void World::steps(std::size_t count)
{
    while (count-- > 0 && step()) {
    }
}

std::optional<Microseconds> World::next_deadline() const
{
    // Asks GLib when it would wake up.
    gint priority = 0, timeout = -1;
    GMainContext *context = g_main_context_default();
    g_main_context_acquire(context);
    gint64 earliest = -1;
    if (g_main_context_prepare(context, &priority))
        timeout = 0;
    else
        g_main_context_query(context, priority, &timeout, nullptr, 0);
    g_main_context_release(context);
    if (timeout >= 0)
        earliest = static_cast<gint64>(virtual_clock::now()) + timeout * gint64(1000);
    std::optional<Microseconds> timer = virtual_clock::next();
    if (earliest < 0)
        return timer;
    auto its = static_cast<Microseconds>(earliest);
    return timer ? std::min(*timer, its) : its;
}

void World::pass(Microseconds time)
{
    Microseconds end = virtual_clock::now() + time;
    constexpr int most_steps = 200'000;
    for (int steps = 0; virtual_clock::now() < end; ++steps) {
        if (steps == most_steps)
            throw std::runtime_error("the world does not come to rest");
        if (step())
            continue;
        Microseconds next = next_deadline().value_or(end);
        virtual_clock::advance_to(std::clamp(next, virtual_clock::now() + 1, end));
    }
}

void World::settle(Microseconds quiet_time)
{
    pass(quiet_time);
    while (step()) {
    }
}

} // namespace qandor::simulation

// What the library opens, in front of sd-bus's own function.
extern "C" int sd_bus_open_system(sd_bus **made)
{
    using namespace qandor::simulation;
    World &world = World::current();
    if (world.bus_is_down)
        return -ECONNREFUSED;
    sd_bus *bus = nullptr;
    int r = sd_bus_new(&bus);
    if (r < 0)
        return r;
    int socket = world.connect();
    r = sd_bus_set_fd(bus, socket, socket);
    if (r >= 0)
        r = sd_bus_set_bus_client(bus, 1);
    if (r >= 0)
        r = sd_bus_start(bus);
    if (r < 0)
        sd_bus_close_unref(bus);
    else
        *made = bus;
    return r;
}
