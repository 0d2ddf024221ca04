// SPDX-License-Identifier: LGPL-2.1-or-later

#include "stress/siege/otheruser.hpp"

#include <glib-unix.h>

#include <fcntl.h>
#include <filesystem>
#include <linux/close_range.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace qandor::test {
namespace {

// The bus's socket is in a folder that only the test's user may enter: others get permission.
void open_folder(const std::string &address)
{
    std::string socket = address.substr(address.find('/'));
    std::filesystem::permissions(std::filesystem::path(socket).parent_path(),
                                 std::filesystem::perms::group_exec |
                                     std::filesystem::perms::others_exec,
                                 std::filesystem::perm_options::add);
}

void need(bool done, const char *what)
{
    if (!done)
        throw std::runtime_error(std::string("cannot ") + what);
}

[[noreturn]] void play(uid_t uid, const OtherUser::Part &part, int end, int lines)
{
    dup2(end, STDIN_FILENO);
    dup2(lines, STDOUT_FILENO);
    syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0);
    OtherUser::Line line;
    try {
        need(setgid(uid) == 0 && setuid(uid) == 0, "become another user");
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        part(line);
    } catch (const std::exception &error) {
        line.say(std::string("failed: ") + error.what());
        _exit(EXIT_FAILURE);
    }
    _exit(EXIT_SUCCESS);
}

} // namespace

void OtherUser::Line::say(const std::string &text) const
{
    std::string line = text + "\n";
    const char *rest = line.data();
    for (std::size_t left = line.size(); left > 0;) {
        ssize_t written = write(STDOUT_FILENO, rest, left);
        if (written <= 0)
            _exit(EXIT_FAILURE);
        rest += written;
        left -= static_cast<std::size_t>(written);
    }
}

bool OtherUser::Line::is_over(int wait_milliseconds) const
{
    pollfd end{STDIN_FILENO, POLLIN, 0};
    return poll(&end, 1, wait_milliseconds) > 0;
}

void OtherUser::Line::on_end(std::function<void()> end)
{
    end_ = std::move(end);
    g_unix_fd_add(
        STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
        [](gint, GIOCondition, gpointer self) -> gboolean {
            static_cast<Line *>(self)->end_();
            return G_SOURCE_REMOVE;
        },
        this);
}

OtherUser::OtherUser(const PrivateBus &bus, uid_t uid, const Part &part)
{
    open_folder(bus.address());
    int lines[2], end[2];
    need(pipe2(lines, O_CLOEXEC) == 0 && pipe2(end, O_CLOEXEC) == 0, "make pipes");
    pid_ = fork();
    if (pid_ == 0)
        play(uid, part, end[0], lines[1]);
    close(lines[1]);
    close(end[0]);
    lines_ = lines[0];
    end_ = end[1];
}

OtherUser::~OtherUser()
{
    kill();
    ask_to_end();
    close(lines_);
}

bool OtherUser::is_running()
{
    return !wait(0);
}

bool OtherUser::wait(double seconds)
{
    gint64 until = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
    int status = 0;
    while (!status_) {
        if (waitpid(pid_, &status, WNOHANG) == pid_)
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        else if (g_get_monotonic_time() >= until)
            return false;
        else
            usleep(2000);
    }
    return true;
}

std::optional<std::string> OtherUser::read_line(double seconds)
{
    gint64 until = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
    std::size_t length;
    while ((length = unread_.find('\n')) == std::string::npos) {
        pollfd ready{lines_, POLLIN, 0};
        auto left = static_cast<int>((until - g_get_monotonic_time()) / 1000);
        char buffer[4096];
        ssize_t count = 0;
        if (left > 0 && poll(&ready, 1, left) > 0)
            count = read(lines_, buffer, sizeof buffer);
        if (count <= 0)
            return std::nullopt;
        unread_.append(buffer, static_cast<std::size_t>(count));
    }
    std::string line = unread_.substr(0, length);
    unread_.erase(0, length + 1);
    return line;
}

std::optional<std::string> OtherUser::read_after(const std::string &beginning, double seconds)
{
    gint64 until = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
    for (;;) {
        double left = static_cast<double>(until - g_get_monotonic_time()) / G_USEC_PER_SEC;
        std::optional<std::string> line = read_line(left);
        if (!line)
            return std::nullopt;
        if (line->starts_with(beginning))
            return line->substr(beginning.size());
        if (line->starts_with("failed: "))
            std::fprintf(stderr, "a process of another user %s\n", line->c_str());
    }
}

void OtherUser::stop() const
{
    ::kill(pid_, SIGSTOP);
}

void OtherUser::resume() const
{
    ::kill(pid_, SIGCONT);
}

void OtherUser::ask_to_end()
{
    if (end_ >= 0)
        close(std::exchange(end_, -1));
}

bool OtherUser::end(double seconds)
{
    ask_to_end();
    bool ended = wait(seconds);
    kill();
    return ended && *status_ == EXIT_SUCCESS;
}

void OtherUser::kill()
{
    if (!status_)
        ::kill(pid_, SIGKILL);
    wait(60);
}

} // namespace qandor::test
