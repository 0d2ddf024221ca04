// SPDX-License-Identifier: LGPL-2.1-or-later

// An error that the bus or the switch answers, and what it means for whom.
#pragma once

#include <systemd/sd-bus.h>

#include <string>

namespace qandor::cli {

inline constexpr const char *no_switch_hint =
    "It is the service 'event-switch': 'systemctl start event-switch' starts it.";

class BusError {
public:
    BusError() = default;
    BusError(const BusError &) = delete;
    BusError &operator=(const BusError &) = delete;
    ~BusError() { sd_bus_error_free(&error_); }

    sd_bus_error *get() { return &error_; }

    // The Failure that it is, where a call has returned the negative errno.
    [[noreturn]] void fail(const std::string &what, int r) const;

private:
    std::string text(int r) const;

    sd_bus_error error_ = SD_BUS_ERROR_NULL;
};

} // namespace qandor::cli
