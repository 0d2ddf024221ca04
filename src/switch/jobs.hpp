// SPDX-License-Identifier: LGPL-2.1-or-later

// Work that one call or one death makes, done in steps. The jobs of a user are done one after
// another, a step of each user in turn, so that a long job of one user holds nobody else up. Jobs
// of calls, of names that have left and of long lists are in lanes of their own: a user's calls do
// not wait for what its dead processes leave behind, nor for what somebody wants to see.
#pragma once

#include <glib.h>

#include <deque>
#include <map>
#include <memory>
#include <utility>

namespace qandor {

class Job {
public:
    enum class Progress {
        More,  // one step is done
        Waits, // for somebody who is told to read; to be tried again later
        Done,
    };

    virtual ~Job() = default;
    virtual Progress step() = 0;
};

class Jobs {
public:
    enum class Lane { Calls, Deaths, Lists };

    void add(guint32 uid, Lane lane, std::unique_ptr<Job> job)
    {
        lanes_[{uid, lane}].push_back(std::move(job));
    }
    // Whether what the user's last call has caused is not done yet.
    bool is_busy(guint32 uid) const { return lanes_.contains({uid, Lane::Calls}); }
    bool is_empty() const { return lanes_.empty(); }

    // Does one step; false when there is none to do, or all wait.
    bool step();

private:
    using Key = std::pair<guint32, Lane>;

    std::map<Key, std::deque<std::unique_ptr<Job>>> lanes_;
    Key last_ = {};
};

} // namespace qandor
