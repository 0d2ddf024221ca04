// SPDX-License-Identifier: LGPL-2.1-or-later

// What this process holds: descriptors, sources of the default main context, memory.
#pragma once

#include <glib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <unistd.h>

namespace qandor::test {

// The sanitizers keep freed memory for a while, so that what a process has does not tell.
constexpr bool memory_tells()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;
#else
    return true;
#endif
}

struct Footprint {
    long descriptors;
    long sources;
    long resident_kib;

    static Footprint measure()
    {
        return {count_descriptors(), count_sources(), measure_resident_kib()};
    }

private:
    static long count_descriptors()
    {
        namespace fs = std::filesystem;
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    }

    // A context numbers its sources and can be asked for each, but does not tell how many there
    // are.
    static long count_sources()
    {
        guint newest = g_idle_add([](gpointer) -> gboolean { return G_SOURCE_REMOVE; }, nullptr);
        g_source_remove(newest);
        long count = 0;
        for (guint id = 1; id < newest; ++id)
            if (g_main_context_find_source_by_id(nullptr, id))
                ++count;
        return count;
    }

    // What has been freed but is kept for later does not count.
    static long measure_resident_kib()
    {
        malloc_trim(0);
        long total = 0, resident = 0;
        std::ifstream("/proc/self/statm") >> total >> resident;
        return resident * (sysconf(_SC_PAGESIZE) / 1024);
    }
};

} // namespace qandor::test
