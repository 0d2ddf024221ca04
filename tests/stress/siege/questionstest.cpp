// SPDX-License-Identifier: LGPL-2.1-or-later

// Questions to the switch that somebody makes hard to answer: properties without an answer, and
// more installed types than a message of the bus can carry.

#include "stress/siege/siege.hpp"

#include "bus/switch/rawpeer.hpp"
#include "bus/switch/rawrecords.hpp"

#include <filesystem>
#include <fstream>

using namespace qandor::test;

namespace {

using Questions = Siege;

// Declares the property @times times; answers with a state, or never answers.
OtherUser::Part declare_power(guint32 times, bool tells)
{
    return [=](OtherUser::Line &line) {
        RawPeer peer;
        peer.remembers = false;
        peer.on_call = [&](const Received &received) {
            if (tells && received.member == "Subscribe")
                send_to_subscriber(peer, received.bytes, event_bytes("Power", "on"));
            return tells;
        };
        for (guint32 i = 1; i <= times; ++i)
            peer.call("Producer.Declare", "/p", "power",
                      Octets{declaration_bytes("Power", i, true)});
        line.say("declared");
        run_until([&] { return line.is_over(); }, 600);
    };
}

TEST_F(Questions, SilentPropertiesOfOneUserDoNotHideTheStateOfAnother)
{
    OtherUser silent(*bus, attacker, declare_power(70, false));
    ASSERT_TRUE(silent.says("declared"));
    OtherUser honest(*bus, bystander, declare_power(1, true));
    ASSERT_TRUE(honest.says("declared"));
    DailyLife life(*bus);
    RawPeer asker;
    double longest_ms = 0;
    int answered = 0;
    const int rounds = scaled(3, 20);
    for (int i = 0; i < rounds; ++i) {
        gint64 begin = g_get_monotonic_time();
        Answer state = asker.call("Consumer.GetPropertyState", Octets{expression_bytes("Power")});
        longest_ms =
            std::max(longest_ms, static_cast<double>(g_get_monotonic_time() - begin) / 1000);
        answered += state.error.empty();
        EXPECT_EQ(state.error + state.text, "");
    }
    tell_figure("states told", answered, ("of " + std::to_string(rounds)).c_str());
    tell_figure("longest question", longest_ms, "ms");
    expect_served(life);
}

// Packages install types too, without a call to the switch.
void install_large_types(const std::filesystem::path &folder, int count)
{
    for (int i = 0; i < count; ++i) {
        std::ofstream file(folder / ("large" + std::to_string(i) + ".xml"));
        file << "<declare><expression><keyvalue key='topic0' value='Large'/>";
        for (char key : {'a', 'b', 'c', 'd'})
            file << "<keyvalue key='" << key << "' value='" << std::string(59000, key) << "'/>";
        file << "</expression></declare>\n";
    }
}

TEST_F(Questions, TypesBeyondWhatTheBusCarriesEndNothing)
{
    install_large_types(event_switch->writable_types(), 150);
    SharedCount asked, refused;
    OtherUser asker(*bus, bystander, [&](OtherUser::Line &line) {
        for (int i = 0; i < 3; ++i) {
            RawPeer peer;
            refused.add(!peer.call("Query.GetDeclarationTypes").error.empty());
            asked.add();
        }
        line.say("asked");
    });
    EXPECT_TRUE(asker.says("asked", 90));
    EXPECT_TRUE(asker.end());
    tell_figure("lists of types asked for", static_cast<double>(asked.get()), "");
    tell_figure("lists of types refused", static_cast<double>(refused.get()), "");
    EXPECT_EQ(asked.get(), 3u);
}

// The switch writes each type to the disk before it answers.
TEST_F(Questions, AddingTypesHoldsNobodyUp)
{
    DailyLife life(*bus);
    EXPECT_TRUE(life.goes_on());
    RawPeer peer;
    for (int i = 0; i < scaled(10, 100); ++i)
        EXPECT_EQ(peer.call("Producer.AddDeclaration", "type" + std::to_string(i),
                            Octets{declaration_bytes("Added", 1)})
                      .error,
                  "");
    EXPECT_TRUE(life.goes_on());
    expect_served(life);
}

} // namespace
