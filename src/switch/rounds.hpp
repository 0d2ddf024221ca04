// SPDX-License-Identifier: LGPL-2.1-or-later

// What the event loop does besides reading: a slice of work after each message. Reading comes
// first, for a while, because the bus refuses calls when too many wait for the switch; what is read
// only waits for its turn. By the real clock: the event loop's own stands still while something is
// done.
#pragma once

#include "platform/owners.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <functional>

namespace qandor {

class Rounds {
public:
    struct Work {
        std::function<bool()> step;       // a small piece; false when there is none to do now
        std::function<bool()> waits;      // whether something waits that may be done later
        std::function<void()> look_again; // called about once a second while something waits
    };

    explicit Rounds(Work work) : work_(std::move(work)) {}
    Rounds(const Rounds &) = delete;
    Rounds &operator=(const Rounds &) = delete;

    // From now on the event loop of the bus sees to the work. A negative errno on failure.
    int begin(sd_bus *bus);
    // A call of so many bytes has been read.
    void note_call(std::size_t bytes) { drains_ = drains_ || bytes >= large_call; }

private:
    static int after_reading(sd_event_source *, void *rounds);
    static int look(sd_event_source *, uint64_t, void *rounds);

    bool is_to_read_on();
    void work();

    Work work_;
    sd_bus *bus_ = nullptr;
    static constexpr std::size_t large_call = 64 << 10;

    gint64 reading_since_ = 0; // 0 when work was done after the last message
    bool drains_ = false;      // a large call has been read since then
    EventTimerOwner after_reading_;
    EventTimerOwner again_; // wakes the event loop when there is more to do
    EventTimerOwner look_;
};

} // namespace qandor
