// SPDX-License-Identifier: LGPL-2.1-or-later

#include "simulation/scenario.hpp"

#include "simulation/handlenames.hpp"

#include <cstdio>
#include <filesystem>

namespace qandor::simulation {
namespace {

constexpr std::size_t most_handles = 3; // of a kind
constexpr std::size_t most_of_handle = 4;
constexpr std::size_t rounds = 3; // between two of which all comes to rest
constexpr std::size_t acts_of_round = 40;

std::size_t open_descriptors()
{
    std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

} // namespace

Scenario::Scenario(std::uint64_t seed, const Faults &faults, bool traces)
    : world_(seed), faults_(faults), traces_(traces)
{
}

void Scenario::trace(const std::string &what) const
{
    if (traces_)
        std::fprintf(stderr, "%10.6f  %s\n", static_cast<double>(virtual_clock::now()) / 1e6 - 1000,
                     what.c_str());
}

Scenario::Producer *Scenario::any_producer()
{
    return producers_.empty() ? nullptr : &world_.random.pick(producers_);
}

Scenario::Consumer *Scenario::any_consumer()
{
    return consumers_.empty() ? nullptr : &world_.random.pick(consumers_);
}

void Scenario::add_producer()
{
    if (producers_.size() == most_handles)
        return;
    constexpr uid_t users[] = {0, 1000, 1001};
    world_.user = users[world_.random.below(std::size(users))];
    trace("new producer");
    producers_.push_back({event_producer_new("producer"), {}});
}

void Scenario::add_consumer()
{
    if (consumers_.size() == most_handles)
        return;
    trace("new consumer");
    consumers_.push_back({event_consumer_new("consumer"), {}});
}

void Scenario::free_producer()
{
    Producer *gone = any_producer();
    if (!gone)
        return;
    trace("free a producer");
    for (auto &[id, topic] : gone->declared)
        topic->lives = false;
    event_producer_free(gone->handle);
    producers_.remove_if([gone](const Producer &one) { return &one == gone; });
}

void Scenario::free_consumer()
{
    Consumer *gone = any_consumer();
    if (!gone)
        return;
    trace("free a consumer");
    for (auto &[token, part] : gone->subscribed)
        part->lives = false;
    event_consumer_free(gone->handle);
    consumers_.remove_if([gone](const Consumer &one) { return &one == gone; });
}

void Scenario::declare()
{
    Producer *producer = any_producer();
    if (!producer || producer->declared.size() == most_of_handle)
        return;
    DeclaredTopic &topic =
        observer_.declare(world_.random.one_in(3), std::to_string(world_.random.below(3)));
    test::Owned<event_declaration> declaration(event_declaration_new(TRUE));
    event_declaration_add_key_value(declaration.get(), "who", topic.values.who.c_str(),
                                    VALUE_TYPE_STRING);
    event_declaration_add_key_value(declaration.get(), "b", topic.values.b.c_str(),
                                    VALUE_TYPE_STRING);
    event_declaration_add_key(declaration.get(), "a", VALUE_TYPE_STRING);
    event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_STRING);
    if (topic.is_property)
        event_declaration_set_property(declaration.get(), "n", nullptr, nullptr);
    guint32 id = event_producer_declare(producer->handle, declaration.get());
    trace("declare " + topic.values.who + (topic.is_property ? " (property)" : "") +
          " b=" + topic.values.b);
    producer->declared.emplace(id, &topic);
}

void Scenario::undeclare()
{
    Producer *producer = any_producer();
    if (!producer || producer->declared.empty())
        return;
    auto &[id, topic] = world_.random.pick(producer->declared);
    trace("undeclare " + topic->values.who);
    topic->lives = false;
    event_producer_undeclare(producer->handle, id);
    observer_.forget_expected(*topic); // an event that is still queued finds no declaration
    producer->declared.erase(id);
}

void Scenario::subscribe()
{
    Consumer *consumer = any_consumer();
    if (!consumer || consumer->subscribed.size() == most_of_handle)
        return;
    SubscribedPart &part = observer_.subscribe(Wanted::choose(world_.random, observer_.names()));
    guint32 token = event_consumer_subscribe_full(consumer->handle, part.wanted.expression().get(),
                                                  SubscribedPart::receive_event,
                                                  SubscribedPart::receive_notification, &part);
    trace("subscribe, token " + std::to_string(token));
    consumer->subscribed.emplace(token, &part);
}

void Scenario::unsubscribe()
{
    Consumer *consumer = any_consumer();
    if (!consumer || consumer->subscribed.empty())
        return;
    auto &[token, part] = world_.random.pick(consumer->subscribed);
    trace("unsubscribe token " + std::to_string(token));
    part->lives = false;
    event_consumer_unsubscribe(consumer->handle, token, nullptr);
    consumer->subscribed.erase(token);
}

void Scenario::send()
{
    Producer *producer = any_producer();
    if (!producer || producer->declared.empty())
        return;
    auto &[id, topic] = world_.random.pick(producer->declared);
    send_event(*producer, id, *topic);
}

void Scenario::send_from_all()
{
    for (const Producer &producer : producers_)
        for (const auto &[id, topic] : producer.declared)
            send_event(producer, id, *topic);
}

void Scenario::send_event(const Producer &producer, guint32 id, DeclaredTopic &topic)
{
    Values values = topic.values;
    values.a = std::to_string(world_.random.below(3));
    std::string number = std::to_string(topic.last_sent + 1);
    test::Owned<event> event(event_producer_prepare_event(producer.handle, id));
    event_set_value(event.get(), "a", values.a->c_str());
    event_set_value(event.get(), "n", number.c_str());
    bool is_accepted = event_producer_send_event(producer.handle, event.get(), nullptr);
    trace("send " + values.who + " n=" + number + " a=" + *values.a +
          (is_accepted ? "" : ": refused"));
    if (is_accepted)
        observer_.accepted(topic, values);
}

void Scenario::refresh()
{
    Consumer *consumer = any_consumer();
    if (!consumer || consumer->subscribed.empty())
        return;
    event_consumer_refresh(consumer->handle, world_.random.pick(consumer->subscribed).first,
                           nullptr);
}

void Scenario::kill_switch()
{
    if (!faults_.switch_dies || !world_.random.one_in(3))
        return;
    observer_.fail();
    trace(world_.event_switch.runs() ? "kill the switch" : "start the switch");
    if (world_.event_switch.runs())
        world_.event_switch.kill();
    else
        world_.event_switch.start();
}

void Scenario::cut_connection()
{
    if (!faults_.connections_break || !world_.random.one_in(3))
        return;
    std::vector<std::string> names = world_.bus.names();
    if (names.empty())
        return;
    const std::string &name = world_.random.pick(names);
    if (name == world_.event_switch.name())
        return;
    observer_.fail();
    trace("cut " + name);
    world_.bus.cut(name);
}

// Not for longer than what waits for an answer bears.
void Scenario::stall_connection()
{
    if (!faults_.connections_stall)
        return;
    std::vector<std::string> names = world_.bus.names();
    if (names.empty())
        return;
    const std::string &name = world_.random.pick(names);
    Microseconds time = world_.random.below(1'900'000);
    trace("stall " + name + " for " + std::to_string(time / 1000) + " ms");
    world_.bus.stall(name, virtual_clock::now() + time);
}

// A consumer does not come to its main context for a day. The others must not notice.
void Scenario::hang_consumer()
{
    Consumer *hung = any_consumer();
    if (!faults_.consumers_hang || !hung || !observer_.is_calm())
        return;
    come_to_rest();
    trace("hang " + bus_name_of(hung->handle) + " for a day");
    constexpr Microseconds hour = Microseconds(3600) * G_USEC_PER_SEC;
    world_.bus.stall(bus_name_of(hung->handle), virtual_clock::now() + 24 * hour);
    std::set<const SubscribedPart *> excused;
    for (const auto &[token, part] : hung->subscribed)
        excused.insert(part);
    constexpr int events = 24 * 5;
    for (int i = 0; i < events; ++i) {
        send_from_all();
        world_.pass(hour / 5);
        observer_.check_arrived(excused);
    }
}

// Everybody's connection ends, the switch with its own.
void Scenario::restart_bus()
{
    if (!faults_.bus_restarts || !world_.random.one_in(4))
        return;
    observer_.fail();
    Microseconds time = world_.random.below(3'000'000);
    trace("restart the bus, which takes " + std::to_string(time / 1000) + " ms");
    world_.event_switch.kill();
    world_.bus.cut_all();
    world_.bus_is_down = true;
    world_.pass(time);
    world_.bus_is_down = false;
    if (world_.random.one_in(2))
        world_.event_switch.start();
}

// Somebody sends what only the bus may send.
void Scenario::forge_signal()
{
    std::vector<std::string> names = world_.bus.names();
    if (!faults_.strangers_forge || names.empty())
        return;
    constexpr const char *event_switch = "com.vemo.Event.Switch";
    const std::string &victim = world_.random.pick(names);
    std::string other = world_.random.pick(names);
    const std::vector<std::string> bodies[] = {
        {other, other, ""},         {event_switch, ":1.0", ""},
        {event_switch, "", ":1.0"}, {event_switch, ":1.0", ":1.5"},
        {event_switch, "", ""},     {event_switch},
    };
    trace("forge a signal to " + victim);
    world_.bus.forge_owner_change(victim, bodies[world_.random.below(std::size(bodies))]);
}

// Somebody calls the switch so much that the bus drops what else is for it.
void Scenario::flood_switch()
{
    if (!faults_.strangers_flood || !world_.event_switch.runs() || !world_.random.one_in(2))
        return;
    observer_.fail();
    Microseconds time = world_.random.below(20'000'000);
    trace("flood the switch for " + std::to_string(time / 1000) + " ms");
    world_.bus.flood(world_.event_switch.name(), virtual_clock::now() + time);
    is_flooded_ = true;
}

// What the flood has left arrives; then the switch has time to find out who has left.
void Scenario::end_flood()
{
    if (!std::exchange(is_flooded_, false))
        return;
    world_.bus.forge_owner_change(world_.event_switch.name(), {"the", "last", "one"});
    world_.pass(RollCall::pause_usec + G_USEC_PER_SEC);
}

void Scenario::let_time_pass()
{
    constexpr Microseconds lengths[] = {1'000, 30'000, 200'000, 1'500'000};
    Microseconds time = lengths[world_.random.below(std::size(lengths))];
    trace("let " + std::to_string(time / 1000) + " ms pass");
    world_.pass(time);
}

void Scenario::act()
{
    struct Act {
        void (Scenario::*what)();
        std::size_t weight;
    };
    static constexpr Act acts[] = {
        {&Scenario::add_producer, 2},
        {&Scenario::add_consumer, 2},
        {&Scenario::free_producer, 1},
        {&Scenario::free_consumer, 1},
        {&Scenario::declare, 4},
        {&Scenario::undeclare, 1},
        {&Scenario::subscribe, 4},
        {&Scenario::unsubscribe, 1},
        {&Scenario::send, 12},
        {&Scenario::refresh, 1},
        {&Scenario::kill_switch, 2},
        {&Scenario::cut_connection, 1},
        {&Scenario::stall_connection, 2},
        {&Scenario::let_time_pass, 2},
        {&Scenario::hang_consumer, 1},
        {&Scenario::restart_bus, 1},
        {&Scenario::forge_signal, 1},
        {&Scenario::flood_switch, 1},
    };
    std::size_t weights = 0;
    for (const Act &one : acts)
        weights += one.weight;
    std::size_t chosen = world_.random.below(weights);
    const Act *act = acts;
    while (chosen >= act->weight)
        chosen -= act++->weight;
    (this->*act->what)();
}

void Scenario::come_to_rest()
{
    trace("come to rest");
    world_.bus.thaw_all();
    if (!world_.event_switch.runs())
        world_.event_switch.start();
    end_flood();
    world_.settle();
    observer_.settled();

    std::size_t declarations = 0, subscriptions = 0;
    for (const Producer &producer : producers_)
        declarations += producer.declared.size();
    for (const Consumer &consumer : consumers_)
        subscriptions += consumer.subscribed.size();
    Counts counts = world_.event_switch.counts();
    if (counts.declarations != declarations || counts.subscriptions != subscriptions)
        throw BrokenInvariant{"the switch has " + std::to_string(counts.declarations) +
                              " declarations of " + std::to_string(declarations) + " and " +
                              std::to_string(counts.subscriptions) + " subscriptions of " +
                              std::to_string(subscriptions) + " at rest"};
}

void Scenario::end()
{
    while (!producers_.empty())
        free_producer();
    while (!consumers_.empty())
        free_consumer();
    come_to_rest();
    world_.event_switch.kill();
    world_.settle();
}

void Scenario::run()
{
    std::size_t descriptors = open_descriptors();
    world_.event_switch.start();
    for (std::size_t round = 0; round < rounds; ++round) {
        for (std::size_t acts = acts_of_round; acts > 0; --acts) {
            act();
            world_.steps(world_.random.below(12));
        }
        come_to_rest();
    }
    end();
    std::size_t left = open_descriptors() - descriptors;
    if (left != 0)
        throw BrokenInvariant{std::to_string(left) + " descriptors are left open"};
}

} // namespace qandor::simulation
