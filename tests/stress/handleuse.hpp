// SPDX-License-Identifier: LGPL-2.1-or-later

// The life of each kind of handle, from its making to its freeing, with everything that it can do
// between. They throw when something does not come about.
//
// They want a switch that knows the type "installed", an external property with the open key
// "state", and a peer that has the property of topic "Peer".
#pragma once

#include <string>

namespace qandor::test {

void use_plain_handles();
void use_async_handles();
void use_query();
// Handles that cannot connect, freed with everything that was asked of them.
void use_handles_without_bus(const std::string &address);

} // namespace qandor::test
