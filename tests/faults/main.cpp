// SPDX-License-Identifier: LGPL-2.1-or-later

// Lives the same day over and over, each time in a process of its own and with another fault: the
// n-th call of a function fails. First a day without a fault counts the calls.
//
//     faults                               all faults
//     faults --most 3                      three calls of each function, spread over the day
//     faults --fault sendmsg:EINTR:17      one alone, with all that happens

#include "allowedends.hpp"
#include "day.hpp"
#include "failures.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/personality.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace qandor;
using namespace qandor::faults;

namespace {

// Exit codes.
constexpr int needed_restart = 2; // of the switch
constexpr int not_reached = 3;    // the day had fewer calls
constexpr unsigned longest_day_seconds = 120;

struct Settings {
    std::size_t most = SIZE_MAX;
    std::size_t jobs = 2;
    std::optional<Fault> alone;
    std::string only; // a function
    bool lists_restarts = false;
};

// The n-th call has to be the same in each run.
void fix_addresses(char **arguments)
{
    int now = personality(0xFFFFFFFF);
    if (now < 0 || (now & ADDR_NO_RANDOMIZE))
        return;
    if (personality(static_cast<unsigned long>(now) | ADDR_NO_RANDOMIZE) >= 0)
        execv("/proc/self/exe", arguments);
}

bool is_clock_call_to_fail(const char *function, const void *caller)
{
    int failure = failure_of(function, caller, Callers::ProgramAndSystemd);
    if (failure > 0)
        errno = failure;
    return failure > 0;
}

// In a process of its own, whose standard error is the file @log.
int live(const Fault &fault, int log, bool traces)
{
    dup2(log, STDERR_FILENO);
    if (!traces)
        dup2(log, STDOUT_FILENO);
    close(log);
    alarm(longest_day_seconds);
    simulation::virtual_clock::let_fail(is_clock_call_to_fail);
    std::optional<Aside> is_over; // what follows the day is not counted
    try {
        Day day;
        day.traces = traces;
        arm(fault);
        day.run();
        is_over.emplace();
        if (fault.number != 0 && !has_struck())
            return not_reached;
        return day.needed_restart ? needed_restart : EXIT_SUCCESS;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "broken: %s\n", error.what());
        return EXIT_FAILURE;
    }
}

std::string text_of(int file)
{
    std::string text(static_cast<std::size_t>(std::max<off_t>(lseek(file, 0, SEEK_END), 0)), '\0');
    ssize_t size = pread(file, text.data(), text.size(), 0);
    text.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return text;
}

std::size_t lines_of(const std::string &text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

struct Run {
    Fault fault;
    int log;
};

// What has become of the days.
class Sweep {
public:
    explicit Sweep(const Settings &settings) : settings_(settings) {}

    int run()
    {
        for (const Failures &one : all_failures())
            if (settings_.only.empty() || settings_.only == one.function)
                for (int failure : one.failures)
                    run_all({one.function, failure, 0}, calls_[one.function]);
        while (!running_.empty())
            wait_for_one();
        std::size_t unnoticed = faults_ - told_ - restarted_ - ended_ - not_reached_ - failed_;
        std::printf("%zu faults: %zu passed unnoticed, %zu were told, %zu were told and needed a "
                    "new start of the switch, %zu ended a process as they may, %zu were not "
                    "reached, %zu failed\n",
                    faults_, unnoticed, told_, restarted_, ended_, not_reached_, failed_);
        // The days differ by a few calls at their ends; a sweep that reaches little is none.
        constexpr std::size_t share = 20;
        bool reaches = not_reached_ * share < faults_;
        return failed_ == 0 && reaches ? EXIT_SUCCESS : EXIT_FAILURE;
    }

    // Lives a day without a fault; whether it went well.
    bool count_calls()
    {
        int ends[2];
        if (pipe(ends) < 0)
            return false;
        pid_t process = fork();
        if (process == 0) {
            int log = memfd_create("log", MFD_CLOEXEC);
            int status = live({}, log, false);
            FILE *out = fdopen(ends[1], "w");
            for (const auto &[function, count] : counts())
                std::fprintf(out, "%s %zu\n", function.c_str(), count);
            std::string text = text_of(STDERR_FILENO);
            std::fprintf(out, "lines-of-the-log %zu\n", lines_of(text));
            if (status != EXIT_SUCCESS)
                std::fprintf(out, "%s", text.c_str());
            std::fflush(out);
            _exit(status);
        }
        close(ends[1]);
        FILE *in = fdopen(ends[0], "r");
        char line[256];
        while (std::fgets(line, sizeof line, in)) {
            char function[100];
            std::size_t count = 0;
            if (std::sscanf(line, "%99s %zu", function, &count) == 2)
                calls_[function] = count;
            else
                std::fputs(line, stderr);
        }
        std::fclose(in);
        int status = 0;
        waitpid(process, &status, 0);
        return status == 0;
    }

private:
    void run_all(const Fault &fault, std::size_t calls)
    {
        std::size_t count = std::min(calls, settings_.most);
        for (std::size_t i = 0; i < count; ++i) {
            if (running_.size() == settings_.jobs)
                wait_for_one();
            begin({fault.function, fault.failure, 1 + i * calls / count});
        }
    }
    void begin(const Fault &fault)
    {
        int log = memfd_create("log", MFD_CLOEXEC);
        pid_t process = fork();
        if (process == 0)
            _exit(live(fault, log, false));
        running_.emplace(process, Run{fault, log});
        ++faults_;
    }
    void wait_for_one()
    {
        int status = 0;
        pid_t process = wait(&status);
        Run run = running_.extract(process).mapped();
        std::string log = text_of(run.log);
        close(run.log);
        if (WIFEXITED(status) && WEXITSTATUS(status) == not_reached) {
            ++not_reached_;
            return;
        }
        if (status == 0 || (WIFEXITED(status) && may_break(run.fault))) {
            told_ += lines_of(log) > calls_["lines-of-the-log"];
            return;
        }
        if (WIFEXITED(status) && WEXITSTATUS(status) == needed_restart) {
            ++restarted_;
            if (settings_.lists_restarts)
                std::printf("%s:\n%s", name_of(run.fault).c_str(), log.c_str());
            return;
        }
        if (WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT && may_end(log)) {
            ++ended_;
            return;
        }
        ++failed_;
        std::printf("%s: %s\n%s", name_of(run.fault).c_str(),
                    WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "", log.c_str());
        std::fflush(stdout);
    }

    const Settings &settings_;
    std::map<std::string, std::size_t> calls_;
    std::map<pid_t, Run> running_;
    std::size_t faults_ = 0, told_ = 0, not_reached_ = 0, restarted_ = 0, ended_ = 0, failed_ = 0;
};

int live_alone(const Fault &fault)
{
    int log = memfd_create("log", MFD_CLOEXEC);
    pid_t process = fork();
    if (process == 0) {
        setvbuf(stdout, nullptr, _IOLBF, 0);
        _exit(live(fault, log, true));
    }
    int status = 0;
    waitpid(process, &status, 0);
    std::printf("%s", text_of(log).c_str());
    if (WIFSIGNALED(status))
        std::printf("%s\n", strsignal(WTERMSIG(status)));
    return status == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

bool read_settings(int count, char **arguments, Settings &settings)
{
    for (int i = 1; i + 1 < count; i += 2) {
        std::string option = arguments[i];
        if (option == "--most")
            settings.most = std::strtoul(arguments[i + 1], nullptr, 10);
        else if (option == "--jobs")
            settings.jobs = std::strtoul(arguments[i + 1], nullptr, 10);
        else if (option == "--restarts")
            settings.lists_restarts = std::strcmp(arguments[i + 1], "list") == 0;
        else if (option == "--only")
            settings.only = arguments[i + 1];
        else if (option != "--fault" || !(settings.alone = parse_fault(arguments[i + 1])))
            return false;
    }
    return count % 2 == 1;
}

} // namespace

int main(int count, char **arguments)
{
    Settings settings;
    if (!read_settings(count, arguments, settings)) {
        std::fprintf(stderr,
                     "Usage: faults [--most N] [--jobs N] [--only FUNCTION] [--restarts list]\n"
                     "       faults --fault FUNCTION:ERROR:N\n");
        return EXIT_FAILURE;
    }
    fix_addresses(arguments);
    if (settings.alone)
        return live_alone(*settings.alone);
    Sweep sweep(settings);
    if (!sweep.count_calls()) {
        std::fprintf(stderr, "the day without a fault fails\n");
        return EXIT_FAILURE;
    }
    return sweep.run();
}

// Threads would make each day another one. The switch works without, where there are none.
extern "C" int pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *),
                              void *) noexcept
{
    return EAGAIN;
}
