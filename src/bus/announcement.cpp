// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/announcement.hpp"

#include "bus/busdriver.hpp"
#include "platform/log.hpp"

#include <cerrno>
#include <utility>

namespace qandor {
namespace {

// The bus says so when nobody has the switch's name, or who had it left before answering.
bool says_that_nobody_is_there(const sd_bus_error *error)
{
    return sd_bus_error_has_names(error, SD_BUS_ERROR_SERVICE_UNKNOWN,
                                  SD_BUS_ERROR_NAME_HAS_NO_OWNER, SD_BUS_ERROR_NO_REPLY) != 0;
}

} // namespace

// Errors that sd-bus makes itself, at the end of the connection or of the wait, are given the
// bus's name as well.
AnnouncementResult AnnouncementResult::of_answer(sd_bus_message *answer, const char *method)
{
    const sd_bus_error *error = sd_bus_message_get_error(answer);
    if (!error)
        return {Taken};
    std::string reason = error->message ? error->message : error->name;
    if (!is_from_bus(answer))
        return {Refused, reason};
    if (says_that_nobody_is_there(error))
        return {NotSent};
    return {NotSent, std::string("The bus did not deliver ") + method + ": " + reason};
}

// The end of the connection is told elsewhere.
AnnouncementResult AnnouncementResult::of_failed_call(int error, const char *method)
{
    if (error == -ENOTCONN || error == -ECONNRESET)
        return {NotSent};
    return {NotSent, std::string("Failed to call ") + method + ": " + std::to_string(error)};
}

bool Resending::note(guint64 sending, const AnnouncementResult &result)
{
    bool was_trial = sending == trial_;
    if (was_trial)
        trial_ = 0;
    if (result.outcome != AnnouncementResult::NotSent) {
        if (was_trial)
            reset();
        return was_trial;
    }
    if (!result.text.empty() && !std::exchange(told_, true))
        log_warning("%s", result.text.c_str());
    if (trial_ == 0)
        timer_.start();
    return false;
}

void Resending::reset()
{
    trial_ = 0;
    told_ = false;
    timer_.reset();
}

} // namespace qandor
