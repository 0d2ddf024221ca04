// SPDX-License-Identifier: LGPL-2.1-or-later

// The folders of installed types: what is written, hidden, refused and left out.

#include "switch/typefolders.hpp"
#include "model/inspectable.hpp"
#include "support/temporaryfolder.hpp"
#include "switch/log.hpp"

#include <qandor/serialize.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace qandor;
using qandor::test::TemporaryFolder;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

DeclarationOwner new_declaration(const char *topic)
{
    DeclarationOwner declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", topic, VALUE_TYPE_STRING);
    return declaration;
}

std::string xml_of(const char *topic)
{
    TextOwner xml(event_declaration_serialize_xml(new_declaration(topic).get()));
    return xml.get();
}

class TypeFoldersTest : public testing::Test {
protected:
    static TypeResult done(TypeFolders &folders, const TypeStep &step)
    {
        const auto *change = std::get_if<FileChange>(&step);
        return change ? folders.result_of(*change, change->apply()) : std::get<TypeResult>(step);
    }
    TypeResult add(const std::string &type, const char *topic)
    {
        return add(type, new_declaration(topic));
    }
    TypeResult add(const std::string &type, const DeclarationOwner &declaration)
    {
        return done(folders, folders.add(type, declaration.get()));
    }
    TypeResult remove(const std::string &type) { return done(folders, folders.remove(type)); }
    // The topics of the listed types.
    std::vector<std::string> list()
    {
        std::string bytes = folders.list();
        ArrayOwner array(serialize_create_array());
        g_array_append_vals(array.get(), bytes.data(), static_cast<guint>(bytes.size()));
        guint index = 0;
        std::vector<std::string> topics;
        for (guint32 left = deserialize_32bit(array.get(), &index); left > 0; --left) {
            DeclarationOwner read(event_declaration_deserialize_internal(array.get(), &index));
            topics.emplace_back(
                inspectable_get_value(event_declaration_get_inspectable(read.get()), "topic0"));
        }
        EXPECT_EQ(index, array->len);
        return topics;
    }
    static std::size_t file_count(const TemporaryFolder &folder)
    {
        std::filesystem::directory_iterator files(folder.path());
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }

    TemporaryFolder read_only;
    TemporaryFolder writable;
    TypeFolders folders{read_only.path().string(), writable.path().string()};
};

TEST_F(TypeFoldersTest, ATypeThatWasAddedIsAFileThatReadsAndNothingElseIsLeft)
{
    EXPECT_EQ(add("Device", "Power"), TypeResult::Done);
    EXPECT_EQ(file_count(writable), 1u);
    std::string file = (writable.path() / "Device.xml").string();
    DeclarationOwner read(event_declaration_deserialize_xml_file(file.c_str()));
    ASSERT_NE(read, nullptr);
    EXPECT_TRUE(
        inspectable_is_equal(event_declaration_get_inspectable(read.get()),
                             event_declaration_get_inspectable(new_declaration("Power").get())));
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644u);
}

TEST_F(TypeFoldersTest, ATypeOfTheSystemIsNeitherReplacedNorRemoved)
{
    read_only.write("Device.xml", xml_of("Old"));
    EXPECT_EQ(add("Device", "New"), TypeResult::Exists);
    EXPECT_EQ(remove("Device"), TypeResult::ReadOnly);
    EXPECT_EQ(file_count(writable), 0u);
    EXPECT_THAT(list(), ElementsAre("Old"));
}

TEST_F(TypeFoldersTest, AnAddedTypeIsReplacedAndRemoved)
{
    EXPECT_EQ(add("Device", "Old"), TypeResult::Done);
    EXPECT_THAT(list(), ElementsAre("Old"));
    EXPECT_EQ(add("Device", "New"), TypeResult::Done);
    EXPECT_THAT(list(), ElementsAre("New"));
    EXPECT_EQ(remove("Device"), TypeResult::Done);
    EXPECT_THAT(list(), IsEmpty());
    EXPECT_EQ(remove("Device"), TypeResult::NotFound);
}

TEST_F(TypeFoldersTest, NamesThatCouldLeadElsewhereAreRefused)
{
    const std::string longest(128, 'a');
    for (const std::string &name :
         {std::string(), std::string(".hidden"), std::string("../up"), std::string("a/b"),
          std::string("a b"), std::string("\xc3\xa4"), longest + "a"}) {
        EXPECT_EQ(add(name, "Device"), TypeResult::BadName) << name;
        EXPECT_EQ(remove(name), TypeResult::BadName) << name;
    }
    EXPECT_EQ(file_count(writable), 0u);
    for (const std::string &name : {longest, std::string("A.b_c-9"), std::string("-")})
        EXPECT_EQ(add(name, "Device"), TypeResult::Done) << name;
}

TEST_F(TypeFoldersTest, TypesAreListedByNameAndTheSystemsHideOthers)
{
    read_only.write("b.xml", xml_of("system b"));
    writable.write("b.xml", xml_of("hidden b"));
    writable.write("c.xml", xml_of("c"));
    read_only.write("d.xml", xml_of("d"));
    writable.write("a.xml", xml_of("a"));
    writable.write("notes.txt", "no type");
    writable.write(".new-abc.xml", xml_of("unfinished"));
    EXPECT_THAT(list(), ElementsAre("a", "system b", "c", "d"));
}

TEST_F(TypeFoldersTest, FoldersThatAreNotThereHaveNoTypes)
{
    TypeFolders nowhere("/nonexistent/a", "/nonexistent/b");
    EXPECT_EQ(nowhere.list(), std::string(4, '\0'));
    EXPECT_EQ(done(nowhere, nowhere.add("Device", new_declaration("Device").get())),
              TypeResult::Failed);
    EXPECT_EQ(done(nowhere, nowhere.remove("Device")), TypeResult::NotFound);
}

TEST_F(TypeFoldersTest, AFileThatDoesNotReadIsLeftOutAndLoggedOnceUntilItChanges)
{
    std::string path = writable.write("bad.xml", "<declare><key");
    writable.write("good.xml", xml_of("good"));
    auto listed_with_log = [this] {
        testing::internal::CaptureStderr();
        EXPECT_THAT(list(), ElementsAre("good"));
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_NE(listed_with_log().find(path + " is not an event declaration"), std::string::npos);
    EXPECT_EQ(listed_with_log(), "");
    writable.write("bad.xml", "still no declaration");
    EXPECT_NE(listed_with_log().find(path), std::string::npos);
    writable.write("bad.xml", xml_of("better"));
    EXPECT_THAT(list(), ElementsAre("better", "good"));
}

TEST_F(TypeFoldersTest, WhatIsNoFileOfADeclarationIsLeftOut)
{
    std::filesystem::create_directory(writable.path() / "folder.xml");
    ASSERT_EQ(mkfifo((writable.path() / "pipe.xml").c_str(), 0600), 0);
    writable.write("empty.xml", "");
    writable.write("subscribe.xml", R"(<subscribe><key name="a" value="b"/></subscribe>)");
    writable.write("long.xml", xml_of(std::string(70000, 'a').c_str()));
    testing::internal::CaptureStderr();
    EXPECT_THAT(list(), IsEmpty());
    testing::internal::GetCapturedStderr();
}

TEST_F(TypeFoldersTest, ADeclarationThatXmlCannotSayIsRefused)
{
    for (const char *topic : {"A\x01\x1f", "A\xef\xbf\xbe"})
        EXPECT_EQ(add("Device", topic), TypeResult::Different) << topic;
    DeclarationOwner twice = new_declaration("Power"), unmarked = new_declaration("Power");
    const std::string topic = "Other";
    inspectable *content = event_declaration_get_inspectable(twice.get());
    content->current()->add(
        key_value(KeyName::intern("topic0"), FALSE, topic, FALSE, FALSE)); // as bytes can say it
    EXPECT_EQ(add("Device", twice), TypeResult::Different);
    event_declaration_add_key(unmarked.get(), "state", VALUE_TYPE_STRING);
    event_declaration_set_property(unmarked.get(), "state", nullptr, nullptr);
    EXPECT_EQ(add("Device", unmarked), TypeResult::Done) << "the mark of its key says it";
    EXPECT_EQ(add("Device", "\t<&>\"'\n \xc3\xa4"), TypeResult::Done);
    EXPECT_THAT(list(), ElementsAre("\t<&>\"'\n \xc3\xa4"));
}

// With room for two types of these.
class FullTypeFoldersTest : public TypeFoldersTest {
protected:
    FullTypeFoldersTest()
    {
        ArrayOwner bytes(event_declaration_serialize(new_declaration("One").get()));
        folders = TypeFolders(read_only.path().string(), writable.path().string(),
                              sizeof(guint32) + 2 * bytes->len);
    }
};

TEST_F(FullTypeFoldersTest, WhatWouldMakeTheListTooLongIsRefused)
{
    EXPECT_EQ(add("a", "One"), TypeResult::Done);
    EXPECT_EQ(add("b", "Two"), TypeResult::Done);
    EXPECT_EQ(add("c", "Ten"), TypeResult::TooMany);
    EXPECT_EQ(add("b", "Three"), TypeResult::TooMany);
    EXPECT_EQ(add("b", "Ten"), TypeResult::Done) << "it takes the place of the old one";
    EXPECT_THAT(list(), ElementsAre("One", "Ten"));
    EXPECT_EQ(remove("a"), TypeResult::Done);
    EXPECT_EQ(add("c", "Six"), TypeResult::Done);
    EXPECT_THAT(list(), ElementsAre("Ten", "Six"));
}

TEST_F(FullTypeFoldersTest, FilesForWhichTheListHasNoRoomAreLeftOutAndLoggedOnce)
{
    for (const char *type : {"a", "b", "c"})
        writable.write(std::string(type) + ".xml", xml_of("One"));
    testing::internal::CaptureStderr();
    EXPECT_THAT(list(), ElementsAre("One", "One"));
    EXPECT_THAT(list(), ElementsAre("One", "One"));
    std::string log = testing::internal::GetCapturedStderr();
    std::size_t line = log.find("c.xml is left out: the list of the types would be too long");
    EXPECT_NE(line, std::string::npos) << log;
    EXPECT_EQ(log.find("is left out", line + 20), std::string::npos) << log;
    EXPECT_EQ(remove("a"), TypeResult::Done);
    EXPECT_THAT(list(), ElementsAre("One", "One"));
}

TEST_F(TypeFoldersTest, ADeclarationWhoseXmlIsTooLargeToBeReadIsRefusedAndLeavesTheOldOne)
{
    EXPECT_EQ(add("Device", "Old"), TypeResult::Done);
    DeclarationOwner large = new_declaration("New");
    std::string text(60000, '"');
    for (int i = 0; i < 40; ++i)
        event_declaration_add_key_value(large.get(), ("key" + std::to_string(i)).c_str(),
                                        text.c_str(), VALUE_TYPE_STRING);
    testing::internal::CaptureStderr();
    EXPECT_EQ(add("Device", large), TypeResult::Unreadable);
    testing::internal::GetCapturedStderr();
    EXPECT_THAT(list(), ElementsAre("Old"));
    EXPECT_EQ(file_count(writable), 1u);
}

} // namespace
