// SPDX-License-Identifier: LGPL-2.1-or-later

// Trees of topics against a second implementation that does everything by hand, and trees of a size
// that nobody should have but a stranger may declare.

#include "query/topictree.hpp"
#include "support/topictrees.hpp"

#include <gtest/gtest.h>

#include <pthread.h>
#include <random>

using namespace qandor;
using namespace qandor::test;

namespace {

using Topics = std::vector<TopicKey>;

struct PlainNode {
    TopicKey key;
    std::vector<std::size_t> events;
    std::vector<std::unique_ptr<PlainNode>> children;
};

PlainNode &find_or_add(PlainNode &parent, const TopicKey &key)
{
    for (std::unique_ptr<PlainNode> &child : parent.children)
        if (child->key.topic == key.topic &&
            (key.name_space.empty() || child->key.name_space == key.name_space))
            return *child;
    parent.children.push_back(std::make_unique<PlainNode>());
    parent.children.back()->key.topic = key.topic;
    return *parent.children.back();
}

void add(PlainNode &head, const Topics &topics, std::size_t id)
{
    PlainNode *node = &head;
    for (const TopicKey &key : topics) {
        if (key.topic.empty())
            break;
        node = &find_or_add(*node, key);
        if (node->key.nice_name.empty())
            node->key.nice_name = key.nice_name;
        if (node->key.name_space.empty())
            node->key.name_space = key.name_space;
        for (const std::string &tag : key.tags)
            if (std::find(node->key.tags.begin(), node->key.tags.end(), tag) ==
                node->key.tags.end())
                node->key.tags.push_back(tag);
    }
    if (node != &head)
        node->events.push_back(id);
}

std::string text_of(PlainNode &head, const std::string &indentation = "")
{
    std::string text;
    for (std::unique_ptr<PlainNode> &node : head.children) {
        text += indentation + node->key.topic;
        if (!node->key.name_space.empty())
            text += " {" + node->key.name_space + "}";
        if (!node->key.nice_name.empty())
            text += " (" + node->key.nice_name + ")";
        std::sort(node->key.tags.begin(), node->key.tags.end());
        for (const std::string &tag : node->key.tags)
            text += " #" + tag + "=true";
        for (auto id = node->events.rbegin(); id != node->events.rend(); ++id)
            text += " " + std::to_string(*id);
        text += "\n" + text_of(*node, indentation + "  ");
    }
    return text;
}

class RandomTopics {
public:
    explicit RandomTopics(unsigned seed) : engine_(seed) {}

    Topics topics()
    {
        Topics topics(1 + pick(4));
        for (TopicKey &key : topics) {
            key.topic = one_of({"a", "b", "c", "A", "a b", ""});
            key.name_space = one_of({"", "", "n", "m", "a"});
            key.nice_name = one_of({"", "one", "two"});
            for (std::size_t i = pick(3); i > 0; --i)
                key.tags.push_back(one_of({"t", "u", "v"}));
        }
        if (topics[0].topic.empty())
            topics[0].topic = "a";
        return topics;
    }

private:
    std::size_t pick(std::size_t count) { return engine_() % count; }
    std::string one_of(const std::vector<std::string> &texts) { return texts[pick(texts.size())]; }

    std::mt19937 engine_;
};

TEST(LargeTree, RandomDeclarationsMakeTheTreeThatAPlainSearchMakes)
{
    for (unsigned seed = 0; seed < 60; ++seed) {
        RandomTopics random(seed);
        PlainNode plain;
        GList *list = nullptr;
        for (guint32 id = 1; id <= 80; ++id) {
            Topics topics = random.topics();
            add(plain, topics, id);
            list = g_list_append(list, declaration_of(topics, id).release());
        }
        GNode *tree = build_topic_tree(list);
        EXPECT_EQ(text_of_tree(tree), text_of(plain)) << seed;
        event_query_free_topic_tree(tree);
    }
}

TEST(LargeTree, ManySiblingsKeepTheirOrder)
{
    constexpr guint32 count = 20000;
    GList *list = nullptr;
    for (guint32 id = count; id > 0; --id)
        list = g_list_prepend(list, declaration_of({{std::to_string(id)}}, id).release());
    GNode *tree = build_topic_tree(list);
    guint32 id = 0;
    for (GNode *node = tree->children; node; node = node->next) {
        std::string number = std::to_string(++id);
        ASSERT_EQ(text_of_node(node), number + " " + number);
    }
    EXPECT_EQ(id, count);
    event_query_free_topic_tree(tree);
}

// Builds a tree as deep as it is told, counts its levels and frees it.
void *count_levels(void *number)
{
    auto *levels = static_cast<std::size_t *>(number);
    Topics topics(*levels, TopicKey{"a"});
    GNode *tree = build_topic_tree(g_list_append(nullptr, declaration_of(topics).release()));
    *levels = 0;
    for (GNode *node = tree->children; node; node = node->children)
        ++*levels;
    event_query_free_topic_tree(tree);
    return nullptr;
}

TEST(LargeTree, ADeepOneNeedsNoDeepStack)
{
    std::size_t levels = 20000;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, count_levels, &levels), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(levels, 20000u);
}

} // namespace
