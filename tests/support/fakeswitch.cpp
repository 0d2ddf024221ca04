// SPDX-License-Identifier: LGPL-2.1-or-later

#include "support/fakeswitch.hpp"

#include "support/mainloop.hpp"

#include <algorithm>
#include <atomic>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <unistd.h>

namespace qandor::test {
namespace {

constexpr const char *switch_name = "com.vemo.Event.Switch";

void need(int r, const char *what)
{
    if (r < 0)
        throw std::runtime_error(std::string("cannot ") + what);
}

// It waits on the default main context.
void wake_tests_thread()
{
    g_main_context_wakeup(nullptr);
}

std::string or_empty(const char *text)
{
    return text ? text : "";
}

void read_bytes(sd_bus_message *message, std::string &bytes)
{
    const void *data = nullptr;
    size_t size = 0;
    need(sd_bus_message_read_array(message, 'y', &data, &size), "read bytes");
    bytes.assign(static_cast<const char *>(data), size);
}

void read_arguments(sd_bus_message *message, SwitchCall &call)
{
    char type;
    const char *text;
    guint32 number;
    while (sd_bus_message_peek_type(message, &type, nullptr) > 0) {
        if (type == SD_BUS_TYPE_STRING && sd_bus_message_read(message, "s", &text) > 0)
            call.texts.emplace_back(text);
        else if (type == SD_BUS_TYPE_UINT32 && sd_bus_message_read(message, "u", &number) > 0)
            call.numbers.push_back(number);
        else if (type == SD_BUS_TYPE_ARRAY)
            read_bytes(message, call.bytes);
        else
            need(sd_bus_message_skip(message, nullptr), "skip an argument");
    }
}

SwitchCall call_from(sd_bus_message *message)
{
    SwitchCall call{or_empty(sd_bus_message_get_sender(message)),
                    sd_bus_message_get_path(message),
                    or_empty(sd_bus_message_get_interface(message)),
                    sd_bus_message_get_member(message),
                    sd_bus_message_get_signature(message, 1),
                    {},
                    {},
                    {},
                    sd_bus_message_get_expect_reply(message) > 0,
                    sd_bus_message_get_auto_start(message) > 0};
    read_arguments(message, call);
    return call;
}

void send_answer(sd_bus_message *message, const ScriptedAnswer &answer)
{
    if (!answer.error.empty()) {
        sd_bus_reply_method_errorf(message, answer.error.c_str(), "%s", answer.text.c_str());
        return;
    }
    sd_bus_message *made = nullptr;
    need(sd_bus_message_new_method_return(message, &made), "answer");
    BusMessageOwner reply(made);
    if (answer.bytes)
        need(sd_bus_message_append_array(made, 'y', answer.bytes->data(), answer.bytes->size()),
             "answer bytes");
    else if (!answer.text.empty())
        need(sd_bus_message_append(made, "s", answer.text.c_str()), "answer a text");
    need(sd_bus_send(nullptr, made, nullptr), "send an answer");
}

// A text in the answer, also inside of a variant.
std::string read_text(sd_bus_message *message)
{
    const char *text = nullptr;
    if (sd_bus_message_has_signature(message, "s"))
        sd_bus_message_read(message, "s", &text);
    else if (sd_bus_message_has_signature(message, "v"))
        sd_bus_message_read(message, "v", "s", &text);
    return or_empty(text);
}

ObjectAnswer answer_from(sd_bus_message *reply)
{
    if (const sd_bus_error *error = sd_bus_message_get_error(reply))
        return {error->name, {}, or_empty(error->message)};
    return {{}, sd_bus_message_get_signature(reply, 1), read_text(reply)};
}

} // namespace

struct FakeSwitch::Call {
    ObjectAnswer answer;
    std::atomic<bool> answered = false;
};

FakeSwitch::FakeSwitch(Name name) : wake_(eventfd(0, EFD_CLOEXEC))
{
    sd_bus *made = nullptr;
    need(sd_bus_open_system(&made), "connect");
    bus_.reset(made);
    const char *unique_name = nullptr;
    need(sd_bus_get_unique_name(made, &unique_name), "be named");
    unique_name_ = unique_name;
    need(sd_bus_add_filter(made, nullptr, receive_call, this), "listen");
    thread_ = std::thread([this] { work(); });
    if (name == Name::Taken)
        come();
}

FakeSwitch::~FakeSwitch()
{
    {
        std::lock_guard lock(mutex_);
        stop_ = true;
    }
    wake();
    thread_.join();
    close(wake_);
}

void FakeSwitch::come()
{
    run_on_thread([](sd_bus *bus) {
        need(sd_bus_request_name(bus, switch_name, 0), "take the switch's name");
    });
}

void FakeSwitch::leave()
{
    run_on_thread(
        [](sd_bus *bus) { need(sd_bus_release_name(bus, switch_name), "give the name up"); });
}

void FakeSwitch::answer(const std::string &member, const ScriptedAnswer &answer)
{
    std::lock_guard lock(mutex_);
    answers_[member] = answer;
}

std::vector<SwitchCall> FakeSwitch::calls() const
{
    std::lock_guard lock(mutex_);
    return calls_;
}

std::vector<SwitchCall> FakeSwitch::take()
{
    std::lock_guard lock(mutex_);
    auto first = calls_.begin() + static_cast<std::ptrdiff_t>(taken_);
    taken_ = calls_.size();
    return {first, calls_.end()};
}

std::size_t FakeSwitch::count(const std::string &member) const
{
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(calls_.begin(), calls_.end(),
                      [&member](const SwitchCall &call) { return call.member == member; }));
}

ScriptedAnswer FakeSwitch::write_down(SwitchCall call)
{
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
    wake_tests_thread();
    return answers_[calls_.back().member];
}

int FakeSwitch::receive_call(sd_bus_message *message, void *data, sd_bus_error *)
{
    if (!sd_bus_message_is_method_call(message, nullptr, nullptr))
        return 0;
    ScriptedAnswer answer = static_cast<FakeSwitch *>(data)->write_down(call_from(message));
    if (!answer.withheld && sd_bus_message_get_expect_reply(message))
        send_answer(message, answer);
    return 1;
}

void FakeSwitch::append(sd_bus_message *message, const std::string &text)
{
    need(sd_bus_message_append(message, "s", text.c_str()), "append a text");
}

void FakeSwitch::append(sd_bus_message *message, guint32 number)
{
    need(sd_bus_message_append(message, "u", number), "append a number");
}

void FakeSwitch::append(sd_bus_message *message, const Blob &blob)
{
    need(sd_bus_message_append_array(message, 'y', blob.bytes.data(), blob.bytes.size()),
         "append bytes");
}

int FakeSwitch::receive_answer(sd_bus_message *message, void *data, sd_bus_error *)
{
    auto *call = static_cast<Call *>(data);
    call->answer = answer_from(message);
    call->answered = true;
    wake_tests_thread();
    return 0;
}

ObjectAnswer FakeSwitch::call_built(const ObjectAddress &object, const std::string &method,
                                    const std::function<void(sd_bus_message *)> &append_arguments)
{
    std::string::size_type point = method.rfind('.');
    std::string interface = method.substr(0, point);
    std::string member = method.substr(point + 1);
    Call *call = &placed_.emplace_back();
    run_on_thread([&](sd_bus *bus) {
        sd_bus_message *made = nullptr;
        need(sd_bus_message_new_method_call(bus, &made, object.name.c_str(), object.path.c_str(),
                                            interface.c_str(), member.c_str()),
             "make a call");
        BusMessageOwner message(made);
        append_arguments(made);
        need(sd_bus_call_async(bus, nullptr, made, receive_answer, call, 0), "call");
    });
    if (!wait_until([&] { return call->answered.load(); }))
        throw std::runtime_error("there is no answer to " + method);
    return call->answer;
}

void FakeSwitch::wake() const
{
    eventfd_write(wake_, 1);
}

void FakeSwitch::run_on_thread(const std::function<void(sd_bus *)> &work)
{
    Job job(work);
    std::future<void> done = job.get_future();
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    wake();
    done.get();
}

bool FakeSwitch::run_jobs()
{
    std::list<Job> jobs;
    bool go_on;
    {
        std::lock_guard lock(mutex_);
        jobs.swap(jobs_);
        go_on = !stop_;
    }
    for (Job &job : jobs)
        job(bus_.get());
    return go_on;
}

void FakeSwitch::work()
{
    while (run_jobs()) {
        while (sd_bus_process(bus_.get(), nullptr) > 0) {
        }
        sd_bus_flush(bus_.get());
        pollfd ready[] = {{sd_bus_get_fd(bus_.get()), POLLIN, 0}, {wake_, POLLIN, 0}};
        poll(ready, 2, -1);
        eventfd_t count;
        if (ready[1].revents)
            eventfd_read(wake_, &count);
    }
}

} // namespace qandor::test
