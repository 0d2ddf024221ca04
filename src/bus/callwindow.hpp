// SPDX-License-Identifier: LGPL-2.1-or-later

// The call window of a connection: calls beyond the slots that windowslots.hpp deals out wait their
// turn, in order for each destination. What a call says on the wire does not change.
//
//     call() --> [ queue of a destination ] --> slot --> bus --> destination
//                       |                        |                   |
//                 dropped, told             60 s: the callback       |
//                                           gets a timeout           |
//                                                |                   |
//                                           given back  <--  answer, however late
//
// On the wire a call has no timeout, so that its late answer is still received and gives the slot
// back; the callback is told after 60 s by the window's own clock. A call that is no event is timed
// from call() on, so that a callback runs in time also where the call waits for its turn; the call
// is sent all the same. An event is timed from the moment it is sent.
//
// What waits is bounded in bytes by the backlog, which a handle shares with its command source.
// Beyond the bound, at the destination where most is waiting, states of a property give way to
// newer states of it, then the oldest plain events go. The callbacks of dropped events do not run.
// What has been dropped or refused by the bus is told in the backlog's report.
//
// A window is used on its connection's thread.
#pragma once

#include "bus/callqueue.hpp"
#include "bus/windowslots.hpp"
#include "platform/owners.hpp"

#include <deque>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace qandor {

// Microseconds of a clock that never goes back.
using WindowClock = guint64 (*)();
guint64 monotonic_usec();

class CallWindow : public std::enable_shared_from_this<CallWindow> {
public:
    // One window for each connection, found by the connection.
    static void open(sd_bus *bus, const WindowLimits &limits = {},
                     WindowClock clock = monotonic_usec);
    static std::shared_ptr<CallWindow> find(sd_bus *bus);
    static std::shared_ptr<CallWindow> close(sd_bus *bus);

    CallWindow(sd_bus *bus, const WindowLimits &limits, WindowClock clock);
    CallWindow(const CallWindow &) = delete;
    CallWindow &operator=(const CallWindow &) = delete;
    ~CallWindow();

    // Counts what waits from now on together with what else the handle lets wait.
    void share(std::shared_ptr<Backlog> backlog) { backlog_ = std::move(backlog); }
    const std::shared_ptr<Backlog> &backlog() const { return backlog_; }

    // Sends the call now or in its turn. Its callback runs once, with the answer, an error or the
    // end of the timeout; its not_sent runs in the callback's place when the call cannot be sent.
    void call(const char *destination, QueuedCall call);

    // Ends the window with its connection: sends what waits, in order, and waits for the answers to
    // what has been delivered, at most so long. From now on no callback runs, and nothing that
    // comes in is dispatched. Destinations that are silent or of this process are not waited for;
    // the rest of what waits is sent as calls that expect no answer.
    void finish(guint64 usec);

    // Sees to all that time has brought. A timer of the connection's event loop does this when it
    // is due; a connection without one is seen to by its user.
    void look_at_clock();

    const WindowSlots &slots() const { return slots_; }

private:
    struct Destination;
    struct PendingCall;

    static int receive_answer(sd_bus_message *answer, void *pending, sd_bus_error *error);

    // Sending.
    Destination &destination_of(const char *name);
    BusMessageOwner message_of(QueuedCall &call, const Destination &destination) const;
    void send(Destination &destination, QueuedCall call);
    void report_failure(Destination &destination, const QueuedCall &call, sd_bus_message *message,
                        int error);
    PendingCall *new_pending(Destination &destination, const QueuedCall &call);
    void settle(PendingCall &pending, Sign sign);
    void retire(Destination &destination);
    void take_back_a_seat();

    // Waiting.
    void offer(Destination &destination);
    void pump();
    void serve(std::deque<Destination *> &ready);
    void send_next(Destination &destination);
    void keep_within_bound();
    void drop_from(Destination &destination);

    // The clock.
    struct Timeout;
    void collect_timeouts(guint64 now, std::list<Timeout> &due);
    void run(const std::list<Timeout> &due);
    guint64 next_look(guint64 now);
    void wake_at(guint64 when);

    // The end.
    void learn_name(const char *name);
    static bool is_of_this_process(std::string_view name);
    bool is_awaited(const Destination &destination) const;
    bool awaits_answers() const;
    void wait_for_answers(guint64 usec);
    void send_the_rest();

    sd_bus *bus_;
    const WindowLimits limits_;
    const WindowClock clock_;
    WindowSlots slots_;
    std::shared_ptr<Backlog> backlog_;
    std::unordered_map<std::string_view, std::unique_ptr<Destination>> destinations_;
    std::list<Destination *> idle_; // that have a seat, the longest unused first

    // Destinations with calls that wait, and which may have one more under way.
    std::deque<Destination *> seated_ready_;
    std::deque<Destination *> newcomers_ready_;

    std::list<PendingCall> pending_; // not more than there are slots
    std::list<PendingCall> spare_;
    EventTimerOwner timer_;
    guint64 timer_at_ = G_MAXUINT64;
    std::string unique_name_; // of the connection, once it is known; other windows' threads read it
    bool ending_ = false;
};

} // namespace qandor
