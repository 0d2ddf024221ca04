// SPDX-License-Identifier: LGPL-2.1-or-later

#include "stress/siege/census.hpp"

#include "platform/owners.hpp"

#include <stdexcept>

namespace qandor::test {
namespace {

constexpr const char *service = "com.vemo.Event.Switch";
constexpr const char *object = "/com/vemo/Event/Switch";

BusMessageOwner call(sd_bus *bus, const char *interface, const char *method)
{
    BusError error;
    sd_bus_message *reply = nullptr;
    int r = sd_bus_call_method(bus, service, object, interface, method, error.get(), &reply, "");
    if (r < 0)
        throw std::runtime_error(std::string(method) + ": " +
                                 (error.message() ? error.message() : "no answer"));
    return BusMessageOwner(reply);
}

template <class Number> std::string read_number(sd_bus_message *message, char type)
{
    Number number = 0;
    sd_bus_message_read_basic(message, type, &number);
    return std::to_string(number);
}

std::string read_value(sd_bus_message *message, char type)
{
    switch (type) {
    case 'u':
        return read_number<guint32>(message, type);
    case 't':
        return read_number<guint64>(message, type);
    case 'b':
        return read_number<int>(message, type);
    default:
        const char *text = "";
        sd_bus_message_read_basic(message, type, &text);
        return text;
    }
}

// The next value, whatever it is made of.
std::string read_any(sd_bus_message *message)
{
    char type = 0;
    const char *content = nullptr;
    if (sd_bus_message_peek_type(message, &type, &content) <= 0)
        throw std::runtime_error("the answer ends too soon");
    if (type != 'a' && type != 'r')
        return read_value(message, type);
    std::string text;
    sd_bus_message_enter_container(message, type, content);
    while (sd_bus_message_at_end(message, 0) == 0)
        text += (text.empty() ? "" : " ") + read_any(message);
    sd_bus_message_exit_container(message);
    return "(" + text + ")";
}

} // namespace

std::vector<std::string> list_rows(sd_bus *bus, const char *method)
{
    // The switch asks whether former lists have been read.
    while (sd_bus_process(bus, nullptr) > 0) {
    }
    BusMessageOwner reply = call(bus, "com.vemo.Event.Switch.Monitor", method);
    const char *content = nullptr;
    sd_bus_message_peek_type(reply.get(), nullptr, &content);
    sd_bus_message_enter_container(reply.get(), 'a', content);
    std::vector<std::string> rows;
    while (sd_bus_message_at_end(reply.get(), 0) == 0)
        rows.push_back(read_any(reply.get()));
    return rows;
}

std::string take_census(sd_bus *bus)
{
    std::string census;
    for (const char *method : {"ListProducers", "ListConsumers", "ListSubscriptions", "ListLimits"})
        for (const std::string &row : list_rows(bus, method))
            if (row.find(" key_names ") == std::string::npos)
                census += std::string(method) + " " + row + "\n";
    BusMessageOwner reply = call(bus, "com.vemo.Event.Switch.Query", "GetAllDeclarations");
    const void *bytes = nullptr;
    size_t size = 0;
    sd_bus_message_read_array(reply.get(), 'y', &bytes, &size);
    return census + std::string(static_cast<const char *>(bytes), size);
}

} // namespace qandor::test
