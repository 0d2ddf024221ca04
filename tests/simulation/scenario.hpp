// SPDX-License-Identifier: LGPL-2.1-or-later

// A random life of the system: handles come and go, declare, subscribe and send, while processes
// are killed, connections cut and messages delayed. Now and then all comes to rest and is looked
// at.
#pragma once

#include "simulation/observer.hpp"
#include "simulation/world.hpp"

#include <functional>
#include <list>

namespace qandor::simulation {

struct Faults {
    bool switch_dies = true;
    bool connections_break = true;
    bool connections_stall = true;
    bool consumers_hang = true;
    bool bus_restarts = true;
    bool strangers_forge = true;
    bool strangers_flood = true;
};

class Scenario {
public:
    Scenario(std::uint64_t seed, const Faults &faults, bool traces);
    Scenario(const Scenario &) = delete;
    Scenario &operator=(const Scenario &) = delete;

    // Lives it to its end. Throws BrokenInvariant.
    void run();

    guint64 deliveries() const { return observer_.deliveries; }

private:
    struct Producer {
        event_producer *handle;
        std::map<guint32, DeclaredTopic *> declared; // by local id
    };
    struct Consumer {
        event_consumer *handle;
        std::map<guint32, SubscribedPart *> subscribed; // by token
    };

    void act();
    void come_to_rest();
    void end();

    void add_producer();
    void add_consumer();
    void free_producer();
    void free_consumer();
    void declare();
    void undeclare();
    void subscribe();
    void unsubscribe();
    void send();
    void refresh();
    void kill_switch();
    void cut_connection();
    void stall_connection();
    void hang_consumer();
    void restart_bus();
    void forge_signal();
    void flood_switch();
    void end_flood();
    void let_time_pass();
    void trace(const std::string &what) const;

    Producer *any_producer();
    Consumer *any_consumer();
    void send_from_all();
    void send_event(const Producer &producer, guint32 id, DeclaredTopic &topic);

    World world_;
    Observer observer_;
    Faults faults_;
    bool traces_;
    bool is_flooded_ = false; // since all has come to rest
    std::list<Producer> producers_;
    std::list<Consumer> consumers_;
};

} // namespace qandor::simulation
