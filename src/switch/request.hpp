// SPDX-License-Identifier: LGPL-2.1-or-later

// A call to the switch while it is read: its arguments, its sender, and its answer.
#pragma once

#include "switch/recordcost.hpp"
#include "switch/service.hpp"

#include <systemd/sd-bus.h>

#include <functional>

namespace qandor {

class Request {
public:
    Request(sd_bus_message *call, void *service)
        : call_(call), service_(*static_cast<Service *>(service))
    {
    }

    sd_bus_message *call() const { return call_; }
    Service &service() const { return service_; }

    const char *read_text();
    guint32 read_number();
    // The sender's object of this path. Refuses a path that cannot be called.
    bool read_object(PeerAddress &address);
    // The same with the name that it gives itself, which comes next, and who is behind it.
    bool read_peer(Peer &peer);
    // The bytes of one whole record of the kind. Refuses anything else, too many of them, and a
    // record that exists only to cost.
    bool read_record(RecordKind kind);
    // Asked last, and before the record is made: reading it keeps the names of its keys for ever.
    // Refuses when the sender's user has brought up too many new ones.
    bool admit_key_names();
    // The user and process behind the call. Refuses a sender that has left.
    bool find_sender(Sender &sender);
    // Refuses for the reason, if there is one.
    bool admit(const std::optional<std::string> &reason);

    // The record that was read last, as a buffer; valid as long as the call.
    GArray *record() { return &record_; }
    // What is known of it before it is made.
    const RecordShape &shape() const { return shape_; }
    RecordCost cost() const { return cost_of(shape_, record_.len); }
    bool has_key(std::string_view name) const;

    int answer();
    // With what is appended to the reply now.
    int answer_with(const std::function<int(sd_bus_message *reply)> &append);
    // With about so many bytes, appended when the reply goes out: they may be many.
    int answer_later(std::size_t bytes, Replies::AppendMany append);
    // What to return after a check has refused the call.
    int refusal() const { return 1; }
    bool refuse(const char *error, const std::string &reason);
    // Whether the sender is root or the switch's own user; refused otherwise.
    bool check_sender_is_trusted(const char *to_do_what);

private:
    sd_bus_message *call_;
    Service &service_;
    GArray record_ = {};
    std::vector<std::string_view> key_names_;
    RecordShape shape_;
};

} // namespace qandor
