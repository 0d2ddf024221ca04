// SPDX-License-Identifier: LGPL-2.1-or-later

// The time that everything in the process sees: clocks stand still until the test moves them on,
// and timers of event loops expire when it does. An hour passes in the time of a function call.
//
// The functions of virtualclock.cpp stand in front of the C library's own. Until install() has been
// called they only pass calls on.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

namespace qandor::simulation {

using Microseconds = std::uint64_t;

namespace virtual_clock {

// What the world does while a call waits for a descriptor.
struct World {
    // Lets the rest of the world take a step; false when nothing can happen before the time moves
    // on.
    std::function<bool()> step;
    // When the next thing happens besides the timers of event loops.
    std::function<std::optional<Microseconds>()> next;
};

// Time begins.
void install(World world);

Microseconds now();
void advance_to(Microseconds time);

// When the next timer of an event loop expires, or the world has something to do.
std::optional<Microseconds> next();

// The longest time that has passed while a call waited for its answer.
Microseconds longest_wait();

// Asked before each call of timerfd_create(), timerfd_settime() and ppoll(): true makes it fail,
// with the errno that was set.
using Fails = bool (*)(const char *function, const void *caller);
void let_fail(Fails fails);

} // namespace virtual_clock
} // namespace qandor::simulation
