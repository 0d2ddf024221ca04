// SPDX-License-Identifier: LGPL-2.1-or-later

// A handler that runs while sd-bus waits ends the wait with EINTR. The call has been sent then, and
// its answer cannot be waited for again; sent a second time it would be made twice.
#pragma once

#include <csignal>
#include <pthread.h>

namespace qandor {

// Holds back, in this thread and while it lives, the signals that have handlers, which run
// afterwards. What stops or ends the process does so at once.
class HeldSignals {
public:
    HeldSignals()
    {
        sigset_t handled;
        sigemptyset(&handled);
        for (int number = 1; number < NSIG; ++number)
            if (has_handler(number) && !is_fault(number))
                sigaddset(&handled, number);
        pthread_sigmask(SIG_BLOCK, &handled, &before_);
    }
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;
    ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    static bool has_handler(int number)
    {
        struct sigaction action = {};
        return sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL &&
               action.sa_handler != SIG_IGN;
    }
    // The thread's own doing, which cannot wait.
    static bool is_fault(int number)
    {
        return number == SIGSEGV || number == SIGBUS || number == SIGFPE || number == SIGILL ||
               number == SIGTRAP || number == SIGSYS || number == SIGABRT;
    }

    sigset_t before_;
};

} // namespace qandor
