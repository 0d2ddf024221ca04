// SPDX-License-Identifier: LGPL-2.1-or-later

// Who an event of this process goes to, as far as the switch tells.
#pragma once

#include "cli/monitor.hpp"

#include <optional>

namespace qandor::cli {

struct Subscribers {
    std::size_t visible = 0;
    std::size_t clandestine = 0;
};

// The subscriptions to the declarations of this process whose expressions the event satisfies;
// nothing when the switch does not tell this user.
std::optional<Subscribers> subscribers_of(const SwitchBus &bus, const Event &event);

std::string text_of(const Subscribers &subscribers);

} // namespace qandor::cli
