// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/jobs.hpp"

namespace qandor {

bool Jobs::step()
{
    auto at = lanes_.upper_bound(last_);
    for (std::size_t left = lanes_.size(); left > 0; --left, ++at) {
        if (at == lanes_.end())
            at = lanes_.begin();
        Job::Progress progress = at->second.front()->step();
        if (progress == Job::Progress::Waits)
            continue;
        last_ = at->first;
        if (progress == Job::Progress::Done) {
            at->second.pop_front();
            if (at->second.empty())
                lanes_.erase(at);
        }
        return true;
    }
    return false;
}

} // namespace qandor
