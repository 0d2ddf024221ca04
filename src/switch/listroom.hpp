// SPDX-License-Identifier: LGPL-2.1-or-later

// What the monitor's lists have in common: how long they may be, and rows that end with ids.
#pragma once

#include "switch/log.hpp"

#include <systemd/sd-bus.h>

#include <glib.h>

#include <vector>

namespace qandor {

// A stock bus takes messages of at most 32 MiB and throws out who sends a larger one. A list that
// would be larger ends before.
class ListRoom {
public:
    // Whether a row of so many texts and ids still fits.
    bool take(std::size_t texts, std::size_t ids)
    {
        std::size_t size = row + texts + ids * sizeof(guint32);
        bool fits = size <= left_;
        if (fits)
            left_ -= size;
        else
            log_line(LogLevel::Warning, "a list is too long for the bus and is cut short");
        return fits;
    }
    std::size_t taken() const { return most - left_; }

private:
    static constexpr std::size_t row = 64; // its other members
    static constexpr std::size_t most = 30 << 20;

    std::size_t left_ = most;
};

// Ids as the last member of a row, which is open.
inline int append_ids(sd_bus_message *reply, const std::vector<guint32> &ids)
{
    return sd_bus_message_append_array(reply, 'u', ids.data(), ids.size() * sizeof(guint32));
}

} // namespace qandor
