// SPDX-License-Identifier: LGPL-2.1-or-later

// Writes the seeds that well-formed things make; what fuzzing has found stands beside them.
//
//   fuzz-makeseeds FOLDER

#include "fuzz/fixedrecords.hpp"
#include "fuzz/target.hpp"

#include "cli/recording.hpp"

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

std::string hexadecimal(const std::string &bytes)
{
    std::string text;
    for (char byte : bytes) {
        char digits[8];
        g_snprintf(digits, sizeof digits, "%02x ", static_cast<guint8>(byte));
        text += digits;
    }
    return text;
}

// What can be shown: whole records, a part of one, in hexadecimal, and XML.
void make_shown(const std::filesystem::path &folder)
{
    Seeds seeds(folder / "showrecord");
    std::string event = take(event_serialize(fixed_events()[2]));
    std::string declaration = take(event_declaration_serialize(fixed_declarations()[2]));
    seeds.add("event", event);
    seeds.add("declaration", declaration);
    seeds.add("expression", take(subscribe_expression_serialize(fixed_expressions()[2])));
    property_state *state = new_state();
    seeds.add("state", take(property_state_serialize(state)));
    property_state_free(state);
    notification *made = new_notification(1);
    seeds.add("notification", take(notification_serialize(made)));
    notification_free(made);
    seeds.add("inspectable", declaration.substr(22));
    seeds.add("keyvalue", declaration.substr(22 + 5 + 3 + 3, 60));
    seeds.add("hexadecimal", hexadecimal(event));
    seeds.add("xml", take_text(event_declaration_serialize_xml(fixed_declarations()[2])));
    seeds.add("subscribe", take_text(subscribe_expression_serialize_xml(fixed_expressions()[2])));
}

void make_checked(const std::filesystem::path &folder)
{
    Seeds seeds(folder / "checkxml");
    seeds.add("declaration", take_text(event_declaration_serialize_xml(fixed_declarations()[2])));
    seeds.add("property", take_text(event_declaration_serialize_xml(fixed_declarations()[1])));
    seeds.add("expression", take_text(subscribe_expression_serialize_xml(fixed_expressions()[2])));
    property_state *state = new_state();
    seeds.add("state", take_text(property_state_serialize_xml(state)));
    property_state_free(state);
    seeds.add("findings", "<declare><tag/>text<expression><keyvalue key='a' not='yes' value='1' "
                          "value-type='int'/><keyvalue key='a' value='1,5' value-type='double'>"
                          "<tag tag='property-state'/></keyvalue></expression></declare>");
}

std::string entry(qandor::cli::EntryKind kind, guint64 time, const std::string &record)
{
    return qandor::cli::bytes_of({kind, time, 1000, record});
}

void make_recordings(const std::filesystem::path &folder)
{
    using qandor::cli::EntryKind;
    Seeds seeds(folder / "readrecording");
    std::string head = qandor::cli::recording_header(1000000000000000);
    std::string declared, events, gone;
    for (std::size_t i = 0; i < fixed_declarations().size(); ++i) {
        std::string declaration = take(event_declaration_serialize(fixed_declarations()[i]));
        declared += entry(EntryKind::Declared, i, declaration);
        gone += entry(EntryKind::Gone, 10 + i, declaration);
        events += entry(EntryKind::Event, 5 + i, take(event_serialize(fixed_events()[i])));
    }
    seeds.add("head", "0" + head);
    seeds.add("whole", "0" + head + declared + events + gone);
    seeds.add("mended", "1" + head + events + declared);
    seeds.add("cut", "0" + head + declared.substr(0, declared.size() - 1));
    seeds.add("zeros", "0" + head + declared + std::string(64, '\0'));
    seeds.add("later", "1" + head + entry(static_cast<EntryKind>(99), 0, "news") + events);
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
    make_shown(arguments[1]);
    make_checked(arguments[1]);
    make_recordings(arguments[1]);
    return EXIT_SUCCESS;
}
