// SPDX-License-Identifier: LGPL-2.1-or-later

// The log lines and the plain view of key-values and inspectables.

#include "support/logcapture.hpp"
#include "support/records.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string line(const char *name_space, const char *key_nice_name, const char *value_nice_name,
                 const char *complex_type_name, gboolean negated)
{
    Owned<key_value> record(key_value_new("key", FALSE, name_space, key_nice_name, "value", FALSE,
                                          value_nice_name, "user", complex_type_name, negated));
    LogCapture log;
    key_value_print(record.get());
    return log.messages().at(0);
}

TEST(KeyValueLine, HasEachPartInItsPlace)
{
    EXPECT_EQ(line("", "", "", "", FALSE), "[key = 'value']");
    EXPECT_EQ(line("", "", "", "", TRUE), "[key != 'value']");
    EXPECT_EQ(line("ns", "", "", "", FALSE), "[ns:key = 'value']");
    EXPECT_EQ(line("", "Key", "", "", FALSE), "[key (Key) = 'value']");
    EXPECT_EQ(line("", "", "", "Type", TRUE), "[key {Type} != 'value']");
    EXPECT_EQ(line("", "", "Value", "", FALSE), "[key = 'value' (Value)]");
    EXPECT_EQ(line("ns", "Key", "Value", "Type", TRUE), "[ns:key (Key) {Type} != 'value' (Value)]");
}

TEST(KeyValueLine, AKeyWildcardShowsNoNameSpace)
{
    Owned<key_value> record(key_value_new(nullptr, TRUE, "ns", "", "v", FALSE, "", "", "", TRUE));
    LogCapture log;
    key_value_print(record.get());
    EXPECT_THAT(log.messages(), ElementsAre("[* != 'v']"));
}

TEST(KeyValueLine, TakesPercentSignsAsTheyAre)
{
    Owned<key_value> record(key_value_new("%s", FALSE, "%n", "", "%d", FALSE, "", "", "", FALSE));
    key_value_add_tag(record.get(), "%x");
    LogCapture log;
    key_value_print(record.get());
    EXPECT_THAT(log.messages(), ElementsAre("[%n:%s = '%d'] {%x}"));
}

TEST(InspectableLines, HaveKeysAlternativesAndTagsOneALine)
{
    Owned<inspectable> expression(inspectable_new(IT_SUBSCRIBE_EXPRESSION));
    inspectable *inspect = expression.get();
    inspectable_add_key_value(inspect, nullptr, TRUE, "x", FALSE, FALSE);
    inspectable_add_key_value(inspect, "a", FALSE, "1", FALSE, TRUE);
    inspectable_or(inspect);
    inspectable_or(inspect);
    inspectable_add_key_value(inspect, "b", FALSE, nullptr, TRUE, FALSE);
    LogCapture log;
    inspectable_print(inspect);
    EXPECT_THAT(log.messages(), ElementsAre("[a != '1']", "[* = 'x']", "OR", "OR", "[b = '*']"));
}

TEST(InspectableLines, TagsComeInTheirOrderAfterTheKeys)
{
    Owned<inspectable> event(inspectable_new(IT_EVENT));
    inspectable_add_tag(event.get(), "s");
    inspectable_add_tag(event.get(), "t%s");
    inspectable_add_key_value(event.get(), "a", FALSE, "1", FALSE, FALSE);
    LogCapture log;
    inspectable_print(event.get());
    EXPECT_THAT(log.messages(), ElementsAre("[a = '1']", "{s}", "{t%s}"));
}

TEST(InspectableLines, ThereAreNoneForNothing)
{
    Owned<inspectable> event(inspectable_new(IT_EVENT));
    LogCapture log;
    inspectable_print(event.get());
    EXPECT_THAT(log.messages(), IsEmpty());
}

std::vector<std::string> keys_of(GList *raw)
{
    std::vector<std::string> keys;
    for (GList *link = raw; link; link = link->next) {
        auto *item = static_cast<key_value_raw *>(link->data);
        keys.push_back((item->key ? item->key : "*") + std::string(item->negated ? "!=" : "=") +
                       (item->value ? item->value : "*"));
    }
    return keys;
}

TEST(PlainView, ReversesAlternativesBucketsAndWhatIsInABucket)
{
    Owned<inspectable> expression(inspectable_new(IT_SUBSCRIBE_EXPRESSION));
    inspectable *inspect = expression.get();
    inspectable_add_key_value(inspect, "a", FALSE, "1", FALSE, FALSE);
    inspectable_add_key_value(inspect, nullptr, TRUE, "x", FALSE, TRUE);
    inspectable_add_key_value(inspect, "a", FALSE, "2", FALSE, FALSE);
    inspectable_add_key_value(inspect, nullptr, TRUE, "x", FALSE, FALSE);
    inspectable_or(inspect);
    inspectable_add_key_value(inspect, "b", FALSE, nullptr, TRUE, FALSE);
    GList *raw = inspectable_get_raw(inspect);
    ASSERT_EQ(g_list_length(raw), 2u);
    EXPECT_THAT(keys_of(static_cast<GList *>(raw->data)), ElementsAre("b=*"));
    EXPECT_THAT(keys_of(static_cast<GList *>(raw->next->data)),
                ElementsAre("*=x", "*!=x", "a=2", "a=1"));
    inspectable_free_raw(raw);
}

TEST(PlainView, AnEmptyAndListIsAnEmptyEntryAndNoAndListIsNothing)
{
    Owned<inspectable> event(inspectable_new(IT_EVENT));
    GList *raw = inspectable_get_raw(event.get());
    ASSERT_EQ(g_list_length(raw), 1u);
    EXPECT_EQ(raw->data, nullptr);
    inspectable_free_raw(raw);
    guint indx = 0;
    Owned<inspectable> none(
        inspectable_deserialize_internal(array_of({0xF2, 0, 0, 2, 0, 0, 0}).get(), &indx));
    EXPECT_EQ(inspectable_get_raw(none.get()), nullptr);
    inspectable_free_raw(nullptr);
}

} // namespace
