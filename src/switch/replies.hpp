// SPDX-License-Identifier: LGPL-2.1-or-later

// Answers to calls. They go out through the outbox, in order with what else the caller is told.
#pragma once

#include "switch/outbox.hpp"

#include <systemd/sd-bus.h>

#include <functional>
#include <string>

namespace qandor {

class Replies {
public:
    // Appends to a reply. Returns a negative errno when that fails.
    using Append = std::function<int(sd_bus_message *reply)>;

    // The same; returns how many bytes it has appended.
    using AppendMany = std::function<gint64(sd_bus_message *reply)>;

    explicit Replies(Outbox &outbox) : outbox_(outbox) {}

    // Each does nothing for a call that wants no answer.
    void answer(sd_bus_message *call, const Append &append);
    void refuse(sd_bus_message *call, const char *error, const std::string &reason);
    // The reply is made when it goes out, with about so many bytes.
    void answer_later(sd_bus_message *call, std::size_t bytes, AppendMany append);

private:
    void send_later(sd_bus_message *call, sd_bus_message *reply);

    Outbox &outbox_;
};

} // namespace qandor
