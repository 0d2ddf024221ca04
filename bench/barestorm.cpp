// SPDX-License-Identifier: LGPL-2.1-or-later

// What the bus alone takes for a restart storm: owns the switch's name and answers each Declare and
// each Subscribe with as many messages of the same kinds and sizes as the switch sends, to the
// caller, without keeping books. stormbench counts them as it counts the switch's.

#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr const char *producer = "com.vemo.Event.Producer";
constexpr const char *consumer = "com.vemo.Event.Consumer";
constexpr std::size_t declaration_size = 250; // a notification carries expression and declaration

// The object of the caller is the call's first argument.
struct Caller {
    sd_bus *bus;
    const char *name;
    const char *object;
};

void tell_numbers(const Caller &caller, const char *member, unsigned count)
{
    sd_bus_message *message = nullptr;
    sd_bus_message_new_method_call(caller.bus, &message, caller.name, caller.object, producer,
                                   member);
    for (unsigned i = 0; i < count; ++i)
        sd_bus_message_append(message, "u", 1);
    sd_bus_message_set_expect_reply(message, 0);
    sd_bus_send(caller.bus, message, nullptr);
    sd_bus_message_unref(message);
}

void tell_bytes(const Caller &caller, const char *interface, const char *member, std::size_t size)
{
    const std::vector<uint8_t> bytes(size);
    sd_bus_message *message = nullptr;
    sd_bus_message_new_method_call(caller.bus, &message, caller.name, caller.object, interface,
                                   member);
    sd_bus_message_append_array(message, 'y', bytes.data(), bytes.size());
    sd_bus_message_append(message, "u", 1);
    sd_bus_message_set_expect_reply(message, 0);
    sd_bus_send(caller.bus, message, nullptr);
    sd_bus_message_unref(message);
}

int answer(sd_bus_message *call, void *, sd_bus_error *)
{
    Caller caller{sd_bus_message_get_bus(call), sd_bus_message_get_sender(call), nullptr};
    const char *name = nullptr;
    if (sd_bus_message_read(call, "ss", &caller.object, &name) < 0)
        return 0;
    sd_bus_reply_method_return(call, "");
    if (std::strcmp(sd_bus_message_get_member(call), "Declare") == 0) {
        tell_numbers(caller, "GlobalDeclareId", 3);
        tell_numbers(caller, "DeclarationComplete", 2);
        return 1;
    }
    uint32_t token = 0;
    const void *bytes = nullptr;
    std::size_t size = 0;
    if (sd_bus_message_read(call, "u", &token) < 0 ||
        sd_bus_message_read_array(call, 'y', &bytes, &size) < 0)
        return 0;
    tell_bytes(caller, producer, "Subscribe", size);
    tell_bytes(caller, consumer, "Notification", size + declaration_size);
    return 1;
}

} // namespace

int main()
{
    sd_bus *bus = nullptr;
    if (sd_bus_open_system(&bus) < 0 ||
        sd_bus_add_object(bus, nullptr, "/com/vemo/Event/Switch", answer, nullptr) < 0 ||
        sd_bus_request_name(bus, "com.vemo.Event.Switch", 0) < 0)
        return EXIT_FAILURE;
    std::fputs("serving\n", stderr);
    for (;;)
        if (sd_bus_process(bus, nullptr) == 0)
            sd_bus_wait(bus, UINT64_MAX);
}
