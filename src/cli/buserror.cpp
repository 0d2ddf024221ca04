// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/buserror.hpp"

#include "cli/failure.hpp"
#include "cli/terminal.hpp"

#include <cstring>
#include <unistd.h>

namespace qandor::cli {
namespace {

struct ErrorMeaning {
    const char *name;
    int code;
    const char *hint;
};
constexpr const char *only_root_hint = "Root may do it, and so may the switch's own user.";
constexpr ErrorMeaning meanings[] = {
    {SD_BUS_ERROR_ACCESS_DENIED, EX_NOPERM, only_root_hint},
    {SD_BUS_ERROR_INVALID_ARGS, EX_DATAERR, ""},
    {SD_BUS_ERROR_FILE_NOT_FOUND, EX_NOINPUT, ""},
    {SD_BUS_ERROR_FILE_EXISTS, EX_CANTCREAT, ""},
    {SD_BUS_ERROR_IO_ERROR, EX_IOERR, "The switch's log says why."},
    {SD_BUS_ERROR_LIMITS_EXCEEDED, EX_TEMPFAIL, "'qandor status' shows the limits in use."},
    {SD_BUS_ERROR_NO_REPLY, EX_TEMPFAIL, "The switch did not answer, or has gone."},
    {SD_BUS_ERROR_TIMEOUT, EX_TEMPFAIL, "The switch did not answer in time."},
    {SD_BUS_ERROR_SERVICE_UNKNOWN, EX_UNAVAILABLE, no_switch_hint},
    {SD_BUS_ERROR_NAME_HAS_NO_OWNER, EX_UNAVAILABLE, no_switch_hint},
    {SD_BUS_ERROR_UNKNOWN_METHOD, EX_UNAVAILABLE, "The switch is another version than this tool."},
    {"org.freedesktop.DBus.Error.UnknownInterface", EX_UNAVAILABLE,
     "The switch is another version than this tool."},
};

} // namespace

std::string BusError::text(int r) const
{
    return error_.message && *error_.message ? error_.message : std::strerror(-r);
}

void BusError::fail(const std::string &what, int r) const
{
    for (const ErrorMeaning &meaning : meanings) {
        if (!sd_bus_error_has_name(&error_, meaning.name))
            continue;
        bool is_told_to_root = meaning.hint == only_root_hint && geteuid() == 0;
        throw Failure(meaning.code, what + ": " + printable(text(r)),
                      is_told_to_root ? "" : meaning.hint);
    }
    throw Failure(EX_UNAVAILABLE, what + ": " + text(r));
}

} // namespace qandor::cli
