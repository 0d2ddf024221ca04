// SPDX-License-Identifier: LGPL-2.1-or-later

#include "terminal.hpp"

#include <csignal>
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

namespace qandor::test {

OnTerminal::OnTerminal(std::vector<std::string> command)
{
    winsize size{24, 80, 0, 0};
    openpty(&user_side_, &shell_side_, nullptr, nullptr, &size);
    tcgetattr(shell_side_, &before_);
    pid_ = fork();
    if (pid_ != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(user_side_);
    login_tty(shell_side_);
    setenv("TERM", "xterm", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    unsetenv("COLUMNS");
    unsetenv("NO_COLOR");
    std::vector<char *> words;
    words.reserve(command.size() + 1);
    for (std::string &word : command)
        words.push_back(word.data());
    words.push_back(nullptr);
    execvp(words[0], words.data());
    _exit(127);
}

OnTerminal::~OnTerminal()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(user_side_);
    close(shell_side_);
}

bool OnTerminal::read_more()
{
    constexpr int bound = 20000;
    pollfd ready{user_side_, POLLIN, 0};
    if (poll(&ready, 1, bound) <= 0)
        return false;
    char part[4096];
    ssize_t count = read(user_side_, part, sizeof part);
    output_.append(part, count > 0 ? static_cast<std::size_t>(count) : 0);
    return count > 0;
}

bool OnTerminal::wait_for(const std::string &text)
{
    std::size_t at;
    while ((at = output_.find(text, seen_)) == std::string::npos)
        if (!read_more())
            return false;
    seen_ = at + text.size();
    return true;
}

void OnTerminal::press(const std::string &keys) const
{
    for (char key : keys)
        if (write(user_side_, &key, 1) < 0)
            return;
}

int OnTerminal::wait()
{
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool OnTerminal::is_as_before() const
{
    termios now{};
    tcgetattr(shell_side_, &now);
    return now.c_lflag == before_.c_lflag && now.c_cc[VSUSP] == before_.c_cc[VSUSP];
}

} // namespace qandor::test
