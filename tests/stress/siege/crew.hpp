// SPDX-License-Identifier: LGPL-2.1-or-later

// Producers and consumers in processes of their own that work, rest and count events together.
#pragma once

#include "support/childprocess.hpp"

#include <iterator>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace qandor::test {

// What the producers keep declared, and the consumers subscribed.
constexpr const char *crew_names[] = {"ada", "bob", "cid"};
constexpr int topics_of_producer = 4;

inline std::string topic_of(const std::string &producer, int number)
{
    return "Kept." + producer + "." + std::to_string(number);
}
inline std::set<std::string> crew_topics()
{
    std::set<std::string> topics;
    for (const char *name : crew_names)
        for (int i = 0; i < topics_of_producer; ++i)
            topics.insert(topic_of(name, i));
    return topics;
}
// Of each consumer: topics, or all of them where there are none.
inline std::vector<std::vector<std::string>> subscribed_topics()
{
    return {
        {}, {topic_of(crew_names[0], 0)}, {topic_of(crew_names[1], 1), topic_of(crew_names[2], 2)}};
}

class Crew {
public:
    static constexpr std::size_t producers = std::size(crew_names);
    static constexpr std::size_t consumers = std::size(crew_names);
    static std::size_t subscriptions() { return consumers * subscribed_topics().size(); }

    // Starts all processes; they rest. Everything throws when a process does not do its part.
    Crew();

    void work() { tell_all(SIGHUP, "working"); }
    void rest() { tell_all(SIGUSR1, "resting"); }
    // Lets the producers send two more events on each topic, and says what is wrong with what the
    // consumers got: nothing, when every event has come once for every subscription that it
    // matches.
    std::string send_and_count();

    // One of the processes, by chance.
    ChildProcess &pick(unsigned dice) { return processes_[dice % processes_.size()]; }

private:
    using Events = std::map<std::tuple<int, std::string, int>, int>; // subscription, topic, number

    void tell_all(int signal, const char *answer);
    void expect(ChildProcess &process, const char *line);
    Events expected_events() const;
    std::string count_events(ChildProcess &consumer) const;

    std::vector<ChildProcess> processes_; // first the producers
    int sent_ = 0;
};

} // namespace qandor::test
