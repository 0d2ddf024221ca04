// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/callwindow.hpp"

#include "bus/methodcall.hpp"
#include "platform/log.hpp"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace qandor {
namespace {

std::mutex windows_mutex;

std::unordered_map<sd_bus *, std::shared_ptr<CallWindow>> &windows()
{
    static auto *all = new std::unordered_map<sd_bus *, std::shared_ptr<CallWindow>>();
    return *all;
}

// Idle destinations are kept, since the next call to one mostly comes soon, up to this many.
constexpr std::size_t kept_destinations = 256;

using TrackOwner = Owner<sd_bus_track, sd_bus_track_unref>;

guint64 now_usec()
{
    return static_cast<guint64>(g_get_monotonic_time());
}

} // namespace

struct CallWindow::Destination {
    Destination(CallWindow &window, const char *name) : window(window), name(name) {}

    bool is_idle() const { return under_way == 0 && lost == 0 && queue.empty(); }

    CallWindow &window;
    const std::string name;
    CallQueue queue;
    guint under_way = 0;
    guint lost = 0; // timed out here, still counted by the bus
    bool silent = false;
    guint64 last_sign = 0; // of life, or when the wait for one began
    TrackOwner leaving;    // tells when a destination with lost calls leaves the bus
};

struct CallWindow::PendingCall {
    Destination *destination;
    sd_bus_message_handler_t callback;
    void *userdata;
    guint64 sent_at;
    std::list<PendingCall>::iterator place;
};

void CallWindow::open(sd_bus *bus, const WindowLimits &limits)
{
    std::lock_guard lock(windows_mutex);
    windows().insert_or_assign(bus, std::make_shared<CallWindow>(bus, limits));
}

std::shared_ptr<CallWindow> CallWindow::find(sd_bus *bus)
{
    std::lock_guard lock(windows_mutex);
    auto found = windows().find(bus);
    return found == windows().end() ? nullptr : found->second;
}

std::shared_ptr<CallWindow> CallWindow::close(sd_bus *bus)
{
    std::lock_guard lock(windows_mutex);
    auto found = windows().extract(bus);
    return found ? std::move(found.mapped()) : nullptr;
}

CallWindow::CallWindow(sd_bus *bus, const WindowLimits &limits) : bus_(bus), limits_(limits) {}

CallWindow::~CallWindow() = default;

CallWindow::Destination &CallWindow::destination_of(const char *name)
{
    auto found = destinations_.find(name);
    if (found != destinations_.end())
        return *found->second;
    if (destinations_.size() >= kept_destinations)
        forget_idle_destinations();
    auto made = std::make_unique<Destination>(*this, name);
    std::string_view key = made->name;
    return *destinations_.emplace(key, std::move(made)).first->second;
}

void CallWindow::forget_idle_destinations()
{
    std::erase_if(destinations_, [](const auto &entry) { return entry.second->is_idle(); });
}

// While a destination is silent the others get a quarter of what is free at most, so that the next
// ones to fall silent leave something for those after them.
bool CallWindow::admits(const Destination &destination) const
{
    guint total = busy_ + held_;
    if (total >= limits_.hard)
        return false;
    if (destination.silent)
        return destination.under_way == 0;
    if (busy_ >= limits_.window || destination.under_way >= limits_.destination)
        return false;
    if (held_ == 0 || destination.under_way == 0)
        return true;
    guint free = std::min(limits_.window - busy_, limits_.hard - total);
    return destination.under_way < std::max(1U, free / 4);
}

void CallWindow::call(const char *name, QueuedCall call)
{
    Destination &destination = destination_of(name);
    if (destination.queue.empty() && admits(destination)) {
        send(destination, std::move(call));
        return;
    }
    if (destination.queue.empty())
        waiting_.push_back(&destination);
    queued_bytes_ += call.size;
    destination.queue.push(std::move(call));
    keep_within_bound();
    arm_timer();
}

CallWindow::PendingCall *CallWindow::new_pending()
{
    if (spare_.empty())
        pending_.emplace_front();
    else
        pending_.splice(pending_.begin(), spare_, spare_.begin());
    pending_.front().place = pending_.begin();
    return &pending_.front();
}

BusMessageOwner CallWindow::message_of(QueuedCall call, const Destination &destination) const
{
    if (const EventCall *event = call.event())
        return event->message(bus_, destination.name.c_str());
    return std::move(std::get<BusMessageOwner>(call.content));
}

void CallWindow::send(Destination &destination, QueuedCall call)
{
    PendingCall *pending = new_pending();
    pending->destination = &destination;
    pending->callback = call.callback;
    pending->userdata = call.userdata;
    pending->sent_at = now_usec();

    not_sent_handler not_sent = call.not_sent;
    BusMessageOwner message = message_of(std::move(call), destination);
    int r =
        sd_bus_call_async(bus_, nullptr, message.get(), receive_answer, pending, limits_.timeout);
    if (r < 0) {
        void *userdata = pending->userdata;
        spare_.splice(spare_.begin(), pending_, pending->place);
        report_not_sent(message.get(), r, not_sent, userdata);
        return;
    }
    if (destination.under_way == 0)
        destination.last_sign = pending->sent_at;
    ++destination.under_way;
    ++(destination.silent ? held_ : busy_);
}

// Takes a call that is no longer under way off the books.
void CallWindow::settle(Destination &destination, bool timed_out)
{
    --destination.under_way;
    --(destination.silent ? held_ : busy_);
    if (timed_out) {
        ++destination.lost;
        ++held_;
        fall_silent(destination);
        return;
    }
    destination.last_sign = now_usec();
    forget_lost(destination);
    if (destination.silent) {
        destination.silent = false;
        held_ -= destination.under_way;
        busy_ += destination.under_way;
    }
}

// A destination answers in order: its answer to a later call means that it has read the earlier.
void CallWindow::forget_lost(Destination &destination)
{
    held_ -= destination.lost;
    destination.lost = 0;
    destination.leaving.reset();
}

void CallWindow::fall_silent(Destination &destination)
{
    if (!destination.silent) {
        destination.silent = true;
        busy_ -= destination.under_way;
        held_ += destination.under_way;
    }
    if (destination.lost > 0)
        watch_for_leaving(destination);
}

void CallWindow::watch_for_leaving(Destination &destination)
{
    sd_bus_track *made = nullptr;
    if (!destination.leaving && sd_bus_track_new(bus_, &made, destination_left, &destination) >= 0)
        destination.leaving.reset(made);
    sd_bus_track_add_name(destination.leaving.get(), destination.name.c_str());
}

int CallWindow::destination_left(sd_bus_track *, void *data)
{
    auto &destination = *static_cast<Destination *>(data);
    CallWindow &window = destination.window;
    // The track is in use while it calls: it is let go with the next answer or with the window.
    window.held_ -= destination.lost;
    destination.lost = 0;
    window.pump();
    return 0;
}

int CallWindow::receive_answer(sd_bus_message *answer, void *data, sd_bus_error *error)
{
    auto *pending = static_cast<PendingCall *>(data);
    Destination &destination = *pending->destination;
    CallWindow &window = destination.window;
    sd_bus_message_handler_t callback = pending->callback;
    void *userdata = pending->userdata;
    bool timed_out = sd_bus_message_is_method_error(answer, SD_BUS_ERROR_NO_REPLY) > 0 &&
                     now_usec() - pending->sent_at >= window.limits_.timeout;

    window.spare_.splice(window.spare_.begin(), window.pending_, pending->place);
    window.settle(destination, timed_out);
    window.pump();
    // Last, since the callback may disconnect and take the window along.
    return callback ? callback(answer, userdata, error) : 0;
}

// Lets each waiting destination send one call after another, in turns, until none is admitted.
void CallWindow::pump()
{
    std::size_t refused = 0;
    while (refused < waiting_.size() && busy_ + held_ < limits_.hard) {
        Destination &destination = *waiting_.front();
        if (!admits(destination)) {
            ++refused;
            waiting_.splice(waiting_.end(), waiting_, waiting_.begin());
            continue;
        }
        refused = 0;
        QueuedCall call = destination.queue.pop();
        queued_bytes_ -= call.size;
        if (destination.queue.empty())
            waiting_.pop_front();
        else
            waiting_.splice(waiting_.end(), waiting_, waiting_.begin());
        send(destination, std::move(call));
    }
    arm_timer();
}

// A timer runs only while something waits for a destination that may have fallen silent.
void CallWindow::arm_timer()
{
    if (waiting_.empty()) {
        timer_.reset();
        return;
    }
    if (timer_)
        return;
    guint64 earliest = G_MAXUINT64;
    for (const auto &[name, destination] : destinations_)
        if (destination->under_way > 0 && !destination->silent)
            earliest = std::min(earliest, destination->last_sign + limits_.silence);
    sd_event *event = sd_bus_get_event(bus_);
    if (earliest == G_MAXUINT64 || !event)
        return;
    sd_event_source *made = nullptr;
    constexpr guint64 accuracy = 10000;
    if (sd_event_add_time(event, &made, CLOCK_MONOTONIC, earliest, accuracy, look_for_silence,
                          this) >= 0)
        timer_.reset(made);
}

int CallWindow::look_for_silence(sd_event_source *, uint64_t, void *data)
{
    auto &window = *static_cast<CallWindow *>(data);
    guint64 now = now_usec();
    for (const auto &[name, destination] : window.destinations_)
        if (destination->under_way > 0 && now - destination->last_sign >= window.limits_.silence)
            window.fall_silent(*destination);
    window.timer_.reset();
    window.pump();
    return 0;
}

void CallWindow::keep_within_bound()
{
    while (queued_bytes_ > limits_.queue_bytes) {
        Destination *fullest = *std::max_element(
            waiting_.begin(), waiting_.end(), [](const Destination *one, const Destination *other) {
                return one->queue.bytes() < other->queue.bytes();
            });
        std::size_t before = fullest->queue.bytes();
        if (fullest->queue.drop_superseded_state())
            report_.count_superseded_state(fullest->name.c_str());
        else if (fullest->queue.drop_oldest_event())
            report_.count_dropped_event(fullest->name.c_str());
        else
            break;
        queued_bytes_ -= before - fullest->queue.bytes();
        if (fullest->queue.empty())
            waiting_.remove(fullest);
    }
    report_.tell();
}

void CallWindow::send_the_rest()
{
    for (Destination *destination : waiting_) {
        while (!destination->queue.empty()) {
            QueuedCall call = destination->queue.pop();
            not_sent_handler not_sent = call.not_sent;
            void *userdata = call.userdata;
            BusMessageOwner message = message_of(std::move(call), *destination);
            sd_bus_message_set_expect_reply(message.get(), 0);
            int r = sd_bus_send(bus_, message.get(), nullptr);
            if (r < 0)
                report_not_sent(message.get(), r, not_sent, userdata);
        }
    }
    waiting_.clear();
    queued_bytes_ = 0;
    timer_.reset();
}

} // namespace qandor
