// SPDX-License-Identifier: LGPL-2.1-or-later

// The call window: how many calls of a connection wait for an answer at a time.
//
// A stock system bus refuses a connection its 129th unanswered call, so calls beyond the window
// wait their turn, in order for each destination. What a call says on the wire does not change, and
// while fewer calls are under way than the window is wide none is delayed.
//
// A destination that has not answered for a while is silent: it gets no more than one call at a
// time, and what it holds does not narrow the window of the others, for whom slots above the window
// are kept in reserve and dealt out sparingly. A call that timed out here still counts at the bus
// until its destination answers something or leaves. When some fifteen destinations have fallen
// silent with all the slots they could get, the rest share what comes free.
//
// What waits is bounded in bytes. Beyond the bound, at the destination where most is waiting,
// states of a property give way to newer states of it, then the oldest plain events go, with a
// warning. Calls that are no events are never dropped.
//
// A window is used on its connection's thread.
#pragma once

#include "bus/callqueue.hpp"
#include "platform/owners.hpp"

#include <memory>
#include <string_view>
#include <unordered_map>

namespace qandor {

struct WindowLimits {
    guint window = 96;          // calls under way
    guint destination = 64;     // of them to one destination
    guint hard = 120;           // unanswered calls in all, reserve included
    guint64 silence = 2000000;  // microseconds without an answer
    guint64 timeout = 60000000; // microseconds that an answer is waited for
    std::size_t queue_bytes = 64 << 20;
};

class CallWindow {
public:
    // One window for each connection, found by the connection.
    static void open(sd_bus *bus, const WindowLimits &limits = {});
    static std::shared_ptr<CallWindow> find(sd_bus *bus);
    static std::shared_ptr<CallWindow> close(sd_bus *bus);

    CallWindow(sd_bus *bus, const WindowLimits &limits);
    CallWindow(const CallWindow &) = delete;
    CallWindow &operator=(const CallWindow &) = delete;
    ~CallWindow();

    // Sends the call now or in its turn. Its callback runs once, with the answer, an error or the
    // end of the timeout; never when the call cannot be sent, which is a warning.
    void call(const char *destination, QueuedCall call);

    // Sends all that waits at once, as calls that expect no answer.
    void send_the_rest();

    guint under_way() const { return busy_ + held_; }
    std::size_t queued_bytes() const { return queued_bytes_; }

private:
    struct Destination;
    struct PendingCall;

    static int receive_answer(sd_bus_message *answer, void *pending, sd_bus_error *error);
    static int destination_left(sd_bus_track *track, void *destination);
    static int look_for_silence(sd_event_source *timer, uint64_t now, void *window);

    Destination &destination_of(const char *name);
    bool admits(const Destination &destination) const;
    BusMessageOwner message_of(QueuedCall call, const Destination &destination) const;
    void send(Destination &destination, QueuedCall call);
    void settle(Destination &destination, bool timed_out);
    void forget_lost(Destination &destination);
    void fall_silent(Destination &destination);
    void watch_for_leaving(Destination &destination);
    void pump();
    void arm_timer();
    void keep_within_bound();
    void forget_idle_destinations();
    PendingCall *new_pending();

    sd_bus *bus_;
    WindowLimits limits_;
    std::unordered_map<std::string_view, std::unique_ptr<Destination>> destinations_;
    std::list<Destination *> waiting_; // destinations with calls in their queue, taken in turns
    guint busy_ = 0;                   // calls under way to destinations that answer
    guint held_ = 0;                   // calls under way to silent ones, and lost ones
    std::size_t queued_bytes_ = 0;
    std::list<PendingCall> pending_;
    std::list<PendingCall> spare_;
    EventTimerOwner timer_;
    DropReport report_;
};

} // namespace qandor
