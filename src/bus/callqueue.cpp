// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/callqueue.hpp"

namespace qandor {

DropClass drop_class_of(const QueuedCall &call)
{
    const EventCall *event = call.event();
    if (!event)
        return {};
    if (!event->is_property)
        return {Droppable::Event, {}};
    std::string state = event->path;
    state.append(" ").append(std::to_string(event->declaration));
    state.append(" ").append(std::to_string(event->token));
    return {Droppable::State, std::move(state)};
}

} // namespace qandor
