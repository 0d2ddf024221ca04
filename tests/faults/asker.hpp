// SPDX-License-Identifier: LGPL-2.1-or-later

// Somebody on the simulated bus who asks the switch for the state of a property. Faults do not
// touch it.
#pragma once

#include "platform/owners.hpp"

#include <string>

namespace qandor::faults {

class Asker {
public:
    Asker();
    Asker(const Asker &) = delete;
    Asker &operator=(const Asker &) = delete;
    ~Asker();

    // Asks for the state of the property that has the value under the key "who".
    void ask(const char *who);
    // Takes what has come.
    void step();
    bool is_answered() const { return is_answered_; }
    const std::string &name() const { return name_; }

private:
    static int receive(sd_bus_message *reply, void *asker, sd_bus_error *);

    Owner<sd_bus, sd_bus_close_unref> bus_;
    std::string name_;
    bool is_answered_ = false;
};

} // namespace qandor::faults
