// SPDX-License-Identifier: LGPL-2.1-or-later

#include "support/childprocess.hpp"

#include <glib.h>

#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace qandor::test {
namespace {

int code_of(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

[[noreturn]] void become(const std::vector<std::string> &command, int output)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(output, STDOUT_FILENO);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    std::vector<char *> arguments;
    for (const std::string &argument : command)
        arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string> &command)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0)
        throw std::runtime_error("cannot make a pipe");
    pid_ = fork();
    if (pid_ == 0)
        become(command, ends[1]);
    close(ends[1]);
    output_ = ends[0];
}

ChildProcess::ChildProcess(ChildProcess &&other) noexcept
    : pid_(std::exchange(other.pid_, -1)), output_(std::exchange(other.output_, -1)),
      unread_(std::move(other.unread_)), status_(other.status_)
{
}

ChildProcess &ChildProcess::operator=(ChildProcess &&other) noexcept
{
    end();
    pid_ = std::exchange(other.pid_, -1);
    output_ = std::exchange(other.output_, -1);
    unread_ = std::move(other.unread_);
    status_ = other.status_;
    return *this;
}

ChildProcess::~ChildProcess()
{
    end();
}

void ChildProcess::end()
{
    if (pid_ > 0 && !status_) {
        signal(SIGKILL);
        wait();
    }
    if (output_ >= 0)
        close(output_);
}

bool ChildProcess::is_running()
{
    int status;
    if (!status_ && waitpid(pid_, &status, WNOHANG) == pid_)
        status_ = code_of(status);
    return !status_;
}

void ChildProcess::signal(int number) const
{
    if (pid_ > 0)
        kill(pid_, number);
}

int ChildProcess::wait()
{
    int status = 0;
    if (!status_ && waitpid(pid_, &status, 0) == pid_)
        status_ = code_of(status);
    return *status_;
}

std::optional<std::string> ChildProcess::read_line(double seconds)
{
    gint64 end = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
    for (;;) {
        std::size_t length = unread_.find('\n');
        if (length != std::string::npos) {
            std::string line = unread_.substr(0, length);
            unread_.erase(0, length + 1);
            return line;
        }
        pollfd ready{output_, POLLIN, 0};
        auto left = static_cast<int>((end - g_get_monotonic_time()) / 1000);
        if (left <= 0 || poll(&ready, 1, left) <= 0)
            return std::nullopt;
        char buffer[4096];
        ssize_t count = read(output_, buffer, sizeof buffer);
        if (count <= 0)
            return std::nullopt;
        unread_.append(buffer, static_cast<std::size_t>(count));
    }
}

bool ChildProcess::wait_for(const std::string &text, double seconds)
{
    gint64 end = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
    for (;;) {
        double left = static_cast<double>(end - g_get_monotonic_time()) / G_USEC_PER_SEC;
        std::optional<std::string> line = read_line(left);
        if (!line)
            return false;
        if (line->find(text) != std::string::npos)
            return true;
    }
}

} // namespace qandor::test
