// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/topics.hpp"

#include <algorithm>

namespace qandor::cli {
namespace {

// A topic without a name space is at home under any that has the name.
TopicNode &child_of(TopicNode &node, const KeyView &topic)
{
    for (TopicNode &child : node.children)
        if (child.name == topic.value &&
            (topic.name_space.empty() || child.name_space == topic.name_space))
            return child;
    TopicNode &made = node.children.emplace_back();
    made.name = topic.value;
    return made;
}

void describe(TopicNode &node, const KeyView &topic)
{
    if (node.nice_name.empty())
        node.nice_name = topic.nice_name;
    if (node.name_space.empty())
        node.name_space = topic.name_space;
    for (const std::string &tag : topic.tags) {
        auto place = std::lower_bound(node.tags.begin(), node.tags.end(), tag);
        if (place == node.tags.end() || *place != tag)
            node.tags.insert(place, tag);
    }
}

} // namespace

TopicNode tree_of(const std::vector<Declaration> &declarations)
{
    TopicNode root;
    for (const Declaration &declaration : declarations) {
        std::vector<KeyView> topics = topics_of(keys_of(declaration.sample()));
        if (declaration.is_internal() || topics.empty())
            continue;
        TopicNode *node = &root;
        for (const KeyView &topic : topics) {
            node = &child_of(*node, topic);
            describe(*node, topic);
        }
        node->declarations.push_back(&declaration);
    }
    return root;
}

} // namespace qandor::cli
