// SPDX-License-Identifier: LGPL-2.1-or-later

// A day of the system in a few acts, on the simulated bus: all that producers, consumers and the
// switch do comes up once. The day is the same each time, so that the n-th call of a function is
// the same call in each run until the fault strikes.
//
// What must hold although one call fails:
//
// - what was accepted arrives, or a line of the log tells that something went wrong;
// - at rest everything is again as the script says: the books of the switch, what the subscriptions
//   know, and the next event arrives. A switch that exits is started again. What the log has told
//   may need the switch to be started anew; how often that is so is counted;
// - every question is answered, and at the end nothing is left, in the books or open.
#pragma once

#include "asker.hpp"
#include "ledger.hpp"

#include "simulation/world.hpp"

#include <optional>

namespace qandor::faults {

class Day {
public:
    Day() = default;
    Day(const Day &) = delete;
    Day &operator=(const Day &) = delete;

    // Throws Broken.
    void run();
    // What happens, for the reader of a fault that is run alone.
    bool traces = false;
    // Whether it took a new start of the switch to make all right again.
    bool needed_restart = false;

private:
    void begin();
    void send_and_refresh();
    void ask_and_add_types();
    void change_mind();
    void restart_switch();
    void lose_connections();
    void end();

    void trace(const std::string &what) const;
    void start_switch();
    void keep_switch();
    void pass(std::uint64_t time);
    void rest();
    void examine();
    void check_all();
    void check_books() const;
    void check_fresh_events();

    Topic &declare(const std::string &who, bool is_property);
    void undeclare(Topic &topic);
    Part &subscribe();
    Part &subscribe_secure();
    void unsubscribe(Part &part);
    bool send(Topic &topic);
    bool has_arrived(const Topic &topic, guint number) const;
    void check_arrived();
    void check_announced();
    // Whether the log says that something went wrong.
    bool has_told() const;
    bool has_told(const char *text) const;

    simulation::World world_{1};
    std::optional<Asker> asker_;
    event_producer *producer_ = nullptr;
    event_consumer *consumer_ = nullptr;
    std::list<Topic> topics_;
    std::list<Part> parts_;
    std::list<std::pair<const Topic *, guint>> expected_; // events that were accepted
    off_t log_begin_ = 0;
    bool is_calm_ = true; // nothing that may lose events has happened since all was at rest
};

} // namespace qandor::faults
