// SPDX-License-Identifier: LGPL-2.1-or-later

// Trees of topics from given declarations.

#include "query/topictree.hpp"
#include "support/logcapture.hpp"
#include "support/topictrees.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct TreeDeleter {
    void operator()(GNode *head) const { event_query_free_topic_tree(head); }
};
using Tree = std::unique_ptr<GNode, TreeDeleter>;

Tree tree_of(std::vector<Owned<event_declaration>> declarations)
{
    GList *list = nullptr;
    for (Owned<event_declaration> &declaration : declarations)
        list = g_list_append(list, declaration.release());
    return Tree(build_topic_tree(list));
}

// The declarations have the local ids 1, 2, 3 ...
Tree tree_of(const std::vector<std::vector<TopicKey>> &all_topics)
{
    std::vector<Owned<event_declaration>> declarations;
    for (const std::vector<TopicKey> &topics : all_topics)
        declarations.push_back(
            declaration_of(topics, static_cast<guint32>(declarations.size() + 1)));
    return tree_of(std::move(declarations));
}

std::string text_of(const std::vector<std::vector<TopicKey>> &all_topics)
{
    return text_of_tree(tree_of(all_topics).get());
}

event *only_event(const GNode *node)
{
    GSList *events = static_cast<topic_node_data *>(node->data)->events;
    EXPECT_EQ(g_slist_length(events), 1u);
    return static_cast<event *>(events->data);
}

TEST(TopicTree, OfNothingIsABareRootWithoutData)
{
    Tree tree(build_topic_tree(nullptr));
    EXPECT_EQ(tree->data, nullptr);
    EXPECT_EQ(tree->parent, nullptr);
    EXPECT_EQ(tree->children, nullptr);
    EXPECT_EQ(tree->next, nullptr);
}

TEST(TopicTree, DeclarationsOfOneTopicShareItsNodeAndKeepTheirOrderBelow)
{
    EXPECT_EQ(text_of({{{"Device"}, {"Power"}}, {{"Device"}, {"Load"}}, {{"Clock"}}}), "Device\n"
                                                                                       "  Power 1\n"
                                                                                       "  Load 2\n"
                                                                                       "Clock 3\n");
}

TEST(TopicTree, ATopicHasChildrenAndEventsOfItsOwn)
{
    EXPECT_EQ(text_of({{{"a"}, {"b"}, {"c"}}, {{"a"}}, {{"a"}, {"b"}}}), "a 2\n"
                                                                         "  b 3\n"
                                                                         "    c 1\n");
}

TEST(TopicTree, TheEventsOfANodeStandInReverseOrder)
{
    EXPECT_EQ(text_of({{{"a"}}, {{"a"}}, {{"a"}}}), "a 3 2 1\n");
}

TEST(TopicTree, ATopicWithoutANameSpaceJoinsTheFirstOneWhateverItsNameSpace)
{
    EXPECT_EQ(text_of({{{"a", "n"}}, {{"a"}}, {{"a", "m"}}, {{"a"}}}), "a {n} 4 2 1\n"
                                                                       "a {m} 3\n");
}

TEST(TopicTree, ATopicThatNamesANameSpaceNeverJoinsOneWithoutOrTakesItOver)
{
    EXPECT_EQ(text_of({{{"a"}}, {{"a", "n"}}, {{"a"}}, {{"a", "n"}}}), "a 3 1\n"
                                                                       "a {n} 4 2\n");
}

TEST(TopicTree, NameSpacesAreComparedOnEveryLevelOfItsOwn)
{
    EXPECT_EQ(text_of({{{"a", "n"}, {"b", "n"}}, {{"a", "m"}, {"b", "n"}}, {{"a"}, {"b", "m"}}}),
              "a {n}\n"
              "  b {n} 1\n"
              "  b {m} 3\n"
              "a {m}\n"
              "  b {n} 2\n");
}

TEST(TopicTree, ATopicThatIsEmptyOrOpenOrMissingEndsThePath)
{
    std::vector<Owned<event_declaration>> declarations;
    declarations.push_back(declaration_of({{"empty"}, {""}, {"below"}}, 1));
    declarations.push_back(declaration_of({{"open"}}, 2));
    event_declaration_add_key(declarations.back().get(), "topic1", VALUE_TYPE_STRING);
    add_topic(declarations.back().get(), "topic2", {"below"});
    declarations.push_back(declaration_of({{"missing"}}, 3));
    add_topic(declarations.back().get(), "topic2", {"below"});
    EXPECT_EQ(text_of_tree(tree_of(std::move(declarations)).get()), "empty 1\n"
                                                                    "open 2\n"
                                                                    "missing 3\n");
}

TEST(TopicTree, MoreThanTenTopicsAreReadInTheOrderOfTheirNumbers)
{
    std::vector<TopicKey> topics;
    for (int i = 0; i < 12; ++i)
        topics.push_back({std::to_string(i)});
    Tree tree = tree_of({topics});
    int depth = 0;
    for (GNode *node = tree->children; node; node = node->children, ++depth)
        EXPECT_EQ(static_cast<topic_node_data *>(node->data)->topic, std::to_string(depth));
    EXPECT_EQ(depth, 12);
}

TEST(TopicTree, TheFirstNiceNameThatIsNotEmptyStays)
{
    EXPECT_EQ(text_of({{{"a"}}, {{"a", "", "first"}}, {{"a", "", "second"}}, {{"a"}}}),
              "a (first) 4 3 2 1\n");
}

TEST(TopicTree, TheTagsOfAllKeysThatLeadToANodeAreGathered)
{
    EXPECT_EQ(
        text_of({{{"a", "", "", {"t", "u"}}, {"b", "", "", {"v"}}}, {{"a", "", "", {"u", "w"}}}}),
        "a #t=true #u=true #w=true 2\n"
        "  b #v=true 1\n");
}

TEST(TopicTree, AnEventHasTheIdsTheOpenKeysAndTheNatureOfItsDeclaration)
{
    std::vector<Owned<event_declaration>> declarations;
    declarations.push_back(declaration_of({{"a"}}, 7));
    event_declaration_set_global_id(declarations.back().get(), 70);
    event_declaration_set_property(declarations.back().get(), "state", nullptr, nullptr);
    Tree tree = tree_of(std::move(declarations));
    event *event = only_event(tree->children);
    EXPECT_EQ(event_get_global_id(event), 70u);
    EXPECT_TRUE(event_is_property(event));
    EXPECT_FALSE(event_is_complete(event));
    EXPECT_TRUE(event_set_value(event, "state", "on"));
    EXPECT_TRUE(event_is_complete(event));
}

TEST(TopicTree, ADeclarationThatWasReadFromBytesOrXmlHasItsPlaceToo)
{
    Owned<event_declaration> given = declaration_of({{"a", "n", "nice", {"t"}}, {"b"}}, 1);
    Owned<GArray> bytes(event_declaration_serialize(given.get()));
    Owned<gchar> xml(event_declaration_serialize_xml(given.get()));
    std::vector<Owned<event_declaration>> declarations;
    declarations.emplace_back(event_declaration_deserialize(bytes.get()));
    declarations.emplace_back(event_declaration_deserialize_xml(xml.get()));
    EXPECT_EQ(text_of_tree(tree_of(std::move(declarations)).get()), "a {n} (nice) #t=true\n"
                                                                    "  b 0 1\n");
}

TEST(TopicTree, InternalDeclarationsAreLeftOutSilently)
{
    LogCapture log;
    std::vector<Owned<event_declaration>> declarations;
    declarations.emplace_back(event_declaration_new(TRUE));
    declarations.emplace_back(event_declaration_new(TRUE));
    add_topic(declarations.back().get(), "topic0", {"a"});
    declarations.push_back(declaration_of({{"b"}}, 3));
    EXPECT_EQ(text_of_tree(tree_of(std::move(declarations)).get()), "b 3\n");
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST(TopicTree, ExternalDeclarationsWithoutATopicAreLeftOutWithAWarning)
{
    LogCapture log;
    std::vector<Owned<event_declaration>> declarations;
    declarations.push_back(declaration_of({}, 1));
    declarations.push_back(declaration_of({{""}, {"b"}}, 2));
    declarations.push_back(declaration_of({{"c"}}, 3));
    EXPECT_EQ(text_of_tree(tree_of(std::move(declarations)).get()), "c 3\n");
    const char *warning = "Event is external but doesn't contain a topic";
    EXPECT_THAT(log.warnings(), ElementsAre(warning, warning));
}

TEST(TopicTree, ATreeFromAnEarlierPlaceInAnotherIsCutOutWhenItIsFreed)
{
    Tree tree = tree_of({{{"a"}, {"b"}}, {{"c"}}});
    event_query_free_declaration_tree(tree->children);
    EXPECT_EQ(text_of_tree(tree.get()), "c 2\n");
}

TEST(TopicTree, NodesThatAnApplicationAddedWithoutDataAreFreedAlong)
{
    Tree tree = tree_of({{{"a"}}});
    g_node_append_data(tree->children, nullptr);
    tree.reset();
}

TEST(TopicTreeDeathTest, FreeingWantsATreeWhoseNodesHaveTopics)
{
    EXPECT_DEATH(event_query_free_topic_tree(nullptr), "head != NULL");
    EXPECT_DEATH(event_query_free_declaration_tree(nullptr), "head != NULL");
    Tree tree = tree_of({{{"a"}}});
    auto *info = static_cast<topic_node_data *>(tree->children->data);
    EXPECT_DEATH(
        {
            info->topic = nullptr;
            event_query_free_topic_tree(tree.get());
        },
        "info->topic != NULL");
}

} // namespace
