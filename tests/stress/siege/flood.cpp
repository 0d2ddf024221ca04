// SPDX-License-Identifier: LGPL-2.1-or-later

#include "stress/siege/flood.hpp"

#include "bus/switch/strangeruser.hpp"

#include <fcntl.h>
#include <list>
#include <poll.h>
#include <stdexcept>
#include <sys/mman.h>
#include <utility>

namespace qandor::test {
namespace {

// A stock bus refuses a connection's 129th unanswered call.
constexpr std::size_t calls_under_way = 60;

} // namespace

Flood::Flood(const std::string &address, guint32 connections, const Call &call,
             const Prepare &prepare)
{
    void *shared =
        mmap(nullptr, sizeof *answered_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED || pipe2(stop_, O_CLOEXEC) < 0)
        throw std::runtime_error("no means for a flood");
    answered_ = new (shared) std::atomic<guint64>(0);
    pid_ = fork();
    if (pid_ == 0) {
        close(stop_[1]);
        _exit(as_stranger(address, [&] { return run(connections, call, prepare); }));
    }
    close(stop_[0]);
}

bool Flood::is_stopped(int wait_milliseconds) const
{
    pollfd end{stop_[0], POLLIN, 0};
    return poll(&end, 1, wait_milliseconds) > 0;
}

bool Flood::run(guint32 connections, const Call &call, const Prepare &prepare) const
{
    std::list<RawPeer> peers(connections);
    guint32 number = 0;
    for (RawPeer &peer : peers)
        if (prepare)
            prepare(peer, number++);
    if (!call) {
        ++*answered_;
        return is_stopped(-1);
    }
    number = 0;
    while (!is_stopped()) {
        std::vector<std::optional<Answer>> answers(calls_under_way * connections);
        std::size_t started = 0, done = 0;
        for (RawPeer &peer : peers)
            for (std::size_t i = 0; i < calls_under_way; ++i)
                call(peer, answers[started++], number++);
        if (!run_until([&] {
                for (; done < answers.size() && answers[done]; ++done)
                    ++*answered_;
                return done == answers.size();
            }))
            return false;
        for (RawPeer &peer : peers)
            peer.take();
    }
    return true;
}

bool Flood::stop()
{
    if (pid_ <= 0)
        return true;
    close(stop_[1]);
    int status = 0;
    waitpid(std::exchange(pid_, 0), &status, 0);
    munmap(answered_, sizeof *answered_);
    answered_ = nullptr;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace qandor::test
