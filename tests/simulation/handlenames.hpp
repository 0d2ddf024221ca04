// SPDX-License-Identifier: LGPL-2.1-or-later

// What the bus calls the connection of a handle.
#pragma once

#include <qandor/eventconsumer.h>

#include <string>

namespace qandor::simulation {

// Empty while the handle is not connected.
std::string bus_name_of(const event_consumer *consumer);

} // namespace qandor::simulation
