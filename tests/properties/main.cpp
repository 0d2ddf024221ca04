// SPDX-License-Identifier: LGPL-2.1-or-later

// Runs random sequences over the data model, one of each property for every seed.
//
//     properties --seeds 2000              seeds 1 to 2000
//     properties --first 5001 --seeds 100
//     properties --seed 77                 one alone, with every step of it
//     properties --only records ...        one property alone
//
// QANDOR_SEEDS in the environment takes the place of --seeds.

#include "properties/sequence.hpp"

#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace qandor::test;

namespace {

struct Settings {
    unsigned first = 1;
    unsigned count = 100;
    bool prints = false;
    std::string only{};
};

// Where a child is: what its parent tells when it dies.
struct Progress {
    unsigned seed;
    unsigned property;
};

bool run_one(const Property &property, unsigned seed, const Trace &trace)
{
    try {
        trace.note(std::string(property.name) + ", seed " + std::to_string(seed));
        property.run(seed, trace);
        return true;
    } catch (const std::exception &difference) {
        std::fprintf(stderr, "%s, seed %u: %s\n", property.name, seed, difference.what());
        return false;
    }
}

// Until one fails: then a fresh process goes on behind it.
int run_from(const Settings &settings, unsigned seed, unsigned at, Progress &progress)
{
    Trace trace(settings.prints);
    for (; seed < settings.first + settings.count; ++seed, at = 0)
        for (; at < std::size(properties); ++at) {
            progress = {seed, at};
            if (!settings.only.empty() && settings.only != properties[at].name)
                continue;
            if (!run_one(properties[at], seed, trace))
                return EXIT_FAILURE;
        }
    return EXIT_SUCCESS;
}

void tell_death(const Progress &progress, int status)
{
    if (WIFSIGNALED(status))
        std::fprintf(stderr, "%s, seed %u: %s\n", properties[progress.property].name, progress.seed,
                     strsignal(WTERMSIG(status)));
    else
        std::fprintf(stderr, "%s, seed %u: failed\n", properties[progress.property].name,
                     progress.seed);
}

int run(const Settings &settings)
{
    void *shared =
        mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto &progress = *static_cast<Progress *>(shared);
    progress = {settings.first, 0};
    unsigned failed = 0;
    for (int status = -1; status != 0;) {
        pid_t child = fork();
        if (child == 0)
            std::exit(run_from(settings, progress.seed, progress.property, progress));
        waitpid(child, &status, 0);
        if (status == 0)
            break;
        tell_death(progress, status);
        ++failed;
        if (++progress.property == std::size(properties))
            progress = {progress.seed + 1, 0};
    }
    std::printf("seeds %u to %u: %u failures\n", settings.first,
                settings.first + settings.count - 1, failed);
    return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

bool read_settings(int count, char **arguments, Settings &settings)
{
    for (int i = 1; i + 1 < count; i += 2) {
        std::string option = arguments[i];
        auto number = static_cast<unsigned>(std::strtoul(arguments[i + 1], nullptr, 10));
        if (option == "--seeds")
            settings.count = number;
        else if (option == "--first")
            settings.first = number;
        else if (option == "--seed")
            settings.first = number, settings.count = 1, settings.prints = true;
        else if (option == "--only")
            settings.only = arguments[i + 1];
        else
            return false;
    }
    if (const char *seeds = std::getenv("QANDOR_SEEDS"); seeds && settings.count > 1)
        settings.count = static_cast<unsigned>(std::strtoul(seeds, nullptr, 10));
    return count % 2 == 1 && settings.count > 0;
}

} // namespace

int main(int count, char **arguments)
{
    Settings settings;
    if (!read_settings(count, arguments, settings)) {
        std::fprintf(stderr,
                     "Usage: properties [--only NAME] [--first N] [--seeds N] | --seed N\n");
        return EXIT_FAILURE;
    }
    return run(settings);
}
