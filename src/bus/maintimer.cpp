// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/maintimer.hpp"

namespace qandor {

void MainTimer::start(gint64 time)
{
    if (source_)
        return;
    source_.reset(g_timeout_source_new(0));
    g_source_set_callback(source_.get(), run, this, nullptr);
    g_source_set_ready_time(source_.get(), time);
    g_source_attach(source_.get(), nullptr);
}

gboolean MainTimer::run(gpointer self)
{
    auto &timer = *static_cast<MainTimer *>(self);
    timer.source_.reset();
    timer.function_(timer.data_);
    return G_SOURCE_REMOVE;
}

void MainTimer::stop()
{
    if (!source_)
        return;
    g_source_destroy(source_.get());
    source_.reset();
}

} // namespace qandor
