// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/folderwatch.hpp"

#include <sys/inotify.h>

namespace qandor {
namespace {

constexpr guint32 changes = IN_CREATE | IN_CLOSE_WRITE | IN_MODIFY | IN_ATTRIB | IN_MOVED_TO |
                            IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;

} // namespace

FolderWatch::FolderWatch(sd_event *event, std::vector<std::string> folders)
    : event_(event), folders_(std::move(folders))
{
}

void FolderWatch::note()
{
    noted_ = true;
    if (watches_.size() == folders_.size())
        return;
    watches_.clear();
    for (const std::string &folder : folders_) {
        sd_event_source *made = nullptr;
        if (sd_event_add_inotify(event_, &made, folder.c_str(), changes | IN_ONLYDIR, note_change,
                                 this) < 0)
            return;
        // A change is seen before the calls that come after it.
        sd_event_source_set_priority(made, SD_EVENT_PRIORITY_IMPORTANT);
        watches_.emplace_back(made);
    }
}

int FolderWatch::note_change(sd_event_source *, const inotify_event *change, void *data)
{
    auto &watch = *static_cast<FolderWatch *>(data);
    watch.noted_ = false;
    // The folder itself has gone or was moved: another one may stand in its place.
    if (change->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT))
        watch.watches_.clear();
    return 0;
}

} // namespace qandor
