// SPDX-License-Identifier: LGPL-2.1-or-later

// Who is behind a name on the bus. It is asked for once; the name is forgotten when it leaves.
#pragma once

#include <systemd/sd-bus.h>

#include <glib.h>

#include <optional>
#include <string>
#include <unordered_map>

namespace qandor {

struct Sender {
    guint32 uid;
    guint32 pid; // 0 when the bus does not tell
};

class Senders {
public:
    // Nothing for a sender who has left meanwhile.
    std::optional<Sender> find(sd_bus_message *call);
    // Nothing for a name that has not called.
    std::optional<Sender> find_known(const std::string &name) const;
    void forget(const std::string &name) { known_.erase(name); }

private:
    std::unordered_map<std::string, Sender> known_;
};

} // namespace qandor
