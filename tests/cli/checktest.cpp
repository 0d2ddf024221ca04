// SPDX-License-Identifier: LGPL-2.1-or-later

// check, explain, graph and doctor.

#include "device.hpp"
#include "samplerecords.hpp"

#include <gmock/gmock.h>

#include <sysexits.h>

using namespace qandor::test;
using testing::HasSubstr;
using testing::Not;

namespace {

class Checking : public testing::Test {
protected:
    ToolRun check(const std::string &xml) const
    {
        return tool({"check", folder.write("type.xml", xml), "--types-read-only=/nowhere",
                     "--types-writable=/nowhere"});
    }
    ToolRun check_keys(const std::string &keys) const
    {
        return check("<declare internal='true'>\n<expression>\n" + keys +
                     "\n</expression></declare>");
    }

    TemporaryFolder folder;
};

TEST_F(Checking, TheProjectsOwnTypesAreGood)
{
    for (const char *type : {"power-saving", "system-load", "door-moved"}) {
        ToolRun run = tool({"check", "--strict", std::string(QANDOR_TYPES) + "/" + type + ".xml"});
        EXPECT_EQ(run.code, EX_OK) << run;
        EXPECT_THAT(run.out, HasSubstr(": good"));
    }
}

TEST_F(Checking, ErrorsAreWhatKeepsATypeFromBeingUsed)
{
    const std::pair<const char *, const char *> errors[] = {
        {"<declare>", ":1:10: error: no element found"},
        {"<other/>", "error: the root is 'other'"},
        {"<declare internal='true'/>", "error: there is no 'expression' in it"},
        {"<declare><expression/></declare>", "error: an external type without the key 'topic0'"},
        {"<declare internal='true'><expression/><expression/></declare>",
         ":1:39: error: a second 'expression'"},
        {"<declare internal='true'><a/></declare>", "error: expected is 'expression' or 'tag'"},
        {"<declare internal='true'><expression><a/></expression></declare>",
         "error: expected is 'keyvalue', not 'a'"},
        {"<subscribe><expression/></subscribe>", "error: this is no declaration"},
        {"<!DOCTYPE a><declare/>", "error: document type declarations are refused"},
    };
    for (const auto &[xml, error] : errors) {
        ToolRun run = check(xml);
        EXPECT_EQ(run.code, EX_DATAERR) << xml;
        EXPECT_THAT(run.out, HasSubstr(error)) << xml;
    }
    EXPECT_THAT(check_keys("<keyvalue key='a' key-wildcard='true' value-wildcard='true'/>").out,
                HasSubstr(":3:1: error: both wildcards"));
    EXPECT_EQ(check_keys("<keyvalue key='a' value-wildcard='true'><tag tag='property-state'/>"
                         "</keyvalue><keyvalue key='b' value-wildcard='true'>"
                         "<tag tag='property-state'/></keyvalue>")
                  .code,
              EX_DATAERR);
}

TEST_F(Checking, WarningsAreWhatCanOnlyBeAMistake)
{
    const std::pair<const char *, const char *> warnings[] = {
        {"<keyvalue key='a'/>", "neither a 'value' nor"},
        {"<keyvalue key='a' value='1' value-wildcard='true'/>", "counts for nothing"},
        {"<keyvalue key='a' value='1' valu='2'/>", "the attribute 'valu' is passed over"},
        {"<keyvalue key='a' value='1.5' value-type='int'/>", "not a whole number of 32 bits"},
        {"<keyvalue key='a' value='true' value-type='bool'/>", "is not 1 or 0"},
        {"<keyvalue key='a' value='1,5' value-type='double'/>", "not a number with a point"},
        {"<keyvalue key='a' value='1' value-type='number'/>", "is no value type"},
        {"<keyvalue key='' value='1'/>", "the key has no name"},
        {"<keyvalue key='a' value='1'/><keyvalue key='a' value='2'/>", "is there already"},
        {"<keyvalue key='a' value='1' not='true'/>", "for subscribe expressions only"},
        {"<keyvalue key='a' value='1' not='yes'/>", "neither 'true' nor 'false'"},
        {"<keyvalue key='a' value='1'>text</keyvalue>", "the text in 'keyvalue' is passed over"},
        {"<keyvalue key='a' value='1'><tag/></keyvalue>", "the tag has no name"},
    };
    for (const auto &[keys, warning] : warnings) {
        ToolRun run = check_keys(keys);
        EXPECT_EQ(run.code, EX_OK) << keys;
        EXPECT_THAT(run.out, HasSubstr(":3:")) << keys;
        EXPECT_THAT(run.out, HasSubstr("warning: ")) << keys;
        EXPECT_THAT(run.out, HasSubstr(warning)) << keys;
        EXPECT_THAT(run.out, Not(HasSubstr("error:"))) << keys;
    }
    EXPECT_EQ(tool({"check", "--strict",
                    folder.write("a.xml", "<declare internal='true'>"
                                          "<expression/><tag/></declare>")})
                  .code,
              1);
}

TEST_F(Checking, OfAKeyThatIsThereTwiceTheOneThatCountsIsLookedAt)
{
    const std::string state = "<keyvalue key='a' value='1'><tag tag='property-state'/></keyvalue>";
    const std::string plain = "<keyvalue key='a' value='1'/>";
    EXPECT_EQ(check_keys(state + state).code, EX_OK);
    EXPECT_THAT(check_keys(state + plain).out, HasSubstr("this one counts"));
    // Of a state it is the first.
    auto show = [](const std::string &keys) {
        return tool({"show"}, "<property><expression>" + keys + "</expression></property>");
    };
    EXPECT_EQ(show(state + plain).code, EX_OK);
    EXPECT_THAT(show(plain + state).err, HasSubstr("no key is tagged 'property-state'"));
}

TEST_F(Checking, WhatTheSystemMakesOfTheFileIsSaid)
{
    TemporaryFolder system, added;
    std::string type = "<declare internal='true'><expression/></declare>";
    system.write("type.xml", type);
    added.write("other.xml", type);
    auto check_file = [&](const std::string &path) {
        return tool({"check", path, "--types-read-only=" + system.path().string(),
                     "--types-writable=" + added.path().string()})
            .out;
    };
    EXPECT_THAT(check_file(folder.write("type.xml", type)), HasSubstr("hides it"));
    EXPECT_THAT(check_file(added.write("type.xml", type)), HasSubstr("hides it"));
    EXPECT_THAT(check_file(system.path() / "type.xml"), Not(HasSubstr("note:")));
    EXPECT_THAT(check_file(folder.write("other.xml", type)), HasSubstr("would replace"));
    EXPECT_THAT(check_file(folder.write("new.xml", type)), Not(HasSubstr("note:")));
    EXPECT_THAT(check_file(folder.write(".hidden.xml", type)), HasSubstr("the name is no type's"));
}

TEST_F(Checking, JsonHasEveryFile)
{
    std::string path = folder.write("a.xml", "<declare/>");
    nlohmann::json json = tool({"check", "--json", path, path}).json();
    ASSERT_EQ(json.size(), 2u);
    EXPECT_EQ(json[0]["file"], path);
    EXPECT_EQ(json[0]["good"], false);
    EXPECT_EQ(json[0]["findings"][0]["severity"], "error");
}

TEST_F(Checking, AFileThatIsNotThereIsNoInput)
{
    EXPECT_EQ(tool({"check", "/nowhere/a.xml"}).code, EX_NOINPUT);
}

class Explaining : public testing::Test {
protected:
    ToolRun explain(const std::string &expression) const
    {
        return tool({"explain", expression, path});
    }
    nlohmann::json alternatives(const std::string &expression) const
    {
        return tool({"explain", "--json", expression, path}).json()[0]["alternatives"];
    }

    TemporaryFolder folder;
    std::string path = folder.write("event.bin", event_bytes());
};

TEST_F(Explaining, EveryConditionIsExplained)
{
    ToolRun run = explain("topic0=Device & unit!=1 & nothing");
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.out, HasSubstr("✗ event Device/Load does not satisfy the expression\n"));
    EXPECT_THAT(run.out, HasSubstr("yes  topic0=Device  there is topic0=Device\n"));
    EXPECT_THAT(run.out, HasSubstr("no   unit!=1        there is unit=1\n"));
    EXPECT_THAT(run.out, HasSubstr("no   nothing        there is no key 'nothing'\n"));
    EXPECT_LE(run.width(), 80u);
}

TEST_F(Explaining, ConditionsOnOneKeyStandTogether)
{
    nlohmann::json conditions = alternatives("topic1=Load & topic1=Power")[0]["conditions"];
    ASSERT_EQ(conditions.size(), 1u);
    EXPECT_EQ(conditions[0]["conditions"], "topic1=Load & topic1=Power");
    EXPECT_EQ(conditions[0]["holds"], true);
    EXPECT_EQ(explain("topic1=Load & topic1=Power").code, EX_OK);
}

TEST_F(Explaining, NameSpacesAreToldApart)
{
    EXPECT_EQ(explain("n:load").code, EX_OK);
    EXPECT_THAT(explain("m:load").out, HasSubstr("another name space"));
}

TEST_F(Explaining, AlternativesAreToldApart)
{
    nlohmann::json two = alternatives("unit=2 | *=Load");
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[0]["holds"], false);
    EXPECT_EQ(two[1]["holds"], true);
    EXPECT_EQ(two[1]["conditions"][0]["why"], "there is topic1=Load");
}

TEST_F(Explaining, OpenValuesOfADeclarationMayBecomeAnything)
{
    std::string file = folder.write("declaration.bin", declaration_bytes());
    ToolRun run = tool({"explain", "load=7", file});
    EXPECT_EQ(run.code, EX_OK);
    EXPECT_THAT(run.out, HasSubstr("which is open"));
}

TEST_F(Explaining, OtherRecordsAreRefused)
{
    std::string file = folder.write("state.bin", state_bytes());
    EXPECT_EQ(tool({"explain", "a", file}).code, EX_DATAERR);
    EXPECT_EQ(tool({"explain", "a &", path}).code, EX_USAGE);
}

class Overview : public Device {
protected:
    ChildProcess property = keep_state("true");
};

TEST_F(Overview, ExplainTakesWhatIsDeclared)
{
    EXPECT_EQ(tool({"explain", "topic1=Power & state=1"}).code, EX_OK);
    EXPECT_EQ(tool({"explain", "topic1=Power & !state"}).code, 1);
}

TEST_F(Overview, TheGraphConnectsProducersWithConsumers)
{
    ChildProcess watcher = start_tool({"watch", "topic1=Power"});
    ASSERT_TRUE(watcher.wait_for("state"));
    ToolRun run = tool({"graph"});
    EXPECT_EQ(run.code, EX_OK);
    EXPECT_THAT(run.out, testing::StartsWith("digraph qandor {\n"));
    EXPECT_THAT(run.out,
                HasSubstr("declaration1 [shape=cylinder, label=\"Device/Power/Saving\"];"));
    EXPECT_THAT(run.out, HasSubstr("-> declaration1;"));
    EXPECT_THAT(run.out, HasSubstr("[label=\"topic1=Power\", style=dashed];"));
}

TEST_F(Overview, TheDoctorFindsNothingOnAHealthyDevice)
{
    ToolRun run = tool(with_types({"doctor"}));
    EXPECT_EQ(run.code, EX_OK) << run;
    EXPECT_THAT(run.out, Not(HasSubstr("bad ")));
    EXPECT_LE(run.width(), 80u);
}

TEST_F(Overview, TheDoctorFindsTypesThatCannotBeRead)
{
    std::ofstream(event_switch.writable_types() / "broken.xml") << "<declare>";
    ToolRun run = tool(with_types({"doctor"}));
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.out, HasSubstr("broken.xml"));
    nlohmann::json json = tool(with_types({"doctor", "--json"})).json();
    EXPECT_EQ(json.back()["health"], "bad");
}

TEST_F(Overview, TheDoctorFindsThatThereIsNoSwitch)
{
    event_switch.kill();
    ToolRun run = tool(with_types({"doctor"}));
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.out, HasSubstr("There is no event switch on the bus"));
}

} // namespace
