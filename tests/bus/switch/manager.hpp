// SPDX-License-Identifier: LGPL-2.1-or-later

// A service manager as the switch sees it: a socket that messages come to one by one.
#pragma once

#include "support/temporaryfolder.hpp"

#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace qandor::test {

// While it lives, processes that are started tell it how they are.
class Manager {
public:
    Manager() : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        const std::string path = (folder_.path() / "notify").string();
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (bind(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address) < 0)
            throw std::runtime_error("cannot listen to services");
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;
    ~Manager()
    {
        unsetenv("NOTIFY_SOCKET");
        close(socket_);
    }

    // The next message; nothing when none comes in time.
    std::optional<std::string> message(int wait_milliseconds = 0) const
    {
        char text[512];
        pollfd ready{socket_, POLLIN, 0};
        poll(&ready, 1, wait_milliseconds);
        ssize_t size = recv(socket_, text, sizeof text, 0);
        return size < 0 ? std::nullopt : std::optional<std::string>(std::in_place, text, size);
    }

private:
    TemporaryFolder folder_;
    int socket_;
};

} // namespace qandor::test
