// SPDX-License-Identifier: LGPL-2.1-or-later

#include "rawpeer.hpp"

#include <systemd/sd-event.h>

#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace qandor::test {
namespace {

constexpr const char *switch_name = "com.vemo.Event.Switch";
constexpr const char *switch_object = "/com/vemo/Event/Switch";

void need(int r, const char *what)
{
    if (r < 0)
        throw std::runtime_error(std::string("cannot ") + what);
}

// One for each process: a fork must not use its parent's.
sd_event *loop()
{
    static Owner<sd_event, sd_event_unref> event;
    static pid_t process = 0;
    if (process != getpid()) {
        sd_event *made = nullptr;
        need(sd_event_new(&made), "make an event loop");
        static_cast<void>(process ? event.release() : nullptr);
        event.reset(made);
        process = getpid();
    }
    return event.get();
}

std::string read_octets(sd_bus_message *message)
{
    const void *data = nullptr;
    size_t size = 0;
    need(sd_bus_message_read_array(message, 'y', &data, &size), "read bytes");
    return {static_cast<const char *>(data), size};
}

Received received_from(sd_bus_message *message)
{
    Received received{sd_bus_message_get_path(message),
                      sd_bus_message_get_member(message),
                      {},
                      {},
                      sd_bus_message_get_expect_reply(message) > 0};
    if (sd_bus_message_has_signature(message, "ayu"))
        received.bytes = read_octets(message);
    guint32 number;
    while (sd_bus_message_read(message, "u", &number) > 0)
        received.numbers.push_back(number);
    return received;
}

Answer answer_from(sd_bus_message *reply)
{
    if (const sd_bus_error *error = sd_bus_message_get_error(reply))
        return {error->name, error->message ? error->message : "", {}};
    return {{}, {}, sd_bus_message_has_signature(reply, "ay") ? read_octets(reply) : ""};
}

} // namespace

RawPeer::RawPeer()
{
    sd_bus *made = nullptr;
    need(sd_bus_open_system(&made), "connect");
    bus_.reset(made);
    const char *name = nullptr;
    need(sd_bus_get_unique_name(made, &name), "be named");
    name_ = name;
    need(sd_bus_add_filter(made, nullptr, receive, this), "listen");
    need(sd_bus_attach_event(made, loop(), SD_EVENT_PRIORITY_NORMAL), "attach");
}

int RawPeer::receive(sd_bus_message *message, void *data, sd_bus_error *)
{
    if (!sd_bus_message_is_method_call(message, nullptr, nullptr))
        return 0;
    auto &self = *static_cast<RawPeer *>(data);
    Received received = received_from(message);
    // sd-bus answers: everybody who reads does.
    if (received.member == "Ping")
        return 0;
    if (self.remembers)
        self.received_.push_back(received);
    if (self.on_call && !self.on_call(received))
        return 1;
    sd_bus_reply_method_return(message, nullptr);
    return 1;
}

BusMessageOwner RawPeer::new_call(const std::string &method)
{
    std::string::size_type point = method.find('.');
    std::string interface = std::string(switch_name) + "." + method.substr(0, point);
    sd_bus_message *made = nullptr;
    need(sd_bus_message_new_method_call(bus_.get(), &made, switch_name, switch_object,
                                        interface.c_str(), method.substr(point + 1).c_str()),
         "make a call");
    return BusMessageOwner(made);
}

void RawPeer::append(sd_bus_message *message, const std::string &text)
{
    need(sd_bus_message_append(message, "s", text.c_str()), "append a text");
}

void RawPeer::append(sd_bus_message *message, guint32 number)
{
    need(sd_bus_message_append(message, "u", number), "append a number");
}

void RawPeer::append(sd_bus_message *message, const Octets &octets)
{
    need(sd_bus_message_append_array(message, 'y', octets.bytes.data(), octets.bytes.size()),
         "append bytes");
}

Answer RawPeer::finish(sd_bus_message *message)
{
    BusError error;
    sd_bus_message *made = nullptr;
    int r = sd_bus_call(bus_.get(), message, 0, error.get(), &made);
    BusMessageOwner reply(made);
    if (r < 0)
        return {error.get()->name ? error.get()->name : "no answer",
                error.message() ? error.message() : "",
                {}};
    return answer_from(made);
}

void RawPeer::send(sd_bus_message *message)
{
    need(sd_bus_message_set_expect_reply(message, 0), "want no answer");
    need(sd_bus_send(bus_.get(), message, nullptr), "send");
    need(sd_bus_flush(bus_.get()), "flush");
}

int RawPeer::receive_answer(sd_bus_message *message, void *answer, sd_bus_error *)
{
    *static_cast<std::optional<Answer> *>(answer) = answer_from(message);
    return 0;
}

void RawPeer::start(sd_bus_message *message, std::optional<Answer> &answer)
{
    need(sd_bus_call_async(bus_.get(), nullptr, message, receive_answer, &answer, 0), "call");
}

std::vector<Received> RawPeer::take()
{
    // The switch handles a call when what the user's last call has caused has gone out, and what it
    // has sent stands in front of its answer. Nothing is subscribed under this path.
    call("Consumer.Unsubscribe", "/nobody", guint32(0));
    while (sd_bus_process(bus_.get(), nullptr) > 0) {
    }
    return std::exchange(received_, {});
}

std::vector<std::string> RawPeer::take_members()
{
    std::vector<std::string> members;
    for (const Received &received : take()) {
        std::string numbers;
        for (guint32 number : received.numbers)
            numbers += (numbers.empty() ? "" : ",") + std::to_string(number);
        members.push_back(received.member + "(" + numbers + ")");
    }
    return members;
}

BusMessageOwner RawPeer::new_event(const char *destination, const char *path,
                                   const std::string &bytes, guint32 token)
{
    sd_bus_message *made = nullptr;
    need(sd_bus_message_new_method_call(bus_.get(), &made, destination, path,
                                        "com.vemo.Event.Consumer", "Event"),
         "make an event");
    BusMessageOwner message(made);
    append(made, Octets{bytes});
    append(made, token);
    return message;
}

void RawPeer::send_event(const char *destination, const char *path, const std::string &bytes,
                         guint32 token)
{
    BusMessageOwner message = new_event(destination, path, bytes, token);
    send(message.get());
}

void RawPeer::event_later(std::optional<Answer> &answer, const std::string &bytes, guint32 token)
{
    start(new_event(switch_name, "/com/vemo/Event/Switch/Questions", bytes, token).get(), answer);
}

bool run_until(const std::function<bool()> &condition, double seconds)
{
    gint64 end = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
    while (!condition()) {
        if (g_get_monotonic_time() > end)
            return false;
        need(sd_event_run(loop(), 20000), "run");
        // Conditions may be slow; what has come is handled before the next look.
        for (int left = 64; left > 0 && sd_event_run(loop(), 0) > 0; --left) {
        }
    }
    return true;
}

} // namespace qandor::test
