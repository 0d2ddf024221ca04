// SPDX-License-Identifier: LGPL-2.1-or-later

// What another user of the machine may do.
#pragma once

#include "rawpeer.hpp"

#include "support/childprocess.hpp"

#include <csignal>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace qandor::test {

// The bus's socket lies in a folder that is the test's own, so that folder is opened to be passed.
inline void let_strangers_pass(const std::string &address)
{
    std::string socket = address.substr(address.find('/'));
    socket = socket.substr(0, socket.find(','));
    std::filesystem::permissions(std::filesystem::path(socket).parent_path(),
                                 std::filesystem::perms::group_exec |
                                     std::filesystem::perms::others_exec,
                                 std::filesystem::perm_options::add);
}

// A process of a user without rights; 0 in it, as of fork(). Works for root alone.
inline pid_t fork_stranger(const std::string &address, uid_t user = 65534)
{
    let_strangers_pass(address);
    pid_t pid = fork();
    if (pid == 0 && (setgid(user) < 0 || setuid(user) < 0))
        _exit(2);
    return pid;
}

// Runs the check as a user without rights; 0 when it holds.
inline int as_stranger(const std::string &address, const std::function<bool()> &check)
{
    pid_t pid = fork_stranger(address);
    if (pid == 0)
        _exit(check() ? 0 : 1);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// A user without rights who prepares something and then goes on running beside the test, with its
// peers served, until the end of the scope.
class StrangerProcess {
public:
    StrangerProcess(const std::string &address, const std::function<void()> &prepare,
                    uid_t user = 65534)
    {
        int ends[2];
        if (pipe(ends) < 0)
            throw std::runtime_error("cannot make a pipe");
        pid_ = fork_stranger(address, user);
        if (pid_ == 0) {
            prepare();
            if (write(ends[1], "x", 1) == 1)
                run_until([] { return false; }, 600);
            _exit(0);
        }
        close(ends[1]);
        char ready = 0;
        bool is_ready = read(ends[0], &ready, 1) == 1;
        close(ends[0]);
        if (!is_ready)
            throw std::runtime_error("the other user cannot prepare");
    }
    StrangerProcess(const StrangerProcess &) = delete;
    StrangerProcess &operator=(const StrangerProcess &) = delete;
    ~StrangerProcess()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

private:
    pid_t pid_ = 0;
};

} // namespace qandor::test
