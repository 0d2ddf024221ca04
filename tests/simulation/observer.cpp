// SPDX-License-Identifier: LGPL-2.1-or-later

#include "simulation/observer.hpp"

namespace qandor::simulation {

DeclaredTopic &Observer::declare(bool is_property, const std::string &b)
{
    std::string who = "d" + std::to_string(topics_.size() + 1);
    auto made = std::make_unique<DeclaredTopic>();
    made->values = {who, b, std::nullopt};
    made->is_property = is_property;
    return *topics_.emplace(who, std::move(made)).first->second;
}

SubscribedPart &Observer::subscribe(Wanted wanted)
{
    return parts_.emplace_back(*this, static_cast<guint>(parts_.size() + 1), std::move(wanted));
}

DeclaredTopic &Observer::find(const std::string &who) const
{
    auto found = topics_.find(who);
    if (found == topics_.end())
        throw BrokenInvariant{"a declaration is unknown: " + who};
    return *found->second;
}

std::vector<std::string> Observer::names() const
{
    std::vector<std::string> names;
    for (const auto &[who, topic] : topics_)
        names.push_back(who);
    return names;
}

void Observer::accepted(DeclaredTopic &topic, const Values &values)
{
    ++topic.last_sent;
    topic.last_values = values;
    if (!is_calm_ || !topic.is_settled || topic.is_property)
        return;
    for (SubscribedPart &part : parts_)
        if (part.lives && part.is_settled && part.wanted.holds_for(values))
            part.expected_[values.who].insert(topic.last_sent);
}

void Observer::fail()
{
    is_calm_ = false;
    for (SubscribedPart &part : parts_)
        part.expected_.clear();
}

void Observer::forget_expected(const DeclaredTopic &topic)
{
    for (SubscribedPart &part : parts_)
        part.expected_.erase(topic.values.who);
}

void SubscribedPart::require(bool condition, const DeclaredTopic &topic,
                             const std::string &what) const
{
    if (!condition)
        throw BrokenInvariant{"subscription " + std::to_string(number_) + ", declaration " +
                              topic.values.who + ": " + what};
}

void Observer::check_announced(SubscribedPart &part) const
{
    for (const auto &[who, topic] : topics_) {
        bool should_know = topic->lives && part.wanted.holds_for(topic->values);
        int known = part.announced_[who];
        if (is_calm_)
            part.require(known == (should_know ? 1 : 0), *topic,
                         "announced " + std::to_string(known) + " times at rest");
        else
            part.require(known > 0 || !should_know, *topic, "not announced at rest");
        // From here on it counts as known once, whatever happened before.
        part.announced_[who] = should_know ? 1 : 0;
    }
}

void Observer::check_states(const SubscribedPart &part) const
{
    for (const auto &[who, topic] : topics_) {
        if (!topic->is_property || !topic->lives || topic->last_sent == 0 ||
            !part.wanted.holds_for(topic->last_values))
            continue;
        auto received = part.received_.find(who);
        part.require(
            received != part.received_.end() && received->second.contains(topic->last_sent), *topic,
            "the last state " + std::to_string(topic->last_sent) + " has not arrived at rest");
    }
}

void Observer::check_arrived(const std::set<const SubscribedPart *> &excused)
{
    for (SubscribedPart &part : parts_) {
        if (!part.lives || excused.contains(&part))
            continue;
        for (const auto &[who, numbers] : part.expected_)
            for (guint number : numbers)
                part.require(part.received_[who].contains(number), find(who),
                             "event " + std::to_string(number) + " has not arrived");
        part.expected_.clear();
    }
}

void Observer::settled()
{
    check_arrived({});
    for (SubscribedPart &part : parts_) {
        if (!part.lives)
            continue;
        check_announced(part);
        check_states(part);
        part.is_settled = true;
    }
    for (const auto &[who, topic] : topics_)
        topic->is_settled = topic->lives;
    is_calm_ = true;
}

void SubscribedPart::take(DeclaredTopic &topic, guint number, const Values &values)
{
    ++observer_.deliveries;
    require(lives, topic, "an event came after the subscription had ended");
    require(wanted.holds_for(values), topic, "an event came that does not match");
    std::set<guint> &received = received_[topic.values.who];
    guint latest = received.empty() ? 0 : *received.rbegin();
    std::string came = "event " + std::to_string(number);
    if (topic.is_property)
        require(number >= latest, topic, came + " came after " + std::to_string(latest));
    else
        require(number > latest, topic,
                came + (received.contains(number) ? " came twice"
                                                  : " came after " + std::to_string(latest)));
    received.insert(number);
}

void SubscribedPart::receive_event(event *event, gpointer data)
{
    auto &part = *static_cast<SubscribedPart *>(data);
    Values values{event_get_value(event, "who"), event_get_value(event, "b"),
                  std::string(event_get_value(event, "a"))};
    auto number = static_cast<guint>(std::stoul(event_get_value(event, "n")));
    event_free(event);
    part.take(part.observer_.find(values.who), number, values);
}

void SubscribedPart::receive_notification(notification *notification, gpointer data)
{
    auto &part = *static_cast<SubscribedPart *>(data);
    DeclaredTopic &topic = part.observer_.find(notification_get_value(notification, "who"));
    bool is_removed = notification_is_type_deleted(notification);
    notification_free(notification);
    int &announced = part.announced_[topic.values.who];
    announced += is_removed ? -1 : 1;
    if (part.observer_.is_calm())
        part.require(announced == 0 || announced == 1, topic,
                     is_removed ? "removed without having been added" : "added twice");
}

} // namespace qandor::simulation
