// SPDX-License-Identifier: LGPL-2.1-or-later

// What another user of the machine may do.
#pragma once

#include "support/childprocess.hpp"

#include <filesystem>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace qandor::test {

// Runs the check as a user without rights, in a process of its own; 0 when it holds. Works for root
// alone. The bus's socket lies in a folder that is the test's own, so it is opened to be passed.
inline int as_stranger(const std::string &address, const std::function<bool()> &check)
{
    constexpr uid_t nobody = 65534;
    std::string socket = address.substr(address.find('/'));
    socket = socket.substr(0, socket.find(','));
    std::filesystem::permissions(std::filesystem::path(socket).parent_path(),
                                 std::filesystem::perms::group_exec |
                                     std::filesystem::perms::others_exec,
                                 std::filesystem::perm_options::add);
    pid_t pid = fork();
    if (pid == 0) {
        if (setgid(nobody) < 0 || setuid(nobody) < 0)
            _exit(2);
        _exit(check() ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace qandor::test
