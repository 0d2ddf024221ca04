// SPDX-License-Identifier: LGPL-2.1-or-later

// A bus daemon that the test plays itself. Real connections of sd-bus end in it. Everything that a
// bus leaves open is chosen at random: which sender's next message is routed, which receiver gets
// his next message, how long either takes.
//
//     sd-bus  --socket-->  incoming  --route()-->  outgoing of the receiver  --socket-->  sd-bus
//               receive()                                                   deliver()
//
// What a bus promises is kept: the messages of one sender are routed in their order, and each
// receiver gets his messages in the order in which they were routed. It refuses a connection its
// 129th unanswered call, as a stock bus does, and answers the calls to a connection that leaves.
#pragma once

#include "simulation/busmessage.hpp"
#include "simulation/random.hpp"
#include "simulation/virtualclock.hpp"

#include <sys/types.h>

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qandor::simulation {

class SimulatedBus {
public:
    explicit SimulatedBus(Random &random) : random_(random) {}
    SimulatedBus(const SimulatedBus &) = delete;
    SimulatedBus &operator=(const SimulatedBus &) = delete;
    ~SimulatedBus();

    // A new connection of the user: the socket on which sd-bus talks to the bus.
    int connect(uid_t user);

    // Does one thing that can be done: routes a message or delivers one. False when nothing can.
    bool step();

    // The unique name of the connection behind a socket that connect() returned.
    std::string name_of(int socket) const;
    std::vector<std::string> names() const;

    // Ends a connection without a word, as when its process is killed.
    void cut(std::string name);
    // Ends all of them.
    void cut_all();
    // The connection gets nothing until then.
    void stall(const std::string &name, Microseconds until);
    void thaw_all();
    // When the next stalled connection gets something again.
    std::optional<Microseconds> next_thaw() const;

    // So much waits for the connection until then that the bus drops most of what else goes there,
    // as dbus-daemon does: calls are refused, answers and its own messages vanish.
    void flood(const std::string &name, Microseconds until);

    // A stranger's unicast signal that looks like the bus's own, which a stock bus lets everybody
    // send.
    void forge_owner_change(const std::string &victim, const std::vector<std::string> &body);

    // Calls that wait for their answers, by caller.
    std::size_t unanswered(const std::string &name) const;
    bool has_owner(const std::string &name) const { return owners_.contains(name); }

private:
    struct Rule {
        std::map<std::string, std::string> wanted;
    };
    struct Connection {
        int client_socket;
        int socket;
        uid_t user;
        std::string name;
        std::string input; // bytes that are no whole message yet
        std::deque<BusMessage> incoming;
        std::deque<std::string> outgoing;
        std::vector<Rule> rules;
        std::uint32_t last_serial = 0;
        bool authenticated = false;
        Microseconds stalled_until = 0;
        Microseconds flooded_until = 0;
    };
    struct Pending {
        std::string caller, callee;
        std::uint32_t serial;
        auto operator<=>(const Pending &) const = default;
    };
    using Connections = std::map<std::string, std::unique_ptr<Connection>>;

    bool is_full(const Connection &receiver);
    void receive();
    bool read_from(Connection &connection);
    void authenticate(Connection &connection);
    void route(Connection &sender);
    bool deliver(Connection &receiver);
    void send(Connection &receiver, BusMessage message);
    void send_to_matching(const BusMessage &signal);
    void forward(Connection &sender, BusMessage message);
    void answer(Connection &caller, const BusMessage &call, const std::string &signature,
                const std::string &body);
    void refuse(const std::string &caller, std::uint32_t serial, const std::string &error);
    void handle_own(Connection &caller, const BusMessage &call);
    std::optional<std::string> resolve(const std::string &name) const;
    void owner_changed(const std::string &name, const std::string &before,
                       const std::string &after);
    void leave(const std::string &name);

    static Rule parse_rule(const std::string &text);
    bool matches(const Rule &rule, const BusMessage &signal) const;

    Random &random_;
    Connections connections_;                   // by unique name
    std::map<std::string, std::string> owners_; // of well-known names
    std::set<Pending> pending_;
    std::uint64_t last_number_ = 0;
};

} // namespace qandor::simulation
