// SPDX-License-Identifier: LGPL-2.1-or-later

// Malformed records through every call of the switch that takes one: each is answered, with an
// error where the record is not whole; a bad one changes nothing; and the switch lives.

#include "mutations.hpp"

#include "bus/switch/rawpeer.hpp"
#include "bus/switch/rawrecords.hpp"

#include "model/checker.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"
#include "support/temporaryfolder.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

using namespace qandor::test;
using qandor::RecordKind;

namespace {

constexpr std::size_t record_count = 100000;
// Calls under way at a time; a stock bus refuses the 129th.
constexpr std::size_t batch_size = 100;

constexpr const char *invalid_args = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char *not_found = "org.freedesktop.DBus.Error.FileNotFound";

bool is_whole(RecordKind kind, const std::string &bytes)
{
    return !qandor::check_record(kind, reinterpret_cast<const guint8 *>(bytes.data()),
                                 bytes.size());
}

// Declarations with everything that one can have.
std::vector<std::string> declaration_seeds()
{
    std::vector<std::string> seeds = {declaration_bytes("Device", 1),
                                      declaration_bytes("Power", 2, true)};
    Owned<event_declaration> full(event_declaration_new(TRUE));
    gint number = 5;
    event_declaration_add_key_value(full.get(), "topic0", "Device", VALUE_TYPE_STRING);
    event_declaration_add_key_value(full.get(), "count", &number, VALUE_TYPE_INT);
    event_declaration_add_key(full.get(), "share", VALUE_TYPE_DOUBLE);
    event_declaration_set_name_space(full.get(), "count", "space");
    event_declaration_set_nice_names(full.get(), "count", "Count", "Five");
    event_declaration_set_value_user_string(full.get(), "count", "user");
    event_declaration_set_complex_type_name(full.get(), "count", "complex");
    event_declaration_add_key_tag(full.get(), "count", "tag");
    event_declaration_add_tag(full.get(), "whole");
    seeds.push_back(take_bytes(event_declaration_serialize(full.get())));
    return seeds;
}

std::vector<std::string> expression_seeds()
{
    std::vector<std::string> seeds = {expression_bytes("Device")};
    Owned<subscribe_expression> full(subscribe_expression_new_full(TRUE));
    subscribe_expression_add_key_value(full.get(), "topic0", "Device");
    subscribe_expression_add_key_not_value(full.get(), "topic0", "Power");
    subscribe_expression_add_not_key(full.get(), "absent");
    subscribe_expression_add_not_value(full.get(), "nowhere");
    subscribe_expression_or(full.get());
    subscribe_expression_add_key(full.get(), "state");
    subscribe_expression_add_value(full.get(), "Device");
    subscribe_expression_set_name_space(full.get(), "state", "");
    subscribe_expression_set_dbus_service(full.get(), ":1.1");
    subscribe_expression_set_dbus_object(full.get(), "/object");
    seeds.push_back(take_bytes(subscribe_expression_serialize(full.get())));
    return seeds;
}

std::vector<std::string> event_seeds()
{
    Owned<event> full(event_deserialize(array_from(event_bytes("Power", "on")).get()));
    event_set_user_data_string(full.get(), "user data");
    return {event_bytes("Power", "on"), take_bytes(event_serialize(full.get()))};
}

class SwitchBytesTest : public testing::Test {
protected:
    // A switch that leaks says so at its end, where the build looks for leaks.
    void TearDown() override
    {
        event_switch.process().signal(SIGTERM);
        EXPECT_EQ(event_switch.process().wait(), 0);
    }

    // Feeds all records in batches; `send` makes one call, `check` looks at a batch that has been
    // answered.
    using Send = std::function<void(const std::string &bytes, guint32 number,
                                    std::optional<Answer> &answer)>;
    using Check = std::function<void(const std::vector<std::string> &records,
                                     const std::vector<std::optional<Answer>> &answers)>;

    void feed(Mutations &mutations, const Send &send, const Check &check)
    {
        for (std::size_t fed = 0; fed < record_count && !HasFailure(); fed += batch_size) {
            std::vector<std::string> records(batch_size);
            std::vector<std::optional<Answer>> answers(batch_size);
            for (std::size_t i = 0; i < batch_size; ++i) {
                records[i] = mutations.next();
                send(records[i], static_cast<guint32>(i), answers[i]);
            }
            std::size_t answered = 0;
            ASSERT_TRUE(run_until([&] {
                while (answered < batch_size && answers[answered])
                    ++answered;
                return answered == batch_size;
            })) << "no answer to record "
                << fed + answered;
            check(records, answers);
        }
        EXPECT_TRUE(event_switch.process().is_running());
    }

    // Whole records are answered with the one error (or none), others as invalid.
    static void expect_answers(RecordKind kind, const std::vector<std::string> &records,
                               const std::vector<std::optional<Answer>> &answers,
                               const char *error_of_whole)
    {
        for (std::size_t i = 0; i < records.size(); ++i) {
            bool whole = is_whole(kind, records[i]);
            EXPECT_EQ(answers[i]->error, whole ? error_of_whole : invalid_args) << answers[i]->text;
        }
    }

    // One user says it all here: the limits of a user are tested elsewhere.
    static std::string without_limits(const std::filesystem::path &file)
    {
        std::ofstream(file) << "[limits]\nquestions=1000000\nkey_names=10000000\n"
                               "declarations=1000000\nsubscriptions=1000000\n"
                               "stored_bytes=1000000000\n";
        return file;
    }

    TemporaryFolder folder;
    PrivateBus bus;
    SwitchProcess event_switch{{"--config=" + without_limits(folder.path() / "conf")}};
    RawPeer peer;
};

TEST_F(SwitchBytesTest, OnlyWholeDeclarationsAreDeclared)
{
    Mutations mutations(declaration_seeds(), 1);
    feed(
        mutations,
        [this](const std::string &bytes, guint32, std::optional<Answer> &answer) {
            peer.call_later(answer, "Producer.Declare", "/p", "name", Octets{bytes});
        },
        [this](const auto &records, const auto &answers) {
            std::set<guint32> declared;
            for (std::size_t i = 0; i < records.size(); ++i) {
                bool good = is_whole(RecordKind::EventDeclaration, records[i]);
                if (good) {
                    Owned<event_declaration> read(
                        event_declaration_deserialize(array_from(records[i]).get()));
                    good = event_declaration_is_internal(read.get()) ||
                           inspectable_get_value(event_declaration_get_inspectable(read.get()),
                                                 "topic0");
                    if (good)
                        declared.insert(event_declaration_get_local_id(read.get()));
                }
                EXPECT_EQ(answers[i]->error, good ? "" : invalid_args) << answers[i]->text;
            }
            std::set<guint32> listed;
            for (const auto &one : read_list(peer.call("Query.GetAllDeclarations").bytes))
                listed.insert(event_declaration_get_local_id(one.get()));
            EXPECT_EQ(listed, declared);
            peer.call("Producer.Disconnect", "/p");
            peer.take();
        });
}

TEST_F(SwitchBytesTest, OnlyWholeExpressionsAreSubscribed)
{
    std::vector<Owned<event_declaration>> declarations;
    for (const std::string &seed : declaration_seeds()) {
        EXPECT_EQ(peer.call("Producer.Declare", "/p", "name", Octets{seed}).error, "");
        declarations.emplace_back(event_declaration_deserialize(array_from(seed).get()));
    }
    peer.take();
    Mutations mutations(expression_seeds(), 2);
    feed(
        mutations,
        [this](const std::string &bytes, guint32 number, std::optional<Answer> &answer) {
            peer.call_later(answer, "Consumer.Subscribe", "/c", "name", number, Octets{bytes});
        },
        [&](const auto &records, const auto &answers) {
            expect_answers(RecordKind::SubscribeExpression, records, answers, "");
            // Each goes to the producer of each declaration that it matches, and no other does.
            std::multiset<guint32> expected, notified;
            for (guint32 i = 0; i < records.size(); ++i) {
                if (!is_whole(RecordKind::SubscribeExpression, records[i]))
                    continue;
                Owned<subscribe_expression> read(
                    subscribe_expression_deserialize(array_from(records[i]).get()));
                for (const auto &declaration : declarations)
                    if (event_declaration_contains(declaration.get(), read.get()))
                        expected.insert(i);
            }
            for (const Received &received : peer.take())
                if (received.member == "Notification")
                    notified.insert(received.numbers.at(0));
            EXPECT_EQ(notified, expected);
            peer.call("Consumer.Disconnect", "/c");
            peer.take();
        });
}

TEST_F(SwitchBytesTest, OnlyWholeExpressionsAreAskedFor)
{
    Mutations mutations(expression_seeds(), 3);
    feed(
        mutations,
        [this](const std::string &bytes, guint32, std::optional<Answer> &answer) {
            peer.call_later(answer, "Consumer.GetPropertyState", Octets{bytes});
        },
        [](const auto &records, const auto &answers) {
            expect_answers(RecordKind::SubscribeExpression, records, answers, not_found);
        });
}

// Whether XML says all of a declaration. The tag of a key makes a property of it there.
bool can_be_xml(const std::string &bytes)
{
    auto content_of = [](event_declaration *declaration) {
        GArray *array = serialize_create_array();
        inspectable_serialize_internal(event_declaration_get_inspectable(declaration), array);
        return take_bytes(array);
    };
    Owned<event_declaration> declaration(event_declaration_deserialize(array_from(bytes).get()));
    Owned<gchar> xml(event_declaration_serialize_xml(declaration.get()));
    Owned<event_declaration> again(event_declaration_deserialize_xml(xml.get()));
    return again && content_of(again.get()) == content_of(declaration.get()) &&
           (event_declaration_is_property(again.get()) ||
            !event_declaration_is_property(declaration.get()));
}

TEST_F(SwitchBytesTest, OnlyWholeDeclarationsAreInstalled)
{
    // Installing waits for the disk. Most go by a name that the system has, which is looked at when
    // the record has been read.
    std::ofstream(event_switch.read_only_types() / "system.xml") << "no declaration";
    Mutations mutations(declaration_seeds(), 4);
    feed(
        mutations,
        [this](const std::string &bytes, guint32 number, std::optional<Answer> &answer) {
            peer.call_later(answer, "Producer.AddDeclaration", number % 50 ? "system" : "mine",
                            Octets{bytes});
        },
        [](const auto &records, const auto &answers) {
            for (std::size_t i = 0; i < records.size(); ++i) {
                std::string expected = invalid_args;
                if (is_whole(RecordKind::EventDeclaration, records[i]))
                    expected = i % 50                   ? "org.freedesktop.DBus.Error.FileExists"
                               : can_be_xml(records[i]) ? ""
                                                        : invalid_args;
                EXPECT_EQ(answers[i]->error, expected) << answers[i]->text;
            }
        });
    EXPECT_EQ(read_list(peer.call("Query.GetDeclarationTypes").bytes).size(), 1u);
}

// What a producer says about its state goes on to whoever asked, and must be whole there too.
TEST_F(SwitchBytesTest, NoEventOfAProducerMakesAStateThatIsNotWhole)
{
    RawPeer producer;
    EXPECT_EQ(
        producer.call("Producer.Declare", "/p", "name", Octets{declaration_bytes("Power", 1, true)})
            .error,
        "");
    producer.take();
    Mutations mutations(event_seeds(), 6);
    producer.on_call = [&](const Received &received) {
        if (received.member != "Subscribe")
            return true;
        send_to_subscriber(producer, received.bytes, mutations.next());
        return true;
    };
    std::size_t states = 0;
    for (std::size_t asked = 0; asked < record_count / 20; asked += batch_size) {
        std::vector<std::optional<Answer>> answers(batch_size);
        for (auto &answer : answers)
            peer.call_later(answer, "Consumer.GetPropertyState", Octets{expression_bytes("Power")});
        ASSERT_TRUE(run_until([&] {
            return std::all_of(answers.begin(), answers.end(),
                               [](const auto &answer) { return answer.has_value(); });
        }));
        for (const auto &answer : answers) {
            bool is_state = answer->error.empty();
            states += is_state;
            if (is_state) {
                EXPECT_TRUE(is_whole(RecordKind::PropertyState, answer->bytes));
            } else {
                EXPECT_EQ(answer->text, "The property has no state");
            }
        }
    }
    EXPECT_GT(states, 0u);
}

TEST_F(SwitchBytesTest, OnlyWholeEventsAreTaken)
{
    Mutations mutations(event_seeds(), 5);
    feed(
        mutations,
        [this](const std::string &bytes, guint32 number, std::optional<Answer> &answer) {
            peer.event_later(answer, bytes, number);
        },
        [](const auto &records, const auto &answers) {
            expect_answers(RecordKind::Event, records, answers, "");
        });
}

} // namespace
