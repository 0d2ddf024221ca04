// SPDX-License-Identifier: LGPL-2.1-or-later

// How commands fail: what is wrong, what to do about it, and the exit code that says it to a
// script. The codes are those of sysexits.h, so that they mean the same as anywhere else.
#pragma once

#include <exception>
#include <string>
#include <sysexits.h>
#include <utility>

namespace qandor::cli {

class Failure : public std::exception {
public:
    // The hint is further lines for the reader, or nothing.
    Failure(int code, std::string message, std::string hint = "")
        : code_(code), message_(std::move(message)), hint_(std::move(hint))
    {
    }

    int code() const { return code_; }
    const std::string &message() const { return message_; }
    const std::string &hint() const { return hint_; }
    const char *what() const noexcept override { return message_.c_str(); }

private:
    int code_;
    std::string message_;
    std::string hint_;
};

struct ExitCode {
    int code;
    const char *name;
    const char *meaning;
};

inline constexpr ExitCode exit_codes[] = {
    {EX_OK, "EX_OK", "done"},
    {1, "", "looked, and the answer is no (explain, state, check --strict, doctor)"},
    {EX_USAGE, "EX_USAGE", "the command line is wrong, an expression in it included"},
    {EX_DATAERR, "EX_DATAERR", "a file, a record or a value is wrong"},
    {EX_NOINPUT, "EX_NOINPUT", "a file or a type is not there or cannot be read"},
    {EX_UNAVAILABLE, "EX_UNAVAILABLE", "there is no bus, or no event switch on it"},
    {EX_SOFTWARE, "EX_SOFTWARE", "a mistake of qandor's own"},
    {EX_CANTCREAT, "EX_CANTCREAT",
     "a file cannot be made or is there already; a type is the system's own"},
    {EX_IOERR, "EX_IOERR", "the output or the folder of types cannot be written"},
    {EX_TEMPFAIL, "EX_TEMPFAIL", "no answer in time, or a limit is reached; try again later"},
    {EX_NOPERM, "EX_NOPERM", "this is for root or for the switch's own user"},
};

} // namespace qandor::cli
