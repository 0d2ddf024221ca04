// SPDX-License-Identifier: LGPL-2.1-or-later

// Writes the seeds that well-formed things make; what fuzzing has found stands beside them.
//
//   fuzz-makeseeds FOLDER

#include "fuzz/fixedrecords.hpp"
#include "fuzz/target.hpp"

#include <filesystem>
#include <fstream>

using namespace qandor::fuzz;

namespace {

class Seeds {
public:
    explicit Seeds(const std::filesystem::path &folder) : folder_(folder)
    {
        std::filesystem::create_directories(folder_);
    }
    void add(const std::string &name, const std::string &bytes)
    {
        std::ofstream(folder_ / name, std::ios::binary) << bytes;
    }

private:
    std::filesystem::path folder_;
};

std::string number(std::size_t index)
{
    return std::to_string(index + 1);
}

std::string take_text(gchar *text)
{
    std::string taken(text);
    g_free(text);
    return taken;
}

property_state *new_state()
{
    property_state *state = property_state_new();
    property_state_add_key_value(state, "topic0", "Power", FALSE);
    property_state_add_key_value(state, "state", "on", TRUE);
    property_state_set_name_space(state, "topic0", "space");
    return state;
}

notification *new_notification(std::size_t index)
{
    notification *made = notification_new();
    notification_set_subscription_id(made, 1);
    notification_set_declaration_id(made, 2);
    notification_set_user_data_string(made, "user data");
    notification_set_subscribe_expression(made, fixed_expressions()[index]);
    notification_set_declaration(made, fixed_declarations()[index]);
    return made;
}

void make_records(const std::filesystem::path &folder)
{
    Seeds seeds(folder / "checkrecord");
    const std::string kinds[] = {{'\0'}, {'\1'}, {'\2'}, {'\3'}, {'\4'}};
    for (std::size_t i = 0; i < fixed_events().size(); ++i)
        seeds.add("event" + number(i), kinds[0] + take(event_serialize(fixed_events()[i])));
    for (std::size_t i = 0; i < fixed_declarations().size(); ++i)
        seeds.add("declaration" + number(i),
                  kinds[1] + take(event_declaration_serialize(fixed_declarations()[i])));
    for (std::size_t i = 0; i < fixed_expressions().size(); ++i)
        seeds.add("expression" + number(i),
                  kinds[2] + take(subscribe_expression_serialize(fixed_expressions()[i])));
    property_state *state = new_state();
    seeds.add("state", kinds[3] + take(property_state_serialize(state)));
    property_state_free(state);
    for (std::size_t i = 0; i < fixed_declarations().size(); ++i) {
        notification *made = new_notification(i);
        seeds.add("notification" + number(i), kinds[4] + take(notification_serialize(made)));
        notification_free(made);
    }
}

void make_xml(const std::filesystem::path &folder)
{
    Seeds seeds(folder / "readxml");
    for (std::size_t i = 0; i < fixed_declarations().size(); ++i)
        seeds.add("declaration" + number(i),
                  "0" + take_text(event_declaration_serialize_xml(fixed_declarations()[i])));
    for (std::size_t i = 0; i < fixed_expressions().size(); ++i)
        seeds.add("expression" + number(i),
                  "1" + take_text(subscribe_expression_serialize_xml(fixed_expressions()[i])));
    property_state *state = new_state();
    seeds.add("state", "2" + take_text(property_state_serialize_xml(state)));
    property_state_free(state);
    seeds.add("twice", "0<declare><expression><keyvalue key='a' value='1'/><keyvalue key='a' "
                       "value='2'/></expression></declare>");
    seeds.add("odd", "0<?xml version='1.0'?><!-- odd --><declare><expression><keyvalue key='&#9;' "
                     "value='&amp;&lt;' type='int' value-wildcard='TRUE'/></expression></declare>");
}

void make_texts(const std::filesystem::path &folder)
{
    Seeds seeds(folder / "expressiontext");
    const char *texts[] = {
        "topic0=Device & state!=off | *=critical",
        "space:key=value & !other & *!=\"a \\\"text\\\"\"",
        "*",
        "* | a",
        "\"a key\":\"another\" = \"\\\\\"",
        "a=1&a=2&s:a=3",
        "!space:a | a!",
        "\xc3\xa4=\xe2\x82\xac:1",
    };
    for (std::size_t i = 0; i < std::size(texts); ++i)
        seeds.add("text" + number(i), texts[i]);
}

void make_configurations(const std::filesystem::path &folder)
{
    Seeds seeds(folder / "configuration");
    seeds.add("whole", "# comment\n[folders]\nread_only=/usr/share/types\nwritable=/var/types\n\n"
                       "[limits]\nrecord_bytes=262144\npeers=512\ndeclarations=4096\n"
                       "subscriptions=4096\nstored_bytes=16777216\nquestions=64\n"
                       "key_names=16384\ntotal_stored_bytes=25165824\n");
    seeds.add("relative", "[folders]\nwritable=types\n");
    seeds.add("toomuch", "[limits]\npeers=0\n");
    seeds.add("twice", "[limits]\npeers=few\n[limits]\n peers = 5 \n");
    seeds.add("unknown", "[limit]\npeers=1\n");
    seeds.add("noline", "peers\n");
}

} // namespace

int main(int count, char **arguments)
{
    if (count != 2)
        return EXIT_FAILURE;
    make_records(arguments[1]);
    make_xml(arguments[1]);
    make_texts(arguments[1]);
    make_configurations(arguments[1]);
    return EXIT_SUCCESS;
}
