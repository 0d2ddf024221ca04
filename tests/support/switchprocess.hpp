// SPDX-License-Identifier: LGPL-2.1-or-later

// The real event switch, with folders of its own.
#pragma once

#include "support/childprocess.hpp"
#include "support/temporaryfolder.hpp"

#include <optional>

namespace qandor::test {

class SwitchProcess {
public:
    // Starts the switch on the system bus, with more arguments, and waits until it has its name.
    explicit SwitchProcess(std::vector<std::string> arguments = {});

    // Kills it without warning; it can be started again.
    void kill();
    void start();

    ChildProcess &process() { return *process_; }
    const std::filesystem::path &read_only_types() const { return read_only_types_.path(); }
    const std::filesystem::path &writable_types() const { return writable_types_.path(); }

private:
    std::vector<std::string> arguments_;
    TemporaryFolder read_only_types_;
    TemporaryFolder writable_types_;
    std::optional<ChildProcess> process_;
};

} // namespace qandor::test
