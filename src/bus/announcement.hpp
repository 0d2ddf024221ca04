// SPDX-License-Identifier: LGPL-2.1-or-later

// What becomes of a Declare or Subscribe, and when those that were not sent are sent again.
#pragma once

#include "bus/retrytimer.hpp"

#include <systemd/sd-bus.h>

#include <string>

namespace qandor {

struct AnnouncementResult {
    enum Outcome {
        Taken,   // the switch has it
        Refused, // by the switch, which is final
        NotSent, // the switch has not seen it: the bus or this process could not pass it on
    };

    // The method is named in full.
    static AnnouncementResult of_answer(sd_bus_message *answer, const char *method);
    static AnnouncementResult of_failed_call(int error, const char *method);

    Outcome outcome;
    // Why it was refused; or what to say when it was not sent, which is nothing where it is only
    // that there is no switch.
    std::string text = {};
};

// Sends again what was not sent: after a pause one call tries whether it reaches the switch. All
// the others follow when it does; when it does not the next pause is longer. So a switch that is
// out of reach costs each handle one call a pause, however much it has to announce. The return of
// the switch ends the waiting.
class Resending {
public:
    // Calls try_one(instance), after a pause, to send one of what is unsent.
    Resending(MainTimer::Function try_one, gpointer instance)
        : timer_(shortest_pause_msec, longest_pause_msec, try_one, instance)
    {
    }

    // The number of the sending that tries.
    void set_trial(guint64 sending) { trial_ = sending; }
    // Takes note of what became of a sending; whether all that is unsent is to be sent now.
    bool note(guint64 sending, const AnnouncementResult &result);
    // Nothing is unsent: the next pause is the shortest again.
    void reset();

private:
    static constexpr guint shortest_pause_msec = 250;
    static constexpr guint longest_pause_msec = 10000;

    guint64 trial_ = 0;
    bool told_ = false;
    RetryTimer timer_;
};

} // namespace qandor
