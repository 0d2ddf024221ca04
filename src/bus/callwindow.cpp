// SPDX-License-Identifier: LGPL-2.1-or-later

// Sending through a window, and the answers.

#include "bus/callwindow.hpp"

#include "bus/methodcall.hpp"
#include "bus/windowdestination.hpp"
#include "platform/check.hpp"

#include <qandor/switchbusclient.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace qandor {
namespace {

constexpr guint64 no_timeout = G_MAXUINT64;

// An error that the bus itself has answered.
const sd_bus_error *refusal_in(sd_bus_message *answer)
{
    const char *sender = sd_bus_message_get_sender(answer);
    bool is_driver = sender && std::strcmp(sender, "org.freedesktop.DBus") == 0;
    return is_driver ? sd_bus_message_get_error(answer) : nullptr;
}

bool tells_of_leaving(const sd_bus_error *error)
{
    return sd_bus_error_has_names(error, SD_BUS_ERROR_SERVICE_UNKNOWN,
                                  SD_BUS_ERROR_NAME_HAS_NO_OWNER, SD_BUS_ERROR_NO_REPLY) > 0;
}

// When the connection ends, sd-bus answers the calls under way itself.
bool is_of_lost_connection(sd_bus_message *answer)
{
    return sd_bus_message_is_method_error(answer, SD_BUS_ERROR_NO_REPLY) > 0 &&
           sd_bus_is_open(sd_bus_message_get_bus(answer)) <= 0;
}

Sign sign_in(sd_bus_message *answer)
{
    const sd_bus_error *refusal = refusal_in(answer);
    if (is_of_lost_connection(answer) || (refusal && tells_of_leaving(refusal)))
        return Sign::OfLeaving;
    return refusal ? Sign::None : Sign::OfLife;
}

// Why a delivery may not have arrived; NULL when it has, or when its consumer has left.
const char *reason_of_loss(sd_bus_message *answer)
{
    if (is_of_lost_connection(answer))
        return "the connection to the bus ended before the answer";
    return sign_in(answer) == Sign::None ? refusal_in(answer)->name : nullptr;
}

} // namespace

CallWindow::Destination &CallWindow::destination_of(const char *name)
{
    auto found = destinations_.find(name);
    if (found == destinations_.end()) {
        bool is_switch = std::strcmp(name, DBUS_SERVICE_SWITCH) == 0;
        auto made = std::make_unique<Destination>(*this, name, is_switch);
        std::string_view key = made->name;
        found = destinations_.emplace(key, std::move(made)).first;
    }
    Destination &destination = *found->second;
    if (std::exchange(destination.is_resting, false))
        idle_.erase(destination.resting_place);
    return destination;
}

// Keeps an idle destination's seat, of which there are so many, and forgets one that has none.
void CallWindow::retire(Destination &destination)
{
    if (!destination.is_idle() || destination.standing.is_switch || destination.is_resting)
        return;
    if (!destination.standing.seated) {
        destinations_.erase(destination.name);
        return;
    }
    destination.resting_place = idle_.insert(idle_.end(), &destination);
    destination.is_resting = true;
    if (idle_.size() > limits_.seats)
        take_back_a_seat();
}

// From the destination that has not been called for longest, if that is long, or from the one that
// got its seat last: so newcomers, however many, take none from those that are called now and then.
void CallWindow::take_back_a_seat()
{
    auto place = idle_.begin();
    if (clock_() - (*place)->standing.last_sign < limits_.seat_unused)
        place = std::max_element(idle_.begin(), idle_.end(), [](auto *one, auto *other) {
            return one->standing.seat_number < other->standing.seat_number;
        });
    Destination &destination = **place;
    idle_.erase(place);
    slots_.unseat(destination.standing);
    destinations_.erase(destination.name);
}

void CallWindow::call(const char *name, QueuedCall call)
{
    Destination &destination = destination_of(name);
    call.queued_at = clock_();
    if (destination.queue.empty() && slots_.admits(destination.standing)) {
        send(destination, std::move(call));
        retire(destination);
        return;
    }
    call.charge = BacklogPart(backlog_, call.size);
    destination.plain_calls += !call.event();
    std::size_t size = call.size + (call.event() ? call.event()->event->array->len : 0);
    DropClass drop_class = drop_class_of(call);
    destination.queue.push(std::move(call), size, std::move(drop_class));
    offer(destination);
    keep_within_bound();
    wake_at(clock_() + limits_.silence);
}

CallWindow::PendingCall *CallWindow::new_pending(Destination &destination, const QueuedCall &call)
{
    if (spare_.empty())
        pending_.emplace_front();
    else
        pending_.splice(pending_.begin(), spare_, spare_.begin());
    PendingCall &pending = pending_.front();
    pending.destination = &destination;
    pending.callback = call.callback;
    pending.userdata = call.userdata;
    pending.since = call.event() ? clock_() : call.queued_at;
    pending.is_event = call.event() != nullptr;
    pending.is_lost = false;
    pending.place = pending_.begin();
    return &pending;
}

BusMessageOwner CallWindow::message_of(QueuedCall &call, const Destination &destination) const
{
    if (const EventCall *event = call.event())
        return event->message(bus_, destination.name.c_str());
    return std::move(std::get<BusMessageOwner>(call.content));
}

void CallWindow::send(Destination &destination, QueuedCall call)
{
    PendingCall *pending = new_pending(destination, call);
    BusMessageOwner message = message_of(call, destination);
    sd_bus_slot *slot = nullptr;
    int r = sd_bus_call_async(bus_, &slot, message.get(), receive_answer, pending, no_timeout);
    if (r < 0) {
        spare_.splice(spare_.begin(), pending_, pending->place);
        report_failure(destination, call, message.get(), r);
        return;
    }
    pending->slot.reset(slot);
    guint64 now = clock_();
    slots_.take(destination.standing, now);
    wake_at(now + limits_.silence);
}

void CallWindow::report_failure(Destination &destination, const QueuedCall &call,
                                sd_bus_message *message, int error)
{
    if (!call.event() || call.not_sent) {
        report_not_sent(message, error, call.not_sent, call.userdata);
        return;
    }
    backlog_->report.count_refusal(destination.name, std::strerror(-error));
    wake_at(clock_());
}

// Takes an answered call off the books.
void CallWindow::settle(PendingCall &pending, Sign sign)
{
    Destination &destination = *pending.destination;
    slots_.give_back(destination.standing, pending.is_lost, sign, clock_());
    pending.slot.reset();
    spare_.splice(spare_.begin(), pending_, pending.place);
    offer(destination);
    retire(destination);
}

int CallWindow::receive_answer(sd_bus_message *answer, void *data, sd_bus_error *error)
{
    auto &pending = *static_cast<PendingCall *>(data);
    // The callback may disconnect and take the window along.
    std::shared_ptr<CallWindow> window = pending.destination->window.shared_from_this();
    sd_bus_message_handler_t callback = pending.callback;
    void *userdata = pending.userdata;

    Sign sign = sign_in(answer);
    if (const char *reason = pending.is_event ? reason_of_loss(answer) : nullptr) {
        window->backlog_->report.count_refusal(pending.destination->name, reason);
        window->wake_at(window->clock_());
    }
    const char *name = nullptr;
    if (window->unique_name_.empty() && sd_bus_get_unique_name(window->bus_, &name) >= 0)
        window->learn_name(name);
    window->settle(pending, sign);
    window->pump();
    return callback && !window->ending_ ? callback(answer, userdata, error) : 0;
}

} // namespace qandor
