// SPDX-License-Identifier: LGPL-2.1-or-later

// Apart from the rest: the switch has a Consumer of its own, which would hide the library's.

#include "simulation/handlenames.hpp"

#include "api/eventconsumer.hpp"
#include "bus/consumer.hpp"

std::string qandor::simulation::bus_name_of(const event_consumer *consumer)
{
    sd_bus *bus = state_of(consumer->consumer).presence.bus;
    const char *name = nullptr;
    return bus && sd_bus_get_unique_name(bus, &name) >= 0 ? name : "";
}
