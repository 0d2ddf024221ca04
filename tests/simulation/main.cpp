// SPDX-License-Identifier: LGPL-2.1-or-later

// Lives random lives of the system, one for each seed, each in a process of its own.
//
//     simulation --seeds 2000          seeds 1 to 2000
//     simulation --first 5001 --seeds 100
//     simulation --seed 77             one alone, with all that happens in it
//     simulation --finds 1000          succeeds when one of so many seeds fails, and stops there

#include "simulation/scenario.hpp"

#include <glib.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <sys/personality.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace qandor::simulation;

namespace {

struct Settings {
    std::uint64_t first = 1;
    std::uint64_t count = 100;
    bool traces = false;
    std::size_t jobs = 2;
    bool is_to_find = false; // a defect
    Faults faults{};
};

// Addresses are part of object paths: with the same ones a seed always means the same life.
void fix_addresses(char **arguments)
{
    int now = personality(0xFFFFFFFF);
    if (now < 0 || (now & ADDR_NO_RANDOMIZE))
        return;
    if (personality(static_cast<unsigned long>(now) | ADDR_NO_RANDOMIZE) >= 0)
        execv("/proc/self/exe", arguments);
}

void log_line(const gchar *, GLogLevelFlags level, const gchar *text, gpointer traces)
{
    if (*static_cast<bool *>(traces))
        std::fprintf(stderr, "            log %d: %s\n", level & G_LOG_LEVEL_MASK, text);
}

int live(std::uint64_t seed, bool traces, const Faults &faults)
{
    g_log_set_default_handler(log_line, &traces);
    try {
        Scenario scenario(seed, faults, traces);
        scenario.run();
        if (traces)
            std::fprintf(stderr, "%" PRIu64 " events were delivered\n", scenario.deliveries());
        return EXIT_SUCCESS;
    } catch (const BrokenInvariant &broken) {
        std::fprintf(stderr, "seed %" PRIu64 ": %s\n", seed, broken.text.c_str());
    } catch (const std::exception &error) {
        std::fprintf(stderr, "seed %" PRIu64 ": %s\n", seed, error.what());
    }
    return EXIT_FAILURE;
}

class Series {
public:
    explicit Series(const Settings &settings) : settings_(settings) {}

    int run()
    {
        std::uint64_t end = settings_.first + settings_.count;
        for (std::uint64_t seed = settings_.first; seed < end && !has_found(); ++seed) {
            if (running_.size() == settings_.jobs)
                wait_for_one();
            begin(seed);
        }
        while (!running_.empty())
            wait_for_one();
        std::printf("%" PRIu64 " passed, %" PRIu64 " failed\n", lived_ - failed_, failed_);
        return (failed_ > 0) == settings_.is_to_find ? EXIT_SUCCESS : EXIT_FAILURE;
    }

private:
    bool has_found() const { return settings_.is_to_find && failed_ > 0; }
    void begin(std::uint64_t seed)
    {
        ++lived_;
        pid_t process = fork();
        if (process == 0)
            _exit(live(seed, settings_.traces, settings_.faults));
        running_.emplace(process, seed);
    }
    void wait_for_one()
    {
        int status = 0;
        pid_t process = wait(&status);
        std::uint64_t seed = running_.extract(process).mapped();
        if (WIFSIGNALED(status))
            std::fprintf(stderr, "seed %" PRIu64 ": %s\n", seed, strsignal(WTERMSIG(status)));
        failed_ += status != 0;
    }

    const Settings &settings_;
    std::map<pid_t, std::uint64_t> running_;
    std::uint64_t lived_ = 0;
    std::uint64_t failed_ = 0;
};

bool read_settings(int count, char **arguments, Settings &settings)
{
    for (int i = 1; i + 1 < count; i += 2) {
        std::string option = arguments[i];
        std::uint64_t number = std::strtoull(arguments[i + 1], nullptr, 10);
        if (option == "--seeds")
            settings.count = number;
        else if (option == "--first")
            settings.first = number;
        else if (option == "--jobs")
            settings.jobs = number;
        else if (option == "--seed")
            settings.first = number, settings.count = 1, settings.traces = true;
        else if (option == "--finds")
            settings.count = number, settings.is_to_find = true;
        else if (option == "--cuts")
            settings.faults.connections_break = number != 0;
        else if (option == "--kills")
            settings.faults.switch_dies = number != 0;
        else if (option == "--hangs")
            settings.faults.consumers_hang = number != 0;
        else if (option == "--restarts")
            settings.faults.bus_restarts = number != 0;
        else if (option == "--forgeries")
            settings.faults.strangers_forge = number != 0;
        else if (option == "--floods")
            settings.faults.strangers_flood = number != 0;
        else if (option == "--stalls")
            settings.faults.connections_stall = number != 0;
        else
            return false;
    }
    return count % 2 == 1;
}

} // namespace

int main(int count, char **arguments)
{
    Settings settings;
    if (!read_settings(count, arguments, settings)) {
        std::fprintf(stderr, "Usage: simulation [--first N] [--seeds N] [--jobs N] | --seed N\n");
        return EXIT_FAILURE;
    }
    fix_addresses(arguments);
    return Series(settings).run();
}
