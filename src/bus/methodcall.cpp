// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/methodcall.hpp"

#include "bus/callwindow.hpp"
#include "bus/heldsignals.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"

namespace qandor {
namespace {

// What sd-bus and the queue keep for a message besides its bytes, about.
constexpr std::size_t overhead = 1024;

} // namespace

MethodCall::MethodCall(sd_bus *bus, const Method &method, const char *function)
    : bus_(bus), function_(function), size_(overhead)
{
    sd_bus_message *made = nullptr;
    int r = sd_bus_message_new_method_call(bus, &made, method.destination, method.path,
                                           method.interface, method.member);
    check(r);
    message_.reset(made);
}

void MethodCall::check(int r) const
{
    if (r < 0)
        g_assertion_message_expr(nullptr, __FILE__, __LINE__, function_, "r >= 0");
}

MethodCall &MethodCall::without_starting()
{
    check(sd_bus_message_set_auto_start(message_.get(), 0));
    return *this;
}

MethodCall &MethodCall::append_bytes(const Bytes &bytes)
{
    check(sd_bus_message_append_array(message_.get(), 'y', bytes.data, bytes.length));
    size_ += bytes.length;
    return *this;
}

void MethodCall::send(sd_bus_message_handler_t callback, void *userdata, not_sent_handler not_sent)
{
    std::shared_ptr<CallWindow> window = CallWindow::find(bus_);
    if (!window) {
        send_past_window(bus_, message_.get(), callback, userdata, not_sent);
        return;
    }
    const char *destination = sd_bus_message_get_destination(message_.get());
    window->call(destination, {std::move(message_), callback, userdata, size_, not_sent});
}

void send_past_window(sd_bus *bus, sd_bus_message *message, sd_bus_message_handler_t callback,
                      void *userdata, not_sent_handler not_sent)
{
    int r = sd_bus_call_async(bus, nullptr, message, callback, userdata, call_timeout_usec);
    if (r < 0)
        report_not_sent(message, r, not_sent, userdata);
}

void report_not_sent(sd_bus_message *message, int r, not_sent_handler not_sent, void *userdata)
{
    if (not_sent) {
        not_sent(userdata, r);
        return;
    }
    log_warning("Failed to call %s.%s: %d", sd_bus_message_get_interface(message),
                sd_bus_message_get_member(message), r);
}

int MethodCall::send_and_wait(sd_bus_error *error, sd_bus_message **reply)
{
    HeldSignals held;
    return sd_bus_call(bus_, message_.get(), call_timeout_usec, error, reply);
}

} // namespace qandor
