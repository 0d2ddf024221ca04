// SPDX-License-Identifier: LGPL-2.1-or-later

// show: records of every kind and form, and bytes that are rubbish, which must never end it.

#include "samplerecords.hpp"
#include "tool.hpp"

#include "stress/switchbytes/mutations.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <sysexits.h>

using namespace qandor::test;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string hexadecimal(const std::string &bytes)
{
    std::string text;
    for (char byte : bytes) {
        char digits[8];
        g_snprintf(digits, sizeof digits, "%02x ", static_cast<guint8>(byte));
        text += digits;
    }
    return text + "\n";
}

int occurrences(const std::string &text, const std::string &part)
{
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(Show, AnEventWithEverythingInIt)
{
    ToolRun run = tool({"show"}, event_bytes());
    EXPECT_EQ(run.code, EX_OK);
    EXPECT_THAT(run.out, HasSubstr("event\n"
                                   "time         2001-09-09T01:46:40.000005Z\n"
                                   "declaration  7 (local 0)\n"));
    EXPECT_THAT(run.out, HasSubstr("payload      payload\n"));
    EXPECT_THAT(run.out, HasSubstr("tags         {whole}\n"));
    EXPECT_THAT(run.out, HasSubstr("n:load  double  0.500000  \"Load\" {a tag}\n"));
    EXPECT_LE(run.width(), 80u);
}

TEST(Show, EveryKindOfRecordAlsoAsJsonAndInHexadecimal)
{
    const std::map<std::string, std::string> kinds{{"event", event_bytes()},
                                                   {"declaration", declaration_bytes()},
                                                   {"expression", expression_bytes()},
                                                   {"state", state_bytes()},
                                                   {"notification", notification_bytes()}};
    for (const auto &[kind, bytes] : kinds) {
        ToolRun run = tool({"show"}, bytes);
        EXPECT_EQ(run.code, EX_OK) << kind << run;
        EXPECT_LE(run.width(), 80u) << run;
        EXPECT_EQ(tool({"show"}, hexadecimal(bytes)).out, run.out) << kind;
        EXPECT_EQ(tool({"show", "--json"}, bytes).json()["record"], kind);
    }
}

TEST(Show, ExpressionsAreShownAsPeopleWriteThem)
{
    nlohmann::json json = tool({"show", "--json"}, expression_bytes()).json();
    EXPECT_EQ(json["clandestine"], true);
    EXPECT_THAT(json["conditions"],
                AnyOf("topic0=Device & load!=1 | *=x", "load!=1 & topic0=Device | *=x"));
}

TEST(Show, TheXmlFormComesBack)
{
    for (const std::string &bytes : {declaration_bytes(), expression_bytes(), state_bytes()}) {
        ToolRun xml = tool({"show", "--xml"}, bytes);
        EXPECT_EQ(xml.code, EX_OK);
        EXPECT_EQ(tool({"show", "--xml"}, xml.out).out, xml.out);
    }
    EXPECT_EQ(tool({"show", "--xml"}, event_bytes()).code, EX_DATAERR);
}

TEST(Show, PartsOfRecordsAreShownToo)
{
    // The inspectable of a declaration begins behind 22 bytes; in it stand an and-list, a bucket
    // and a key-value.
    std::string inspectable = declaration_bytes().substr(22);
    EXPECT_EQ(tool({"show", "--json"}, inspectable).json()["record"], "declaration");
    qandor::Expression one = qandor::key("a") == "b";
    std::string bytes = bytes_of_record(subscribe_expression_serialize(one.build().c()));
    std::string and_list = bytes.substr(14 + 5, bytes.size() - 14 - 5 - 2);
    std::string bucket = and_list.substr(3, and_list.size() - 3 - 2);
    std::string key_value = bucket.substr(3);
    for (const std::string &part : {and_list, bucket, key_value}) {
        ToolRun run = tool({"show", "--json"}, part);
        ASSERT_EQ(run.code, EX_OK) << run;
        EXPECT_EQ(run.json()["conditions"], "a=b");
    }
}

TEST(Show, MalformedBytesAreDescribedToTheByte)
{
    std::string bytes = event_bytes() + "x";
    ToolRun run = tool({"show"}, bytes);
    EXPECT_EQ(run.code, EX_DATAERR);
    EXPECT_THAT(run.err, HasSubstr("byte " + std::to_string(bytes.size() - 1)));
    EXPECT_THAT(run.err, HasSubstr("bytes are left over behind the record"));
    EXPECT_THAT(run.err, HasSubstr("^^"));

    EXPECT_THAT(tool({"show"}, "hello").err, HasSubstr("no record begins with this byte"));
    EXPECT_THAT(tool({"show"}, "").err, HasSubstr("is empty"));
}

TEST(Show, XmlThatCannotBeReadIsDescribedWithItsPlace)
{
    ToolRun broken = tool({"show"}, "<declare>\n<expression></declare>");
    EXPECT_EQ(broken.code, EX_DATAERR);
    EXPECT_THAT(broken.err, HasSubstr(":2:"));
    // The library ends the process over this one.
    ToolRun tag = tool({"show"}, "<subscribe><expression/><tag tag='a'/></subscribe>");
    EXPECT_EQ(tag.code, EX_DATAERR);
    EXPECT_THAT(tag.err, HasSubstr(":1:25: a 'tag' directly under 'subscribe'"));
}

TEST(Show, XmlThatTheLibraryEndsOverIsFoundBefore)
{
    for (const char *text : {
             "<property><expression/><tag tag='a'/></property>",
             "<property><expression><keyvalue key='a'/></expression></property>",
             "<declare><expression><keyvalue key-wildcard='true' "
             "value='a'/></expression></declare>",
             "<declare><expression><keyvalue key='a' key-wildcard='true' value-wildcard='true'/>"
             "</expression></declare>",
             "<property><expression><keyvalue key='a' value='1'><tag tag='property-state'/>"
             "</keyvalue><keyvalue key='a' value='2'/></expression></property>",
             "<declare/>",
             "<other/>",
             "<!DOCTYPE a><declare/>",
             "<declare",
             "<",
             "<?xml",
             "<subscribe><expression><keyvalue/></expression></subscribe>",
             "<subscribe><expression><keyvalue key-wildcard='true'/></expression></subscribe>",
             "<declare><expression><keyvalue key='a' value='b' value-type='bool'/></expression>"
             "</declare>",
         })
        for (const char *form : {"--json", "--xml"})
            EXPECT_THAT(tool({"show", form}, text).code, AnyOf(EX_OK, EX_DATAERR)) << text;
}

TEST(Show, FilesThatCannotBeReadAreNoInput)
{
    EXPECT_EQ(tool({"show", "/nowhere/file"}).code, EX_NOINPUT);
    EXPECT_EQ(tool({"show", "/"}).code, EX_NOINPUT);
}

TEST(Show, TextsOfStrangersDoNotReachTheTerminalAsTheyAre)
{
    qandor::Event event = qandor::Declaration().key("a", "x\033[2Jy\nz\u202e").sample();
    ToolRun run = tool({"show"}, bytes_of_record(event_serialize(event.c())));
    EXPECT_EQ(run.code, EX_OK);
    EXPECT_THAT(run.out, Not(HasSubstr("\033")));
    EXPECT_THAT(run.out, HasSubstr("x\\x1b[2Jy\\x0az\\xe2\\x80\\xae"));
}

// Many files at a time, as a process for each would take minutes.
TEST(Show, RubbishIsRefusedOrShownAndNeverEndsIt)
{
    constexpr int batches = 20, batch = 200;
    Mutations mutations(all_records(), 7);
    int shown = 0;
    for (int i = 0; i < batches; ++i) {
        TemporaryFolder folder;
        std::vector<std::string> command{"show"};
        for (int j = 0; j < batch; ++j)
            command.push_back(folder.write("rubbish" + std::to_string(j), mutations.next()));
        ToolRun run = tool(command);
        ASSERT_THAT(run.code, AnyOf(EX_OK, EX_DATAERR)) << run;
        ASSERT_EQ(occurrences(run.out, "\n== ") + 1, batch) << run;
        shown += batch - occurrences(run.err, "qandor: ");
    }
    // Some are whole in spite of it, most are not.
    EXPECT_GT(shown, 0);
    EXPECT_LT(shown, batches * batch / 2);
}

TEST(Show, OneBadFileDoesNotHideTheOthers)
{
    TemporaryFolder folder;
    std::string bad = folder.write("bad", "x"), good = folder.write("good", event_bytes());
    ToolRun run = tool({"show", bad, good});
    EXPECT_EQ(run.code, EX_DATAERR);
    EXPECT_THAT(run.err, HasSubstr("no record begins"));
    EXPECT_THAT(run.out, HasSubstr("2001-09-09T01:46:40.000005Z"));
}

} // namespace
