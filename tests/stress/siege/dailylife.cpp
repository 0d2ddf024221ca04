// SPDX-License-Identifier: LGPL-2.1-or-later

#include "stress/siege/dailylife.hpp"

#include "bus/switch/rawpeer.hpp"
#include "bus/switch/rawrecords.hpp"

#include <algorithm>
#include <unistd.h>

namespace qandor::test {
namespace {

constexpr guint64 call_timeout = 30 * G_USEC_PER_SEC;
constexpr unsigned pause_microseconds = 2000; // without it the bystander would be a flood

class Day {
public:
    Day(OtherUser::Line &line, SharedCount &calls) : line_(line), calls_(calls)
    {
        sd_bus_set_method_call_timeout(peer_.bus(), call_timeout);
        peer_.remembers = false;
    }

    void live(bool asks_for_all)
    {
        line_.say("lives");
        Octets declaration{declaration_bytes("Daily", 1)}, expression{expression_bytes("Daily")};
        while (!line_.is_over()) {
            call_the_bus();
            call_as_newcomer();
            call(peer_, "Producer.Declare", "/p", "daily", declaration);
            call(peer_, "Consumer.Subscribe", "/c", "daily", guint32(1), expression);
            if (asks_for_all)
                call(peer_, "Query.GetAllDeclarations");
            call(peer_, "Consumer.Disconnect", "/c");
            call(peer_, "Producer.Disconnect", "/p");
            read_what_was_told();
        }
    }
    std::string summary()
    {
        std::sort(waits_.begin(), waits_.end());
        std::sort(waits_for_bus_.begin(), waits_for_bus_.end());
        char text[160];
        std::snprintf(text, sizeof text, "%zu %u %.3f %.3f %.3f %.3f", waits_.size(), refused_,
                      at(waits_, 0.5), at(waits_, 0.99), at(waits_, 1), at(waits_for_bus_, 0.99));
        return text;
    }

private:
    static double at(const std::vector<double> &waits, double share)
    {
        auto index = static_cast<std::size_t>(share * static_cast<double>(waits.size()));
        return waits.empty() ? 0 : waits[std::min(index, waits.size() - 1)];
    }
    // What the bus alone takes for an answer.
    void call_the_bus()
    {
        gint64 begin = g_get_monotonic_time();
        sd_bus_call_method(peer_.bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "GetId", nullptr, nullptr, "");
        waits_for_bus_.push_back(static_cast<double>(g_get_monotonic_time() - begin) / 1000);
    }
    void call_as_newcomer()
    {
        RawPeer newcomer;
        sd_bus_set_method_call_timeout(newcomer.bus(), call_timeout);
        call(newcomer, "Consumer.Disconnect", "/nobody");
    }
    void read_what_was_told()
    {
        while (sd_bus_process(peer_.bus(), nullptr) > 0) {
        }
    }
    template <class... Arguments>
    void call(RawPeer &peer, const std::string &method, const Arguments &...arguments)
    {
        if (line_.is_over())
            return;
        gint64 begin = g_get_monotonic_time();
        Answer answer = peer.call(method, arguments...);
        waits_.push_back(static_cast<double>(g_get_monotonic_time() - begin) / 1000);
        if (!answer.error.empty())
            ++refused_;
        calls_.add();
        usleep(pause_microseconds);
    }

    OtherUser::Line &line_;
    SharedCount &calls_;
    RawPeer peer_;
    std::vector<double> waits_; // in milliseconds
    std::vector<double> waits_for_bus_;
    unsigned refused_ = 0;
};

} // namespace

DailyLife::DailyLife(const PrivateBus &bus, bool asks_for_all)
    : user_(bus, bystander, [=, this](OtherUser::Line &line) {
          Day day(line, calls_);
          day.live(asks_for_all);
          line.say("waited " + day.summary());
      })
{
    user_.says("lives");
}

bool DailyLife::goes_on(guint64 calls, double seconds) const
{
    return calls_.reaches(calls_.get() + calls, seconds);
}

Waits DailyLife::end()
{
    Waits waits;
    user_.ask_to_end();
    std::optional<std::string> told = user_.read_after("waited ", 90);
    if (!told ||
        std::sscanf(told->c_str(), "%u %u %lf %lf %lf %lf", &waits.calls, &waits.refused,
                    &waits.p50_ms, &waits.p99_ms, &waits.longest_ms, &waits.bus_p99_ms) != 6)
        waits.refused = ~0U;
    user_.end();
    return waits;
}

} // namespace qandor::test
