// SPDX-License-Identifier: LGPL-2.1-or-later

// A bus of a test's own that stands in for the system bus: a real daemon with the limits and the
// policy of a stock system bus and the project's own policy file.
#pragma once

#include "support/childprocess.hpp"
#include "support/temporaryfolder.hpp"

#include <optional>

namespace qandor::test {

class PrivateBus {
public:
    // Starts it and makes it this process's system bus, and that of the processes it starts.
    PrivateBus();
    ~PrivateBus();

    void kill();
    const std::string &address() const { return address_; }

private:
    TemporaryFolder folder_;
    std::optional<ChildProcess> daemon_;
    std::string address_;
};

} // namespace qandor::test
