// SPDX-License-Identifier: LGPL-2.1-or-later

// A process's connection as the switch sees it, in bare sd-bus: says what a test tells it to, right
// or wrong, and writes down what it is told.
#pragma once

#include "platform/owners.hpp"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qandor::test {

struct Octets {
    std::string bytes;
};

// What the switch answered; the error is empty when it did not refuse.
struct Answer {
    std::string error;
    std::string text;
    std::string bytes;
};

// A call that the peer received.
struct Received {
    std::string path;
    std::string member;
    std::string bytes;
    std::vector<guint32> numbers;
    bool wants_answer;
};

class RawPeer {
public:
    RawPeer();

    const std::string &name() const { return name_; }

    // Calls a method of the switch, such as "Producer.Declare", and waits for the answer.
    template <class... Arguments>
    Answer call(const std::string &method, const Arguments &...arguments)
    {
        BusMessageOwner message = new_call(method);
        (append(message.get(), arguments), ...);
        return finish(message.get());
    }
    // The same without waiting: the answer is filled in later.
    template <class... Arguments>
    void call_later(std::optional<Answer> &answer, const std::string &method,
                    const Arguments &...arguments)
    {
        BusMessageOwner message = new_call(method);
        (append(message.get(), arguments), ...);
        start(message.get(), answer);
    }

    // The same for an answer that is not wanted; nothing is read.
    template <class... Arguments>
    void tell(const std::string &method, const Arguments &...arguments)
    {
        BusMessageOwner message = new_call(method);
        (append(message.get(), arguments), ...);
        send(message.get());
    }

    // What was received since the last time. Everything that the switch has sent before is there.
    std::vector<Received> take();
    // The same as "member(numbers)" each.
    std::vector<std::string> take_members();

    // Sends an event to an object on the bus, without waiting.
    void send_event(const char *destination, const char *path, const std::string &bytes,
                    guint32 token);
    // Sends an event to the object at which the switch receives them; the answer comes later.
    void event_later(std::optional<Answer> &answer, const std::string &bytes, guint32 token);
    // Leaves the bus.
    void leave() { bus_.reset(); }

    // Whether what it receives is kept for take().
    bool remembers = true;
    // Called with each received call before it is answered; returns whether it is to be answered.
    std::function<bool(const Received &)> on_call;

    sd_bus *bus() { return bus_.get(); }

private:
    using Connection = Owner<sd_bus, sd_bus_flush_close_unref>;

    static int receive(sd_bus_message *message, void *self, sd_bus_error *);
    static int receive_answer(sd_bus_message *message, void *answer, sd_bus_error *);
    static void append(sd_bus_message *message, const std::string &text);
    static void append(sd_bus_message *message, guint32 number);
    static void append(sd_bus_message *message, const Octets &octets);

    BusMessageOwner new_call(const std::string &method);
    BusMessageOwner new_event(const char *destination, const char *path, const std::string &bytes,
                              guint32 token);
    Answer finish(sd_bus_message *message);
    void send(sd_bus_message *message);
    void start(sd_bus_message *message, std::optional<Answer> &answer);

    Connection bus_;
    std::string name_;
    std::vector<Received> received_;
};

// Lets all peers of the process run until the condition holds; false when it takes too long.
bool run_until(const std::function<bool()> &condition, double seconds = 20);

} // namespace qandor::test
