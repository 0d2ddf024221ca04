// SPDX-License-Identifier: LGPL-2.1-or-later

// Declarations with topics, and trees of topics as text.
#pragma once

#include "support/records.hpp"

#include <algorithm>
#include <string>
#include <vector>

namespace qandor::test {

// The key of one topic of a declaration.
struct TopicKey {
    std::string topic;
    std::string name_space = {};
    std::string nice_name = {};
    std::vector<std::string> tags = {};
};

inline void add_topic(event_declaration *declaration, const std::string &key, const TopicKey &topic)
{
    event_declaration_add_key_value(declaration, key.c_str(), topic.topic.c_str(),
                                    VALUE_TYPE_STRING);
    if (!topic.name_space.empty())
        event_declaration_set_name_space(declaration, key.c_str(), topic.name_space.c_str());
    event_declaration_set_nice_names(declaration, key.c_str(), topic.nice_name.c_str(),
                                     "the value's nice name");
    for (const std::string &tag : topic.tags)
        event_declaration_add_key_tag(declaration, key.c_str(), tag.c_str());
}

inline Owned<event_declaration> declaration_of(const std::vector<TopicKey> &topics,
                                               guint32 local_id = 0)
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
    for (std::size_t i = 0; i < topics.size(); ++i)
        add_topic(declaration.get(), "topic" + std::to_string(i), topics[i]);
    event_declaration_set_local_id(declaration.get(), local_id);
    return declaration;
}

inline std::string text_of_tags(GHashTable *tags)
{
    std::vector<std::string> texts;
    GHashTableIter iterator;
    gpointer tag, value;
    g_hash_table_iter_init(&iterator, tags);
    while (g_hash_table_iter_next(&iterator, &tag, &value))
        texts.push_back(std::string(" #") + static_cast<gchar *>(tag) + "=" +
                        static_cast<gchar *>(value));
    std::sort(texts.begin(), texts.end());
    std::string text;
    for (const std::string &one : texts)
        text += one;
    return text;
}

// "topic {name space} (nice name) #tag=true 2 1", the numbers being the events' local ids.
inline std::string text_of_node(const GNode *node)
{
    const auto *info = static_cast<const topic_node_data *>(node->data);
    std::string text = info->topic;
    if (info->name_space)
        text += std::string(" {") + info->name_space + "}";
    if (info->nice_name)
        text += std::string(" (") + info->nice_name + ")";
    text += text_of_tags(info->tags);
    for (GSList *link = info->events; link; link = link->next)
        text += " " + std::to_string(event_get_local_id(static_cast<event *>(link->data)));
    return text;
}

// A line for each node but the head, each level with two more spaces in front.
inline std::string text_of_tree(const GNode *head, const std::string &indentation = "")
{
    std::string text;
    for (const GNode *node = head->children; node; node = node->next)
        text += indentation + text_of_node(node) + "\n" + text_of_tree(node, indentation + "  ");
    return text;
}

} // namespace qandor::test
