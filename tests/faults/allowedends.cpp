// SPDX-License-Identifier: LGPL-2.1-or-later

#include "allowedends.hpp"

#include <algorithm>
#include <iterator>

namespace qandor::faults {
namespace {

struct AllowedEnd {
    const char *assertion; // as the log has it, from the file's name on
    const char *reason;
};

// All of them are in the library. The switch has none.
constexpr AllowedEnd allowed[] = {
    {"src/bus/methodcall.cpp", "a call that cannot be built is a fatal assertion of each stub"},
    {"src/bus/servercall.hpp", "a call from the switch or a producer that cannot be read is one"},
    {":driver_name_owner_changed: assertion failed: (r >= 0)",
     "a signal of the bus that cannot be read is one"},
    {":copy_bytes: assertion failed: (r >= 0)",
     "com_vemo_Event_Switch_Query_get_all_declarations() ends the process when it gets no answer"},
    {":get_uid_from_message: assertion failed",
     "credentials that cannot be had, though the sender is there, are one"},
};

} // namespace

bool may_end(const std::string &log)
{
    return std::any_of(std::begin(allowed), std::end(allowed), [&log](const AllowedEnd &one) {
        return log.find(one.assertion) != std::string::npos;
    });
}

// An event loop that ends takes its source along, silently: its connection is not served any more,
// and nothing attaches it again. Only a loop that was told to exit or that was inherited by a child
// process does so.
bool may_break(const Fault &fault)
{
    return fault.function == "sd_event_dispatch";
}

} // namespace qandor::faults
