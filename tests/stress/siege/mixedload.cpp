// SPDX-License-Identifier: LGPL-2.1-or-later

// Mixed load for a while, and whether the switch's memory stays flat under it.
//
//   mixedload [SECONDS]      5 unless told
//
// A crew of library processes works; raw peers come and go, declare, subscribe, ask, and send bytes
// that are no records.

#include "stress/siege/census.hpp"
#include "stress/siege/crew.hpp"

#include "bus/switch/rawpeer.hpp"
#include "bus/switch/rawrecords.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

using namespace qandor::test;

namespace {

// The first part of the run fills caches and account books.
constexpr double warm_up_part = 0.25;
constexpr long memory_bound_kib = 512;

class Load {
public:
    // Works for so long; returns how often everything was done.
    guint64 run(double seconds)
    {
        crew_.work();
        gint64 end = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
        guint64 turns = 0;
        for (; g_get_monotonic_time() < end; ++turns)
            take_turn(static_cast<guint32>(turns));
        crew_.rest();
        return turns;
    }
    // At rest, with the same books each time.
    long resident_kib()
    {
        auto is_quiet = [this] {
            return list_rows(onlooker_.bus(), "ListSubscriptions").size() ==
                       Crew::subscriptions() &&
                   read_list(onlooker_.call("Query.GetAllDeclarations").bytes).size() ==
                       crew_topics().size();
        };
        if (!run_until(is_quiet, 60))
            throw std::runtime_error("something is left of the load");
        long total = 0, resident = 0;
        std::string file = "/proc/" + std::to_string(event_switch_.process().pid()) + "/statm";
        std::ifstream(file) >> total >> resident;
        return resident * (sysconf(_SC_PAGESIZE) / 1024);
    }

private:
    static void need(const Answer &answer, const char *error = "")
    {
        if (answer.error != error)
            throw std::runtime_error("answered was '" + answer.error + " " + answer.text + "'");
    }
    // Topics and values are new each time; names of keys are kept for ever, so they are not.
    void take_turn(guint32 turn)
    {
        std::string topic = "Turn" + std::to_string(turn);
        std::string broken = declaration_bytes(topic.c_str(), turn);
        broken.resize(turn % broken.size());
        RawPeer guest;
        need(guest.call("Producer.Declare", "/p", topic,
                        Octets{declaration_bytes(topic.c_str(), turn, true)}));
        need(guest.call("Consumer.Subscribe", "/c", topic, turn,
                        Octets{expression_bytes(topic.c_str())}));
        need(guest.call("Consumer.RefreshProperty", "/c", turn));
        need(guest.call("Producer.Declare", "/p", topic, Octets{broken}),
             "org.freedesktop.DBus.Error.InvalidArgs");
        need(guest.call("Query.GetAllDeclarations"));
        need(onlooker_.call("Consumer.GetPropertyState", Octets{expression_bytes("Nowhere")}),
             "org.freedesktop.DBus.Error.FileNotFound");
        // An answer that nobody waits for any more.
        std::optional<Answer> answer;
        guest.call_later(answer, "Consumer.GetPropertyState",
                         Octets{expression_bytes(topic.c_str())});
        if (turn % 2)
            need(guest.call("Producer.Disconnect", "/p"));
        guest.leave();
    }

    PrivateBus bus_;
    SwitchProcess event_switch_;
    RawPeer onlooker_;
    Crew crew_;
};

bool stays_flat(double seconds)
{
    Load load;
    guint64 turns = load.run(seconds * warm_up_part);
    long before = load.resident_kib();
    turns += load.run(seconds * (1 - warm_up_part));
    long after = load.resident_kib();
    std::printf("%.0f seconds, %" G_GUINT64_FORMAT " turns\n"
                "resident KiB: %ld after warm-up, %ld at the end, at most %ld more\n",
                seconds, turns, before, after, memory_bound_kib);
    return after - before <= memory_bound_kib || !memory_tells();
}

} // namespace

int main(int count, char **arguments)
{
    double seconds = count > 1 ? std::atof(arguments[1]) : 5;
    if (seconds <= 0) {
        std::fprintf(stderr, "usage: mixedload [SECONDS]\n");
        return 2;
    }
    try {
        return stays_flat(seconds) ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return EXIT_FAILURE;
    }
}
