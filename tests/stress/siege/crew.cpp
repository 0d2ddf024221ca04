// SPDX-License-Identifier: LGPL-2.1-or-later

#include "stress/siege/crew.hpp"

#include <cstdio>
#include <stdexcept>

namespace qandor::test {
namespace {

constexpr double patience = 60;

std::string text_of(const std::tuple<int, std::string, int> &event)
{
    const auto &[subscription, topic, number] = event;
    return "event " + std::to_string(number) + " of " + topic + " for subscription " +
           std::to_string(subscription);
}

} // namespace

Crew::Crew()
{
    for (const char *role : {"producer", "consumer"})
        for (const char *name : crew_names)
            processes_.emplace_back(std::vector<std::string>{QANDOR_SIEGE_PEER, role, name});
    for (ChildProcess &process : processes_)
        expect(process, "resting");
}

void Crew::expect(ChildProcess &process, const char *expected)
{
    std::optional<std::string> line = process.read_line(patience);
    if (line != expected)
        throw std::runtime_error("a process says '" + line.value_or("nothing") + "', not '" +
                                 expected + "'");
}

void Crew::tell_all(int signal, const char *answer)
{
    for (ChildProcess &process : processes_)
        process.signal(signal);
    for (ChildProcess &process : processes_)
        expect(process, answer);
}

Crew::Events Crew::expected_events() const
{
    Events expected;
    int subscription = 0;
    for (const std::vector<std::string> &wanted : subscribed_topics()) {
        std::set<std::string> matching(wanted.begin(), wanted.end());
        for (const std::string &topic : matching.empty() ? crew_topics() : matching)
            for (int number : {sent_, sent_ + 1})
                ++expected[{subscription, topic, number}];
        ++subscription;
    }
    return expected;
}

// The second of the two events of a topic comes last, so that the first is counted to its end.
std::string Crew::count_events(ChildProcess &consumer) const
{
    Events expected = expected_events();
    std::size_t missing = expected.size();
    while (missing > 0) {
        std::optional<std::string> line = consumer.read_line(patience);
        char topic[64];
        int subscription, number;
        if (!line ||
            std::sscanf(line->c_str(), "event %d %63s %d", &subscription, topic, &number) != 3)
            return line ? "a consumer says " + *line
                        : std::to_string(missing) + " events miss, " +
                              text_of(expected.begin()->first);
        auto found = expected.find({subscription, topic, number});
        if (found == expected.end())
            return text_of({subscription, topic, number}) + " came twice, or late";
        expected.erase(found);
        --missing;
    }
    return "";
}

std::string Crew::send_and_count()
{
    for (std::size_t i = 0; i < producers; ++i)
        processes_[i].signal(SIGUSR2);
    for (std::size_t i = 0; i < producers; ++i)
        expect(processes_[i], "sent");
    std::string wrong;
    for (std::size_t i = producers; i < processes_.size() && wrong.empty(); ++i)
        wrong = count_events(processes_[i]);
    sent_ += 2;
    return wrong;
}

} // namespace qandor::test
