// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/memoryreturn.hpp"

#include <algorithm>
#include <malloc.h>

namespace qandor {
namespace {

// Looking through the heap takes milliseconds; less than this is not worth it.
constexpr guint64 worthwhile = 4 << 20;

} // namespace

int MemoryReturn::begin(sd_event *event)
{
    sd_event_source *source = nullptr;
    int r = sd_event_add_post(event, &source, after_work, this);
    after_work_.reset(source);
    return r;
}

int MemoryReturn::after_work(sd_event_source *, void *data)
{
    auto &self = *static_cast<MemoryReturn *>(data);
    guint64 kept = self.kept_();
    self.most_ = std::max(self.most_, kept);
    if (self.most_ - kept < worthwhile)
        return 0;
    malloc_trim(0);
    self.most_ = kept;
    return 0;
}

} // namespace qandor
