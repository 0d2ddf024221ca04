// SPDX-License-Identifier: LGPL-2.1-or-later

// What one user, and four, can make the switch take with records that keep all bounds and are
// refused only when the user's share is used up. The figures are those of a real switch.

#include "rawpeer.hpp"
#include "rawrecords.hpp"
#include "strangeruser.hpp"

#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <list>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SKIP_WITHOUT_MALLOC() GTEST_SKIP() << "a sanitizer gives the memory here"
#else
#define SKIP_WITHOUT_MALLOC() static_cast<void>(0)
#endif

using namespace qandor::test;

namespace {

constexpr const char *limits_exceeded = "org.freedesktop.DBus.Error.LimitsExceeded";

using Make = std::function<std::string(unsigned number)>;

long memory_of(pid_t pid, const char *what)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(what))
            return std::stol(line.substr(std::string(what).size() + 1)) / 1024;
    return -1;
}

// What a process has, and the most that it has ever had, in MiB.
long memory_now(pid_t pid)
{
    return memory_of(pid, "VmRSS");
}

long most_memory(pid_t pid)
{
    return memory_of(pid, "VmHWM");
}

std::string numbered(const char *text, unsigned number)
{
    return text + std::to_string(number);
}

// An expression whose conditions are added by a function, which gets the number of each.
template <class Add> std::string expression_of(unsigned count, Add add)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    for (unsigned i = 0; i < count; ++i)
        add(expression.get(), i);
    return take_bytes(subscribe_expression_serialize(expression.get()));
}

template <class Add> std::string declaration_of(unsigned number, unsigned count, Add add)
{
    Owned<event_declaration> declaration(event_declaration_new(TRUE));
    for (unsigned i = 0; i < count; ++i)
        add(declaration.get(), i);
    event_declaration_set_local_id(declaration.get(), number);
    return take_bytes(event_declaration_serialize(declaration.get()));
}

std::string alternatives(unsigned)
{
    return expression_of(1024, [](subscribe_expression *expression, unsigned i) {
        if (i > 0)
            subscribe_expression_or(expression);
        subscribe_expression_add_key_not_value(expression, "a", "");
    });
}

std::string values(unsigned)
{
    return expression_of(4096, [](subscribe_expression *expression, unsigned i) {
        subscribe_expression_add_key_not_value(expression, numbered("", i % 4).c_str(),
                                               numbered("", i).c_str());
    });
}

std::string keys(unsigned)
{
    return expression_of(4096, [](subscribe_expression *expression, unsigned i) {
        subscribe_expression_add_key_value(expression, numbered("", i).c_str(), "");
    });
}

std::string wildcards(unsigned)
{
    return expression_of(4096, [](subscribe_expression *expression, unsigned i) {
        subscribe_expression_add_value(expression, numbered("", i).c_str());
    });
}

// Each has the name of a key of its own, the longest there may be.
std::string names(unsigned number)
{
    return expression_of(512, [number](subscribe_expression *expression, unsigned i) {
        std::string name = numbered("", number * 512 + i);
        subscribe_expression_add_key_value(expression, (name + std::string(248, 'k')).c_str(), "");
    });
}

std::string texts(unsigned)
{
    return expression_of(4, [](subscribe_expression *expression, unsigned i) {
        subscribe_expression_add_key_value(expression, numbered("", i).c_str(),
                                           std::string(60000, 'v').c_str());
    });
}

std::string small_expressions(unsigned)
{
    return expression_bytes("x");
}

std::string tags(unsigned number)
{
    return declaration_of(number, 1024, [](event_declaration *declaration, unsigned i) {
        if (i == 0)
            event_declaration_add_key(declaration, "a", VALUE_TYPE_STRING);
        inspectable_add_tag(event_declaration_get_inspectable(declaration), "");
    });
}

std::string declared_keys(unsigned number)
{
    return declaration_of(number, 4096, [](event_declaration *declaration, unsigned i) {
        event_declaration_add_key(declaration, numbered("", i).c_str(), VALUE_TYPE_STRING);
    });
}

std::string small_declarations(unsigned number)
{
    return declaration_bytes("x", number);
}

std::string device_declaration(unsigned number)
{
    std::string topic = numbered("Device", number);
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", topic.c_str(), VALUE_TYPE_STRING);
    inspectable *content = event_declaration_get_inspectable(declaration.get());
    inspectable_set_name_space(content, "topic0", "com.example.devices");
    for (unsigned i = 1; i < 8; ++i)
        event_declaration_add_key(declaration.get(), numbered("key", i).c_str(), VALUE_TYPE_DOUBLE);
    event_declaration_set_local_id(declaration.get(), number);
    return take_bytes(event_declaration_serialize(declaration.get()));
}

std::string device_expression(unsigned number)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0",
                                       numbered("Device", number).c_str());
    subscribe_expression_add_key(expression.get(), "key1");
    return take_bytes(subscribe_expression_serialize(expression.get()));
}

struct Shape {
    const char *name;
    Make make;
    bool declares = false;
    std::string path = "/o";
    bool at_many_objects = false;
};

const Shape shapes[] = {
    {"Alternatives", alternatives},
    {"Values", values},
    {"Keys", keys},
    {"Wildcards", wildcards},
    {"Names", names},
    {"Texts", texts},
    {"SmallExpressions", small_expressions},
    {"Tags", tags, true},
    {"DeclaredKeys", declared_keys, true},
    {"SmallDeclarations", small_declarations, true},
    {"Objects", small_expressions, false, "/" + std::string(60000, 'o'), true},
};

const Shape &shape_named(const std::string &name)
{
    return *std::ranges::find(shapes, name, &Shape::name);
}

// Files records until the user may file no more. Whether the switch has refused the last one for
// its limits, and answers still.
bool fill(RawPeer &peer, const Shape &shape)
{
    Answer answer;
    for (unsigned i = 0; i < 20000 && answer.error.empty(); ++i) {
        std::string path = shape.at_many_objects ? shape.path + std::to_string(i) : shape.path;
        Octets record{shape.make(i)};
        answer = shape.declares ? peer.call("Producer.Declare", path, "", record)
                                : peer.call("Consumer.Subscribe", path, "", guint32(i), record);
    }
    return answer.error == limits_exceeded && peer.call("Query.GetAllDeclarations").error.empty();
}

// As many questions as the user may ask at once, with the largest expressions, and nobody answers.
bool ask_much(RawPeer &producer, std::list<RawPeer> &askers)
{
    producer.on_call = [](const Received &received) { return received.member != "Subscribe"; };
    producer.remembers = false;
    producer.call("Producer.Declare", "/p", "", Octets{declaration_bytes("x", 1, true)});
    std::string expression = expression_of(4, [](subscribe_expression *expression, unsigned i) {
        subscribe_expression_add_key_not_value(expression, numbered("", i).c_str(),
                                               std::string(60000, 'v').c_str());
    });
    static std::list<std::optional<Answer>> answers; // some come after the end of this
    askers.resize(4);
    for (RawPeer &asker : askers)
        for (int i = 0; i < 20; ++i)
            asker.call_later(answers.emplace_back(), "Consumer.GetPropertyState",
                             Octets{expression});
    auto is_refused = [](const std::optional<Answer> &answer) {
        return answer && answer->error == limits_exceeded;
    };
    return run_until([&] { return std::ranges::any_of(answers, is_refused); });
}

class MemoryTest : public testing::Test {
protected:
    // By another user where the test can be one.
    bool holds_for_somebody(const std::function<bool()> &attack)
    {
        return getuid() == 0 ? as_stranger(bus.address(), attack) == 0 : attack();
    }
    // A declaration and a subscription of a device.
    static bool file(RawPeer &peer, guint32 number)
    {
        peer.remembers = false;
        Answer declared =
            peer.call("Producer.Declare", "/p", "", Octets{device_declaration(number)});
        Answer subscribed =
            peer.call("Consumer.Subscribe", "/c", "", number, Octets{device_expression(number)});
        EXPECT_EQ(declared.error + subscribed.error, "") << declared.text << subscribed.text;
        return declared.error.empty() && subscribed.error.empty();
    }
    void expect_memory_below(long mib)
    {
        long most = most_memory(event_switch.process().pid());
        std::printf("the switch has taken %ld MiB at most\n", most);
        EXPECT_GT(most, 0);
        EXPECT_LT(most, mib);
    }

    PrivateBus bus;
    SwitchProcess event_switch;
};

constexpr long of_one_user = 96, of_four_users = 400;

class MemoryOfShapeTest : public MemoryTest, public testing::WithParamInterface<Shape> {};

TEST_P(MemoryOfShapeTest, OneUserTakesABoundedPart)
{
    SKIP_WITHOUT_MALLOC();
    EXPECT_TRUE(holds_for_somebody([] {
        RawPeer peer;
        return fill(peer, GetParam());
    }));
    expect_memory_below(of_one_user);
}

// All processes of a device may run as one user. Its declarations have eight keys, one of them with
// a name space, and its subscriptions two conditions.
TEST_F(MemoryTest, ADeviceOfOneUserReachesTheNumbersOfItsLimits)
{
    RawPeer peer;
    guint32 count = 0;
    while (count < 4096 && file(peer, count))
        ++count;
    EXPECT_EQ(count, 4096u);
    std::printf("the switch has taken %ld MiB at most\n",
                most_memory(event_switch.process().pid()));
}

INSTANTIATE_TEST_SUITE_P(Shapes, MemoryOfShapeTest, testing::ValuesIn(shapes),
                         [](const auto &shape) { return shape.param.name; });

TEST_F(MemoryTest, QuestionsOfOneUserTakeABoundedPart)
{
    SKIP_WITHOUT_MALLOC();
    EXPECT_TRUE(holds_for_somebody([] {
        RawPeer producer;
        std::list<RawPeer> askers;
        return ask_much(producer, askers);
    }));
    expect_memory_below(of_one_user);
}

TEST_F(MemoryTest, ComesBackWhenWhatIsKeptGoes)
{
    SKIP_WITHOUT_MALLOC();
    pid_t pid = event_switch.process().pid();
    RawPeer stays, leaves;
    EXPECT_TRUE(fill(leaves, shape_named("Tags")));
    long full = memory_now(pid);
    EXPECT_GT(full, 20);
    EXPECT_EQ(stays.call("Producer.Declare", "/p", "", Octets{tags(1)}).error, limits_exceeded);
    leaves.call("Producer.Undeclare", "/o", guint32(1));
    EXPECT_EQ(stays.call("Producer.Declare", "/p", "", Octets{small_declarations(1)}).error, "");
    leaves.leave();
    EXPECT_TRUE(run_until([&] {
        stays.call("Query.GetAllDeclarations");
        return memory_now(pid) < full / 2;
    })) << memory_now(pid)
        << " of " << full << " MiB are left";
}

TEST_F(MemoryTest, FourUsersWithEverythingStayWithinTheUnitsLimit)
{
    SKIP_WITHOUT_MALLOC();
    if (getuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";
    std::list<StrangerProcess> users;
    for (uid_t user : {1u, 2u, 33u, 65534u})
        users.emplace_back(
            bus.address(),
            [] {
                static RawPeer peer; // keeps what is filed for it
                static std::list<RawPeer> askers;
                for (const Shape &shape : shapes)
                    if (shape.name == std::string("Names") ||
                        shape.name == std::string("Alternatives"))
                        fill(peer, shape);
                ask_much(peer, askers);
            },
            user);
    expect_memory_below(of_four_users);
}

} // namespace
