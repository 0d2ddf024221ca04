// SPDX-License-Identifier: LGPL-2.1-or-later

// The declaration files that are installed as examples, held against their schema and against the
// library's own reader; and what the schema is worth.

#include "support/childprocess.hpp"
#include "support/logcapture.hpp"
#include "support/records.hpp"
#include "support/temporaryfolder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::IsEmpty;

namespace {

// What xmllint's exit code says.
enum Verdict { Valid = 0, Invalid = 3 };

int validate_file(const std::string &path)
{
    return ChildProcess({QANDOR_XMLLINT, "--noout", "--nonet", "--relaxng",
                         QANDOR_DATA "/declaration.rng", path})
        .wait();
}

int validate(const std::string &xml)
{
    TemporaryFolder folder;
    return validate_file(folder.write("t.xml", xml));
}

std::vector<std::filesystem::path> shipped_files()
{
    std::vector<std::filesystem::path> files;
    for (const auto &file : std::filesystem::directory_iterator(QANDOR_DATA "/types"))
        files.push_back(file.path());
    return files;
}

std::string declare(const std::string &content, const std::string &attributes = "")
{
    return "<declare " + attributes + "><expression>" + content + "</expression></declare>";
}

// A declaration for everybody with the keys.
std::string external(const std::string &keys)
{
    return declare("<keyvalue key='topic0' value='Device'/>" + keys);
}

std::string state(const std::string &key)
{
    return "<keyvalue key='" + key + "' value-wildcard='true'><tag tag='property-state'/>" +
           "</keyvalue>";
}

TEST(DeclarationFiles, AreAllAsTheSchemaWantsThem)
{
    EXPECT_GE(shipped_files().size(), 3u);
    for (const auto &file : shipped_files())
        EXPECT_EQ(validate_file(file.string()), Valid) << file;
}

TEST(DeclarationFiles, AreAllReadAndCanBeDeclared)
{
    LogCapture log;
    for (const auto &file : shipped_files()) {
        Owned<event_declaration> read(event_declaration_deserialize_xml_file(file.c_str()));
        ASSERT_NE(read, nullptr) << file;
        const char *topic =
            inspectable_get_value(event_declaration_get_inspectable(read.get()), "topic0");
        EXPECT_TRUE(event_declaration_is_internal(read.get()) || (topic && *topic)) << file;
    }
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST(DeclarationFiles, AreReadAsTheyAreMeant)
{
    Owned<event_declaration> power(
        event_declaration_deserialize_xml_file(QANDOR_DATA "/types/power-saving.xml"));
    Owned<event_declaration> load(
        event_declaration_deserialize_xml_file(QANDOR_DATA "/types/system-load.xml"));
    Owned<event_declaration> door(
        event_declaration_deserialize_xml_file(QANDOR_DATA "/types/door-moved.xml"));
    EXPECT_TRUE(event_declaration_is_property(power.get()));
    EXPECT_FALSE(event_declaration_is_property(load.get()));
    EXPECT_FALSE(event_declaration_is_internal(load.get()));
    EXPECT_TRUE(event_declaration_is_internal(door.get()));
}

TEST(DeclarationSchema, AcceptsWhatTheLibraryWrites)
{
    for (bool internal : {true, false}) {
        Owned<event_declaration> declaration(event_declaration_new(internal));
        gint five = -5;
        gboolean yes = TRUE;
        gdouble half = 0.5;
        event_declaration_add_key_value(declaration.get(), "topic0", "Device", VALUE_TYPE_STRING);
        event_declaration_add_key_value(declaration.get(), "int", &five, VALUE_TYPE_INT);
        event_declaration_add_key_value(declaration.get(), "bool", &yes, VALUE_TYPE_BOOL);
        event_declaration_add_key_value(declaration.get(), "double", &half, VALUE_TYPE_DOUBLE);
        event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_DOUBLE);
        event_declaration_add_key(declaration.get(), "open", VALUE_TYPE_STRING);
        event_declaration_set_nice_names(declaration.get(), "int", "Key", "Value");
        event_declaration_set_name_space(declaration.get(), "int", "space");
        event_declaration_set_complex_type_name(declaration.get(), "int", "type");
        event_declaration_set_value_user_string(declaration.get(), "int", "user");
        event_declaration_add_key_tag(declaration.get(), "state", "before");
        event_declaration_set_property(declaration.get(), "state", nullptr, nullptr);
        event_declaration_add_key_tag(declaration.get(), "state", "after");
        event_declaration_add_tag(declaration.get(), "tag");
        Owned<gchar> xml(event_declaration_serialize_xml(declaration.get()));
        EXPECT_EQ(validate(xml.get()), Valid) << xml.get();
    }
}

TEST(DeclarationSchema, AcceptsKeysInAnyOrderAndWhatIsReadTheSameAsWhatIsWritten)
{
    const std::string topic = "<keyvalue key='topic0' value-wildcard='true'/>";
    for (const std::string &xml :
         {declare(topic + state("s") + "<keyvalue key='a' value=''/>", "internal='false'"),
          declare(state("s") + "<keyvalue key='a' value='1' value-type='integer'/>" + topic),
          external("<keyvalue key='a' value='1.5' value-type='float' value-wildcard='false'/>"),
          external("<!-- nothing --><keyvalue key='a' value='0' value-type='boolean'/>"),
          declare("", "internal='true'"), declare(state("s") + topic, "internal='true'"),
          std::string("<declare><tag tag='x'/><expression>") + topic +
              "</expression><tag tag='y'/></declare>"}) {
        EXPECT_EQ(validate(xml), Valid) << xml;
        EXPECT_NE(Owned<event_declaration>(event_declaration_deserialize_xml(xml.c_str())), nullptr)
            << xml;
    }
}

// Each is the valid file with one mistake, of which the reader sees only some.
TEST(DeclarationSchema, RefusesWhatIsAMistake)
{
    ASSERT_EQ(validate(external("<keyvalue key='a' value='x'/>")), Valid);
    for (const std::string &xml : {
             std::string("<subscribe><expression><keyvalue key='topic0' value='Device'/>"
                         "</expression></subscribe>"),
             std::string("<declare/>"),
             std::string("<declare internal='true'><tag tag='x'/></declare>"),
             std::string("<declare internal='true'><expression/><expression/></declare>"),
             declare("<keyvalue key='a' value='x'/>"),
             declare("<keyvalue key='topic0' value='Device'/>", "internal='yes'"),
             declare("<keyvalue key='topic0' value='Device'/>", "global-id='1'"),
             external("<keyvalue key='a'/>"),
             external("<keyvalue key='' value='x'/>"),
             external("<keyvalue value='x'/>"),
             external("<keyvalue key='a' value='x' value-wildcard='true'/>"),
             external("<keyvalue key-wildcard='true' value='x'/>"),
             external("<keyvalue key='a' value='x' not='true'/>"),
             external("<keyvalue key='a' value='x' namespace='n'/>"),
             external("<keyvalue key='a' value='x' value-type='text'/>"),
             external("<keyvalue key='a' value='yes' value-type='bool'/>"),
             external("<keyvalue key='a' value=' 1' value-type='bool'/>"),
             external("<keyvalue key='a' value-wildcard=' true'/>"),
             external("<keyvalue key='a' value='1' value-type='int '/>"),
             external("<keyvalue key='a' value='3.5' value-type='int'/>"),
             external("<keyvalue key='a' value='1,5' value-type='double'/>"),
             external("<keyvalue key='a' value='x'>text</keyvalue>"),
             external("<keyvalue key='a' value='x'><tag>power</tag></keyvalue>"),
             external("<keyvalue key='a' value='x'><tag tag=''/></keyvalue>"),
             external("<keyvalue key='a' value='x'><label text='x'/></keyvalue>"),
             external("<key name='a' value='x'/>"),
             external(state("a") + state("b")),
             declare(state("a") + state("b"), "internal='true'"),
             std::string("<declare><expression><keyvalue key='topic0' value='Device'/>"
                         "</expression><tag tag='property-state'/></declare>"),
         })
        EXPECT_EQ(validate(xml), Invalid) << xml;
}

} // namespace
