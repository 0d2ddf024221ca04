// SPDX-License-Identifier: LGPL-2.1-or-later

// Who an event of this process goes to, as far as the switch tells.
#pragma once

#include "cli/monitor.hpp"

#include <map>
#include <optional>

namespace qandor::cli {

struct Subscribers {
    std::size_t visible = 0;
    std::size_t clandestine = 0;
};

// The subscriptions to the declarations of this process whose expressions the event satisfies;
// nothing when the switch does not tell this user.
std::optional<Subscribers> subscribers_of(const SwitchBus &bus, const Event &event);

// The subscriptions to each declaration, without those of this process; nothing when the switch
// does not tell this user.
std::optional<std::map<guint32, Subscribers>> subscribers_by_declaration(const SwitchBus &bus);

std::string text_of(const Subscribers &subscribers);

} // namespace qandor::cli
