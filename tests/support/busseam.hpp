// SPDX-License-Identifier: LGPL-2.1-or-later

// What the library asks of sd-bus and sd-event, seen on its way and, where a test says so, made to
// fail. The functions of busseam.cpp stand in front of libsystemd's own in the programs that are
// built with it.
#pragma once

#include <glib.h>
#include <systemd/sd-bus.h>

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qandor::test {

// Sees the calls of the thread that made it, for as long as it lives.
class BusSeam {
public:
    struct Object {
        std::string path;
        std::string interface;
        const sd_bus_vtable *vtable;
    };
    struct Match {
        std::string rule;
        sd_bus_message_handler_t handler;
        void *userdata;
    };

    BusSeam();
    BusSeam(const BusSeam &) = delete;
    BusSeam &operator=(const BusSeam &) = delete;
    ~BusSeam();

    // The next call of the function is not made: it has this result and, if any, errno.
    void fail(const std::string &function, int result, int error = 0);
    std::size_t count(const std::string &function) const;

    std::function<void(const std::string &)> on_call; // before each

    std::vector<std::string> calls;    // of the functions looked at, in their order
    std::vector<guint64> timeouts;     // of the calls sent
    std::optional<guint64> timeout;    // in the place of those
    std::vector<Object> objects;       // that were registered
    std::vector<Match> matches;        // that were added
    std::optional<uid_t> real_user_id; // in the place of what the credentials say

    // For the functions that stand in front.
    static BusSeam *current();
    std::optional<int> enter(const char *function);
    std::optional<int> take_failure(const char *function);

private:
    struct Failure {
        int result;
        int error;
    };

    std::map<std::string, std::deque<Failure>> failures_;
};

} // namespace qandor::test
