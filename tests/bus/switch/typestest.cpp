// SPDX-License-Identifier: LGPL-2.1-or-later

// Installed types over the bus, and who may change them.

#include "rawpeer.hpp"
#include "rawrecords.hpp"
#include "strangeruser.hpp"

#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gtest/gtest.h>

#include <optional>

using namespace qandor::test;

namespace {

class TypesTest : public testing::Test {
protected:
    std::string add(RawPeer &peer, const std::string &type, const char *topic)
    {
        return peer.call("Producer.AddDeclaration", type, Octets{declaration_bytes(topic, 0)})
            .error;
    }
    std::vector<std::string> topics() { return topics_in(peer.call("Query.GetDeclarationTypes")); }
    static std::vector<std::string> topics_in(const Answer &answer)
    {
        std::vector<std::string> topics;
        for (const auto &declaration : read_list(answer.bytes))
            topics.emplace_back(inspectable_get_value(
                event_declaration_get_inspectable(declaration.get()), "topic0"));
        return topics;
    }
    using Topics = std::vector<std::string>;

    PrivateBus bus;
    SwitchProcess event_switch;
    RawPeer peer;
};

TEST_F(TypesTest, TypesAreAddedReplacedListedAndRemoved)
{
    EXPECT_EQ(add(peer, "b", "second"), "");
    EXPECT_EQ(add(peer, "a", "first"), "");
    EXPECT_EQ(topics(), (Topics{"first", "second"}));
    EXPECT_EQ(add(peer, "a", "new first"), "");
    EXPECT_EQ(topics(), (Topics{"new first", "second"}));
    EXPECT_EQ(peer.call("Producer.RemoveDeclaration", "a").error, "");
    EXPECT_EQ(topics(), Topics{"second"});
}

TEST_F(TypesTest, WhatCannotBeDoneIsRefusedWithItsOwnError)
{
    Owned<gchar> xml(event_declaration_serialize_xml(
        read_list(std::string("\1\0\0\0", 4) + declaration_bytes("system", 0))[0].get()));
    std::ofstream(event_switch.read_only_types() / "system.xml") << xml.get();
    EXPECT_EQ(add(peer, "system", "mine"), "org.freedesktop.DBus.Error.FileExists");
    EXPECT_EQ(peer.call("Producer.RemoveDeclaration", "system").error,
              "org.freedesktop.DBus.Error.AccessDenied");
    EXPECT_EQ(peer.call("Producer.RemoveDeclaration", "unknown").error,
              "org.freedesktop.DBus.Error.FileNotFound");
    for (const char *name : {"", ".hidden", "../up", "a/b"}) {
        EXPECT_EQ(add(peer, name, "topic"), "org.freedesktop.DBus.Error.InvalidArgs");
        EXPECT_EQ(peer.call("Producer.RemoveDeclaration", name).error,
                  "org.freedesktop.DBus.Error.InvalidArgs");
    }
    EXPECT_EQ(topics(), Topics{"system"});
}

TEST_F(TypesTest, AFolderThatIsNotThereCannotBeWritten)
{
    std::filesystem::remove_all(event_switch.writable_types());
    Answer answer =
        peer.call("Producer.AddDeclaration", "type", Octets{declaration_bytes("topic", 0)});
    EXPECT_EQ(answer.error, "org.freedesktop.DBus.Error.IOError");
    EXPECT_EQ(answer.text, "The folder of types cannot be written");
    EXPECT_EQ(topics(), Topics{});
}

// What is not a file cannot be replaced by one; nothing of the try is left.
TEST_F(TypesTest, AFileThatCannotTakeItsPlaceIsTakenAway)
{
    std::filesystem::create_directories(event_switch.writable_types() / "type.xml");
    EXPECT_EQ(add(peer, "type", "topic"), "org.freedesktop.DBus.Error.IOError");
    EXPECT_EQ(topics(), Topics{});
    std::filesystem::directory_iterator entries(event_switch.writable_types());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST_F(TypesTest, WhatXmlCannotSayIsRefused)
{
    EXPECT_EQ(add(peer, "type", "A\x01"), "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(topics(), Topics{});
}

// Calls that do not wait for one another are done in their order.
TEST_F(TypesTest, ChangesThatComeTogetherAreDoneInTheirOrder)
{
    constexpr std::size_t count = 30;
    std::vector<std::optional<Answer>> added(count);
    std::optional<Answer> removed, first, second;
    for (std::size_t i = 0; i < count; ++i)
        peer.call_later(added[i], "Producer.AddDeclaration", std::string("type"),
                        Octets{declaration_bytes(std::to_string(i).c_str(), 0)});
    peer.call_later(first, "Query.GetDeclarationTypes");
    peer.call_later(removed, "Producer.RemoveDeclaration", "type");
    peer.call_later(second, "Query.GetDeclarationTypes");
    ASSERT_TRUE(run_until([&] { return second.has_value(); }));
    for (const auto &answer : added)
        EXPECT_TRUE(answer && answer->error.empty());
    EXPECT_TRUE(removed && removed->error.empty());
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(topics_in(*first), Topics{std::to_string(count - 1)});
    EXPECT_EQ(topics_in(*second), Topics{});
}

// One that is longer has the bus throw the switch out, again and again.
TEST_F(TypesTest, TheListIsNoLongerThanTheBusTakes)
{
    Owned<event_declaration> large(event_declaration_new(FALSE));
    std::string text(60000, 'a');
    event_declaration_add_key_value(large.get(), "topic0", "large", VALUE_TYPE_STRING);
    for (const char *key : {"a", "b", "c", "d"})
        event_declaration_add_key_value(large.get(), key, text.c_str(), VALUE_TYPE_STRING);
    Owned<gchar> xml(event_declaration_serialize_xml(large.get()));
    for (int i = 0; i < 150; ++i)
        std::ofstream(event_switch.read_only_types() / (std::to_string(i) + ".xml")) << xml.get();
    Octets bytes{take_bytes(event_declaration_serialize(large.get()))};
    EXPECT_EQ(topics().size(), (28u << 20) / bytes.bytes.size());
    // The list is longer than what the switch sends unread: acknowledges it.
    run_until([looks = 0]() mutable { return ++looks > 3; });
    Answer refused = peer.call("Producer.AddDeclaration", "another", bytes);
    EXPECT_EQ(refused.error, "org.freedesktop.DBus.Error.LimitsExceeded");
    EXPECT_EQ(refused.text, "The list of all types would be too long");
    EXPECT_TRUE(std::filesystem::is_empty(event_switch.writable_types()));
}

// Another user of the machine, which only root can become.
TEST_F(TypesTest, OthersProduceConsumeAndLookAroundButChangeNoTypes)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become somebody else";
    add(peer, "type", "topic");
    EXPECT_EQ(as_stranger(bus.address(),
                          [] {
                              RawPeer stranger;
                              auto error = [&stranger](const std::string &method,
                                                       const auto &...arguments) {
                                  return stranger.call(method, arguments...).error;
                              };
                              Octets declaration{declaration_bytes("Device", 1)};
                              Octets expression{expression_bytes("Device")};
                              const std::string denied = "org.freedesktop.DBus.Error.AccessDenied";
                              return error("Producer.Declare", "/p", "name", declaration) == "" &&
                                     error("Consumer.Subscribe", "/c", "name", guint32(1),
                                           expression) == "" &&
                                     error("Query.GetAllDeclarations") == "" &&
                                     error("Query.GetDeclarationTypes") == "" &&
                                     stranger.take_members().size() == 4 &&
                                     error("Producer.AddDeclaration", "mine", declaration) ==
                                         denied &&
                                     error("Producer.RemoveDeclaration", "type") == denied;
                          }),
              0);
    EXPECT_EQ(topics(), Topics{"topic"});
}

// A bus that lets everybody do everything, so that the switch has to look itself.
class OpenBus {
public:
    OpenBus()
    {
        std::string socket = (folder_.path() / "bus").string();
        std::string config = folder_.write(
            "bus.conf", "<!DOCTYPE busconfig PUBLIC"
                        " \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\""
                        " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">"
                        "<busconfig><listen>unix:path=" +
                            socket +
                            "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                            "<allow user=\"*\"/><allow own=\"*\"/>"
                            "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                            "<allow eavesdrop=\"true\"/></policy></busconfig>");
        daemon_.emplace(std::vector<std::string>{"dbus-daemon", "--nofork", "--nopidfile",
                                                 "--config-file=" + config, "--print-address=1"});
        address_ = daemon_->read_line().value_or("");
        setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
    }
    ~OpenBus() { unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }
    const std::string &address() const { return address_; }

private:
    TemporaryFolder folder_;
    std::optional<ChildProcess> daemon_;
    std::string address_;
};

TEST(Types, TheSwitchItselfRefusesOthersToChangeTypes)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become somebody else";
    OpenBus bus;
    SwitchProcess event_switch;
    EXPECT_EQ(as_stranger(bus.address(),
                          [] {
                              RawPeer stranger;
                              Answer added = stranger.call("Producer.AddDeclaration", "mine",
                                                           Octets{declaration_bytes("Device", 1)});
                              Answer removed = stranger.call("Producer.RemoveDeclaration", "mine");
                              const char *denied = "org.freedesktop.DBus.Error.AccessDenied";
                              return added.error == denied && removed.error == denied &&
                                     added.text.starts_with("Only root and the event switch") &&
                                     stranger.call("Query.GetAllDeclarations").error.empty();
                          }),
              0);
    EXPECT_TRUE(std::filesystem::is_empty(event_switch.writable_types()));
}

TEST_F(TypesTest, WhatOthersChangeInTheFoldersIsSeen)
{
    auto xml_of = [](const char *topic) {
        Owned<gchar> xml(event_declaration_serialize_xml(
            read_list(std::string("\1\0\0\0", 4) + declaration_bytes(topic, 0))[0].get()));
        return std::string(xml.get());
    };
    EXPECT_EQ(topics(), Topics{});
    std::ofstream(event_switch.read_only_types() / "a.xml") << xml_of("one");
    EXPECT_EQ(topics(), Topics{"one"});
    EXPECT_EQ(topics(), Topics{"one"});
    std::ofstream(event_switch.read_only_types() / "a.xml") << xml_of("two");
    EXPECT_EQ(topics(), Topics{"two"});
    std::ofstream(event_switch.writable_types() / "b.xml") << xml_of("three");
    EXPECT_EQ(topics(), (Topics{"two", "three"}));
    std::filesystem::remove(event_switch.read_only_types() / "a.xml");
    EXPECT_EQ(topics(), Topics{"three"});
    std::filesystem::rename(event_switch.writable_types() / "b.xml",
                            event_switch.writable_types() / "b.old");
    EXPECT_EQ(topics(), Topics{});
}

TEST_F(TypesTest, AFolderThatGoesAndComesIsReadAgain)
{
    const std::filesystem::path folder = event_switch.writable_types();
    EXPECT_EQ(add(peer, "a", "first"), "");
    EXPECT_EQ(topics(), Topics{"first"});
    std::filesystem::rename(folder, folder.string() + ".away");
    EXPECT_EQ(topics(), Topics{});
    std::filesystem::create_directory(folder);
    EXPECT_EQ(add(peer, "b", "second"), "");
    EXPECT_EQ(topics(), Topics{"second"});
    std::filesystem::remove_all(folder.string() + ".away");
}

TEST_F(TypesTest, DamagedFilesAreLeftOut)
{
    const std::filesystem::path folder = event_switch.read_only_types();
    EXPECT_EQ(add(peer, "good", "good"), "");
    std::ofstream(folder / "huge.xml") << "<declare>" << std::string(64 << 20, ' ');
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "<declare>";
    std::ofstream(folder / "deep.xml") << deep;
    std::ofstream(folder / "none.xml") << "no declaration";
    std::filesystem::create_directory(folder / "folder.xml");
    std::filesystem::create_symlink(event_switch.writable_types() / "good.xml",
                                    folder / "outside.xml");
    std::filesystem::create_symlink("nowhere", folder / "dangling.xml");
    std::filesystem::create_symlink("loop.xml", folder / "loop.xml");
    EXPECT_EQ(topics(), Topics{"good"});
    std::filesystem::copy_file(event_switch.writable_types() / "good.xml", folder / "plain.xml");
    std::filesystem::create_symlink("plain.xml", folder / "alias.xml");
    EXPECT_EQ(topics(), (Topics{"good", "good", "good"})) << "a link within the folder is followed";
}

} // namespace
