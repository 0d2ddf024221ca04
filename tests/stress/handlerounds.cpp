// SPDX-License-Identifier: LGPL-2.1-or-later

// Makes, uses and frees every kind of handle again and again, and looks for what stays behind.
//
//   handlerounds [ROUNDS]      200 unless told
//
// It fails when there are more descriptors or sources after the rounds than before, or when the
// resident memory has grown by more than a fixed bound, however many rounds there were.

#include "stress/footprint.hpp"
#include "stress/handleuse.hpp"
#include "support/installedtypes.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>

using namespace qandor::test;

namespace {

// The first rounds fill caches.
constexpr int warm_up = 50;
constexpr long memory_bound_kib = 128;

// What handles without a bus complain about is expected, everything else is not.
void log_unexpected(const gchar *domain, GLogLevelFlags level, const gchar *message, gpointer)
{
    if (!std::strstr(message, "assertion 'bus != NULL' failed"))
        g_log_default_handler(domain, level, message, nullptr);
}

void run(int rounds, const std::string &address)
{
    for (int i = 0; i < rounds; ++i) {
        use_plain_handles();
        use_async_handles();
        use_query();
        use_handles_without_bus(address);
    }
}

bool has_grown(const char *what, long before, long after, long bound)
{
    std::printf("%s: %ld before, %ld after, at most %ld more\n", what, before, after, bound);
    return after - before > bound;
}

bool leaves_nothing_behind(int rounds)
{
    PrivateBus bus;
    SwitchProcess event_switch;
    InstalledTypes types(event_switch.read_only_types(), event_switch.writable_types());
    types.ship("installed", "<declare><expression><keyvalue key=\"topic0\" value=\"State\"/>"
                            "<keyvalue key=\"state\" value-wildcard=\"true\">"
                            "<tag tag=\"property-state\"/></keyvalue></expression></declare>");
    ChildProcess peer({QANDOR_PEER, "property", "Peer", "on"});
    if (!peer.wait_for("ready"))
        throw std::runtime_error("the peer does not come");

    run(warm_up, bus.address());
    Footprint before = Footprint::measure();
    run(rounds, bus.address());
    Footprint after = Footprint::measure();
    std::printf("%d rounds after %d\n", rounds, warm_up);
    bool grown = has_grown("descriptors", before.descriptors, after.descriptors, 0);
    grown |= has_grown("sources", before.sources, after.sources, 0);
    bool fatter =
        has_grown("resident KiB", before.resident_kib, after.resident_kib, memory_bound_kib);
    return !grown && !(fatter && memory_tells());
}

} // namespace

int main(int count, char **arguments)
{
    int rounds = count > 1 ? std::atoi(arguments[1]) : 200;
    if (rounds < 1) {
        std::fprintf(stderr, "usage: handlerounds [ROUNDS]\n");
        return 2;
    }
    g_log_set_default_handler(log_unexpected, nullptr);
    try {
        return leaves_nothing_behind(rounds) ? 0 : 1;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
