// SPDX-License-Identifier: LGPL-2.1-or-later

// A call to the switch while it is read: its arguments, its sender, and its answer.
#pragma once

#include "model/checker.hpp"
#include "switch/book.hpp"

#include <systemd/sd-bus.h>

namespace qandor {

class Request {
public:
    explicit Request(sd_bus_message *call) : call_(call) {}

    sd_bus_message *call() const { return call_; }

    const char *read_text();
    guint32 read_number();
    // The sender's object of this path. Refuses a path that cannot be called.
    bool read_peer(PeerAddress &peer);
    // The bytes of one whole record of the kind. Refuses anything else.
    bool read_record(RecordKind kind);

    // The record that was read last, as a buffer; valid as long as the call.
    GArray *record() { return &record_; }

    int answer() { return sd_bus_reply_method_return(call_, nullptr); }
    int answer_bytes(const std::string &bytes);
    // What to return after a check has refused the call.
    int refusal() const { return refusal_; }
    bool refuse(const char *error, const std::string &reason);
    // Whether the sender is root or the switch's own user; refused otherwise.
    bool check_sender_is_trusted();

private:
    sd_bus_message *call_;
    GArray record_ = {};
    int refusal_ = 0;
};

} // namespace qandor
