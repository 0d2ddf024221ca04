// SPDX-License-Identifier: LGPL-2.1-or-later

// A switch that a test scripts, in bare sd-bus: it has the switch's name on the bus, writes down
// every call it is given, answers as it is told to, and calls the objects of producers and
// consumers. Events can be sent to it too, as to any consumer, at any path.
//
// It works on a thread of its own, so that it answers while the test's own thread waits for it.
#pragma once

#include "platform/owners.hpp"

#include <functional>
#include <future>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace qandor::test {

// An argument of the type "ay".
struct Blob {
    std::string bytes;
};

// A call that the switch was given; the signature tells in which order its arguments came.
struct SwitchCall {
    std::string sender;
    std::string path;
    std::string interface;
    std::string member;
    std::string signature;
    std::vector<std::string> texts;
    std::vector<guint32> numbers;
    std::string bytes;
    bool wants_answer;
    bool may_start; // the switch, if it is not running
};

// How the switch answers: with an error, with bytes, with a text that nobody expects, not at all
// or, unless something else is said, with nothing in it.
struct ScriptedAnswer {
    std::string error = {};
    std::string text = {};
    std::optional<std::string> bytes = {};
    bool withheld = false;
};

struct ObjectAddress {
    std::string name;
    std::string path;
};

// What an object answered; the error is empty when it did not refuse.
struct ObjectAnswer {
    std::string error;
    std::string signature;
    std::string text; // of the answer or of the error
};

class FakeSwitch {
public:
    enum class Name { Taken, NotTaken };

    explicit FakeSwitch(Name name = Name::Taken);
    ~FakeSwitch();

    // Takes the switch's name and gives it up.
    void come();
    void leave();
    const std::string &unique_name() const { return unique_name_; }

    // How all calls of the method are answered from now on.
    void answer(const std::string &member, const ScriptedAnswer &answer);

    // The calls so far, those since they were taken last, and how many there are of a method.
    std::vector<SwitchCall> calls() const;
    std::vector<SwitchCall> take();
    std::size_t count(const std::string &member) const;

    // Calls a method, such as "com.vemo.Event.Consumer.Event", and lets the default main context
    // run until the answer is there.
    template <class... Arguments>
    ObjectAnswer call(const ObjectAddress &object, const std::string &method,
                      const Arguments &...arguments)
    {
        return call_built(object, method, [&]([[maybe_unused]] sd_bus_message *message) {
            (append(message, arguments), ...);
        });
    }

private:
    using Connection = Owner<sd_bus, sd_bus_flush_close_unref>;
    using Job = std::packaged_task<void(sd_bus *)>;
    struct Call;

    static void append(sd_bus_message *message, const std::string &text);
    static void append(sd_bus_message *message, guint32 number);
    static void append(sd_bus_message *message, const Blob &blob);
    static int receive_call(sd_bus_message *message, void *self, sd_bus_error *);
    static int receive_answer(sd_bus_message *message, void *call, sd_bus_error *);

    ObjectAnswer call_built(const ObjectAddress &object, const std::string &method,
                            const std::function<void(sd_bus_message *)> &append_arguments);
    ScriptedAnswer write_down(SwitchCall call);
    void run_on_thread(const std::function<void(sd_bus *)> &work);
    void wake() const;
    void work();
    bool run_jobs();

    Connection bus_;
    std::string unique_name_;
    int wake_;
    mutable std::mutex mutex_;
    std::list<Job> jobs_;
    std::vector<SwitchCall> calls_;
    std::size_t taken_ = 0;
    std::map<std::string, ScriptedAnswer> answers_;
    std::list<Call> placed_;
    bool stop_ = false;
    std::thread thread_;
};

} // namespace qandor::test
