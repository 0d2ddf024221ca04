// SPDX-License-Identifier: LGPL-2.1-or-later

#include "day.hpp"

#include "seam.hpp"
#include "simulation/handlenames.hpp"
#include "support/records.hpp"

#include <qandor/query.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <unistd.h>
#include <utility>

namespace qandor::faults {
namespace {

using simulation::Microseconds;

constexpr Microseconds second = G_USEC_PER_SEC;
// Longer than any pause after which something is tried again.
constexpr Microseconds rest_usec = 15 * second;
constexpr Microseconds short_rest_usec = 3 * second; // while nothing has failed
constexpr Microseconds longest_answer = 70 * second;

std::size_t open_descriptors()
{
    std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

test::Owned<event_declaration> declaration_of(const std::string &who, bool is_property)
{
    test::Owned<event_declaration> made(event_declaration_new(TRUE));
    event_declaration_add_key_value(made.get(), "who", who.c_str(), VALUE_TYPE_STRING);
    event_declaration_add_key(made.get(), "n", VALUE_TYPE_STRING);
    if (is_property)
        event_declaration_set_property(made.get(), "n", nullptr, nullptr);
    return made;
}

test::Owned<subscribe_expression> everything()
{
    test::Owned<subscribe_expression> made(subscribe_expression_new());
    subscribe_expression_add_key(made.get(), "who");
    return made;
}

void count_answer(const gchar *, gpointer answers, GError *error)
{
    g_clear_error(&error);
    ++*static_cast<int *>(answers);
}

void free_declarations(GList *declarations)
{
    g_list_free_full(declarations, [](gpointer declaration) {
        event_declaration_free(static_cast<event_declaration *>(declaration));
    });
}

} // namespace

namespace {

// The log goes to standard error, which is a file.
std::string log_from(off_t place)
{
    Aside aside;
    std::string text(static_cast<std::size_t>(lseek(STDERR_FILENO, 0, SEEK_END) - place), '\0');
    ssize_t size = pread(STDERR_FILENO, text.data(), text.size(), place);
    text.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return text;
}

} // namespace

bool Day::has_told(const char *text) const
{
    return log_from(log_begin_).find(text) != std::string::npos;
}

// The producer's last events arrive when it has gone, and its user cannot be asked for any more.
bool Day::has_told() const
{
    std::istringstream lines(log_from(log_begin_));
    for (std::string line; std::getline(lines, line);)
        if (!line.empty() && line.find("UID of the connection") == std::string::npos)
            return true;
    return false;
}

void Day::trace(const std::string &what) const
{
    if (traces)
        std::printf("%10.6f  %s%s\n", static_cast<double>(simulation::virtual_clock::now()) / 1e6,
                    what.c_str(), has_struck() ? "" : "  (before the fault)");
}

// As a service manager does it.
void Day::start_switch()
{
    constexpr int most_attempts = 3;
    for (int attempt = 1;; ++attempt) {
        try {
            world_.event_switch.start();
            return;
        } catch (const std::runtime_error &error) {
            trace(error.what());
            require(attempt < most_attempts, "the switch does not start any more");
            world_.event_switch.kill();
            is_calm_ = false;
            world_.pass(second / 10);
        }
    }
}

void Day::keep_switch()
{
    if (!world_.event_switch.has_failed())
        return;
    trace("the switch has exited and is started again");
    is_calm_ = false;
    world_.event_switch.kill();
    world_.pass(second / 10);
    start_switch();
}

void Day::pass(Microseconds time)
{
    constexpr Microseconds slice = second / 2;
    for (Microseconds passed = 0; passed < time; passed += slice) {
        world_.pass(slice);
        keep_switch();
        asker_->step();
    }
}

void Day::rest()
{
    pass(has_struck() ? rest_usec : short_rest_usec);
    while (world_.step()) {
    }
}

Topic &Day::declare(const std::string &who, bool is_property)
{
    Topic &topic = topics_.emplace_back(Topic{who, is_property});
    topic.id = event_producer_declare(producer_, declaration_of(who, is_property).get());
    return topic;
}

void Day::undeclare(Topic &topic)
{
    topic.lives = false;
    event_producer_undeclare(producer_, topic.id);
}

Part &Day::subscribe()
{
    Part &part = parts_.emplace_back();
    part.is_notified = true;
    part.token = event_consumer_subscribe_full(consumer_, everything().get(), Part::receive_event,
                                               Part::receive_notification, &part);
    return part;
}

Part &Day::subscribe_secure()
{
    Part &part = parts_.emplace_back();
    part.token = event_consumer_subscribe_secure(consumer_, everything().get(),
                                                 Part::receive_secure_event, &part);
    return part;
}

void Day::unsubscribe(Part &part)
{
    part.lives = false;
    event_consumer_unsubscribe(consumer_, part.token, nullptr);
}

bool Day::send(Topic &topic)
{
    std::string number = std::to_string(topic.sent + 1);
    test::Owned<event> event(event_producer_prepare_event(producer_, topic.id));
    require(event != nullptr, "there is no event to fill in of " + topic.who);
    event_set_value(event.get(), "n", number.c_str());
    if (!event_producer_send_event(producer_, event.get(), nullptr))
        return false;
    expected_.emplace_back(&topic, ++topic.sent);
    return true;
}

bool Day::has_arrived(const Topic &topic, guint number) const
{
    return std::all_of(parts_.begin(), parts_.end(), [&](const Part &part) {
        return !part.lives || part.has(topic.who, number);
    });
}

void Day::check_arrived()
{
    for (const auto &[topic, number] : expected_)
        require(has_arrived(*topic, number) || has_told(), "event " + std::to_string(number) +
                                                               " of " + topic->who +
                                                               " is lost, and nothing tells of it");
    expected_.clear();
}

// A subscription knows each declaration once. After a loss it may have been told more often.
void Day::check_announced()
{
    bool is_exact = is_calm_ && !has_told();
    for (Part &part : parts_)
        for (const Topic &topic : topics_) {
            if (!part.lives || !part.is_notified)
                continue;
            int known = part.known(topic.who);
            int wanted = topic.lives ? 1 : 0;
            require(is_exact ? known == wanted : known >= wanted,
                    topic.who + " is known " + std::to_string(known) + " times");
            part.announced[topic.who] = wanted;
        }
}

void Day::check_books() const
{
    auto lives = [](const auto &one) { return one.lives; };
    auto declarations = std::count_if(topics_.begin(), topics_.end(), lives);
    auto subscriptions = std::count_if(parts_.begin(), parts_.end(), lives);
    Counts counts = world_.event_switch.counts();
    require(counts.declarations == static_cast<std::size_t>(declarations) &&
                counts.subscriptions == static_cast<std::size_t>(subscriptions),
            "the switch has " + std::to_string(counts.declarations) + " declarations and " +
                std::to_string(counts.subscriptions) + " subscriptions at rest");
}

// A loss that is told is forgiven, but not a second one.
void Day::check_fresh_events()
{
    auto has_arrived = [this] {
        return std::all_of(topics_.begin(), topics_.end(), [this](const Topic &topic) {
            return !topic.lives || this->has_arrived(topic, topic.sent);
        });
    };
    constexpr int most_attempts = 2;
    for (int attempt = 1; attempt <= most_attempts; ++attempt) {
        bool are_accepted = true;
        for (Topic &topic : topics_)
            are_accepted = (!topic.lives || send(topic)) && are_accepted;
        rest();
        if (are_accepted && has_arrived())
            return;
        require(has_told(), "a new event does not arrive, and nothing tells of it");
    }
    throw Broken("no new event arrives any more");
}

void Day::check_all()
{
    check_announced();
    check_books();
    check_fresh_events();
    check_announced();
}

// What the switch has refused or dropped is final, and told: it is declared and subscribed again
// when the switch comes anew.
void Day::examine()
{
    rest();
    check_arrived();
    try {
        check_all();
    } catch (const Broken &broken) {
        if (!has_told() || std::exchange(needed_restart, true))
            throw;
        trace(std::string(broken.what()) + ": the switch is started anew");
        is_calm_ = false;
        world_.event_switch.kill();
        start_switch();
        rest();
        check_all();
    }
    expected_.clear();
    is_calm_ = true;
}

void Day::begin()
{
    trace("begin");
    start_switch();
    producer_ = event_producer_new("producer");
    consumer_ = event_consumer_new("consumer");
    declare("plain", false);
    declare("state", true);
    subscribe();
    subscribe_secure();
    examine();
}

void Day::send_and_refresh()
{
    trace("send and refresh");
    constexpr int events = 3;
    for (int i = 0; i < events; ++i)
        for (Topic &topic : topics_)
            send(topic);
    event_consumer_refresh(consumer_, parts_.front().token, nullptr);
    examine();
}

void Day::ask_and_add_types()
{
    trace("ask for a state");
    asker_->ask("state");
    pass(longest_answer);
    require(asker_->is_answered(), "a question is not answered");

    trace("add and remove a type");
    int answers = 0;
    event_producer_add_declaration(producer_, "type", declaration_of("type", false).get(),
                                   count_answer, &answers);
    pass(longest_answer);
    Query *query = query_new();
    query_init_dbus(query);
    free_declarations(query_send_get_declaration_types(query));
    free_declarations(query_send_get_declarations(query));
    g_object_unref(query);
    event_producer_remove_declaration(producer_, "type", count_answer, &answers);
    pass(longest_answer);
    require(answers == 2 || has_told(), "a change of types is not answered");
    for (const auto &file : std::filesystem::directory_iterator(world_.event_switch.added_types()))
        require(file.path().filename() == "type.xml" && has_struck(),
                "a file is left: " + file.path().string());
    examine();
}

void Day::change_mind()
{
    trace("declare and subscribe anew");
    undeclare(topics_.front());
    unsubscribe(parts_.front());
    declare("second", false);
    subscribe();
    examine();
}

void Day::restart_switch()
{
    trace("the switch is killed and started again");
    is_calm_ = false;
    world_.event_switch.kill();
    pass(second);
    start_switch();
    examine();
}

void Day::lose_connections()
{
    trace("the connections of the handles are lost");
    is_calm_ = false;
    for (const std::string &name : world_.bus.names())
        if (name != world_.event_switch.name() && name != asker_->name())
            world_.bus.cut(name);
    pass(second);
    // What the handles have told of that says nothing of a fault.
    if (!has_struck())
        log_begin_ = lseek(STDERR_FILENO, 0, SEEK_END);
    examine();
}

void Day::end()
{
    trace("end");
    for (Topic &topic : topics_)
        if (topic.lives)
            send(topic);
    event_producer_free(producer_);
    rest();
    check_arrived();
    event_consumer_free(consumer_);
    rest();
    Counts counts = world_.event_switch.counts();
    require(counts.producers + counts.declarations + counts.consumers + counts.subscriptions == 0,
            "the books are not empty at the end");
    asker_.reset();
    world_.event_switch.kill();
    world_.settle();
}

void Day::run()
{
    std::size_t before = open_descriptors();
    asker_.emplace();
    // What comes after the fault is the same as ever, once all has been found in order.
    using Act = void (Day::*)();
    constexpr Act acts[] = {&Day::begin,       &Day::send_and_refresh, &Day::ask_and_add_types,
                            &Day::change_mind, &Day::restart_switch,   &Day::lose_connections};
    for (Act act : acts)
        if (!has_struck())
            (this->*act)();
    end();
    require(open_descriptors() == before, "descriptors are left open");
}

} // namespace qandor::faults
