// SPDX-License-Identifier: LGPL-2.1-or-later

// Kills the switch again and again under load, and looks whether everything comes back.
//
//   killrounds [ROUNDS [SEED]]      10 rounds unless told, and another seed each time
//
// After each restart every declaration and every subscription must be known once, and every event
// reach every subscription that it matches once.

#include "stress/siege/census.hpp"
#include "stress/siege/crew.hpp"

#include "bus/switch/rawpeer.hpp"
#include "bus/switch/rawrecords.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <random>
#include <stdexcept>

using namespace qandor::test;

namespace {

class Siege {
public:
    explicit Siege(unsigned seed) : dice_(seed) {}

    // What is wrong after a round; nothing when all is well.
    std::string run_round()
    {
        crew_.work();
        watch();
        kill();
        watch();
        crew_.rest();
        if (!run_until([this] { return books_are_right(); }, 60))
            return "the books are wrong:\n" + describe_books();
        return crew_.send_and_count();
    }

private:
    unsigned chance(unsigned sides) { return static_cast<unsigned>(dice_() % sides); }

    // Lets time go by that is measured in answers of the switch.
    void watch()
    {
        for (unsigned i = chance(500); i > 0; --i)
            onlooker_.call("Query.GetAllDeclarations");
    }
    // Sometimes somebody sleeps through it, and sometimes the next switch does not live long.
    void kill()
    {
        ChildProcess *sleeper = chance(3) == 0 ? &crew_.pick(chance(100)) : nullptr;
        if (sleeper)
            sleeper->signal(SIGSTOP);
        event_switch_.kill();
        event_switch_.start();
        while (chance(3) == 0) {
            watch();
            event_switch_.kill();
            event_switch_.start();
        }
        if (sleeper)
            sleeper->signal(SIGCONT);
    }

    std::vector<std::string> declared_topics()
    {
        std::vector<std::string> topics;
        for (const auto &declaration : read_list(onlooker_.call("Query.GetAllDeclarations").bytes))
            topics.emplace_back(inspectable_get_value(
                event_declaration_get_inspectable(declaration.get()), "topic0"));
        std::sort(topics.begin(), topics.end());
        return topics;
    }
    bool books_are_right()
    {
        std::set<std::string> expected = crew_topics();
        return declared_topics() == std::vector(expected.begin(), expected.end()) &&
               list_rows(onlooker_.bus(), "ListSubscriptions").size() == Crew::subscriptions() &&
               list_rows(onlooker_.bus(), "ListProducers").size() == Crew::producers &&
               list_rows(onlooker_.bus(), "ListConsumers").size() == Crew::consumers;
    }
    std::string describe_books()
    {
        std::string text;
        for (const std::string &topic : declared_topics())
            text += topic + "\n";
        for (const char *list : {"ListProducers", "ListConsumers", "ListSubscriptions"})
            for (const std::string &row : list_rows(onlooker_.bus(), list))
                text += row + "\n";
        return text;
    }

    std::mt19937 dice_;
    PrivateBus bus_;
    SwitchProcess event_switch_;
    RawPeer onlooker_;
    Crew crew_;
};

int run(int rounds, unsigned seed)
{
    std::printf("%d rounds, seed %u\n", rounds, seed);
    std::fflush(stdout);
    Siege siege(seed);
    for (int round = 1; round <= rounds; ++round) {
        std::string wrong = siege.run_round();
        if (wrong.empty())
            continue;
        std::printf("round %d: %s\n", round, wrong.c_str());
        return EXIT_FAILURE;
    }
    std::printf("all came back in each\n");
    return EXIT_SUCCESS;
}

} // namespace

int main(int count, char **arguments)
{
    int rounds = count > 1 ? std::atoi(arguments[1]) : 10;
    unsigned seed = count > 2 ? static_cast<unsigned>(std::strtoul(arguments[2], nullptr, 10))
                              : std::random_device()();
    if (rounds < 1) {
        std::fprintf(stderr, "usage: killrounds [ROUNDS [SEED]]\n");
        return 2;
    }
    try {
        return run(rounds, seed);
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return EXIT_FAILURE;
    }
}
