// SPDX-License-Identifier: LGPL-2.1-or-later

// Tells whether anything in some folders has changed, so that what was read of them can be used
// again. A folder that cannot be watched, such as one that is not there, always may have.
#pragma once

#include "platform/owners.hpp"

#include <systemd/sd-event.h>

#include <string>
#include <vector>

namespace qandor {

class FolderWatch {
public:
    FolderWatch(sd_event *event, std::vector<std::string> folders);
    FolderWatch(const FolderWatch &) = delete;
    FolderWatch &operator=(const FolderWatch &) = delete;

    // Whether all is as it was at the last note().
    bool is_unchanged() const { return noted_ && watches_.size() == folders_.size(); }
    // What is read from now on is new. Looks for folders that could not be watched before.
    void note();
    // What was read is not to be used again.
    void forget() { noted_ = false; }

private:
    static int note_change(sd_event_source *, const inotify_event *, void *watch);

    sd_event *event_;
    std::vector<std::string> folders_;
    std::vector<EventTimerOwner> watches_; // of all folders, or none
    bool noted_ = false;
};

} // namespace qandor
