// SPDX-License-Identifier: LGPL-2.1-or-later

// What did not reach whom: counted by destination, told as warnings. The first loss is told at
// once, what follows at the latest 10 s after it happened, in one line a destination, and what is
// left when the handle ends.
//
// It may be used on any thread. Times are those of the caller's clock, in microseconds.
#pragma once

#include <glib.h>

#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace qandor {

class LossReport {
public:
    static constexpr guint64 quiet_time = 10 * G_USEC_PER_SEC; // between two lines

    void count_event(std::string_view destination) { count(destination, 1, 0); }
    void count_superseded_state(std::string_view destination) { count(destination, 0, 1); }
    // A delivery that the bus refused, or that could not be handed to it.
    void count_refusal(std::string_view destination, std::string_view reason);

    // Tells what is due. Returns when the rest will be: G_MAXUINT64 when there is none.
    guint64 tell(guint64 now);
    void tell_the_rest();

private:
    struct Losses {
        guint events = 0;
        guint states = 0;
        guint refusals = 0;
        std::string reason; // of the last refusal
        guint64 quiet_until = 0;

        bool any() const { return events + states + refusals > 0; }
        std::string text() const;
    };

    void count(std::string_view destination, guint events, guint states);
    Losses &losses_of(std::string_view destination);

    std::mutex mutex_;
    std::map<std::string, Losses, std::less<>> destinations_;
};

} // namespace qandor
