// SPDX-License-Identifier: LGPL-2.1-or-later

// Who may have a call under way: the accounts of a call window, without a bus.
//
// A stock bus refuses a connection its 129th unanswered call. It counts a call until its own answer
// comes or its destination leaves, however long that takes. So a slot is taken when a call is sent,
// and given back by nothing but the answer to that very call; when a destination leaves, the bus
// gives the answer. What is counted here is what the bus counts.
//
//     0                                                96     112    120    124     128
//     |-------------------------------------------------|------|------|------|-------|
//     | newcomers: one slot each                               |      | the  | calls |
//     | seats: one slot each, taken or kept free .............. ......|switch| that  |
//     | further calls: while all answer                 |      |      |      | wait  |
//     | further calls: a quarter of what is left, while anyone is silent     |       |
//
// Newcomer: a destination that has never answered. It gets one call at a time, or four while hardly
// anything is under way. Newcomers together leave the last slots alone.
//
// Seat: the first answer gives a destination a slot of its own, which is kept free for it while it
// has no call under way. 88 seats at most are kept free: beyond them, one that has not been used
// for ten minutes is taken back, otherwise the newest.
//
//     Invariant: slots taken + seats kept free <= 120
//
// Hence a destination that has a seat can always have a call under way, whatever all others do.
//
// Further calls: up to 64 to one destination while all answer. While anyone is silent, a
// destination gets a quarter of what is left, so that the next ones to fall silent leave something
// for others.
//
// Silent: a destination that has calls under way and has not answered for 2 seconds. It gets no
// other call until it answers, however late. A call that has not been answered for 60 seconds is
// lost, and its destination gets no other call before it has answered that one. So the slots that
// hung destinations hold do not grow with time.
//
// The switch has 4 slots of its own: when 1,000 connections call it at a time, the bus looks for
// each answer among all their unanswered calls.
#pragma once

#include <glib.h>

namespace qandor {

struct WindowLimits {
    guint total = 120;      // unanswered calls to consumers
    guint newcomers = 112;  // slots that newcomers may not go beyond
    guint newcomer = 4;     // unanswered calls to one newcomer
    guint quiet = 12;       // slots beyond which a newcomer gets one call only
    guint window = 96;      // slots that further calls may not go beyond while all answer
    guint destination = 64; // unanswered calls to one destination
    guint seats = 88;       // that are kept free
    guint to_switch = 4;    // unanswered calls to the switch
    // In microseconds:
    guint64 silence = 2 * G_USEC_PER_SEC;       // without an answer
    guint64 timeout = 60 * G_USEC_PER_SEC;      // that an answer is waited for
    guint64 seat_unused = 600 * G_USEC_PER_SEC; // until others may take the seat
};

// What an answer says about its destination: the bus answers in the place of those that have left,
// and where it does not take a call.
enum class Sign { OfLife, OfLeaving, None };

// What is known about a destination.
struct Standing {
    bool is_switch = false;
    bool seated = false;
    bool silent = false;
    guint under_way = 0;     // unanswered calls, lost ones included
    guint lost = 0;          // of them those that timed out
    guint64 last_sign = 0;   // of life, or when the wait for one began
    guint64 seat_number = 0; // the later the seat was given, the greater

    bool is_stuck() const { return silent || lost > 0; }
};

class WindowSlots {
public:
    explicit WindowSlots(const WindowLimits &limits) : limits_(limits) {}

    // Whether a call may be sent: by what it has under way itself, and by what all have.
    bool may_have_another(const Standing &standing) const;
    bool admits(const Standing &standing) const;

    void take(Standing &standing, guint64 now);
    // A call has been answered.
    void give_back(Standing &standing, bool was_lost, Sign sign, guint64 now);
    void lose(Standing &standing) { ++standing.lost; }

    bool is_overdue(const Standing &standing, guint64 now) const;
    // When the destination will be silent; G_MAXUINT64 when that is not to be expected.
    guint64 silence_begins(const Standing &standing) const;
    void fall_silent(Standing &standing);
    // Takes the seat back from a destination without a call under way.
    void unseat(Standing &standing);

    guint taken() const { return taken_; }
    guint kept_free() const { return kept_free_; }

private:
    guint free() const { return limits_.total - taken_ - kept_free_; }
    guint share(const Standing &standing) const;
    void speak(Standing &standing, guint64 now);

    const WindowLimits limits_;
    guint taken_ = 0;
    guint kept_free_ = 0; // seats without a call under way
    guint silent_ = 0;    // slots that silent destinations hold
    guint64 last_seat_ = 0;
};

} // namespace qandor
