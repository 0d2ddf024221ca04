// SPDX-License-Identifier: LGPL-2.1-or-later

// Changes of the types' folders, one after another. The disk is waited for on a thread of its own,
// and whoever wanted the change is answered when it is done; meanwhile the event loop serves the
// others. What a user wants to know of the types waits for his changes before.
//
//     queue   [ add a ][ add b ][ list ]      begin(): checks, on the event loop
//                |                            apply(): on the thread
//                +-> begin -> apply -> finish finish(): answers, on the event loop
#pragma once

#include "platform/owners.hpp"
#include "switch/accounts.hpp"
#include "switch/typefolders.hpp"

#include <systemd/sd-event.h>

#include <deque>
#include <functional>
#include <thread>

namespace qandor {

class TypeChanges {
public:
    // What there is to change; a result when there is nothing, or nothing more.
    using Begin = std::function<TypeStep()>;
    using Finish = std::function<void(TypeResult)>;

    explicit TypeChanges(TypeFolders &folders) : folders_(folders) {}
    TypeChanges(const TypeChanges &) = delete;
    TypeChanges &operator=(const TypeChanges &) = delete;
    // Waits for the change under way: its file is whole. Those behind it are not begun.
    ~TypeChanges() = default;

    // A negative errno on failure.
    int begin(sd_event *event);

    // The charge is for what the change keeps while it waits.
    void add(guint32 uid, Charge charge, Begin begin, Finish finish);
    // Whether a change of the user is not done yet.
    bool holds(guint32 uid) const;

private:
    struct Step {
        guint32 uid;
        Charge charge;
        Begin begin;
        Finish finish;
    };

    static int change_is_done(sd_event_source *, int file, guint32, void *self);

    void go_on();
    void start(const FileChange &change);
    void finish(TypeResult result);

    TypeFolders &folders_;
    std::deque<Step> steps_; // the first is under way
    bool is_under_way_ = false;
    Descriptor done_{-1}; // is written to when the thread has ended
    EventTimerOwner done_source_;
    FileChange change_;
    int error_ = 0; // of the change, set by the thread
    std::jthread thread_;
};

} // namespace qandor
